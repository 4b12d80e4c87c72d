#include <tests/support/BarCodeClip.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <fstream>
#include <stdexcept>
#include <utility>

#include <tests/support/BarCode.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>
#include <tests/support/Tone.h>

namespace clipworks::test {

namespace {

namespace fs = std::filesystem;

constexpr int white = 235;
constexpr int black = 16;

/// The pictures' times in whole ticks.
struct Timing {
  int timescale;
  std::vector<std::int64_t> times;
  std::int64_t lastLength;

  explicit Timing(const ClipOptions& options) : timescale(options.rate.num), lastLength(options.rate.den) {
    for (int i = 0; i < options.frames; ++i) times.push_back(std::int64_t{i} * options.rate.den);
    if (options.frameTimes.empty()) return;
    timescale = options.timescale;
    times = options.frameTimes;
    lastLength = options.lastFrameLength;
    if (lastLength == 0) lastLength = times.size() > 1 ? times.back() - times[times.size() - 2] : timescale;
  }

  [[nodiscard]] double seconds(std::int64_t ticks) const { return static_cast<double>(ticks) / timescale; }
  [[nodiscard]] double end() const { return times.empty() ? 0 : seconds(times.back() + lastLength); }
};

std::string littleEndian(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
  return text;
}

/// 0 … 127 … 0 over 256 steps: moves without sharp edges.
int wave(int phase) {
  phase &= 255;
  return phase < 128 ? phase : 255 - phase;
}

/// The luma of the bar code at a pixel of a plane; -1 beside the panel.
int cellAt(int number, int x, int y, int width, int height) {
  const double u = ((x + 0.5) / width - BarCode::panelStart) / BarCode::panelLength;
  const double v = ((y + 0.5) / height - BarCode::panelStart) / BarCode::panelLength;
  if (u < 0 || u >= 1 || v < 0 || v >= 1) return -1;
  const int column = static_cast<int>(u * BarCode::columns);
  return BarCode::isWhite(number, column, static_cast<int>(v * BarCode::rows)) ? white : black;
}

std::string paint(const ClipOptions& options, int number) {
  std::string planes;
  for (const int plane : {0, 1, 2}) {
    const int width = plane == 0 ? options.width : (options.width + 1) / 2;
    const int height = plane == 0 ? options.height : (options.height + 1) / 2;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const int cell = cellAt(number, x, y, width, height);
        const int background = plane == 0   ? 40 + wave(2 * x + y + 4 * number)
                               : plane == 1 ? 90 + wave(x + 3 * number) / 2
                                            : 100 + wave(2 * y - 2 * number) / 2;
        planes.push_back(static_cast<char>(cell < 0 ? background : plane == 0 ? cell : 128));
      }
    }
  }
  return planes;
}

/// The raw pictures as an IVF stream, the simplest container that gives each picture a time of its own: a header, then
/// each picture; none at the end.
std::string streamPart(const ClipOptions& options, const Timing& timing, std::size_t part) {
  const auto number = [](auto value, int bytes) { return littleEndian(static_cast<std::uint64_t>(value), bytes); };
  if (timing.times.empty() || part > timing.times.size()) return "";
  if (part == 0) {
    return "DKIF" + number(0, 2) + number(32, 2) + "I420" + number(options.width, 2) + number(options.height, 2) +
           number(timing.timescale, 4) + number(1, 4) + number(timing.times.size(), 8);
  }
  const std::string picture = paint(options, static_cast<int>(part) - 1);
  return number(picture.size(), 4) + number(timing.times[part - 1], 8) + picture;
}

void append(std::vector<std::string>& to, std::initializer_list<std::string> more) {
  to.insert(to.end(), more.begin(), more.end());
}

bool isMovie(const ClipOptions& options) { return options.extension == ".mp4" || options.extension == ".mov"; }

