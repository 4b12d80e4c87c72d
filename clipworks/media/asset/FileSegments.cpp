#include <clipworks/media/asset/FileSegments.h>

#include <algorithm>

#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr std::int32_t normalRate = 1 << 16;

CMTime editLength(const engine::MovieBoxes::Edit& edit, const FilePresentation& presentation) {
  if (edit.duration > 0) {
    const auto longest = static_cast<std::uint64_t>(INT64_MAX);
    return CMTime(static_cast<std::int64_t>(std::min(edit.duration, longest)), presentation.movieTimescale);
  }
  const std::int64_t rest = presentation.mediaDuration - std::max<std::int64_t>(edit.mediaTime, 0);
  return CMTime(std::max<std::int64_t>(rest, 0), presentation.mediaTimescale);
}

CMTime atRate(const CMTime& length, std::int32_t rate) {
  if (rate == normalRate) return length;
  return CMTime(mulDiv(length.value, rate, normalRate), length.timescale);
}

}  // namespace

std::vector<AVAssetTrackSegment> segmentsFromEdits(const FilePresentation& presentation) {
  std::vector<AVAssetTrackSegment> segments;
  if (presentation.mediaTimescale <= 0) return segments;
  const CMTime delay(presentation.encoderDelay, presentation.mediaTimescale);
  if (presentation.edits.empty() || presentation.movieTimescale <= 0) {
    const std::int64_t length = presentation.mediaDuration - presentation.encoderDelay;
    if (length <= 0) return segments;
    const CMTime duration(length, presentation.mediaTimescale);
    segments.push_back({CMTimeRange(delay, duration), CMTimeRange(kCMTimeZero, duration), SegmentGap::none});
    return segments;
  }
  CMTime at = kCMTimeZero;
  bool mediaSeen = false;
  for (const auto& edit : presentation.edits) {
    const CMTime length = editLength(edit, presentation);
    if (length.value <= 0) continue;
    const CMTimeRange target(at, length);
    at = target.end();
    if (edit.mediaTime < 0) {
      segments.push_back({kCMTimeRangeInvalid, target, mediaSeen ? SegmentGap::empty : SegmentGap::hold});
      continue;
    }
    mediaSeen = true;
    const CMTime start = CMTime(edit.mediaTime, presentation.mediaTimescale) + delay;
    const std::int32_t rate = std::max(edit.rate, 0);
    segments.push_back({CMTimeRange(start, atRate(length, rate)), target, SegmentGap::none});
  }
  return segments;
}

}  // namespace clipworks
