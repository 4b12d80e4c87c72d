#include <clipworks/media/samples/AVAssetWriterInput.h>

#include <exception>
#include <string>
#include <utility>

#include <clipworks/media/asset/TrackMatrix.h>
#include <clipworks/media/samples/TrackWriting.h>
#include <clipworks/media/samples/WriterSettings.h>
#include <clipworks/media/samples/WritingState.h>

namespace clipworks {

std::shared_ptr<AVAssetWriterInput> AVAssetWriterInput::make(
    AVMediaType mediaType, SettingsDictionary outputSettings,
    std::shared_ptr<const CMFormatDescription> sourceFormatHint) {
  return std::shared_ptr<AVAssetWriterInput>(
      new AVAssetWriterInput(mediaType, std::move(outputSettings), std::move(sourceFormatHint)));
}

AVAssetWriterInput::AVAssetWriterInput(AVMediaType mediaType, SettingsDictionary outputSettings,
                                       std::shared_ptr<const CMFormatDescription> sourceFormatHint)
    : mediaType_(mediaType),
      outputSettings_(std::move(outputSettings)),
      sourceFormatHint_(std::move(sourceFormatHint)) {}
AVAssetWriterInput::~AVAssetWriterInput() = default;

std::optional<NSError> AVAssetWriterInput::whyNotWritable() const {
  if (mediaType_ == AVMediaType::video) {
    const auto settings = pictureSettings(outputSettings_);
    return settings ? std::nullopt : std::optional(settings.error());
  }
  const auto settings = soundSettings(outputSettings_, sourceFormatHint_.get());
  return settings ? std::nullopt : std::optional(settings.error());
}

Result<void, NSError> AVAssetWriterInput::begin(std::shared_ptr<engine::SharedMovie> movie,
                                                std::shared_ptr<WritingState> state) {
  state_ = state;
  if (mediaType_ == AVMediaType::video) {
    auto settings = pictureSettings(outputSettings_);
    if (!settings) return failure(settings.error());
    settings->matrix = trackMatrix(transform_);
    auto writing = beginPictures(*settings, std::move(movie), state);
    if (!writing) return failure(writing.error());
    writing_ = std::move(*writing);
  } else {
    auto settings = soundSettings(outputSettings_, sourceFormatHint_.get());
    if (!settings) return failure(settings.error());
    auto writing = beginSound(*settings, std::move(movie), state);
    if (!writing) return failure(writing.error());
    writing_ = std::move(*writing);
  }
  return {};
}

void AVAssetWriterInput::startSession(const CMTime& start) {
  if (writing_ != nullptr) writing_->setStart(start);
  hasSession_ = true;
}

bool AVAssetWriterInput::isReadyForMoreMediaData() const {
  if (state_ == nullptr) return false;
  return !state_->isWriting() || writing_->hasRoom();
}

bool AVAssetWriterInput::takesSamples() {
  if (state_ == nullptr || isFinished_ || !state_->isWriting()) return false;
  if (hasSession_) return true;
  state_->fail(makeError(AVError::unknown, "samples came before the writer's session was started"));
  return false;
}

bool AVAssetWriterInput::noted(const Result<bool, NSError>& appended) {
  if (appended) return *appended;
  state_->fail(appended.error());
  return false;
}

bool AVAssetWriterInput::append(const std::shared_ptr<CMSampleBuffer>& sampleBuffer) {
  if (sampleBuffer == nullptr || !takesSamples()) return false;
  try {
    return noted(writing_->append(*sampleBuffer));
  } catch (const std::exception& thrown) {
    return noted(failure(makeError(AVError::outOfMemory, std::string("samples cannot be written: ") + thrown.what())));
  }
}

bool AVAssetWriterInput::append(const CVPixelBuffer& pixelBuffer, const CMTime& withPresentationTime) {
  if (!takesSamples()) return false;
  try {
    return noted(writing_->append(pixelBuffer, withPresentationTime));
  } catch (const std::exception& thrown) {
    return noted(
        failure(makeError(AVError::outOfMemory, std::string("a picture cannot be written: ") + thrown.what())));
  }
}

void AVAssetWriterInput::markAsFinished() {
  isFinished_ = true;
  if (writing_ != nullptr) writing_->finish();
}

void AVAssetWriterInput::join() {
  if (writing_ != nullptr) writing_->join();
}

}  // namespace clipworks
