#include <clipworks/media/images/AVAssetImageGenerator.h>

#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <span>
#include <stop_token>
#include <string>
#include <utility>

#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/images/ImageSource.h>

namespace clipworks {
namespace {

struct Batch {
  std::vector<CMTime> times;
  AVAssetImageGenerator::CompletionHandler handler;
  ImageSettings settings;
  std::stop_source stop;
};

using Image = std::shared_ptr<const CGImage>;
using Located = Result<ScreenPicture, NSError>;

NSError errorFrom(const std::exception& thrown) {
  if (dynamic_cast<const std::bad_alloc*>(&thrown) != nullptr) {
    return makeError(AVError::outOfMemory, "out of memory while taking a picture");
  }
  return makeError(AVError::unknown, std::string("taking a picture failed: ") + thrown.what());
}

/// The requests of a batch, seen through to pictures: what each of them shows, and which will be asked for next.
class BatchPictures {
 public:
  BatchPictures(ImageSource& source, const Batch& batch) {
    for (const CMTime& time : batch.times) located_.push_back(source.locate(time, batch.settings.tolerance));
    numbers_.resize(located_.size());
    runEnds_.resize(located_.size());
    std::size_t end = located_.size();
    for (std::size_t i = located_.size(); i-- > 0;) {
      const bool isFollowed = i + 1 < located_.size();
      const MediaTrack* const media = mediaOf(i);
      if (isFollowed && media != mediaOf(i + 1)) end = i + 1;
      runEnds_[i] = end;
      numbers_[i] = media == nullptr ? 0 : static_cast<std::uint32_t>(located_[i]->picture);
    }
  }

  [[nodiscard]] const Located& at(std::size_t i) const { return located_[i]; }
  /// Of the same media, in the order of the requests.
  [[nodiscard]] std::span<const std::uint32_t> after(std::size_t i) const {
    return std::span(numbers_).subspan(i + 1, runEnds_[i] - i - 1);
  }

 private:
  [[nodiscard]] const MediaTrack* mediaOf(std::size_t i) const {
    return located_[i] ? located_[i]->media.get() : nullptr;
  }

  std::vector<Located> located_;
  std::vector<std::uint32_t> numbers_;
  std::vector<std::size_t> runEnds_;
};

class ImageGenerator final : public AVAssetImageGenerator {
 public:
  explicit ImageGenerator(std::shared_ptr<AVAsset> asset) : source_(std::move(asset), damaged_) {}

  void setMaximumSize(CGSize maximumSize) override {
    change([&](ImageSettings& settings) { settings.maximumSize = maximumSize; });
  }
  void setAppliesPreferredTrackTransform(bool applies) override {
    change([&](ImageSettings& settings) { settings.isUpright = applies; });
  }
  void setRequestedTimeToleranceBefore(const CMTime& tolerance) override {
    change([&](ImageSettings& settings) { settings.tolerance.before = usable(tolerance); });
  }
  void setRequestedTimeToleranceAfter(const CMTime& tolerance) override {
    change([&](ImageSettings& settings) { settings.tolerance.after = usable(tolerance); });
  }
  void setCacheLimit(std::size_t bytes) override {
    change([&](ImageSettings& settings) { settings.cacheLimit = bytes; });
  }

  Result<Image, NSError> copyCGImage(const CMTime& at, CMTime* actualTime) override;
  void generateCGImagesAsynchronously(std::vector<CMTime> times, CompletionHandler completionHandler) override;
  void cancelAllCGImageGeneration() override;
  std::vector<DamagedMedia> damagedMedia() const override { return damagedMediaIn(*damaged_); }

 private:
  // What is no length means that no other picture will do.
  static CMTime usable(const CMTime& tolerance) {
    const bool isLength = tolerance.isPositiveInfinity() || (tolerance.isNumeric() && tolerance > kCMTimeZero);
    return isLength ? tolerance : kCMTimeZero;
  }
  template <class Change>
  void change(Change change) {
    const std::lock_guard lock(mutex_);
    change(settings_);
  }
  ImageSettings currentSettings() {
    const std::lock_guard lock(mutex_);
    return settings_;
  }
  void work();
  void serve(const Batch& batch);
  std::shared_ptr<const BatchPictures> look(const Batch& batch, std::optional<NSError>& error);
  Result<Image, NSError> make(const BatchPictures& pictures, std::size_t i, const Batch& batch);

