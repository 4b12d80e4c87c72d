#include <clipworks/media/asset/FileSegments.h>

#include <algorithm>

#include <clipworks/media/time/ExactTime.h>
#include <clipworks/media/time/PlaceableTime.h>

namespace clipworks {
namespace {

constexpr std::int32_t normalRate = 1 << 16;

/// What a file says of later instants is damage or malice.
constexpr CMTime latest(latestSecond, 1);

CMTime editLength(const engine::MovieBoxes::Edit& edit, const FilePresentation& presentation) {
  if (edit.duration > 0) {
    const auto longest = static_cast<std::uint64_t>(INT64_MAX);
    return CMTime(static_cast<std::int64_t>(std::min(edit.duration, longest)), presentation.movieTimescale);
  }
  const CMTime rest = CMTime(presentation.mediaDuration, presentation.mediaTimescale) -
                      CMTime(std::max<std::int64_t>(edit.mediaTime, 0), presentation.mediaTimescale);
  return CMTimeMaximum(rest, kCMTimeZero);
}

CMTime atRate(const CMTime& length, std::int32_t rate) {
  if (rate == normalRate) return length;
  return CMTime(mulDiv(length.value, rate, normalRate), length.timescale);
}

bool isWhollyPlaceable(const CMTimeRange& range) { return isPlaceable(range) && isPlaceable(range.end()); }

}  // namespace

std::vector<AVAssetTrackSegment> segmentsFromEdits(const FilePresentation& presentation) {
  std::vector<AVAssetTrackSegment> segments;
  if (presentation.mediaTimescale <= 0) return segments;
  const CMTime delay(presentation.encoderDelay, presentation.mediaTimescale);
  if (presentation.edits.empty() || presentation.movieTimescale <= 0) {
    const CMTime duration =
        CMTimeMinimum(CMTime(presentation.mediaDuration, presentation.mediaTimescale) - delay, latest);
    if (duration <= kCMTimeZero || !isWhollyPlaceable({delay, duration})) return segments;
    segments.push_back({CMTimeRange(delay, duration), CMTimeRange(kCMTimeZero, duration), SegmentGap::none});
    return segments;
  }
  CMTime at = kCMTimeZero;
  bool mediaSeen = false;
  for (const auto& edit : presentation.edits) {
    const CMTime length = CMTimeMinimum(editLength(edit, presentation), latest - at);
    if (length.value <= 0) continue;
    const CMTimeRange target(at, length);
    at = target.end();
    const CMTime start = CMTime(edit.mediaTime, presentation.mediaTimescale) + delay;
    const CMTimeRange source(start, atRate(length, std::max(edit.rate, 0)));
    if (edit.mediaTime < 0 || !isWhollyPlaceable(source)) {
      segments.push_back({kCMTimeRangeInvalid, target, mediaSeen ? SegmentGap::empty : SegmentGap::hold});
      continue;
    }
    mediaSeen = true;
    segments.push_back({source, target, SegmentGap::none});
  }
  return segments;
}

}  // namespace clipworks
