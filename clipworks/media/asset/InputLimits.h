#pragma once

#include <cstdint>

namespace clipworks {

/// What of a file is let in, for those who open the files of strangers. A value, which goes with the file down to its
/// decoders; nothing of it holds for the process. Beyond a limit that was set here opening fails with `limitReached`,
/// and so does decoding where pictures grow on the way; beyond what is built in, with `tooLarge`.
struct InputLimits {
  /// Coded width × height, in pixels, of a track's pictures. More than the default, which is 16,384 × 16,384, is never
  /// let in.
  std::int64_t mostPixels = 268'435'456;
  /// Seconds that a file or a track of it may last; 0 is no limit.
  double mostSeconds = 0;
  /// Whether pictures and sound are decoded whatever their codec; else only those codecs are that telephones, cameras
  /// and screen recorders use, and others fail with `unsupported`.
  bool takesAnyCodec = false;

  friend bool operator==(const InputLimits&, const InputLimits&) = default;
};

}  // namespace clipworks
