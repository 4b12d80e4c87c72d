#include <tests/support/MediaJudge.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// Side of the small square picture on which a bar code is read.
constexpr int readingSide = 80;

ProgramResult run(const std::vector<std::string>& argv) {
  ProgramResult result = runProgram(argv, {.deadline = std::chrono::minutes(5)});
  if (!result.succeeded()) {
    throw std::runtime_error(argv.front() + " could not judge " + argv.back() + ": " + result.standardError);
  }
  return result;
}

json probe(const fs::path& path, const std::vector<std::string>& arguments, const char* section) {
  std::vector<std::string> argv{"ffprobe", "-v", "error", "-of", "json"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  argv.push_back(path);
  return json::parse(run(argv).standardOutput).at(section);
}

std::string text(const json& object, const char* key) { return object.value(key, ""); }

/// ffprobe prints some numbers as numbers, others as strings.
template <typename Number = double>
Number number(const json& object, const char* key) {
  const json value = object.value(key, json(0));
  return static_cast<Number>(value.is_string() ? std::atof(value.get<std::string>().c_str()) : value.get<double>());
}

/// From lines such as "00000000:            0       65536           0".
std::array<std::int64_t, 9> matrixOf(const std::string& dump) {
  std::array<std::int64_t, 9> matrix{};
  std::size_t next = 0;
  std::istringstream words(dump);
  for (std::string word; words >> word;) {
    if (word.back() != ':') matrix.at(next++) = std::stoll(word);
  }
  return matrix;
}

ProbedStream factsOf(const json& stream) {
  ProbedStream facts{.type = text(stream, "codec_type"),
                     .codec = text(stream, "codec_name"),
                     .profile = text(stream, "profile"),
                     .tag = text(stream, "codec_tag_string"),
                     .width = number<int>(stream, "width"),
                     .height = number<int>(stream, "height"),
                     .pixelFormat = text(stream, "pix_fmt"),
                     .colorRange = text(stream, "color_range"),
                     .colorSpace = text(stream, "color_space"),
                     .colorTransfer = text(stream, "color_transfer"),
                     .colorPrimaries = text(stream, "color_primaries"),
                     .startTime = number(stream, "start_time"),
                     .duration = number(stream, "duration"),
                     .frames = number<std::int64_t>(stream, "nb_frames"),
                     .bitRate = number<std::int64_t>(stream, "bit_rate"),
                     .sampleRate = number<int>(stream, "sample_rate"),
                     .channels = number<int>(stream, "channels")};
  for (const json& side : stream.value("side_data_list", json::array())) {
    if (side.contains("displaymatrix")) {
      facts.matrix = matrixOf(text(side, "displaymatrix"));
      facts.rotation = (360 - number<int>(side, "rotation")) % 360;  // ffprobe counts counter-clockwise
    }
  }
  return facts;
}

/// The times that a showinfo or ashowinfo filter printed, as whole ticks of its time base.
struct ShownTimes {
  double tick = 0;
  std::vector<std::int64_t> ticks;
  std::vector<std::int64_t> sampleCounts;  ///< of sound
};

ShownTimes shownTimes(const std::string& printed) {
  static const std::regex timeBase(R"(config in time_base: (\d+)/(\d+))");
  static const std::regex frame(R"(showinfo_\d+ @ \S+\] n: *\d+ pts: *(-?\d+)(.* nb_samples:(\d+))?)");
  ShownTimes times;
  std::istringstream lines(printed);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_search(line, match, timeBase)) {
      times.tick = std::stod(match[1]) / std::stod(match[2]);
    } else if (line.find("showinfo") != std::string::npos && std::regex_search(line, match, frame)) {
      times.ticks.push_back(std::stoll(match[1]));
      times.sampleCounts.push_back(match[3].matched ? std::stoll(match[3]) : 0);
    }
  }
  return times;
}

std::uint64_t bigEndian(const std::string& bytes, std::size_t at, std::size_t count) {
  std::uint64_t value = 0;
  for (const char byte : bytes.substr(at, count)) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

}  // namespace

std::vector<ProbedStream> MediaJudge::streams() const {
  std::vector<ProbedStream> all;
  for (const json& stream : probe(path_, {"-show_streams"}, "streams")) all.push_back(factsOf(stream));
  return all;
}

ProbedStream MediaJudge::stream(const std::string& type) const {
  for (const ProbedStream& facts : streams()) {
    if (facts.type == type) return facts;
  }
  throw std::runtime_error(path_.string() + " has no " + type + " stream");
}

double MediaJudge::duration() const { return number(probe(path_, {"-show_format"}, "format"), "duration"); }

std::array<std::uint64_t, 2> MediaJudge::movieHeaderDuration() const {
  const std::string bytes = fileBytes(path_);
  const std::size_t box = bytes.find("mvhd", bytes.find("moov"));
  if (box == std::string::npos) throw std::runtime_error(path_.string() + " has no movie header");
  // ISO/IEC 14496-12, 8.2.2: version 1 has 64-bit times and duration.
  return bytes.at(box + 4) == 1 ? std::array{bigEndian(bytes, box + 28, 8), bigEndian(bytes, box + 24, 4)}
                                : std::array{bigEndian(bytes, box + 20, 4), bigEndian(bytes, box + 16, 4)};
}

