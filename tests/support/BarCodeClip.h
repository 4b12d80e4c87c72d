#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace clipworks::test {

struct Rational {
  int num = 0;
  int den = 1;
  friend bool operator==(const Rational&, const Rational&) = default;
};

enum class GroupOfPictures { closed, open };

/// What a clip shall be like. The same options give the same bytes.
struct ClipOptions {
  int width = 320;
  int height = 180;

  /// Count of pictures, numbered from 0; without any, the clip has only sound.
  int frames = 60;
  Rational rate{30, 1};
  /// Explicit picture times instead, rising, in 1 / `timescale` seconds; they take the place of `frames` and `rate`.
  /// A first time after 0 makes an empty edit in MP4 and QuickTime.
  std::vector<std::int64_t> frameTimes{};
  /// How long the last of `frameTimes` is shown; 0 is as long as the one before it.
  std::int64_t lastFrameLength = 0;
  /// The video track's time scale; 0 leaves it to the muxer, and is allowed without `frameTimes` only.
  int timescale = 0;

  std::string videoCodec = "libx264";
  std::string preset = "veryfast";
  int bFrames = 2;
  /// Pictures from one random access point to the next.
  int gop = 30;
  GroupOfPictures groups = GroupOfPictures::closed;
  std::string pixelFormat = "yuv420p";
  /// Clockwise degrees, in quarter turns, by which a player turns the coded pictures: the track's matrix.
  int rotation = 0;

  /// An encoder of the ffmpeg program; empty for no sound.
  std::string audioCodec = "aac";
  int sampleRate = 48'000;
  /// All hold the same.
  int channels = 2;
  /// Length of the sound; negative: to the end of the pictures.
  double audioSeconds = -1;
  /// When the sound starts. The tone tells the movie's seconds all the same.
  double audioDelay = 0;

  /// The ending chooses the container.
  std::string extension = ".mp4";
  /// More arguments for the ffmpeg program, before the output's name.
  std::vector<std::string> outputArguments{};

  friend bool operator==(const ClipOptions&, const ClipOptions&) = default;
};

/// A clip made at test time by the `ffmpeg` program: each picture carries its number as a `BarCode` over a moving
/// coloured background, the sound is `makeTone`. Made once a process for the same options, and removed at its end.
/// Throws with ffmpeg's words when the clip cannot be made. For one thread.
/// Containers without edits (Matroska, WebM) shift the pictures later by a sound encoder's start-up delay; `times()`
/// does not tell that, so choose sound without a delay there ("flac", "pcm_s16le").
class BarCodeClip {
 public:
  explicit BarCodeClip(const ClipOptions& options = {});

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// When each picture appears, in seconds of the movie's timeline.
  [[nodiscard]] const std::vector<double>& times() const { return times_; }
  /// When the last picture ends.
  [[nodiscard]] double videoEnd() const { return videoEnd_; }
  /// When the sound ends; 0 without sound.
  [[nodiscard]] double audioEnd() const { return audioEnd_; }

 private:
  std::filesystem::path path_;
  std::vector<double> times_;
  double videoEnd_ = 0;
  double audioEnd_ = 0;
};

using TrackMatrix = std::array<double, 6>;  ///< a, b, c, d, x, y

/// Sets the matrix of the first `tkhd`, which is the pictures': they are the first stream. ISO/IEC 14496-12, 8.3.2.
void setMatrix(const std::filesystem::path& movie, const TrackMatrix& matrix);

}  // namespace clipworks::test
