#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <clipworks/compressor/VideoCompressorDelegate.h>
#include <clipworks/foundation/VideoCompressorPreset.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/dispatch/DispatchSemaphore.h>
#include <clipworks/media/time/CMTimeRange.h>

namespace clipworks {

/// Encodes videos anew, as H.264 of a preset's height and bit rate with AAC sound, in MP4 files with new names in the
/// outputs directory: a list of them, one export at a time, or the first seconds of one for a look at the result.
/// Keep the compressor until the completion has been called: videos whose turn to be prepared comes after it was let go
/// are dropped silently, and the completion is never called then.
///
/// Prints "Current Progress: " and "General Progress: " with a number at every step of an export, "COMPLETED
/// MOTHERFUCKER" when one is complete, "ERROR: " and "ERROR2: " with the reason when one failed, and "FAILED" for every
/// video that ends without a file.
class CLIPWORKS_API VideoCompressorUtils : public std::enable_shared_from_this<VideoCompressorUtils> {
 public:
  /// What a compression fails with; the cause is printed.
  enum class CompressionError { generic };

  /// How videos are compressed. A value.
  struct CLIPWORKS_API Parameters {
    /// `init(qualityPreset:customBitRate:)`, with a preset of any kind, whose figures are copied.
    explicit Parameters(const VideoCompressorPreset& qualityPreset_,
                        std::optional<std::int64_t> customBitRate_ = std::nullopt)
        : qualityPreset(qualityPreset_), customBitRate(customBitRate_) {}

    /// Height and bit rate of the pictures, and the width where there are none.
    CopiedPreset qualityPreset;
    /// Kilobits a second instead of the preset's; 0 is used as given, and means constant quality to the encoder. A
    /// number that overflows as bits a second aborts.
    std::optional<std::int64_t> customBitRate;
  };

  /// Takes the new files' locations, or the failure.
  using BatchCompletion = std::function<void(Result<std::vector<URL>, CompressionError>)>;
  /// Takes the new file's location, or the failure.
  using Completion = std::function<void(Result<URL, CompressionError>)>;

  /// `init()`.
  [[nodiscard]] static std::shared_ptr<VideoCompressorUtils> make();
  /// One instance for the whole process, made at the first call.
  [[nodiscard]] static const std::shared_ptr<VideoCompressorUtils>& shared();
  VideoCompressorUtils(const VideoCompressorUtils&) = delete;
  VideoCompressorUtils& operator=(const VideoCompressorUtils&) = delete;

  /// Who hears of the progress; nobody at first. It may be changed while an export runs. Any thread.
  [[nodiscard]] std::weak_ptr<VideoCompressorDelegate> delegate() const;
  void setDelegate(std::weak_ptr<VideoCompressorDelegate> delegate);

  /// `compress(videos:parameters:onComplete:)`. Returns at once. The files come on `DispatchQueue::main()`, which the
  /// host must run, in the order of `videos`; those that could not be compressed are left out, so the list may be
  /// shorter. `generic` when none could, or none was given. A video whose displayed height is 0, or whose shape gives a
  /// width beyond 64 bits, aborts.
  /// **A batch started while another runs leaves the videos of the earlier one that wait for their turn waiting for
  /// ever**; they are not exported, and the earlier completion is neither called nor destroyed.
  void compress(const std::vector<URL>& videos, const Parameters& parameters, BatchCompletion onComplete);

  /// `previewCompression(video:parameters:onComplete:)`. Compresses the first five seconds, or all of a shorter video.
  /// Prepares on the calling thread, which also waits there while an export of a batch runs. `onComplete` gets the file
  /// on a thread of the exporter. **When the preview fails, `onComplete` is never called**; it is destroyed then.
  void previewCompression(const URL& video, const Parameters& parameters, Completion onComplete);

 private:
  VideoCompressorUtils() = default;
  [[nodiscard]] std::function<void()> prepared(const URL& video, const Parameters& parameters, std::int64_t videosCount,
                                               const std::optional<CMTimeRange>& customTimeRange,
                                               Completion onComplete);
  void report(float progress, std::int64_t videosCount);
  void countFinished();
  [[nodiscard]] std::shared_ptr<DispatchSemaphore> semaphore() const;

  mutable std::mutex mutex_;
  std::weak_ptr<VideoCompressorDelegate> delegate_;  // guarded by mutex_, like all below
  std::shared_ptr<DispatchSemaphore> semaphore_;     ///< lets one export run; null before the first batch
  float totalProgress_ = 0;                          ///< videos that have ended; kept: never reset
};

}  // namespace clipworks
