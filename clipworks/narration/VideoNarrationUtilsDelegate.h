#pragma once

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/narration/NarrationError.h>
#include <clipworks/narration/NarrationPiece.h>

namespace clipworks {

/// Hears of finished recordings. `VideoNarrationUtils` holds it weakly.
class CLIPWORKS_API VideoNarrationUtilsDelegate {
 public:
  virtual ~VideoNarrationUtilsDelegate() = default;

  /// `narrationDidFinish(_:)`. The recorded piece, at volume 1, or `generic` when the recording ended unsuccessfully.
  /// Comes on a queue of the platform, not on the main queue.
  virtual void narrationDidFinish(const Result<NarrationPiece, NarrationError>& result) = 0;
};

}  // namespace clipworks
