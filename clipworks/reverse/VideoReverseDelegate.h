#pragma once

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// Hears how far a reversal is. Held weakly by the converter.
class CLIPWORKS_API VideoReverseDelegate {
 public:
  virtual ~VideoReverseDelegate() = default;

  /// The share of the pictures that are reversed, above 0 and up to 1; it rises with every call. Comes on a background
  /// thread, after each picture. The sound and the joining of both report nothing, so 1 is not yet the end.
  virtual void didUpdateReverseProgress(float progress) = 0;
};

}  // namespace clipworks
