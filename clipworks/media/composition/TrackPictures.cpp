#include <clipworks/media/composition/TrackPictures.h>

#include <algorithm>

#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {

engine::Expected<std::optional<TrackPictures::OnScreen>> TrackPictures::at(const CMTime& t) {
  const auto after = std::upper_bound(segments_.begin(), segments_.end(), t,
                                      [](const CMTime& time, const MediaSegment& s) { return time < s.target.start; });
  if (after == segments_.begin() || t >= segments_.back().target.end()) return std::optional<OnScreen>{};
  auto index = static_cast<std::size_t>(after - segments_.begin()) - 1;
  const bool isHeld = segments_[index].gap == SegmentGap::hold;
  while (index > 0 && segments_[index].gap == SegmentGap::hold) --index;
  const MediaSegment& segment = segments_[index];
  if (segment.mediaTrack == nullptr) return std::optional<OnScreen>{};
  if (isHeld) return inSegment(index, segment.source.end(), segment.source.duration > kCMTimeZero);
  const bool isStill = segment.source.duration == kCMTimeZero;
  return inSegment(index, isStill ? segment.source.start : mapToSource(segment, t), false);
}

engine::Expected<std::optional<TrackPictures::OnScreen>> TrackPictures::inSegment(std::size_t segment,
                                                                                 const CMTime& sourceTime,
                                                                                 bool justBefore) {
  const auto& media = segments_[segment].mediaTrack;
  auto table = media->file()->sampleTable(media->stream());
  if (!table) return tl::make_unexpected(table.error());
  const std::int32_t scale = media->facts().timescale;
  const std::int64_t tick = justBefore
                                ? ticks(sourceTime, scale, CMTimeRoundingMethod::roundTowardPositiveInfinity) - 1
                                : ticks(sourceTime, scale, CMTimeRoundingMethod::roundTowardNegativeInfinity);
  const auto picture = (*table)->pictureAt(tick);
  if (!picture) return std::optional<OnScreen>{};
  return std::optional<OnScreen>(OnScreen{media, *picture, segment});
}

}  // namespace clipworks
