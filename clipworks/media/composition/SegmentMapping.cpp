#include <clipworks/media/composition/SegmentMapping.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

#include <clipworks/media/composition/SegmentArithmetic.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

/// A range of one timeline that is presented at a range of another; its parts are handed out in order.
class PresentedRange {
 public:
  PresentedRange(const CMTimeRange& from, const CMTimeRange& onto)
      : from_(from),
        onto_(onto),
        isAtNormalRate_(from.duration == onto.duration),
        timescale_(timescaleOf(onto)),
        next_(onto.start) {}

  [[nodiscard]] const CMTimeRange& from() const { return from_; }
  [[nodiscard]] bool isAtNormalRate() const { return isAtNormalRate_; }

  /// Where the part that begins at the end of the last one and ends at `to`, an instant of `from`, is presented.
  [[nodiscard]] CMTimeRange partUpTo(const CMTime& to) {
    const CMTime start = next_;
    next_ = onto_.end();
    if (to != from_.end()) {
      const CMTime end = fitToTimescale(retimed(to, from_, onto_), timescale_);
      next_ = CMTimeMaximum(start, CMTimeMinimum(end, next_));  // where times were rounded, it may come out beyond
    }
    return CMTimeRange::fromTo(start, next_);
  }

 private:
  CMTimeRange from_;
  CMTimeRange onto_;
  bool isAtNormalRate_;
  std::int32_t timescale_;
  CMTime next_;
};

/// Calls `take` with the segments that present `range` of the timeline of `segments`, re-timed.
template <class Segment, class Take>
void forEachPart(const std::vector<Segment>& segments, PresentedRange range, Take take) {
  const CMTime start = range.from().start;
  const CMTime end = range.from().end();
  const auto give = [&](Segment part, const CMTime& to) {
    const bool staysAtNormalRate = range.isAtNormalRate() && isAtNormalRate(part);
    part.target = range.partUpTo(to);
    if (staysAtNormalRate) part.source.duration = part.target.duration;
    if (part.target.duration > kCMTimeZero) take(std::move(part));
  };
  Segment padding;
  padding.gap = SegmentGap::hold;

  const CMTime first = segments.empty() ? end : segments.front().target.start;
  if (start < first) give(padding, CMTimeMinimum(first, end));
  auto segment = std::upper_bound(segments.begin(), segments.end(), start,
                                  [](const CMTime& t, const Segment& s) { return t < s.target.start; });
  if (segment != segments.begin()) --segment;
  CMTime last = CMTimeMaximum(start, first);
  for (; segment != segments.end() && segment->target.start < end; ++segment) {
    const CMTime to = CMTimeMinimum(segment->target.end(), end);
    if (to <= last) continue;  // the segment ends before the range, or is empty
    Segment part = *segment;
    keepPart(part, CMTimeMaximum(segment->target.start, start), to);
    give(std::move(part), to);
    last = to;
  }
  if (last < end) give(padding, end);
}

/// Exact, and so false where the times have no common time scales.
bool haveEqualRates(const AVAssetTrackSegment& a, const AVAssetTrackSegment& b) {
  if (isAtNormalRate(a) && isAtNormalRate(b)) return true;
  const std::int32_t sourceScale = commonTimescale(a.source.duration.timescale, b.source.duration.timescale);
  const std::int32_t targetScale = commonTimescale(a.target.duration.timescale, b.target.duration.timescale);
  if (sourceScale == 0 || targetScale == 0) return false;
  const auto product = [&](const CMTime& source, const CMTime& target) {
    return static_cast<Int128>(ticks(source, sourceScale)) * ticks(target, targetScale);
  };
  return product(a.source.duration, b.target.duration) == product(b.source.duration, a.target.duration);
}

/// Lengthens `range` by `next` when the result ends exactly where `next` does.
bool extend(CMTimeRange& range, const CMTimeRange& next) {
  if (range.end() != next.start) return false;
  const CMTimeRange both = CMTimeRange::fromTo(range.start, next.end());
  if (both.end() != next.end()) return false;
  range = both;
  return true;
}

/// The list's last segment and `next` as one, when `next` continues it.
bool join(MediaSegment& last, const MediaSegment& next) {
  if (last.gap != next.gap || last.mediaTrack != next.mediaTrack) return false;
  if (last.isEmpty()) return extend(last.target, next.target);
  if (!haveEqualRates(last, next)) return false;
  MediaSegment both = last;
  if (!extend(both.source, next.source) || !extend(both.target, next.target)) return false;
  last = std::move(both);
  return true;
}

void append(std::vector<MediaSegment>& list, MediaSegment segment) {
  if (list.empty() || !join(list.back(), segment)) list.push_back(std::move(segment));
}

