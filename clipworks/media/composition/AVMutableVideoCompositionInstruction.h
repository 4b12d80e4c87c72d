#pragma once

#include <memory>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/composition/AVMutableVideoCompositionLayerInstruction.h>
#include <clipworks/media/time/CMTimeRange.h>

namespace clipworks {

/// What is drawn during a range of the output's timeline. Not thread-safe, as its layers.
class CLIPWORKS_API AVMutableVideoCompositionInstruction final {
 public:
  /// `AVMutableVideoCompositionInstruction()`: an empty range, no layers.
  [[nodiscard]] static std::shared_ptr<AVMutableVideoCompositionInstruction> make();

  /// When it holds, half open.
  void setTimeRange(const CMTimeRange& timeRange) { timeRange_ = timeRange; }
  [[nodiscard]] const CMTimeRange& timeRange() const { return timeRange_; }

  /// What is drawn, the first one in front; null ones are passed over. Where nothing is drawn it is black.
  void setLayerInstructions(std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layerInstructions) {
    layerInstructions_ = std::move(layerInstructions);
  }
  [[nodiscard]] const std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>>& layerInstructions()
      const {
    return layerInstructions_;
  }

 private:
  friend class AVMutableVideoComposition;
  AVMutableVideoCompositionInstruction() = default;
  AVMutableVideoCompositionInstruction(const AVMutableVideoCompositionInstruction&) = default;

  CMTimeRange timeRange_{kCMTimeZero, kCMTimeZero};
  std::vector<std::shared_ptr<AVMutableVideoCompositionLayerInstruction>> layerInstructions_;
};

}  // namespace clipworks
