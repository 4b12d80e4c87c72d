#include <clipworks/compressor/CompressionSettings.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/geometry/CGAffineTransform.h>

namespace clipworks {
namespace {

std::int64_t widthFor(const AVAsset& asset, const VideoCompressorPreset& preset) {
  const auto tracks = asset.tracks(AVMediaTypeVideo);
  if (tracks.empty()) return preset.width();
  const CGSize displayed =
      CGSizeApplyAffineTransform(tracks.front()->naturalSize(), tracks.front()->preferredTransform());
  const double width = displayed.width / displayed.height * static_cast<double>(preset.height());
  constexpr double beyond64Bits = 0x1p63;
  if (!(std::abs(width) < beyond64Bits)) {
    fatalError("VideoCompressorUtils: the shape of a video must give a width that fits 64 bits");
  }
  return static_cast<std::int64_t>(width);  // towards zero; negative where the transform turns one side only
}

std::int64_t bitsPerSecond(const VideoCompressorUtils::Parameters& parameters) {
  const std::int64_t kilobits = parameters.customBitRate.value_or(parameters.qualityPreset.bitRate());
  std::int64_t bits = 0;
  if (__builtin_mul_overflow(kilobits, std::int64_t{1000}, &bits)) {
    fatalError("VideoCompressorUtils: a bit rate must fit 64 bits as bits a second");
  }
  return bits;
}

}  // namespace

SettingsDictionary videoOutputConfiguration(const AVAsset& asset, const VideoCompressorUtils::Parameters& parameters) {
  const std::int64_t height = parameters.qualityPreset.height();
  const std::int64_t width = widthFor(asset, parameters.qualityPreset);
  const SettingsDictionary compressionProperties{
      {AVVideoAverageBitRateKey, bitsPerSecond(parameters)},
      {AVVideoProfileLevelKey, AVVideoProfileLevelH264HighAutoLevel},
  };
  return {
      {AVVideoCodecKey, AVVideoCodecTypeH264},
      {AVVideoWidthKey, std::abs(width)},
      {AVVideoHeightKey, std::abs(height)},
      {AVVideoScalingModeKey, AVVideoScalingModeResizeAspectFill},
      {AVVideoCompressionPropertiesKey, compressionProperties},
  };
}

SettingsDictionary audioOutputConfiguration() {
  return {
      {AVFormatIDKey, kAudioFormatMPEG4AAC},
      {AVEncoderBitRateKey, 128'000},
      {AVNumberOfChannelsKey, 2},
      {AVSampleRateKey, 44'100.0F},
  };
}

}  // namespace clipworks
