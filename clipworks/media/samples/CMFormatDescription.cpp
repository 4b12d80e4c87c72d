#include <clipworks/media/samples/CMFormatDescription.h>

#include <bit>

#include <clipworks/media/base/SettingsKeys.h>

namespace clipworks {

std::shared_ptr<const CMFormatDescription> CMFormatDescription::pcm(double sampleRate, std::uint32_t channels,
                                                                    std::uint32_t bitsPerChannel) {
  AudioStreamBasicDescription description;
  description.mSampleRate = sampleRate;
  description.mFormatID = kAudioFormatLinearPCM;
  description.mChannelsPerFrame = channels;
  description.mBitsPerChannel = bitsPerChannel;
  description.mBytesPerFrame = channels * ((bitsPerChannel + 7) / 8);
  description.mIsBigEndian = std::endian::native == std::endian::big;
  return sound(description);
}

std::shared_ptr<const CMFormatDescription> CMFormatDescription::sound(const AudioStreamBasicDescription& description) {
  std::shared_ptr<CMFormatDescription> made(new CMFormatDescription(AVMediaType::audio, description.mFormatID));
  made->sound_ = description;
  return made;
}

std::shared_ptr<const CMFormatDescription> CMFormatDescription::pictures(std::uint32_t mediaSubType,
                                                                         CMVideoDimensions dimensions) {
  std::shared_ptr<CMFormatDescription> made(new CMFormatDescription(AVMediaType::video, mediaSubType));
  made->dimensions_ = dimensions;
  return made;
}

}  // namespace clipworks
