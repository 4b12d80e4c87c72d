#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <clipworks/media/asset/AVAssetTrackSegment.h>
#include <clipworks/media/composition/AVMutableCompositionTrack.h>
#include <clipworks/media/geometry/CGAffineTransform.h>

namespace clipworks {

/// Arithmetic on lists of segments: pure values, no file, no codec. Ranges are half open. Every instant is exact while
/// the time scales that meet have a common multiple of 31 bits and the result has a time scale of as many; otherwise it
/// is rounded half away from zero to the finest multiple of the segment's own time scale, and flagged. All times are
/// numbers in epoch 0, 2^31 seconds from zero at most.

/// The instant of `segment`'s target that shows the instant `t` of its source, or the other way round; the mapping goes
/// on at the same rate before and after the segment. Invalid where it is not defined: for gaps, for a source or a
/// target of zero length, and for a `t` that is not such a number. Infinite when the result lies further than that.
[[nodiscard]] CMTime mapToTarget(const AVAssetTrackSegment& segment, const CMTime& t);
[[nodiscard]] CMTime mapToSource(const AVAssetTrackSegment& segment, const CMTime& t);

/// The part of a list of segments that lies in `range` of its timeline, moved so that `range` starts at `at`.
/// What of `range` lies before or after the list is one `hold` gap each: padding. For an empty list it is one gap.
/// The empty list for a range that is empty, and when a time is not a number as above.
[[nodiscard]] std::vector<AVAssetTrackSegment> sliceSegments(const std::vector<AVAssetTrackSegment>& segments,
                                                             const CMTimeRange& range, const CMTime& at);

/// A range of one coded track, by that track's own clock, presented at a range of an output's timeline.
struct MediaSegment : AVAssetTrackSegment {
  /// Null for gaps.
  std::shared_ptr<const MediaTrack> mediaTrack;
  /// The end of the source comes first. Sound is mirrored; pictures come in reverse order at the times at which they
  /// come forwards, so that their rate stays what it is.
  bool backwards = false;
  /// Of pictures that are drawn: from the track's natural size to the canvas, in pixels.
  std::optional<CGAffineTransform> place{};
};

/// As for any segment; the part of a backwards one is taken from the other end of its source.
void keepPart(MediaSegment& segment, const CMTime& from, const CMTime& to);

/// Sees through a track's segments (and those of compositions nested in it) to the coded media, in order, without
/// holes; neighbours that continue one another, target and source alike, at one rate, are joined, and so are gaps of
/// one kind. The empty list for no segments. Each track is resolved once, however often it is used: the time it takes
/// grows with the number of segments, those of the tracks and those of the result.
[[nodiscard]] std::vector<MediaSegment> resolveToMedia(const AVAssetTrack& track);

}  // namespace clipworks
