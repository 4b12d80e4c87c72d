#include <tests/support/MediaJudge.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include <tests/support/RunProgram.h>

namespace clipworks::test {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// Side of the small square picture on which a bar code is read.
constexpr int readingSide = 80;

ProgramResult run(const std::vector<std::string>& argv) {
  ProgramResult result = runProgram(argv, {.deadline = std::chrono::minutes(5)});
  if (!result.succeeded()) {
    std::ostringstream message;
    message << argv.front() << " could not judge " << argv.back() << ": ";
    result.standardOutput.resize(std::min<std::size_t>(result.standardOutput.size(), 1000));
    message << result;
    throw std::runtime_error(message.str());
  }
  return result;
}

json probe(const fs::path& path, const std::vector<std::string>& arguments) {
  std::vector<std::string> argv{"ffprobe", "-v", "error", "-of", "json"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  argv.push_back(path);
  return json::parse(run(argv).standardOutput);
}

std::string text(const json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

/// ffprobe prints some numbers as numbers, others as strings.
double number(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) return 0;
  return found->is_number() ? found->get<double>() : std::atof(text(object, key).c_str());
}

double ratio(const std::string& fraction) {
  const std::size_t slash = fraction.find('/');
  const double den = slash == std::string::npos ? 1 : std::atof(fraction.c_str() + slash + 1);
  return den != 0 ? std::atof(fraction.c_str()) / den : 0;
}

/// From lines such as "00000000:            0       65536           0".
std::optional<std::array<std::int64_t, 9>> matrixOf(const std::string& dump) {
  std::array<std::int64_t, 9> matrix{};
  std::size_t next = 0;
  std::istringstream words(dump);
  for (std::string word; words >> word;) {
    if (word.back() != ':' && next < matrix.size()) matrix[next++] = std::stoll(word);
  }
  return next == matrix.size() ? std::optional(matrix) : std::nullopt;
}

ProbedStream factsOf(const json& stream) {
  ProbedStream facts;
  facts.type = text(stream, "codec_type");
  facts.codec = text(stream, "codec_name");
  facts.profile = text(stream, "profile");
  facts.tag = text(stream, "codec_tag_string");
  facts.width = static_cast<int>(number(stream, "width"));
  facts.height = static_cast<int>(number(stream, "height"));
  facts.pixelFormat = text(stream, "pix_fmt");
  facts.colorRange = text(stream, "color_range");
  facts.colorSpace = text(stream, "color_space");
  facts.colorTransfer = text(stream, "color_transfer");
  facts.colorPrimaries = text(stream, "color_primaries");
  facts.startTime = number(stream, "start_time");
  facts.duration = number(stream, "duration");
  facts.frames = static_cast<std::int64_t>(number(stream, "nb_frames"));
  facts.bitRate = static_cast<std::int64_t>(number(stream, "bit_rate"));
  facts.sampleRate = static_cast<int>(number(stream, "sample_rate"));
  facts.channels = static_cast<int>(number(stream, "channels"));
  facts.averageFrameRate = ratio(text(stream, "avg_frame_rate"));
  for (const json& side : stream.value("side_data_list", json::array())) {
    if (side.contains("displaymatrix")) {
      facts.matrix = matrixOf(text(side, "displaymatrix"));
      // ffprobe counts counter-clockwise.
      facts.rotation = ((-static_cast<int>(number(side, "rotation"))) % 360 + 360) % 360;
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

std::uint64_t bigEndian(const std::string& bytes, std::size_t at, int count) {
  std::uint64_t value = 0;
  for (int i = 0; i < count; ++i) {
    value = value << 8 | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
  }
  return value;
}

}  // namespace

std::vector<ProbedStream> MediaJudge::streams() const {
  std::vector<ProbedStream> all;
  const json found = probe(path_, {"-show_streams"});
  for (const json& stream : found.at("streams")) all.push_back(factsOf(stream));
  return all;
}

ProbedStream MediaJudge::stream(const std::string& type) const {
  for (const ProbedStream& facts : streams()) {
    if (facts.type == type) return facts;
  }
  throw std::runtime_error(path_.string() + " has no " + type + " stream");
}

double MediaJudge::duration() const { return number(probe(path_, {"-show_format"}).at("format"), "duration"); }

std::array<std::uint64_t, 2> MediaJudge::movieHeaderDuration() const {
  std::ifstream in(path_, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  const std::size_t moov = bytes.find("moov");
  const std::size_t box = moov == std::string::npos ? moov : bytes.find("mvhd", moov);
  if (box == std::string::npos) throw std::runtime_error(path_.string() + " has no movie header");
  // ISO/IEC 14496-12, 8.2.2: version 1 has 64-bit times and duration.
  return bytes.at(box + 4) == 1 ? std::array{bigEndian(bytes, box + 28, 8), bigEndian(bytes, box + 24, 4)}
                                : std::array{bigEndian(bytes, box + 20, 4), bigEndian(bytes, box + 16, 4)};
}

std::vector<SeenPicture> MediaJudge::pictures(PictureView view) const {
  const std::string side = std::to_string(readingSide);
  std::vector<std::string> argv{"ffmpeg", "-nostdin", "-hide_banner", "-copyts"};
  if (view == PictureView::coded) argv.emplace_back("-noautorotate");
  argv.insert(argv.end(), {"-i", path_, "-map", "0:v:0", "-vf",
                           "showinfo=checksum=0,scale=" + side + ":" + side + ":flags=area,format=gray", "-fps_mode",
                           "passthrough", "-f", "rawvideo", "-"});
  const ProgramResult result = run(argv);
  const ShownTimes times = shownTimes(result.standardError);
  constexpr auto size = std::size_t{readingSide} * readingSide;
  const std::string& raw = result.standardOutput;
  if (raw.size() != size * times.ticks.size()) {
    throw std::runtime_error("ffmpeg showed " + std::to_string(times.ticks.size()) + " pictures of " + path_.string() +
                             " and wrote " + std::to_string(raw.size() / size));
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
      if (at + k >= 0) {
        const auto index = static_cast<std::size_t>(at + k);
        sound.samples.resize(std::max(sound.samples.size(), index + 1));
        sound.samples[index] = decoded[taken];
      }
    }
  }
  return sound;
}

std::vector<CodedSample> MediaJudge::codedSamples(const std::string& type) const {
  const json found =
      probe(path_, {"-select_streams", type.substr(0, 1) + ":0", "-show_packets", "-show_data_hash", "md5"});
  std::vector<CodedSample> samples;
  for (const json& packet : found.at("packets")) {
    CodedSample sample;
    sample.presentation = number(packet, "pts_time");
    sample.decode = number(packet, "dts_time");
    sample.isAccessPoint = text(packet, "flags").starts_with('K');
    sample.bytes = static_cast<std::int64_t>(number(packet, "size"));
    sample.hash = text(packet, "data_hash");
    samples.push_back(std::move(sample));
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
