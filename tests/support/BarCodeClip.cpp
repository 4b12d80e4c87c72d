#include <tests/support/BarCodeClip.h>

#include <algorithm>
#include <array>
#include <deque>
#include <fstream>
#include <iterator>
#include <sstream>
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
  int timescale = 1;
  std::vector<std::int64_t> times;
  std::int64_t lastLength = 0;

  explicit Timing(const ClipOptions& options) {
    if (options.frameTimes.empty()) {
      timescale = options.rate.num;
      lastLength = options.rate.den;
      for (int i = 0; i < options.frames; ++i) times.push_back(std::int64_t{i} * options.rate.den);
      return;
    }
    if (options.timescale <= 0) throw std::invalid_argument("explicit picture times need a time scale");
    timescale = options.timescale;
    times = options.frameTimes;
    lastLength = options.lastFrameLength;
    if (lastLength == 0) lastLength = times.size() > 1 ? times.back() - times[times.size() - 2] : timescale;
  }

  [[nodiscard]] double seconds(std::int64_t ticks) const { return static_cast<double>(ticks) / timescale; }
  [[nodiscard]] double end() const { return times.empty() ? 0 : seconds(times.back() + lastLength); }
};

void appendLittleEndian(std::string& to, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) to.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

/// 0 … 127 … 0 over 256 steps: moves without sharp edges.
int wave(int phase) {
  phase &= 255;
  return phase < 128 ? phase : 255 - phase;
}

/// The raw pictures in an IVF stream, the simplest container that gives each picture a time of its own.
class PictureStream {
 public:
  PictureStream(const ClipOptions& options, const Timing& timing)
      : width_(options.width), height_(options.height), timing_(timing) {}

  /// The next bytes; none at the end.
  std::string next() {
    std::string bytes = started_ ? "" : header();
    started_ = true;
    if (number_ < timing_.times.size()) {
      const std::string picture = paint(static_cast<int>(number_));
      appendLittleEndian(bytes, picture.size(), 4);
      appendLittleEndian(bytes, static_cast<std::uint64_t>(timing_.times[number_]), 8);
      bytes += picture;
      ++number_;
    }
    return bytes;
  }

 private:
  [[nodiscard]] std::string header() const {
    std::string bytes = "DKIF";
    appendLittleEndian(bytes, 0, 2);   // version
    appendLittleEndian(bytes, 32, 2);  // length of this header
    bytes += "I420";
    appendLittleEndian(bytes, static_cast<std::uint64_t>(width_), 2);
    appendLittleEndian(bytes, static_cast<std::uint64_t>(height_), 2);
    appendLittleEndian(bytes, static_cast<std::uint64_t>(timing_.timescale), 4);
    appendLittleEndian(bytes, 1, 4);
    appendLittleEndian(bytes, timing_.times.size(), 8);
    return bytes;
  }

  [[nodiscard]] std::string paint(int number) const {
    std::string planes;
    for (const int plane : {0, 1, 2}) {
      const int width = plane == 0 ? width_ : (width_ + 1) / 2;
      const int height = plane == 0 ? height_ : (height_ + 1) / 2;
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

  /// The luma of the bar code at a pixel of a plane; -1 beside the panel.
  static int cellAt(int number, int x, int y, int width, int height) {
    const double u = ((x + 0.5) / width - BarCode::panelStart) / BarCode::panelLength;
    const double v = ((y + 0.5) / height - BarCode::panelStart) / BarCode::panelLength;
    if (u < 0 || u >= 1 || v < 0 || v >= 1) return -1;
    const int column = static_cast<int>(u * BarCode::columns);
    const int row = static_cast<int>(v * BarCode::rows);
    return BarCode::isWhite(number, column, row) ? white : black;
  }

  int width_;
  int height_;
  const Timing& timing_;
  std::size_t number_ = 0;
  bool started_ = false;
};

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
  if (options.videoCodec == "libx264") {
    append(argv, {"-preset", options.preset, "-threads:v", "2"});
    append(argv,
           {"-x264-params", "keyint=" + gop + ":min-keyint=" + gop + ":scenecut=0:open-gop=" + (open ? "1" : "0")});
  } else if (options.videoCodec == "libx265") {
    append(argv, {"-preset", options.preset});
    append(argv,
           {"-x265-params", "log-level=error:frame-threads=1:scenecut=0:keyint=" + gop + ":min-keyint=" + gop +
                                ":bframes=" + std::to_string(options.bFrames) + ":open-gop=" + (open ? "1" : "0")});
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
  std::ofstream raw(rawFile, std::ios::binary);
  for (const float sample : tone.samples) {
    for (int channel = 0; channel < options.channels; ++channel) {
      raw.write(reinterpret_cast<const char*>(&sample), sizeof sample);
    }
  }
  append(argv, {"-itsoffset", std::to_string(options.audioDelay), "-f", "f32le"});
  append(argv, {"-ar", std::to_string(options.sampleRate), "-ac", std::to_string(options.channels)});
  append(argv, {"-i", rawFile});
}

/// Sets the matrix of the first `tkhd`, which is the pictures': they are the first stream. ISO/IEC 14496-12, 8.3.2.
void writeRotation(const fs::path& path, const ClipOptions& options) {
  constexpr std::array<std::array<int, 4>, 4> turns{{{1, 0, 0, 1}, {0, 1, -1, 0}, {-1, 0, 0, -1}, {0, -1, 1, 0}}};
  const int quarters = ((options.rotation / 90) % 4 + 4) % 4;
  const auto [a, b, c, d] = turns[static_cast<std::size_t>(quarters)];
  // The translation that brings the turned picture back to the origin.
  const int tx = quarters == 1 ? options.height : quarters == 2 ? options.width : 0;
  const int ty = quarters == 2 ? options.height : quarters == 3 ? options.width : 0;

  std::ifstream in(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  const std::size_t box = bytes.find("tkhd");
  if (box == std::string::npos || !isMovie(options)) {
    throw std::invalid_argument("only MP4 and QuickTime files have a matrix to set");
  }
  std::size_t at = box + (bytes[box + 4] == 1 ? 56 : 44);
  for (const int value : {a << 16, b << 16, 0, c << 16, d << 16, 0, tx << 16, ty << 16, 1 << 30}) {
    for (const int shift : {24, 16, 8, 0}) bytes[at++] = static_cast<char>(value >> shift & 0xFF);
  }
  std::ofstream(path, std::ios::binary) << bytes;
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

  PictureStream pictures(options, timing);
  const ProgramResult result = runProgram(argv, {.deadline = std::chrono::minutes(5), .nextInput = [&] {
                                                   return timing.times.empty() ? std::string() : pictures.next();
                                                 }});
  std::error_code ignored;
  fs::remove(rawFile, ignored);
  if (!result.succeeded()) {
    std::ostringstream message;
    message << "ffmpeg made no clip: " << result;
    throw std::runtime_error(message.str());
  }
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

BarCodeClip::BarCodeClip(const ClipOptions& options) : path_(cachedClip(options)) {
  const Timing timing(options);
  for (const std::int64_t time : timing.times) times_.push_back(timing.seconds(time));
  videoEnd_ = timing.end();
  if (!options.audioCodec.empty()) {
    audioEnd_ = options.audioSeconds >= 0 ? options.audioDelay + options.audioSeconds : videoEnd_;
  }
}

}  // namespace clipworks::test
