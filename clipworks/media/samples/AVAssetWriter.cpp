#include <clipworks/media/samples/AVAssetWriter.h>

#include <mutex>
#include <utility>

#include <clipworks/engine/Thread.h>
#include <clipworks/engine/pipeline/SharedMovie.h>
#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/asset/FileTypes.h>
#include <clipworks/media/samples/TrackWriting.h>
#include <clipworks/media/samples/WritingState.h>

namespace clipworks {
namespace {

/// The writers between start and end.
}  // namespace

Result<std::shared_ptr<AVAssetWriter>, NSError> AVAssetWriter::make(const URL& outputURL, AVFileType fileType) {
  const auto container = movieContainer(fileType);
  if (!container) {
    return failure(makeError(AVError::operationNotSupportedForAsset,
                             "files of the type " + std::string(fileType) + " are not written"));
  }
  auto file = engine::OutputFile::create(outputURL.path(), 0);
  if (!file) return failure(errorFromEngine(file.error()));
  auto movie = std::make_shared<engine::SharedMovie>(std::move(*file), *container);
  return std::shared_ptr<AVAssetWriter>(new AVAssetWriter(outputURL, fileType, std::move(movie)));
}

AVAssetWriter::AVAssetWriter(URL outputURL, AVFileType fileType, std::shared_ptr<engine::SharedMovie> movie)
    : outputURL_(std::move(outputURL)),
      fileType_(fileType),
      movie_(std::move(movie)),
      state_(std::make_shared<WritingState>()) {}

// Inputs may live on; what they are still given goes nowhere.
AVAssetWriter::~AVAssetWriter() { cancelWriting(); }

std::optional<NSError> AVAssetWriter::whyNotAddable(const AVAssetWriterInput& input) const {
  if (fileType_ == AVFileTypeAppleM4A && input.mediaType() != AVMediaType::audio) {
    return makeError(AVError::operationNotSupportedForAsset, "an M4A file holds sound only");
  }
  return input.whyNotWritable();
}

bool AVAssetWriter::canAdd(const AVAssetWriterInput& input) const {
  return status() == AVAssetWriterStatus::unknown && !whyNotAddable(input);
}

void AVAssetWriter::add(std::shared_ptr<AVAssetWriterInput> input) { inputs_.push_back(std::move(input)); }

bool AVAssetWriter::startWriting() {
  if (!state_->start()) return false;
  if (inputs_.empty()) state_->fail(makeError(AVError::unknown, "a writer needs an input"));
  movie_->setMetadata(metadata_);
  for (const auto& input : inputs_) {
    if (const auto reason = whyNotAddable(*input)) state_->fail(*reason);
    // Also after a failure, so that each input knows of it and keeps nobody waiting.
    if (auto begun = input->begin(movie_, state_); !begun) state_->fail(begun.error());
  }
  return state_->isWriting();
}

void AVAssetWriter::startSession(const CMTime& atSourceTime) {
  if (!atSourceTime.isNumeric() || atSourceTime < kCMTimeZero) {
    state_->fail(makeError(AVError::invalidTimeRange, "a writer's session has to start at zero or later"));
    return;
  }
  for (const auto& input : inputs_) input->startSession(atSourceTime);
}

void AVAssetWriter::finishWriting(std::function<void()> completionHandler) {
  const auto handler = std::make_shared<std::function<void()>>(std::move(completionHandler));
  const auto end = [self = shared_from_this(), handler] {
    self->finish();
    std::exchange(*handler, nullptr)();
  };
  auto thread = engine::Thread::start(end);
  if (!thread) return end();
  thread->detach();
}

void AVAssetWriter::finish() {
  for (const auto& input : inputs_) input->markAsFinished();
  for (const auto& input : inputs_) input->join();
  if (state_->isWriting()) {
    if (auto finished = movie_->finish(); !finished) state_->fail(errorFromEngine(finished.error()));
    state_->complete();
  }
  movie_->cancel();
}

void AVAssetWriter::cancelWriting() {
  state_->cancel();
  movie_->cancel();
}

AVAssetWriterStatus AVAssetWriter::status() const { return state_->status(); }
std::optional<NSError> AVAssetWriter::error() const { return state_->error(); }

}  // namespace clipworks
