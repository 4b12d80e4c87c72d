#include <clipworks/media/composition/PresentedPictures.h>

#include <algorithm>

#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

/// In ticks of `timescale` when that is the same instant.
CMTime inTicks(const CMTime& time, std::int32_t timescale) {
  const CMTime converted = time.convertScale(timescale, CMTimeRoundingMethod::roundHalfAwayFromZero);
  return converted == time ? converted : time;
}

CMTime presentationTime(const MediaSegment& segment, const CMTime& mediaTime) {
  const bool isAtNormalRate = segment.source.duration == segment.target.duration;
  const CMTime time = isAtNormalRate ? segment.target.start + (mediaTime - segment.source.start)
                                     : mapToTarget(segment, mediaTime);
  return inTicks(time, mediaTime.timescale);
}

void append(std::vector<PresentedPicture>& pictures, PresentedPicture picture) {
  if (pictures.empty() || pictures.back().time < picture.time) pictures.push_back(std::move(picture));
}

void appendSegment(std::vector<PresentedPicture>& pictures, const MediaSegment& segment,
                   const engine::SampleTable& table) {
  const std::int32_t scale = segment.mediaTrack->facts().timescale;
  const std::int64_t from = ticks(segment.source.start, scale, CMTimeRoundingMethod::roundTowardPositiveInfinity);
  const std::int64_t floor = ticks(segment.source.start, scale, CMTimeRoundingMethod::roundTowardNegativeInfinity);
  const std::int64_t to = ticks(segment.source.end(), scale, CMTimeRoundingMethod::roundTowardPositiveInfinity);
  const std::size_t first = table.firstPictureFrom(from);
  const std::size_t end = std::max(first, table.firstPictureFrom(to));

  const auto onScreen = table.pictureAt(floor);
  const bool startsBetween = onScreen && (first == end || table.timeOfPicture(first) != floor || from != floor);
  const bool isShown = !pictures.empty() && onScreen && pictures.back().media == segment.mediaTrack &&
                       pictures.back().picture == *onScreen;
  if (startsBetween && !isShown) {
    append(pictures, {inTicks(segment.target.start, scale), segment.mediaTrack, static_cast<std::uint32_t>(*onScreen)});
  }
  for (std::size_t picture = first; picture < end; ++picture) {
    const CMTime time = presentationTime(segment, CMTime(table.timeOfPicture(picture), scale));
    append(pictures, {time, segment.mediaTrack, static_cast<std::uint32_t>(picture)});
  }
}

}  // namespace

Result<std::vector<PresentedPicture>, NSError> presentedPictures(const std::vector<MediaSegment>& segments) {
  std::vector<PresentedPicture> pictures;
  for (const MediaSegment& segment : segments) {
    if (segment.isEmpty()) continue;
    auto table = segment.mediaTrack->file()->sampleTable(segment.mediaTrack->stream());
    if (!table) return failure(errorFromEngine(table.error()));
    appendSegment(pictures, segment, **table);
  }
  return pictures;
}

}  // namespace clipworks
