#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/composition/SegmentMapping.h>

namespace clipworks {

/// A picture of a coded track, and when it comes on screen on the timeline of the track that presents it.
struct PresentedPicture {
  CMTime time;
  std::shared_ptr<const MediaTrack> media;
  /// Its number in the order of presentation of `media`.
  std::uint32_t picture = 0;
};

/// The pictures that `segments` present, in order, their times rising. A segment that starts between two pictures starts
/// with the one on screen, unless that is the one already shown. Gaps present none. A picture that would come no later
/// than the one before it is left out. Times are in ticks of the media where that is exact.
[[nodiscard]] Result<std::vector<PresentedPicture>, NSError> presentedPictures(const std::vector<MediaSegment>& segments);

}  // namespace clipworks
