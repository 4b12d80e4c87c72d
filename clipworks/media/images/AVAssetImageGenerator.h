#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/asset/DamagedMedia.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/geometry/CGSize.h>
#include <clipworks/media/images/CGImage.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// How a request for one picture ended.
enum class AVAssetImageGeneratorResult : int { succeeded = 0, failed = 1, cancelled = 2 };

/// Takes pictures out of an asset at exact times: the one that is on screen. One memory of decoded pictures serves all
/// requests, so that a run of them, forwards or backwards, decodes each group of pictures once if the memory holds it.
/// Pictures of high dynamic range come tone-mapped to BT.709; one that cannot be decoded is replaced by the one before.
/// Configure it on one thread; requests may come from any thread and are served one at a time.
class CLIPWORKS_API AVAssetImageGenerator : public std::enable_shared_from_this<AVAssetImageGenerator> {
 public:
  /// `AVAssetImageGenerator(asset:)`, of the asset's first track of pictures; never fails, requests do.
  [[nodiscard]] static std::shared_ptr<AVAssetImageGenerator> make(const std::shared_ptr<AVAsset>& asset);
  virtual ~AVAssetImageGenerator() = default;
  AVAssetImageGenerator(const AVAssetImageGenerator&) = delete;
  AVAssetImageGenerator& operator=(const AVAssetImageGenerator&) = delete;

  /// The box that pictures are fitted into, keeping their aspect, never enlarged; a side of 0 is no limit (the
  /// default).
  virtual void setMaximumSize(CGSize maximumSize) = 0;
  /// Whether pictures come upright, by the track's preferred transform; off unless asked for.
  virtual void setAppliesPreferredTrackTransform(bool appliesPreferredTrackTransform) = 0;
  /// How far before the asked time the picture may lie; infinite at first. A wider tolerance may save decoding.
  virtual void setRequestedTimeToleranceBefore(const CMTime& requestedTimeToleranceBefore) = 0;
  /// How far after the asked time the picture may lie; infinite at first.
  virtual void setRequestedTimeToleranceAfter(const CMTime& requestedTimeToleranceAfter) = 0;
  /// The most bytes of decoded pictures that are kept; 256 MiB at first.
  virtual void setCacheLimit(std::size_t bytes) = 0;

  /// The picture on screen at `requestedTime`, on the calling thread. A time exactly at the end gives the last picture.
  /// `actualTime`, if given, receives when that picture comes on screen. Fails for a time outside the asset (with
  /// `AVError::invalidTimeRange`), without pictures, or when nothing there can be decoded.
  [[nodiscard]] virtual Result<std::shared_ptr<const CGImage>, NSError> copyCGImage(const CMTime& at,
                                                                                    CMTime* actualTime = nullptr) = 0;

  /// The files some of whose pictures could not be decoded whole, of the pictures that were taken so far.
  [[nodiscard]] virtual std::vector<DamagedMedia> damagedMedia() const = 0;

  /// Called once for each requested time: the time as it was asked for, the picture (null unless succeeded), when that
  /// picture comes on screen, how it ended, and why it failed.
  using CompletionHandler = std::function<void(const CMTime& requestedTime, const std::shared_ptr<const CGImage>& image,
                                               const CMTime& actualTime, AVAssetImageGeneratorResult result,
                                               const std::optional<NSError>& error)>;

  /// `generateCGImagesAsynchronously(forTimes:completionHandler:)`. Returns at once; the handler comes on a thread of
  /// the generator, once a time, in the order of `times`, one call at a time, and is destroyed after the last. The
  /// generator keeps itself alive until then. A handler that blocks holds up this generator's later pictures only.
  virtual void generateCGImagesAsynchronously(std::vector<CMTime> times, CompletionHandler completionHandler) = 0;

  /// Requests under way end as cancelled, each with its call of the handler.
  virtual void cancelAllCGImageGeneration() = 0;

 protected:
  AVAssetImageGenerator() = default;
};

}  // namespace clipworks
