#include <clipworks/media/samples/AVAssetReader.h>

#include <string>
#include <utility>

#include <clipworks/media/samples/ReadingState.h>
#include <clipworks/media/samples/SampleSource.h>

namespace clipworks {

Result<std::shared_ptr<AVAssetReader>, NSError> AVAssetReader::make(const std::shared_ptr<AVAsset>& asset) {
  if (asset == nullptr || asset->tracks().empty()) {
    const std::string reason = asset == nullptr ? std::string() : asset->loadError();
    return failure(makeError(AVError::fileFailedToParse, reason.empty() ? "there is nothing to read" : reason));
  }
  return std::shared_ptr<AVAssetReader>(new AVAssetReader(asset));
}

AVAssetReader::AVAssetReader(std::shared_ptr<AVAsset> asset)
    : asset_(std::move(asset)), state_(std::make_shared<ReadingState>()) {}

bool AVAssetReader::canAdd(const AVAssetReaderTrackOutput& output) const {
  return status() == AVAssetReaderStatus::unknown && output.open().has_value();
}

void AVAssetReader::add(std::shared_ptr<AVAssetReaderTrackOutput> output) { outputs_.push_back(std::move(output)); }

bool AVAssetReader::startReading() {
  if (status() != AVAssetReaderStatus::unknown) return false;
  std::vector<std::unique_ptr<SampleSource>> sources;
  for (const auto& output : outputs_) {
    auto source = output->open();
    if (!source) {
      state_->fail(source.error());
      return false;
    }
    sources.push_back(std::move(*source));
  }
  state_->start(outputs_.size());
  for (std::size_t i = 0; i < outputs_.size(); ++i) outputs_[i]->start(std::move(sources[i]), state_);
  return true;
}

void AVAssetReader::cancelReading() { state_->cancel(); }
AVAssetReaderStatus AVAssetReader::status() const { return state_->status(); }
std::optional<NSError> AVAssetReader::error() const { return state_->error(); }

}  // namespace clipworks
