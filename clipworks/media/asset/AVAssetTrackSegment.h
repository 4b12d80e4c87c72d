#pragma once

#include <clipworks/media/base/Export.h>
#include <clipworks/media/time/CMTimeRange.h>

namespace clipworks {

/// What is presented where a segment has no media.
enum class SegmentGap {
  /// The segment has media.
  none,
  /// An explicit hole: black pictures, silence.
  empty,
  /// Nothing new to show: the picture on screen stays, the sound is silent. A track that begins after its movie
  /// or ends before it has such a segment; black there would flash at every join.
  hold,
};

/// One piece of a track: this range of the source is presented at that range of the track's timeline.
/// A range of other length than its source is played faster or slower; a source of zero length is a held picture.
/// A file's edit list and a composition's insertions are both lists of these, in order, without holes.
struct CLIPWORKS_API AVAssetTrackSegment {
  /// For a file's track on the media's own timeline, for a composition's track on the source track's timeline.
  CMTimeRange source;
  /// On the timeline of the track that lists the segment.
  CMTimeRange target;
  SegmentGap gap = SegmentGap::none;

  /// Whether there is no media: a gap of either kind.
  [[nodiscard]] bool isEmpty() const { return gap != SegmentGap::none; }
};

}  // namespace clipworks
