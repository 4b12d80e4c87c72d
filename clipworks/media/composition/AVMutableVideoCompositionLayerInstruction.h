#pragma once

#include <memory>
#include <utility>
#include <vector>

#include <clipworks/media/asset/AVAssetTrack.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/geometry/CGAffineTransform.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// Where and how strongly one track of pictures is drawn while its instruction lasts. Not thread-safe: one thread at a
/// time (a running export has its own copy).
class CLIPWORKS_API AVMutableVideoCompositionLayerInstruction final {
 public:
  /// `AVMutableVideoCompositionLayerInstruction(assetTrack:)`: names `assetTrack` by its identifier. A null track names
  /// none.
  [[nodiscard]] static std::shared_ptr<AVMutableVideoCompositionLayerInstruction> make(
      const std::shared_ptr<const AVAssetTrack>& assetTrack);

  /// The identifier of the track that is drawn; 0 for none.
  [[nodiscard]] CMPersistentTrackID trackID() const { return trackID_; }

  /// `setTransform(_:at:)`. From `at` on the track's pictures are drawn under `transform`, which maps points of the
  /// track's natural size to points of the render size, both from the top left corner, y down. It holds until the next
  /// time for which one is set; before the first, it is that first one. The track's preferred transform does not count.
  void setTransform(const CGAffineTransform& transform, const CMTime& at);
  /// `setOpacity(_:at:)`. From 0, not drawn, to 1, the default; values beyond count as these.
  void setOpacity(float opacity, const CMTime& at);

  /// What holds at `t`.
  [[nodiscard]] CGAffineTransform transform(const CMTime& t) const;
  /// What holds at `t`.
  [[nodiscard]] float opacity(const CMTime& t) const;

 private:
  friend class AVMutableVideoComposition;
  AVMutableVideoCompositionLayerInstruction() = default;
  AVMutableVideoCompositionLayerInstruction(const AVMutableVideoCompositionLayerInstruction&) = default;

  CMPersistentTrackID trackID_ = kCMPersistentTrackID_Invalid;
  std::vector<std::pair<CMTime, CGAffineTransform>> transforms_;  // with rising times
  std::vector<std::pair<CMTime, float>> opacities_;               // with rising times
};

}  // namespace clipworks
