#include <clipworks/media/samples/TrackWriting.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/pipeline/SoundEncoding.h>
#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/base/SettingsKeys.h>

namespace clipworks {
namespace {

/// 16-bit integers in the byte order of this machine are what encoders are fed with here.
bool isTaken(const AudioStreamBasicDescription& format) {
  constexpr std::uint32_t bits = 16;
  const bool isNative = format.mIsBigEndian == (std::endian::native == std::endian::big);
  return format.mFormatID == kAudioFormatLinearPCM && format.mBitsPerChannel == bits && !format.mIsFloat && isNative &&
         format.mChannelsPerFrame >= 1 && format.mChannelsPerFrame <= engine::limits::maxChannels &&
         format.mSampleRate >= 1 && format.mSampleRate <= engine::limits::maxSampleRate;
}

class SoundWriting final : public TrackWriting {
 public:
  explicit SoundWriting(std::unique_ptr<engine::SoundEncoding> encoding) : encoding_(std::move(encoding)) {}

  void setStart(const CMTime& start) override { encoding_->setStart({start.value, start.timescale}); }
  bool hasRoom() const override { return encoding_->hasRoom(); }

  Result<bool, NSError> append(CMSampleBuffer& sampleBuffer) override {
    const auto format = CMSampleBufferGetFormatDescription(sampleBuffer);
    const auto data = CMSampleBufferGetDataBuffer(sampleBuffer);
    const auto* sound = format->streamBasicDescription();
    if (sound == nullptr || data == nullptr || !CMSampleBufferDataIsReady(sampleBuffer) || !isTaken(*sound)) {
      return failure(makeError(AVError::operationNotSupportedForAsset, "sound to be written has to be 16-bit PCM"));
    }
    engine::SoundPortion portion;
    portion.format = {static_cast<int>(std::lround(sound->mSampleRate)), static_cast<int>(sound->mChannelsPerFrame)};
    // Whole samples of every channel; what is left of a broken buffer is no sample.
    const std::size_t whole = data->dataLength() / (sound->mChannelsPerFrame * sizeof(std::int16_t));
    portion.samples.resize(whole * sound->mChannelsPerFrame);
    if (whole > 0)
      std::memcpy(portion.samples.data(), data->dataPointer(), portion.samples.size() * sizeof(std::int16_t));
    const CMTime start = CMSampleBufferGetPresentationTimeStamp(sampleBuffer);
    if (start.isNumeric() && start.timescale > 0) portion.start = engine::Instant{start.value, start.timescale};
    return encoding_->push(std::move(portion));
  }

  Result<bool, NSError> append(const CVPixelBuffer&, const CMTime&) override {
    return failure(makeError(AVError::operationNotSupportedForAsset, "pictures cannot be written as sound"));
  }

  void finish() override { encoding_->finish(); }
  void join() override { encoding_->join(); }

 private:
  std::unique_ptr<engine::SoundEncoding> encoding_;
};

}  // namespace

Result<std::unique_ptr<TrackWriting>, NSError> beginSound(const engine::SoundEncoderSettings& settings,
                                                          std::shared_ptr<engine::SharedMovie> movie,
                                                          std::shared_ptr<WritingState> state) {
  const std::size_t track = movie->addTrack();
  auto encoding = engine::SoundEncoding::open(
      settings, std::move(movie), track, [state](const engine::Error& error) { state->fail(errorFromEngine(error)); });
  if (!encoding) return failure(errorFromEngine(encoding.error()));
  return std::make_unique<SoundWriting>(std::move(*encoding));
}

}  // namespace clipworks
