#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Fraction.h>
#include <clipworks/engine/HDRMetadata.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/output/RateTrim.h>
#include <clipworks/engine/output/StillBudget.h>
#include <clipworks/engine/pictures/Colour.h>

namespace clipworks::engine {

enum class VideoCodec { h264, hevc };

/// A rate that was measured, 1 to 1000 pictures a second, as encoders are told it: the broadcast rate of 1000/1001
/// where it is one, else to a thousandth.
[[nodiscard]] Fraction nominalRate(double picturesPerSecond);

/// What an encoder keeps to so that its samples can stand among copied ones (`SharedDescription`).
struct AmongCopies {
  int parameterSetNumber = 0;  ///< of H.264
  int profile = 0;             ///< of H.264: FF_PROFILE_H264_BASELINE, _MAIN or _HIGH
  int reorderDepth = 0;        ///< that of the copied ones, which is not passed
};

struct VideoEncoderSettings {
  VideoCodec codec = VideoCodec::h264;
  int width = 0;               ///< even
  int height = 0;              ///< even
  int bitDepth = 8;            ///< 8, or 10 for HEVC
  std::int32_t timescale = 0;  ///< ticks a second of the pictures' times
  Fraction frameRate{30, 1};   ///< nominal, for the rate control and for what the stream says of its own timing
  Fraction pixelAspect{1, 1};
  Colour colour;
  std::string speed = "medium";     ///< the encoder library's preset
  double quality = 20;              ///< constant rate factor, when `averageBitRate` is 0
  std::int64_t averageBitRate = 0;  ///< bits a second, brought between `leastBitRate` and `mostBitRate`
  int longestGroup = 300;           ///< pictures from one to start decoding from to the next, at most
  double length = 0;                ///< seconds of all that will be encoded, for the rate control; 0 when unknown
  int threads = 0;                  ///< at most; 0: as many as suit the processors
  HDRMetadata hdrMetadata;          ///< of mastering and light level, written into the stream; HEVC only
  std::optional<AmongCopies> amongCopies{};
};

/// What the encoders here take of average bit rates, in bits a second: they count in thousands, a rate is trimmed to
/// less than what was asked for on the way, and the buffer's size is a number of 32 bits.
inline constexpr std::int64_t leastBitRate = 2'000;
inline constexpr std::int64_t mostBitRate = 1'000'000'000;

/// The smallest side that the encoders here take; smaller pictures are padded to it.
inline constexpr int leastPictureSide = 16;

/// One run of an encoder: pictures in, coded samples with start codes out, in decoding order. One thread at a time; the
/// library has threads of its own.
class VideoEncoder {
 public:
  [[nodiscard]] static Expected<VideoEncoder> open(const VideoEncoderSettings& settings);

  /// The library that serves: "libx264", "libx265".
  [[nodiscard]] static std::string libraryName(VideoCodec codec);

  /// The format of the samples, parameter sets included.
  [[nodiscard]] CodecParameters format() const;
  [[nodiscard]] AVPixelFormat pixelFormat() const { return context_->pix_fmt; }
  /// How many pictures may be decoded between a picture's own decoding and its showing.
  [[nodiscard]] int reorderDepth() const;

  /// Takes a picture of the encoder's size and pixel format, shown at `time` ticks (rising). `startsAnew` makes it an
  /// access point that nothing later refers across.
  [[nodiscard]] Expected<void> push(const Frame& picture, std::int64_t time, bool startsAnew);
  /// No more pictures will come.
  [[nodiscard]] Expected<void> finish();
  /// The next coded sample; nothing when the encoder wants more pictures, or has ended.
  [[nodiscard]] Expected<std::optional<Packet>> pull();

 private:
  VideoEncoder(CodecContext context, CodecParameters format)
      : context_(std::move(context)), format_(std::move(format)) {}
  void adjustRate();
  CodecContext context_;
  CodecParameters format_;
  std::optional<RateTrim> trim_;  // where the library lets the rate be changed on the way
  std::optional<StillBudget> budget_;
  std::optional<std::int64_t> firstTime_;
};

}  // namespace clipworks::engine
