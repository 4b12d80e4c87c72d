#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/boxes/MovieBoxes.h>
#include <clipworks/media/asset/AVAssetTrackSegment.h>

namespace clipworks {

/// What a file says about how a track's media is presented.
struct FilePresentation {
  std::vector<engine::MovieBoxes::Edit> edits;  ///< empty when the media is presented as it is
  std::int32_t movieTimescale = 0;
  std::int32_t mediaTimescale = 0;
  std::int64_t mediaDuration = 0;  ///< in the media's time scale, to the end of what is last presented
  std::int64_t encoderDelay = 0;   ///< in the media's time scale: sound to be left out at the start of the media
};

/// A file's edit list as segments, ISO/IEC 14496-12, 8.6.6: each edit presents a range of the media, at its rate; one
/// of rate 0 holds a picture. Empty edits before the first one with media only say that the track begins later
/// (`hold`); between others they are holes (`empty`). An edit without a length reaches to the end of the media. No
/// timeline goes beyond 2^31 seconds.
[[nodiscard]] std::vector<AVAssetTrackSegment> segmentsFromEdits(const FilePresentation& presentation);

}  // namespace clipworks
