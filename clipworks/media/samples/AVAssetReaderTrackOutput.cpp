#include <clipworks/media/samples/AVAssetReaderTrackOutput.h>

#include <exception>
#include <string>
#include <utility>

#include <clipworks/media/samples/ReadingState.h>
#include <clipworks/media/samples/SampleSource.h>

namespace clipworks {

std::shared_ptr<AVAssetReaderTrackOutput> AVAssetReaderTrackOutput::make(std::shared_ptr<AVAssetTrack> track,
                                                                         SettingsDictionary outputSettings) {
  return std::shared_ptr<AVAssetReaderTrackOutput>(
      new AVAssetReaderTrackOutput(std::move(track), std::move(outputSettings)));
}

AVAssetReaderTrackOutput::AVAssetReaderTrackOutput(std::shared_ptr<AVAssetTrack> track,
                                                   SettingsDictionary outputSettings)
    : track_(std::move(track)), outputSettings_(std::move(outputSettings)) {}
AVAssetReaderTrackOutput::~AVAssetReaderTrackOutput() = default;

Result<std::unique_ptr<SampleSource>, NSError> AVAssetReaderTrackOutput::open() const {
  try {
    if (track_ == nullptr) return failure(makeError(AVError::invalidSourceMedia, "there is no track to read"));
    return track_->mediaType() == AVMediaType::video ? openPictureSource(*track_, outputSettings_)
                                                     : openSoundSource(*track_, outputSettings_);
  } catch (const std::exception& thrown) {
    return failure(makeError(AVError::unknown, std::string("a track cannot be read: ") + thrown.what()));
  }
}

void AVAssetReaderTrackOutput::start(std::unique_ptr<SampleSource> source, std::shared_ptr<ReadingState> state) {
  source_ = std::move(source);
  state_ = std::move(state);
}

std::shared_ptr<CMSampleBuffer> AVAssetReaderTrackOutput::copyNextSampleBuffer() {
  if (state_ == nullptr || source_ == nullptr || !state_->isReading()) return nullptr;
  try {
    auto buffer = source_->next();
    if (!buffer) {
      state_->fail(buffer.error());
      return nullptr;
    }
    if (*buffer == nullptr) {
      source_.reset();
      state_->outputEnded();
    }
    return *buffer;
  } catch (const std::exception& thrown) {
    state_->fail(makeError(AVError::outOfMemory, std::string("a track cannot be read: ") + thrown.what()));
    return nullptr;
  }
}

}  // namespace clipworks
