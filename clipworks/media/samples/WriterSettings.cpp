#include <clipworks/media/samples/WriterSettings.h>

#include <cmath>
#include <string>

#include <clipworks/engine/Limits.h>
#include <clipworks/media/base/SettingsKeys.h>

namespace clipworks {
namespace {

// When nobody says: what exports at the highest quality use.
constexpr std::int64_t usualSoundBitRatePerChannel = 96'000;

// Far above anything that is played; encoders count in 32 bits.
constexpr double mostBitRate = 1e9;

NSError unsupported(std::string sentence) {
  return makeError(AVError::operationNotSupportedForAsset, std::move(sentence));
}

/// Rounded to the nearest integer; 0 when there is none, or out of range.
int side(const SettingsDictionary& settings, const char* key) {
  const double number = std::round(settings.number(key).value_or(0));
  return number >= 1 && number <= engine::limits::maxPictureSide ? static_cast<int>(number) : 0;
}

Result<std::int64_t, NSError> bitRate(const SettingsDictionary& settings, const char* key, std::int64_t otherwise) {
  const double number = settings.number(key).value_or(static_cast<double>(otherwise));
  if (!(number >= 0 && number <= mostBitRate)) return failure(unsupported("a bit rate is out of range"));
  return std::llround(number);
}

}  // namespace

Result<engine::PictureEncodingSettings, NSError> pictureSettings(const SettingsDictionary& settings) {
  engine::PictureEncodingSettings wanted;
  const std::string codec = settings.text(AVVideoCodecKey).value_or("");
  if (codec != AVVideoCodecTypeH264 && codec != AVVideoCodecTypeHEVC) {
    return failure(unsupported("pictures are written as H.264 or HEVC, not as \"" + codec + "\""));
  }
  wanted.codec = codec == AVVideoCodecTypeHEVC ? engine::VideoCodec::hevc : engine::VideoCodec::h264;
  wanted.width = side(settings, AVVideoWidthKey);
  wanted.height = side(settings, AVVideoHeightKey);
  if (wanted.width == 0 || wanted.height == 0) {
    return failure(unsupported("pictures to be written need a width and a height from 1 to 16,384"));
  }
  const std::string scaling = settings.text(AVVideoScalingModeKey).value_or(AVVideoScalingModeResize);
  if (scaling != AVVideoScalingModeResize && scaling != AVVideoScalingModeResizeAspectFill) {
    return failure(unsupported("the scaling mode \"" + scaling + "\" is not known"));
  }
  wanted.fills = scaling == AVVideoScalingModeResizeAspectFill;
  const auto* properties = settings.find(AVVideoCompressionPropertiesKey);
  if (properties == nullptr || properties->dictionary() == nullptr) return wanted;
  auto rate = bitRate(*properties->dictionary(), AVVideoAverageBitRateKey, 0);
  if (!rate) return failure(rate.error());
  wanted.averageBitRate = *rate;
  wanted.frameRate = properties->dictionary()->number(AVVideoExpectedSourceFrameRateKey);
  return wanted;
}

Result<engine::SoundEncoderSettings, NSError> soundSettings(const SettingsDictionary& settings,
                                                            const CMFormatDescription* hint) {
  if (settings.integer(AVFormatIDKey) != kAudioFormatMPEG4AAC) return failure(unsupported("sound is written as AAC only"));
  const auto* source = hint == nullptr ? nullptr : hint->streamBasicDescription();
  const double rate = settings.number(AVSampleRateKey).value_or(source == nullptr ? 0 : source->mSampleRate);
  const std::int64_t channels =
      settings.integer(AVNumberOfChannelsKey).value_or(source == nullptr ? 0 : source->mChannelsPerFrame);
  if (!(rate >= 1 && rate <= engine::limits::maxSampleRate) || channels < 1 || channels > engine::limits::maxChannels) {
    return failure(unsupported("sound to be written needs a sample rate and a number of channels"));
  }
  engine::SoundEncoderSettings wanted;
  wanted.sampleRate = static_cast<int>(std::lround(rate));
  wanted.channels = static_cast<int>(channels);
  auto bits = bitRate(settings, AVEncoderBitRateKey, usualSoundBitRatePerChannel * channels);
  if (!bits) return failure(bits.error());
  wanted.bitRate = *bits;
  return wanted;
}

}  // namespace clipworks
