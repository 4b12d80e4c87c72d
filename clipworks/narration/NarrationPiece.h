#pragma once

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// One recording that is laid over a video. A plain value: `NarrationPiece{startTime, audioURL, volume}`.
struct CLIPWORKS_API NarrationPiece {
  /// When the piece begins within the video.
  CMTime startTime;
  /// The recording.
  URL audioURL;
  /// The factor of its level: 1 leaves it as it is, 0 is silence.
  float volume = 1;
};

}  // namespace clipworks
