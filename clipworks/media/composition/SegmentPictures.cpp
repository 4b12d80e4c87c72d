#include <clipworks/media/composition/SegmentPictures.h>

#include <algorithm>

#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr auto up = CMTimeRoundingMethod::roundTowardPositiveInfinity;
constexpr auto down = CMTimeRoundingMethod::roundTowardNegativeInfinity;

}  // namespace

SegmentPictures::SegmentPictures(const MediaSegment& segment, const engine::PictureTable& table)
    : segment_(segment), table_(table), scale_(segment.mediaTrack->facts().timescale) {
  next_ = table.firstPictureFrom(ticks(segment.source.start, scale_, up));
  end_ = std::max(next_, table.firstPictureFrom(ticks(segment.source.end(), scale_, up)));
  held_ = table.pictureAt(ticks(segment.source.start, scale_, down));
  if (held_ == next_ && next_ < end_) held_.reset();  // it comes exactly at the start
}

std::optional<std::size_t> SegmentPictures::first() const {
  if (held_) return held_;
  return next_ < end_ ? std::optional(next_) : std::nullopt;
}

std::optional<std::size_t> SegmentPictures::at(const CMTime& time) const {
  const CMTime mapped = mapToSource(segment_, time);
  if (!mapped.isNumeric()) return held_;  // a picture that is held
  // By the times at which pictures come on screen, wherever a time had to be rounded.
  std::size_t after = std::clamp(table_.firstPictureFrom(ticks(mapped, scale_, down) + 1), next_, end_);
  while (after < end_ && since(after) <= time) ++after;
  while (after > next_ && since(after - 1) > time) --after;
  return after > next_ ? std::optional(after - 1) : held_;
}

CMTime SegmentPictures::since(std::size_t picture) const {
  if (picture == held_) return segment_.target.start;
  const CMTime mapped = mapToTarget(segment_, CMTime(table_.timeOfPicture(picture), scale_));
  return mapped.isNumeric() ? CMTimeMaximum(mapped, segment_.target.start) : segment_.target.start;
}

}  // namespace clipworks