  const std::shared_ptr<engine::DamagedPictures> damaged_ = std::make_shared<engine::DamagedPictures>();
  std::mutex sourceMutex_;
  ImageSource source_;  // guarded by sourceMutex_

  std::mutex mutex_;
  ImageSettings settings_;                      // guarded by mutex_
  std::deque<std::shared_ptr<Batch>> batches_;  // guarded by mutex_; the first is under way while isWorking_
  bool isWorking_ = false;                      // guarded by mutex_
};

Result<Image, NSError> ImageGenerator::copyCGImage(const CMTime& at, CMTime* actualTime) {
  const ImageSettings settings = currentSettings();
  try {
    const std::lock_guard lock(sourceMutex_);
    const auto shown = source_.locate(at, settings.tolerance);
    if (!shown) return failure(shown.error());
    auto image = source_.image(*shown, {}, settings, {});
    if (image && actualTime != nullptr) *actualTime = shown->since;
    return image;
  } catch (const std::exception& thrown) {
    return failure(errorFrom(thrown));
  }
}

void ImageGenerator::generateCGImagesAsynchronously(std::vector<CMTime> times, CompletionHandler completionHandler) {
  if (times.empty() || completionHandler == nullptr) return;
  {
    const std::lock_guard lock(mutex_);
    batches_.push_back(std::make_shared<Batch>(Batch{std::move(times), std::move(completionHandler), settings_, {}}));
    if (std::exchange(isWorking_, true)) return;
  }
  DispatchQueue::global(DispatchQoS::userInitiated)
      .async([self = std::static_pointer_cast<ImageGenerator>(shared_from_this())] { self->work(); });
}

void ImageGenerator::cancelAllCGImageGeneration() {
  const std::lock_guard lock(mutex_);
  for (const auto& batch : batches_) batch->stop.request_stop();
}

void ImageGenerator::work() {
  for (;;) {
    std::shared_ptr<Batch> batch;
    {
      const std::lock_guard lock(mutex_);
      if (batches_.empty()) {
        isWorking_ = false;
        return;
      }
      batch = batches_.front();
    }
    serve(*batch);
    {
      const std::lock_guard lock(mutex_);
      batches_.pop_front();
    }
    batch->handler = nullptr;
  }
}

void ImageGenerator::serve(const Batch& batch) {
  std::optional<NSError> error;
  const auto pictures = look(batch, error);
  for (std::size_t i = 0; i < batch.times.size(); ++i) {
    const auto image = error ? Result<Image, NSError>(failure(*error)) : make(*pictures, i, batch);
    if (image) {
      batch.handler(batch.times[i], *image, pictures->at(i)->since, AVAssetImageGeneratorResult::succeeded,
                    std::nullopt);
      continue;
    }
    const bool isCancelled = image.error().code() == static_cast<int>(AVError::operationCancelled);
    batch.handler(batch.times[i], nullptr, kCMTimeInvalid,
                  isCancelled ? AVAssetImageGeneratorResult::cancelled : AVAssetImageGeneratorResult::failed,
                  image.error());
  }
}

std::shared_ptr<const BatchPictures> ImageGenerator::look(const Batch& batch, std::optional<NSError>& error) {
  try {
    const std::lock_guard lock(sourceMutex_);
    return std::make_shared<const BatchPictures>(source_, batch);
  } catch (const std::exception& thrown) {
    error = errorFrom(thrown);
    return nullptr;
  }
}

Result<Image, NSError> ImageGenerator::make(const BatchPictures& pictures, std::size_t i, const Batch& batch) {
  try {
    if (batch.stop.stop_requested())
      return failure(makeError(AVError::operationCancelled, "the request was cancelled"));
    const Located& shown = pictures.at(i);
    if (!shown) return failure(shown.error());
    const std::lock_guard lock(sourceMutex_);
    return source_.image(*shown, pictures.after(i), batch.settings, batch.stop.get_token());
  } catch (const std::exception& thrown) {
    return failure(errorFrom(thrown));
  }
}

}  // namespace

std::shared_ptr<AVAssetImageGenerator> AVAssetImageGenerator::make(const std::shared_ptr<AVAsset>& asset) {
  return std::make_shared<ImageGenerator>(asset);
}

}  // namespace clipworks
