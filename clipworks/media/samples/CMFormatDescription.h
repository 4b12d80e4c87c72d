#pragma once

#include <cstdint>
#include <memory>

#include <clipworks/media/asset/AVMediaTypes.h>
#include <clipworks/media/base/Export.h>

namespace clipworks {

/// How samples of sound are laid out in memory.
struct AudioStreamBasicDescription {
  double mSampleRate = 0;       ///< hertz
  std::uint32_t mFormatID = 0;  ///< `kAudioFormatLinearPCM`, …
  std::uint32_t mChannelsPerFrame = 0;
  std::uint32_t mBitsPerChannel = 0;  ///< 0 for coded sound
  std::uint32_t mBytesPerFrame = 0;   ///< of all channels; 0 for coded sound
  bool mIsFloat = false;
  bool mIsBigEndian = false;
};

/// Size of pictures, in pixels.
struct CMVideoDimensions {
  std::int32_t width = 0;
  std::int32_t height = 0;
};

/// What the samples of a buffer are. Immutable; share it freely between threads.
class CLIPWORKS_API CMFormatDescription {
 public:
  /// Of interleaved integer PCM in the byte order of this machine.
  [[nodiscard]] static std::shared_ptr<const CMFormatDescription> pcm(double sampleRate, std::uint32_t channels,
                                                                      std::uint32_t bitsPerChannel);
  /// Of sound of any kind.
  [[nodiscard]] static std::shared_ptr<const CMFormatDescription> sound(const AudioStreamBasicDescription& description);
  /// Of pictures: the code of their codec or pixel format, and their size.
  [[nodiscard]] static std::shared_ptr<const CMFormatDescription> pictures(std::uint32_t mediaSubType,
                                                                           CMVideoDimensions dimensions);

  /// Pictures or sound.
  [[nodiscard]] AVMediaType mediaType() const { return mediaType_; }
  /// The four-character code of the codec, or of the pixels.
  [[nodiscard]] std::uint32_t mediaSubType() const { return mediaSubType_; }
  /// Of pictures; zero for sound.
  [[nodiscard]] CMVideoDimensions dimensions() const { return dimensions_; }
  /// Of sound; null for pictures.
  [[nodiscard]] const AudioStreamBasicDescription* streamBasicDescription() const {
    return mediaType_ == AVMediaType::audio ? &sound_ : nullptr;
  }

 private:
  CMFormatDescription(AVMediaType mediaType, std::uint32_t mediaSubType)
      : mediaType_(mediaType), mediaSubType_(mediaSubType) {}

  AVMediaType mediaType_;
  std::uint32_t mediaSubType_;
  CMVideoDimensions dimensions_;
  AudioStreamBasicDescription sound_;
};

}  // namespace clipworks
