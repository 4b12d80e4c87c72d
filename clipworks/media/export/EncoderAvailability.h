#pragma once

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// A codec that pictures can be encoded with.
enum class VideoCodecKind { h264, hevc };

/// Which video encoders the platform offers. A host that wants one left alone (because its users' players lack the
/// codec, say) withholds it before anything asks: `HEVCSupport` remembers its answer for the process.
/// Thread-safe.
class CLIPWORKS_API EncoderAvailability {
 public:
  /// Makes the platform behave as if it had no encoder for `codec`.
  static void withhold(VideoCodecKind codec);
  /// Whether `codec` can be encoded here: not withheld, and an encoder really opens. The encoder is opened for every
  /// call; one that cannot be tried since the system allows no more threads counts as there.
  [[nodiscard]] static bool isAvailable(VideoCodecKind codec);
};

/// Status 0 means that an encoder for `codecType` at `width` × `height` is available, anything else that there is none
/// (`VTCopySupportedPropertyDictionaryForEncoder`; the dictionaries, which nobody reads, are left out). `codecType` is
/// a four-character code, 0x68766331 for HEVC.
[[nodiscard]] CLIPWORKS_API int VTCopySupportedPropertyDictionaryForEncoder(int width, int height, unsigned codecType);

}  // namespace clipworks