/// Ticks a second in the file: as the muxer of movies chooses them, a picture's length, or the milliseconds of
/// Matroska.
int trackTimescale(const ClipOptions& options, const Timing& timing) {
  if (options.extension == ".avi" || options.extension == ".ogv") return timing.timescale;
  if (!isMovie(options)) return 1000;
  if (options.timescale > 0) return options.timescale;
  int scale = timing.timescale;
  while (scale < 10'000) scale *= 2;
  return scale;
}

void appendVideoArguments(std::vector<std::string>& argv, const ClipOptions& options, const Timing& timing) {
  const bool open = options.groups == GroupOfPictures::open;
  const std::string gop = std::to_string(options.gop);
  append(argv, {"-map", "0:v", "-fps_mode", "passthrough", "-enc_time_base:v", "-1", "-c:v", options.videoCodec});
  append(argv, {"-pix_fmt", options.pixelFormat, "-g", gop, "-bf", std::to_string(options.bFrames)});
  const std::string groups = "scenecut=0:keyint=" + gop + ":min-keyint=" + gop + ":open-gop=" + (open ? "1" : "0");
  if (options.videoCodec == "libx264") {
    append(argv, {"-preset", options.preset, "-threads:v", "2", "-x264-params", groups});
  } else if (options.videoCodec == "libx265") {
    const std::string own = "log-level=error:frame-threads=1:bframes=" + std::to_string(options.bFrames) + ":";
    append(argv, {"-preset", options.preset, "-x265-params", own + groups});
    if (isMovie(options)) append(argv, {"-tag:v", "hvc1"});
  }
  // The encoder forgets the last picture's length, which this filter takes in the track's ticks (its TB are those of
  // the encoder); the times are passed on, since its default is not to.
  const std::int64_t scale = trackTimescale(options, timing);
  const std::string length = std::to_string((timing.lastLength * scale + timing.timescale / 2) / timing.timescale);
  append(argv, {"-bsf:v", "setts=pts=PTS:dts=DTS:duration=" + length});
  if (isMovie(options)) append(argv, {"-video_track_timescale", std::to_string(scale)});
}

/// Writes the tone as raw samples and appends them as an input.
void appendSoundInput(std::vector<std::string>& argv, const ClipOptions& options, double videoEnd,
                      const fs::path& rawFile) {
  const double length = options.audioSeconds >= 0 ? options.audioSeconds : videoEnd - options.audioDelay;
  const Sound tone = makeTone(options.sampleRate, options.audioDelay, length);
  std::vector<float> raw;
  for (const float sample : tone.samples) raw.insert(raw.end(), static_cast<std::size_t>(options.channels), sample);
  std::ofstream(rawFile, std::ios::binary)
      .write(reinterpret_cast<const char*>(raw.data()), static_cast<std::streamsize>(raw.size() * sizeof(float)));
  append(argv, {"-itsoffset", std::to_string(options.audioDelay), "-f", "f32le", "-ar",
                std::to_string(options.sampleRate), "-ac", std::to_string(options.channels), "-i", rawFile});
}

void writeRotation(const fs::path& path, const ClipOptions& options) {
  // With the translation that brings the turned picture back to the origin.
  const double width = options.width;
  const double height = options.height;
  const std::array<TrackMatrix, 3> turns{
      {{0, 1, -1, 0, height, 0}, {-1, 0, 0, -1, width, height}, {0, -1, 1, 0, 0, width}}};
  setMatrix(path, turns.at(static_cast<std::size_t>(options.rotation / 90 - 1)));
}

void makeClip(const ClipOptions& options, const fs::path& path) {
  const Timing timing(options);
  const fs::path rawFile = path.string() + ".raw";
  // -copyts: pictures that start after zero stay there.
  std::vector<std::string> argv{"ffmpeg", "-v", "error", "-y", "-copyts"};
  if (!timing.times.empty()) append(argv, {"-f", "ivf", "-i", "pipe:0"});
  if (!options.audioCodec.empty()) appendSoundInput(argv, options, timing.end(), rawFile);
  if (!timing.times.empty()) appendVideoArguments(argv, options, timing);
  if (!options.audioCodec.empty()) {
    append(argv, {"-map", timing.times.empty() ? "0:a" : "1:a", "-c:a", options.audioCodec});
  }
  append(argv, {"-fflags", "+bitexact", "-flags:v", "+bitexact", "-flags:a", "+bitexact"});
  argv.insert(argv.end(), options.outputArguments.begin(), options.outputArguments.end());
  argv.push_back(path);

  const auto nextInput = [&, part = std::size_t{0}]() mutable { return streamPart(options, timing, part++); };
  const ProgramResult result = runProgram(argv, {.deadline = std::chrono::minutes(5), .nextInput = nextInput});
  std::error_code ignored;
  fs::remove(rawFile, ignored);
  if (!result.succeeded()) throw std::runtime_error("ffmpeg made no clip: " + result.standardError);
  if (options.rotation != 0) writeRotation(path, options);
}

fs::path cachedClip(const ClipOptions& options) {
  static const TemporaryDirectory directory;
  static std::deque<std::pair<ClipOptions, fs::path>> clips;
  const auto made = std::find_if(clips.begin(), clips.end(), [&](const auto& clip) { return clip.first == options; });
  if (made != clips.end()) return made->second;
  const fs::path path = directory.file("clip" + std::to_string(clips.size()) + options.extension);
  makeClip(options, path);
  return clips.emplace_back(options, path).second;
}

}  // namespace

void setMatrix(const fs::path& movie, const TrackMatrix& matrix) {
  const auto [a, b, c, d, x, y] = matrix;
  std::string bytes = fileBytes(movie);
  const std::size_t box = bytes.find("tkhd");
  if (box == std::string::npos) throw std::invalid_argument("only MP4 and QuickTime files have a matrix to set");
  std::size_t at = box + (bytes[box + 4] == 1 ? 56 : 44);
  for (const double value : {a, b, 0.0, c, d, 0.0, x, y, 16384.0}) {
    for (const int shift : {24, 16, 8, 0}) bytes[at++] = static_cast<char>(std::lround(value * 65536) >> shift & 0xFF);
  }
  std::ofstream(movie, std::ios::binary) << bytes;
}

BarCodeClip::BarCodeClip(const ClipOptions& options) : path_(cachedClip(options)) {
  const Timing timing(options);
  for (const std::int64_t time : timing.times) times_.push_back(timing.seconds(time));
  videoEnd_ = timing.end();
  if (!options.audioCodec.empty()) {
    audioEnd_ = options.audioSeconds >= 0 ? options.audioDelay + options.audioSeconds : videoEnd_;
  }
}

}  // namespace clipworks::test