std::vector<MediaSegment> segmentsOfFile(const AVAssetTrack& track) {
  std::vector<MediaSegment> list;
  for (const AVAssetTrackSegment& segment : track.segments()) {
    append(list, MediaSegment{segment, segment.isEmpty() ? nullptr : track.media()});
  }
  return list;
}

/// Resolves each track once, however often it is used. Works from a list of open tracks instead of calling itself, so
/// that deep nesting costs no stack; it ends because no composition's track ever draws from itself.
class Resolver {
 public:
  std::vector<MediaSegment> resolve(const AVAssetTrack& track) {
    open_.push_back(&track);
    while (!open_.empty()) {
      const AVAssetTrack* const next = open_.back();
      const bool isResolved = resolved_.contains(next);
      if (!isResolved && openSources(*next)) continue;
      open_.pop_back();
      if (!isResolved) resolved_.emplace(next, segmentsOf(*next));
    }
    return std::move(resolved_.at(&track));
  }

 private:
  /// Opens those sources of a composition's track that are not resolved yet; false when there is none.
  bool openSources(const AVAssetTrack& track) {
    const auto* composition = dynamic_cast<const AVMutableCompositionTrack*>(&track);
    if (composition == nullptr) return false;
    const std::size_t before = open_.size();
    for (const AVCompositionTrackSegment& segment : composition->compositionSegments()) {
      const AVAssetTrack* const source = segment.sourceTrack.get();
      if (source != nullptr && source != open_.back() && !resolved_.contains(source)) open_.push_back(source);
    }
    return open_.size() > before;
  }

  /// All sources are resolved.
  std::vector<MediaSegment> segmentsOf(const AVAssetTrack& track) const {
    const auto* composition = dynamic_cast<const AVMutableCompositionTrack*>(&track);
    if (composition == nullptr) return segmentsOfFile(track);
    std::vector<MediaSegment> list;
    for (const AVCompositionTrackSegment& segment : composition->compositionSegments()) {
      if (segment.isEmpty()) {
        append(list, MediaSegment{segment, nullptr});
        continue;
      }
      if (segment.source.duration == kCMTimeZero) {  // nanoseconds that were rounded to nothing and then stretched
        append(list, MediaSegment{{kCMTimeRangeInvalid, segment.target, SegmentGap::hold}, nullptr});
        continue;
      }
      forEachPart(resolved_.at(segment.sourceTrack.get()), PresentedRange(segment.source, segment.target),
                  [&](MediaSegment part) { append(list, std::move(part)); });
    }
    return list;
  }

  std::vector<const AVAssetTrack*> open_;
  std::unordered_map<const AVAssetTrack*, std::vector<MediaSegment>> resolved_;
};

CMTime mapped(const AVAssetTrackSegment& segment, const CMTime& t, const CMTimeRange& from, const CMTimeRange& onto) {
  if (segment.isEmpty() || onto.duration == kCMTimeZero) return kCMTimeInvalid;
  return retimed(t, from, onto);
}

}  // namespace

void keepPart(MediaSegment& segment, const CMTime& from, const CMTime& to) {
  AVAssetTrackSegment& plain = segment;
  if (!segment.backwards) return keepPart(plain, from, to);
  const CMTimeRange part = CMTimeRange::fromTo(from, to);
  const CMTime whole = segment.target.start + segment.target.end();
  keepPart(plain, whole - to, whole - from);
  segment.target = part;
}

CMTime mapToTarget(const AVAssetTrackSegment& segment, const CMTime& t) {
  return mapped(segment, t, segment.source, segment.target);
}

CMTime mapToSource(const AVAssetTrackSegment& segment, const CMTime& t) {
  return mapped(segment, t, segment.target, segment.source);
}

std::vector<AVAssetTrackSegment> sliceSegments(const std::vector<AVAssetTrackSegment>& segments,
                                               const CMTimeRange& range, const CMTime& at) {
  std::vector<AVAssetTrackSegment> slice;
  if (!isPlaceable(range) || !isPlaceable(at) || range.duration == kCMTimeZero) return slice;
  std::int32_t timescale = 1;
  const CMTime start = fitToTimescale(at, timescale);
  const CMTime length = fitToTimescale(range.duration, timescale);
  forEachPart(segments, PresentedRange(range, CMTimeRange(start, length)),
              [&](const AVAssetTrackSegment& part) { slice.push_back(part); });
  return slice;
}

std::vector<MediaSegment> resolveToMedia(const AVAssetTrack& track) { return Resolver().resolve(track); }

}  // namespace clipworks
