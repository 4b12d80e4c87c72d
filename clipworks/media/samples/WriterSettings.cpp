#include <clipworks/media/samples/WriterSettings.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include <clipworks/engine/Limits.h>
#include <clipworks/media/base/SettingsKeys.h>

namespace clipworks {
namespace {

// When nobody says: what exports at the highest quality use.
constexpr std::int64_t usualSoundBitRatePerChannel = 96'000;

// ISO/IEC 14496-3, 1.6.3.4.
constexpr std::array<double, 13> aacSampleRates = {96'000, 88'200, 64'000, 48'000, 44'100, 32'000, 24'000,
                                                   22'050, 16'000, 12'000, 11'025, 8'000,  7'350};

NSError unsupported(std::string sentence) {
  return makeError(AVError::operationNotSupportedForAsset, std::move(sentence));
}

/// A sentence when `settings` has a key that is none of `known`.
std::optional<NSError> unknownKey(const SettingsDictionary& settings, std::initializer_list<std::string_view> known) {
  for (const auto& [key, value] : settings.entries()) {
    if (std::find(known.begin(), known.end(), key) == known.end())
      return unsupported("the setting " + key + " is not known here");
  }
  return std::nullopt;
}

/// A number of pixels, rounded to the nearest integer.
Result<int, NSError> side(const SettingsDictionary& settings, const char* key) {
  const double number = std::round(settings.number(key).value_or(0));
  if (number >= 1 && number <= engine::limits::maxPictureSide) return static_cast<int>(number);
  return failure(
      unsupported(std::string(key) + " has to be from 1 to " + std::to_string(engine::limits::maxPictureSide)));
}

/// Nobody who asks for a rate means none, which is constant quality; what is more than encoders take is cut to that.
Result<std::int64_t, NSError> bitRate(const SettingsDictionary& settings, const char* key, std::int64_t otherwise) {
  if (settings.find(key) == nullptr) return otherwise;
  const auto number = settings.number(key);
  if (!number || !(*number >= 0)) {
    return failure(unsupported(std::string(key) + " has to be a number of bits a second, 0 or more"));
  }
  return std::llround(std::ceil(std::min(*number, static_cast<double>(engine::mostBitRate))));
}

Result<void, NSError> applyProperties(const SettingsDictionary& properties, engine::PictureEncodingSettings& wanted) {
  if (auto unknown = unknownKey(
          properties, {AVVideoAverageBitRateKey, AVVideoProfileLevelKey, AVVideoExpectedSourceFrameRateKey})) {
    return failure(*unknown);
  }
  auto rate = bitRate(properties, AVVideoAverageBitRateKey, 0);
  if (!rate) return failure(rate.error());
  wanted.averageBitRate = *rate;
  wanted.frameRate = properties.number(AVVideoExpectedSourceFrameRateKey);
  const bool namesProfile = properties.find(AVVideoProfileLevelKey) != nullptr;
  if (namesProfile && (properties.text(AVVideoProfileLevelKey) != AVVideoProfileLevelH264HighAutoLevel ||
                       wanted.codec != engine::VideoCodec::h264)) {
    return failure(unsupported(std::string(AVVideoProfileLevelKey) +
                               " has to be that of H.264's High profile, for H.264 pictures"));
  }
  return {};
}

}  // namespace

Result<engine::PictureEncodingSettings, NSError> pictureSettings(const SettingsDictionary& settings) {
  if (auto unknown = unknownKey(settings, {AVVideoCodecKey, AVVideoWidthKey, AVVideoHeightKey, AVVideoScalingModeKey,
                                           AVVideoCompressionPropertiesKey})) {
    return failure(*unknown);
  }
  engine::PictureEncodingSettings wanted;
  const std::string codec = settings.text(AVVideoCodecKey).value_or("");
  if (codec != AVVideoCodecTypeH264 && codec != AVVideoCodecTypeHEVC) {
    return failure(
        unsupported(std::string(AVVideoCodecKey) + " has to be that of H.264 or HEVC, not \"" + codec + "\""));
  }
  wanted.codec = codec == AVVideoCodecTypeHEVC ? engine::VideoCodec::hevc : engine::VideoCodec::h264;
  const auto width = side(settings, AVVideoWidthKey);
  const auto height = side(settings, AVVideoHeightKey);
  if (!width) return failure(width.error());
  if (!height) return failure(height.error());
  wanted.width = *width;
  wanted.height = *height;
  const std::string scaling = settings.text(AVVideoScalingModeKey).value_or(AVVideoScalingModeResize);
  if (scaling != AVVideoScalingModeResize && scaling != AVVideoScalingModeResizeAspectFill) {
    return failure(unsupported(std::string(AVVideoScalingModeKey) + " \"" + scaling + "\" is not known here"));
  }
  wanted.fills = scaling == AVVideoScalingModeResizeAspectFill;
  const auto* properties = settings.find(AVVideoCompressionPropertiesKey);
  if (properties == nullptr) return wanted;
  if (properties->dictionary() == nullptr) {
    return failure(unsupported(std::string(AVVideoCompressionPropertiesKey) + " has to be a dictionary"));
  }
  if (auto applied = applyProperties(*properties->dictionary(), wanted); !applied) return failure(applied.error());
  return wanted;
}

Result<engine::SoundEncoderSettings, NSError> soundSettings(const SettingsDictionary& settings,
                                                            const CMFormatDescription* hint) {
  if (auto unknown = unknownKey(
          settings, {AVFormatIDKey, AVSampleRateKey, AVNumberOfChannelsKey, AVEncoderBitRateKey, AVChannelLayoutKey})) {
    return failure(*unknown);
  }
  if (settings.integer(AVFormatIDKey) != kAudioFormatMPEG4AAC) {
    return failure(unsupported(std::string(AVFormatIDKey) + " has to be that of AAC"));
  }
  const auto* source = hint == nullptr ? nullptr : hint->streamBasicDescription();
  const double rate = settings.number(AVSampleRateKey).value_or(source == nullptr ? 0 : source->mSampleRate);
  if (std::find(aacSampleRates.begin(), aacSampleRates.end(), rate) == aacSampleRates.end()) {
    return failure(unsupported(std::string(AVSampleRateKey) + " has to be one of AAC's, from 7350 to 96,000"));
  }
  const std::int64_t channels =
      settings.integer(AVNumberOfChannelsKey).value_or(source == nullptr ? 0 : source->mChannelsPerFrame);
  if (channels < 1 || channels > engine::limits::maxChannels) {
    return failure(unsupported(std::string(AVNumberOfChannelsKey) + " has to be from 1 to " +
                               std::to_string(engine::limits::maxChannels)));
  }
  engine::SoundEncoderSettings wanted;
  wanted.sampleRate = static_cast<int>(rate);
  wanted.channels = static_cast<int>(channels);
  auto bits = bitRate(settings, AVEncoderBitRateKey, usualSoundBitRatePerChannel * channels);
  if (!bits) return failure(bits.error());
  wanted.bitRate = *bits;
  return wanted;
}

}  // namespace clipworks
