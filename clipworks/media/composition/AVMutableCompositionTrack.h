#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/media/asset/AVAssetTrack.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>

namespace clipworks {

template <class Segment>
class SegmentList;

/// A segment of a composition's track, with the track that its source range lies on; null for gaps.
struct CLIPWORKS_API AVCompositionTrackSegment : AVAssetTrackSegment {
  std::shared_ptr<const AVAssetTrack> sourceTrack;
};

/// A track made of ranges of other tracks. Not thread-safe: one thread at a time, and none while an export of its
/// composition is being started (a running export has its own copy).
///
/// Times are numbers in epoch 0 (others are invalid), and no track grows longer than 2^31 seconds. All instants of a
/// track's timeline have one common time scale of 31 bits at most, so that segments meet exactly and splitting loses
/// nothing. While the time scales that come in have such a multiple, every instant is exact; after that, new ones are
/// rounded half away from zero to the finest multiple.
class CLIPWORKS_API AVMutableCompositionTrack final : public AVAssetTrack {
 public:
  /// Empty, with the identity transform. Compositions make their tracks: `AVMutableComposition::addMutableTrack`.
  AVMutableCompositionTrack(AVMediaType mediaType, CMPersistentTrackID trackID);
  ~AVMutableCompositionTrack() override;

  /// `insertTimeRange(_:of:at:)`. Presents `timeRange` of the track `of` from `at` on. What lay at `at` is split there
  /// and moves later by the length of the range; an insertion past the end fills up to it with an empty segment. The
  /// part of the range that the source track does not have is padding, a segment of its own: the picture on screen
  /// stays, the sound is silent, and the next insertion still falls where it was asked. A range of infinite length ends
  /// with the source track instead, without padding. A composition's track that is inserted is looked through when the
  /// composition is read, so later changes to it show.
  /// Fails with `AVError::invalidTimeRange` when a time is not a number, `at` or the range's start is negative, the
  /// range's length is negative, or the track would grow too long; with `AVError::invalidSourceMedia` when the track is
  /// null, of another media type, of no usable length, or draws from this one.
  /// A range of zero length inserts nothing and succeeds. After a failure nothing has changed.
  /// Takes constant time at the end of the track, unless `of` is a composition's track that was not inserted just
  /// before; elsewhere it grows with the number of segments that follow.
  Result<void, NSError> insertTimeRange(const CMTimeRange& timeRange, const std::shared_ptr<const AVAssetTrack>& of,
                                        const CMTime& at);

  /// `insertEmptyTimeRange(_:)`. Black and silent; what lay at the range's start moves later, and a start past the end
  /// fills up to it in the same way. Invalid or infinite ranges, a negative start or length, and what would grow too
  /// long change nothing.
  void insertEmptyTimeRange(const CMTimeRange& timeRange);

  /// `removeTimeRange(_:)`. What follows moves earlier. What of the range lies outside the track does not count; its
  /// length may be infinite. Invalid ranges change nothing.
  void removeTimeRange(const CMTimeRange& timeRange);

  /// `scaleTimeRange(_:toDuration:)`. Splits at both ends, plays the range in the new length and shifts what follows.
  /// Segments within the range, gaps too, keep their shares of it.
  /// An invalid, infinite or negative length of the range or new length changes nothing, nor does what would grow too
  /// long. A length of zero removes the range. A range partly outside the track is clipped to it and the new length is
  /// scaled by the share that is left, rounded half away from zero at the length's time scale.
  void scaleTimeRange(const CMTimeRange& timeRange, const CMTime& toDuration);

  /// `setPreferredTransform:`. Written to exported files that keep the coded orientation.
  void setPreferredTransform(const CGAffineTransform& transform);

  /// In order, from time zero, without holes: each target starts exactly where the one before it ends. One insertion is
  /// one segment, and one more for its padding, whatever edits and gaps the source track has within. The source of a
  /// gap is not valid.
  [[nodiscard]] const std::vector<AVCompositionTrackSegment>& compositionSegments() const;

  // AVAssetTrack. Sizes, rates and the codec are those of the track behind the first segment with media; a re-timing
  // does not change them.
  [[nodiscard]] AVMediaType mediaType() const override;
  [[nodiscard]] CMPersistentTrackID trackID() const override;
  /// From zero to the end of the last segment, gaps and padding included; zero long for an empty track.
  [[nodiscard]] CMTimeRange timeRange() const override;
  [[nodiscard]] CGSize naturalSize() const override;
  [[nodiscard]] CGAffineTransform preferredTransform() const override;
  [[nodiscard]] float nominalFrameRate() const override;
  [[nodiscard]] float estimatedDataRate() const override;
  [[nodiscard]] std::int32_t naturalTimeScale() const override;
  [[nodiscard]] std::vector<AVAssetTrackSegment> segments() const override;
  [[nodiscard]] std::string codecName() const override;
  [[nodiscard]] int channelCount() const override;
  [[nodiscard]] double sampleRate() const override;
  [[nodiscard]] std::shared_ptr<const MediaTrack> media() const override;

 private:
  [[nodiscard]] CMTime end() const;
  [[nodiscard]] std::optional<NSError> whyNotInsertable(const CMTimeRange& timeRange,
                                                        const std::shared_ptr<const AVAssetTrack>& of,
                                                        const CMTime& at) const;
  [[nodiscard]] bool wouldDrawFromItself(const std::shared_ptr<const AVAssetTrack>& of) const;
  // The track of a file behind the first segment with media; null when there is none.
  [[nodiscard]] const AVAssetTrack* firstFileTrack() const;

  AVMediaType mediaType_;
  CMPersistentTrackID trackID_;
  CGAffineTransform preferredTransform_;
  const std::unique_ptr<SegmentList<AVCompositionTrackSegment>> list_;
};

}  // namespace clipworks