std::vector<SeenPicture> MediaJudge::pictures() const {
  const std::string side = std::to_string(readingSide);
  const std::string filter = "showinfo=checksum=0,scale=" + side + ":" + side + ":flags=area,format=gray";
  const ProgramResult result = run({"ffmpeg", "-nostdin", "-hide_banner", "-copyts", "-noautorotate", "-i", path_,
                                    "-map", "0:v:0", "-vf", filter, "-fps_mode", "passthrough", "-f", "rawvideo", "-"});
  const ShownTimes times = shownTimes(result.standardError);
  constexpr auto size = std::size_t{readingSide} * readingSide;
  const std::string& raw = result.standardOutput;
  if (raw.size() != size * times.ticks.size()) {
    throw std::runtime_error("ffmpeg wrote more or fewer pictures of " + path_.string() + " than it showed");
  }
  std::vector<SeenPicture> pictures;
  for (std::size_t i = 0; i < times.ticks.size(); ++i) {
    const auto* pixels = reinterpret_cast<const std::uint8_t*>(raw.data()) + i * size;
    const auto code = BarCode::read({readingSide, readingSide, {pixels, pixels + size}});
    const double seconds = static_cast<double>(times.ticks[i]) * times.tick;
    pictures.push_back({seconds, code ? code->number : -1, code ? code->orientation : Orientation{}});
  }
  return pictures;
}

std::vector<std::string> MediaJudge::pictureHashes() const {
  const ProgramResult result = run({"ffmpeg", "-nostdin", "-v", "error", "-noautorotate", "-i", path_, "-map", "0:v:0",
                                    "-fps_mode", "passthrough", "-f", "framemd5", "-"});
  std::vector<std::string> hashes;
  std::istringstream lines(result.standardOutput);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with('#')) hashes.push_back(line.substr(line.find_last_of(' ') + 1));
  }
  return hashes;
}

Sound MediaJudge::sound(int rate) const {
  // Each frame is placed by its own time stamp: a hole, however short, stays a hole.
  const std::string form = "aformat=sample_fmts=flt:channel_layouts=mono:sample_rates=" + std::to_string(rate);
  const ProgramResult result = run({"ffmpeg", "-nostdin", "-hide_banner", "-copyts", "-i", path_, "-map", "0:a:0",
                                    "-af", form + ",ashowinfo", "-f", "f32le", "-"});
  const ShownTimes times = shownTimes(result.standardError);
  std::vector<float> decoded(result.standardOutput.size() / sizeof(float));
  std::memcpy(decoded.data(), result.standardOutput.data(), decoded.size() * sizeof(float));
  Sound sound{rate, {}};
  std::size_t taken = 0;
  for (std::size_t i = 0; i < times.ticks.size(); ++i) {
    const std::int64_t at = times.ticks[i];  // the filter's time base is 1 / rate
    for (std::int64_t k = 0; k < times.sampleCounts[i] && taken < decoded.size(); ++k, ++taken) {
      if (at + k < 0) continue;
      sound.samples.resize(std::max(sound.samples.size(), static_cast<std::size_t>(at + k + 1)));
      sound.samples[static_cast<std::size_t>(at + k)] = decoded[taken];
    }
  }
  return sound;
}

std::vector<CodedSample> MediaJudge::codedSamples(const std::string& type) const {
  const std::string select = type.substr(0, 1) + ":0";
  std::vector<CodedSample> samples;
  for (const json& packet :
       probe(path_, {"-select_streams", select, "-show_packets", "-show_data_hash", "md5"}, "packets")) {
    samples.push_back({number(packet, "pts_time"), number(packet, "dts_time"), text(packet, "flags").starts_with('K'),
                       number<std::int64_t>(packet, "size"), number<std::int64_t>(packet, "pos"),
                       text(packet, "data_hash")});
  }
  return samples;
}

std::string MediaJudge::warnings() const {
  return run({"ffprobe", "-v", "warning", "-count_frames", "-show_entries", "stream=nb_read_frames", path_})
      .standardError;
}

std::vector<int> numbersOf(const std::vector<SeenPicture>& pictures) {
  std::vector<int> numbers;
  for (const SeenPicture& picture : pictures) numbers.push_back(picture.number);
  return numbers;
}

int numberAt(const std::vector<SeenPicture>& pictures, double seconds) {
  int number = -1;
  for (const SeenPicture& picture : pictures) {
    if (picture.seconds <= seconds) number = picture.number;
  }
  return number;
}

std::vector<std::string> hashesOf(const std::vector<CodedSample>& samples) {
  std::vector<std::string> hashes;
  for (const CodedSample& sample : samples) hashes.push_back(sample.hash);
  return hashes;
}

}  // namespace clipworks::test
