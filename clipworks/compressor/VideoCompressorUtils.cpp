#include <clipworks/compressor/VideoCompressorUtils.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <clipworks/compressor/CompressionSettings.h>
#include <clipworks/exporter/NextLevelSessionExporter.h>
#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/OutputLocation.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/PrintedText.h>
#include <clipworks/media/dispatch/DispatchGroup.h>
#include <clipworks/media/dispatch/DispatchQueue.h>

namespace clipworks {
namespace {

using CompressionError = VideoCompressorUtils::CompressionError;
using Outcome = Result<URL, CompressionError>;
using ExporterOutcome = Result<AVAssetExportSessionStatus, NSError>;

constexpr double previewSeconds = 5.0;

/// What the videos of one batch share. The exports of two batches may overlap, so their ends may, too.
struct Batch {
  std::mutex mutex;
  std::vector<std::pair<std::int64_t, URL>> results;  // guarded by mutex; by place in the list, in the order of ending
  std::int64_t pending = 0;                           // guarded by mutex

  void addPending() {
    const std::lock_guard lock(mutex);
    ++pending;
  }
  void add(std::int64_t index, const URL& url) {
    const std::lock_guard lock(mutex);
    results.emplace_back(index, url);
  }
  /// One less is pending; false when there had been none.
  [[nodiscard]] bool removePending() {
    const std::lock_guard lock(mutex);
    return --pending >= 0;
  }
  [[nodiscard]] Result<std::vector<URL>, CompressionError> outcome() {
    const std::lock_guard lock(mutex);
    if (results.empty()) return failure(CompressionError::generic);
    std::stable_sort(results.begin(), results.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<URL> urls;
    for (const auto& [index, url] : results) urls.push_back(url);
    return urls;
  }
};

struct PreparedExport {
  std::shared_ptr<NextLevelSessionExporter> exporter;
  URL outputURL;
};

/// The source is closed again on return: many exports may be prepared long before their turn comes.
PreparedExport prepareExport(const URL& video, const VideoCompressorUtils::Parameters& parameters,
                             const std::optional<CMTimeRange>& timeRange) {
  const auto asset = AVAsset::make(video);
  const auto exporter = NextLevelSessionExporter::make(asset);
  exporter->setOutputFileType(AVFileTypeMPEG4);
  const URL outputURL = prepareOutputLocation(FileSystem::shared().outputsURL(), std::nullopt, ".mp4");
  exporter->setOutputURL(outputURL);
  exporter->setVideoOutputConfiguration(videoOutputConfiguration(*asset, parameters));
  exporter->setAudioOutputConfiguration(audioOutputConfiguration());
  if (timeRange) exporter->setTimeRange(*timeRange);
  return {exporter, outputURL};
}

/// What became of an export, told in printed lines.
Outcome outcomeOf(const ExporterOutcome& exported, const URL& outputURL) {
  if (!exported) {
    printLine("ERROR: " + exported.error().localizedDescription());
    printLine("ERROR2: " + exported.error().description());
    return failure(CompressionError::generic);
  }
  if (*exported != AVAssetExportSessionStatus::completed) return failure(CompressionError::generic);
  printLine("COMPLETED MOTHERFUCKER");
  return outputURL;
}

/// What waits for a semaphore that nobody signals any more stays, whoever else goes.
void waitForEver(std::shared_ptr<DispatchSemaphore> semaphore) {
  if (semaphore == nullptr || !semaphore->hasWaitingWork()) return;
  static std::mutex mutex;
  static auto& all = *new std::vector<std::shared_ptr<DispatchSemaphore>>;  // never destroyed
  const std::lock_guard lock(mutex);
  all.push_back(std::move(semaphore));
}

}  // namespace

std::shared_ptr<VideoCompressorUtils> VideoCompressorUtils::make() {
  return std::shared_ptr<VideoCompressorUtils>(new VideoCompressorUtils);
}

const std::shared_ptr<VideoCompressorUtils>& VideoCompressorUtils::shared() {
  // Never destroyed: exports may end until the very end of the process.
  static const auto& instance = *new std::shared_ptr<VideoCompressorUtils>(make());
  return instance;
}

std::weak_ptr<VideoCompressorDelegate> VideoCompressorUtils::delegate() const {
  const std::lock_guard lock(mutex_);
  return delegate_;
}

void VideoCompressorUtils::setDelegate(std::weak_ptr<VideoCompressorDelegate> delegate) {
  const std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

void VideoCompressorUtils::compress(const std::vector<URL>& videos, const Parameters& parameters,
                                    BatchCompletion onComplete) {
  const auto group = DispatchGroup::make();
  {
    const std::lock_guard lock(mutex_);
    // kept: whoever waits on the former one does so for ever
    waitForEver(std::exchange(semaphore_, DispatchSemaphore::make(1)));
  }
  const auto batch = std::make_shared<Batch>();
  const auto videosCount = static_cast<std::int64_t>(videos.size());
  for (std::int64_t index = 0; index < videosCount; ++index) {
    batch->addPending();
    group->enter();
    Completion onVideoComplete = [weakSelf = weak_from_this(), batch, group, index](const Outcome& outcome) {
      if (outcome) {
        batch->add(index, *outcome);
      } else {
        printLine("FAILED");
      }
      if (const auto self = weakSelf.lock()) self->countFinished();
      if (batch->removePending()) group->leave();
    };
    DispatchQueue::global(DispatchQoS::userInitiated)
        .async([weakSelf = weak_from_this(), video = videos[static_cast<std::size_t>(index)], parameters, videosCount,
                onVideoComplete = std::move(onVideoComplete)] {
          const auto self = weakSelf.lock();
          if (self == nullptr) return;  // kept: the group is not left, so that no completion comes
          auto startExport = self->prepared(video, parameters, videosCount, std::nullopt, onVideoComplete);
          const auto turn = self->semaphore();
          if (turn == nullptr) return startExport();
          // Waits without a thread, so that a long batch needs few. Holds the semaphore: see above.
          turn->whenAvailable([turn, startExport = std::move(startExport)] { startExport(); });
        });
  }
  group->notify(DispatchQueue::main(), [batch, onComplete = std::move(onComplete)] { onComplete(batch->outcome()); });
}

void VideoCompressorUtils::previewCompression(const URL& video, const Parameters& parameters, Completion onComplete) {
  const CMTime duration = AVAsset::make(video)->duration();
  const double seconds = duration.seconds();
  const double length = seconds > previewSeconds ? previewSeconds : seconds;
  const CMTimeRange range(kCMTimeZero, CMTime(length, duration.timescale));
  const auto startExport =
      prepared(video, parameters, 1, range, [onComplete = std::move(onComplete)](const Outcome& outcome) {
        if (outcome) return onComplete(*outcome);
        printLine("FAILED");  // kept: no completion then
      });
  if (const auto turn = semaphore()) turn->wait();
  startExport();
}

/// Prepares an export; what it returns starts it, once its turn has come.
std::function<void()> VideoCompressorUtils::prepared(const URL& video, const Parameters& parameters,
                                                     std::int64_t videosCount,
                                                     const std::optional<CMTimeRange>& customTimeRange,
                                                     Completion onComplete) {
  return [self = shared_from_this(), prepared = prepareExport(video, parameters, customTimeRange), videosCount,
          onComplete = std::move(onComplete)] {
    prepared.exporter->exportAsynchronously(
        nullptr, [self, videosCount](float progress) { self->report(progress, videosCount); },
        [weakSelf = self->weak_from_this(), outputURL = prepared.outputURL,
         onComplete](const ExporterOutcome& exported) {
          onComplete(outcomeOf(exported, outputURL));
          const auto compressor = weakSelf.lock();
          if (compressor == nullptr) return;
          // Kept: the semaphore of the last batch, which need not be the one that this export waited on.
          if (const auto turn = compressor->semaphore()) turn->signal();
        });
  };
}

void VideoCompressorUtils::report(float progress, std::int64_t videosCount) {
  float overall = progress;
  {
    const std::lock_guard lock(mutex_);
    overall = (progress + totalProgress_) / static_cast<float>(videosCount);
  }
  printLine("Current Progress: " + printedNumber(progress));
  printLine("General Progress: " + printedNumber(overall));
  DispatchQueue::main().async([weakSelf = weak_from_this(), overall] {
    const auto self = weakSelf.lock();
    if (self == nullptr) return;
    if (const auto delegate = self->delegate().lock()) delegate->videoCompressorDidUpdateProgress(overall);
  });
}

void VideoCompressorUtils::countFinished() {
  const std::lock_guard lock(mutex_);
  totalProgress_ += 1.0F;
}

std::shared_ptr<DispatchSemaphore> VideoCompressorUtils::semaphore() const {
  const std::lock_guard lock(mutex_);
  return semaphore_;
}

}  // namespace clipworks
