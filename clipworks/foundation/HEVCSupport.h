#pragma once

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// Whether HEVC can be encoded here.
class CLIPWORKS_API HEVCSupport {
 public:
  /// True when an HEVC encoder for 1920 × 1080 really opens; any encoder counts, in hardware or not. Asked once, at
  /// the first call, and remembered for the process. From any thread.
  [[nodiscard]] static bool hasHEVCHardwareEncoder();
};

}  // namespace clipworks
