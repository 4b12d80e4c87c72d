#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <tests/support/BarCode.h>
#include <tests/support/Tone.h>

namespace clipworks::test {

/// One decoded picture.
struct SeenPicture {
  /// When it appears on the movie's timeline.
  double seconds = 0;
  /// The number of its bar code; -1 when none can be read.
  int number = -1;
  /// How the code is seen.
  Orientation orientation;
};

/// What ffprobe says of one stream. What it doesn't say is 0 or empty.
struct ProbedStream {
  std::string type{};  ///< "video", "audio" …
  std::string codec{};
  std::string profile{};
  std::string tag{};  ///< "avc1", "hvc1", "mp4a" …
  int width = 0;
  int height = 0;
  std::string pixelFormat{};
  std::string colorRange{};
  std::string colorSpace{};
  std::string colorTransfer{};
  std::string colorPrimaries{};
  /// The track's matrix a b u c d v x y w, 16.16 and 2.30 as in the file; nothing when ffprobe shows none, which it
  /// does for the identity.
  std::optional<std::array<std::int64_t, 9>> matrix{};
  /// Clockwise degrees by which a player turns the pictures, 0 … 359.
  int rotation = 0;
  double startTime = 0;
  double duration = 0;
  std::int64_t frames = 0;  ///< by the index, not counted
  std::int64_t bitRate = 0;
  int sampleRate = 0;
  int channels = 0;
};

/// One coded sample, in the order of the file.
struct CodedSample {
  double presentation = 0;
  double decode = 0;
  bool isAccessPoint = false;
  std::int64_t bytes = 0;
  std::int64_t position = 0;  ///< in the file
  /// MD5 of the bytes.
  std::string hash;
};

/// Looks at a media file with the `ffprobe` and `ffmpeg` programs, never with this library's own code.
/// Everything throws with the program's words when it fails. For one thread; nothing is remembered.
class MediaJudge {
 public:
  explicit MediaJudge(std::filesystem::path path) : path_(std::move(path)) {}

  [[nodiscard]] std::vector<ProbedStream> streams() const;
  /// The first stream of that type ("video", "audio"); throws when there is none.
  [[nodiscard]] ProbedStream stream(const std::string& type) const;
  /// The container's length.
  [[nodiscard]] double duration() const;
  /// The length in the movie header of an MP4 or QuickTime file, exactly: value and time scale.
  [[nodiscard]] std::array<std::uint64_t, 2> movieHeaderDuration() const;

  /// The first video stream's pictures in the order in which they are shown; as they are coded, whatever the matrix
  /// says.
  [[nodiscard]] std::vector<SeenPicture> pictures() const;
  /// MD5 of each decoded picture, as coded.
  [[nodiscard]] std::vector<std::string> pictureHashes() const;
  /// The first audio stream, folded to one channel, placed on the movie's timeline from zero.
  [[nodiscard]] Sound sound(int rate = 16'000) const;
  /// The coded samples of the first stream of a type.
  [[nodiscard]] std::vector<CodedSample> codedSamples(const std::string& type) const;

  /// What ffprobe warns of while it decodes the whole file; empty for a clean one.
  [[nodiscard]] std::string warnings() const;

 private:
  std::filesystem::path path_;
};

/// The numbers alone, and the hashes alone.
[[nodiscard]] std::vector<int> numbersOf(const std::vector<SeenPicture>& pictures);
[[nodiscard]] std::vector<std::string> hashesOf(const std::vector<CodedSample>& samples);
/// The number of the picture on screen at `seconds`: the last that appears no later. -1 before the first one.
[[nodiscard]] int numberAt(const std::vector<SeenPicture>& pictures, double seconds);

}  // namespace clipworks::test
