#pragma once

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// Hears how far a compressor is. Held weakly by it.
class CLIPWORKS_API VideoCompressorDelegate {
 public:
  virtual ~VideoCompressorDelegate() = default;

  /// How far the batch is: the videos that have ended and the running one's share, over the number of videos. Comes on
  /// `DispatchQueue::main()`. A compressor counts the videos that have ended over its whole life, so that a second
  /// batch, or a preview, starts above 0 and goes past 1.
  virtual void videoCompressorDidUpdateProgress(float progress) = 0;
};

}  // namespace clipworks
