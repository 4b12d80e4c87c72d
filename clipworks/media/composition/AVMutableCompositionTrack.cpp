#include <clipworks/media/composition/AVMutableCompositionTrack.h>

#include <algorithm>
#include <iterator>
#include <unordered_set>
#include <utility>

#include <clipworks/media/composition/SegmentArithmetic.h>

namespace clipworks {
namespace {

const AVMutableCompositionTrack* asCompositionTrack(const AVAssetTrack* track) {
  return dynamic_cast<const AVMutableCompositionTrack*>(track);
}

/// Where the last segment of `track` ends. A composition's list may be long: it is not copied.
CMTime endOf(const AVAssetTrack& track) {
  if (const AVMutableCompositionTrack* composition = asCompositionTrack(&track)) return composition->timeRange().end();
  const std::vector<AVAssetTrackSegment> segments = track.segments();
  return segments.empty() ? kCMTimeZero : segments.back().target.end();
}

/// A gap of a length; its place comes when it is inserted.
AVCompositionTrackSegment gapOf(SegmentGap kind, const CMTime& length) {
  AVCompositionTrackSegment gap;
  gap.gap = kind;
  gap.target.duration = length;
  return gap;
}

/// What of `range` lies between zero and `end`; `stop` is not after `start` when that is nothing.
struct Clip {
  CMTime start;
  CMTime stop;

  Clip(const CMTimeRange& range, const CMTime& end)
      : start(CMTimeMaximum(range.start, kCMTimeZero)), stop(CMTimeMinimum(range.end(), end)) {}
};

/// `length` · `part` / `whole`, at the time scale of `length`.
CMTime shareOf(const CMTime& length, const CMTime& part, const CMTime& whole) {
  const CMTime share = retimed(part, CMTimeRange(kCMTimeZero, whole), CMTimeRange(kCMTimeZero, length));
  return share.convertScale(length.timescale, CMTimeRoundingMethod::roundHalfAwayFromZero);
}

}  // namespace

AVMutableCompositionTrack::AVMutableCompositionTrack(AVMediaType mediaType, CMPersistentTrackID trackID)
    : mediaType_(mediaType), trackID_(trackID) {}

Result<void, NSError> AVMutableCompositionTrack::insertTimeRange(const CMTimeRange& timeRange,
                                                                 const std::shared_ptr<const AVAssetTrack>& of,
                                                                 const CMTime& at) {
  if (const std::optional<NSError> error = whyNotInsertable(timeRange, of, at)) return failure(*error);
  const CMTime available = CMTimeMaximum(endOf(*of) - timeRange.start, kCMTimeZero);
  const CMTime wanted = timeRange.duration.isPositiveInfinity() ? available : timeRange.duration;
  if (wanted == kCMTimeZero) return {};

  // The instants that were asked for take their time scales first: they stay exact, the join to the padding gives way.
  const CMTime start = fitToTimescale(at, timescale_);
  const CMTime length = fitToTimescale(wanted, timescale_);
  const CMTime presented = available < length ? fitToTimescale(available, timescale_) : length;
  std::vector<AVCompositionTrackSegment> pieces;
  if (presented > kCMTimeZero) {
    AVCompositionTrackSegment piece;
    piece.source = CMTimeRange(timeRange.start, presented);
    piece.target.duration = presented;
    piece.sourceTrack = of;
    pieces.push_back(std::move(piece));
  }
  if (presented < length) pieces.push_back(gapOf(SegmentGap::hold, length - presented));
  insertSegments(std::move(pieces), start, length);
  return {};
}

void AVMutableCompositionTrack::insertEmptyTimeRange(const CMTimeRange& timeRange) {
  if (!isPlaceable(timeRange) || timeRange.start < kCMTimeZero || timeRange.duration == kCMTimeZero) return;
  if (!isPlaceable(CMTimeMaximum(timeRange.start, end()) + timeRange.duration)) return;
  const CMTime start = fitToTimescale(timeRange.start, timescale_);
  const CMTime length = fitToTimescale(timeRange.duration, timescale_);
  insertSegments({gapOf(SegmentGap::empty, length)}, start, length);
}

void AVMutableCompositionTrack::removeTimeRange(const CMTimeRange& timeRange) {
  if (!isPlaceable(timeRange.start)) return;
  if (!isPlaceable(timeRange) && !timeRange.duration.isPositiveInfinity()) return;
  const Clip clip(timeRange, end());
  const CMTime start = fitToTimescale(clip.start, timescale_);
  const CMTime stop = fitToTimescale(clip.stop, timescale_);
  if (start >= stop) return;
  const std::size_t first = splitAt(start);
  const std::size_t last = splitAt(stop);
  segments_.erase(std::next(segments_.begin(), static_cast<std::ptrdiff_t>(first)),
                  std::next(segments_.begin(), static_cast<std::ptrdiff_t>(last)));
  shiftFrom(first, start - stop);
}

void AVMutableCompositionTrack::scaleTimeRange(const CMTimeRange& timeRange, const CMTime& toDuration) {
  if (!isPlaceable(timeRange) || !isPlaceable(toDuration) || toDuration < kCMTimeZero) return;
  const Clip clip(timeRange, end());
  if (clip.start >= clip.stop) return;
  const bool isWhole = clip.start == timeRange.start && clip.stop == timeRange.end();
  const CMTime share = isWhole ? toDuration : shareOf(toDuration, clip.stop - clip.start, timeRange.duration);
  if (!isPlaceable(end() - (clip.stop - clip.start) + share)) return;

  const CMTime start = fitToTimescale(clip.start, timescale_);
  const CMTime stop = fitToTimescale(clip.stop, timescale_);
  const CMTime length = fitToTimescale(share, timescale_);
  if (length == kCMTimeZero) return removeTimeRange(timeRange);
  if (start == stop) return;
  const std::size_t first = splitAt(start);
  const std::size_t last = splitAt(stop);
  stretch(first, last, CMTimeRange::fromTo(start, stop), length);
  shiftFrom(last, length - (stop - start));
  std::erase_if(segments_, [](const auto& segment) { return segment.target.duration == kCMTimeZero; });
}

void AVMutableCompositionTrack::setPreferredTransform(const CGAffineTransform& transform) {
  preferredTransform_ = transform;
}

const std::vector<AVCompositionTrackSegment>& AVMutableCompositionTrack::compositionSegments() const {
  return segments_;
}

CMTime AVMutableCompositionTrack::end() const {
  return segments_.empty() ? kCMTimeZero : segments_.back().target.end();
}

std::optional<NSError> AVMutableCompositionTrack::whyNotInsertable(const CMTimeRange& timeRange,
                                                                   const std::shared_ptr<const AVAssetTrack>& of,
                                                                   const CMTime& at) const {
  const auto error = [&](AVError code, const char* reason) {
    return makeError(code, "Cannot insert into track " + std::to_string(trackID_) + " of the composition: " + reason);
  };
  if (!isPlaceable(at) || at < kCMTimeZero) {
    return error(AVError::invalidTimeRange, "the insertion time is negative or no usable number");
  }
  if (!isPlaceable(timeRange.start) || timeRange.start < kCMTimeZero) {
    return error(AVError::invalidTimeRange, "the start of the time range is negative or no usable number");
  }
  const bool isOpen = timeRange.duration.isPositiveInfinity();
  if (!isOpen && !isPlaceable(timeRange)) {
    return error(AVError::invalidTimeRange, "the length of the time range is negative or no usable number");
  }
  if (of == nullptr) return error(AVError::invalidSourceMedia, "there is no source track");
  if (of->mediaType() != mediaType_) {
    return error(AVError::invalidSourceMedia, "the source track is of another media type");
  }
  if (wouldDrawFromItself(of)) return error(AVError::invalidSourceMedia, "the source track draws from this one");
  const CMTime sourceEnd = endOf(*of);
  if (!isPlaceable(sourceEnd)) return error(AVError::invalidSourceMedia, "the source track has no usable length");
  if (!isPlaceable(CMTimeMaximum(at, end()) + (isOpen ? sourceEnd : timeRange.duration))) {
    return error(AVError::invalidTimeRange, "it would grow longer than 2^31 seconds");
  }
  return std::nullopt;
}

bool AVMutableCompositionTrack::wouldDrawFromItself(const std::shared_ptr<const AVAssetTrack>& of) const {
  if (asCompositionTrack(of.get()) == nullptr) return false;
  // A track that is used already has passed, and could not take this one in since. Padding may follow it.
  for (std::size_t i = segments_.size(); i > 0 && i + 2 > segments_.size(); --i) {
    if (segments_[i - 1].sourceTrack == of) return false;
  }
  std::vector<const AVMutableCompositionTrack*> open{asCompositionTrack(of.get())};
  std::unordered_set<const AVAssetTrack*> seen;
  while (!open.empty()) {
    const AVMutableCompositionTrack* const track = open.back();
    open.pop_back();
    if (track == this) return true;
    for (const AVCompositionTrackSegment& segment : track->segments_) {
      if (!seen.insert(segment.sourceTrack.get()).second) continue;
      if (const auto* nested = asCompositionTrack(segment.sourceTrack.get())) open.push_back(nested);
    }
  }
  return false;
}

/// The index of the segment that starts at `t`, after the one in which `t` lies was split; the number of segments when
/// `t` is not before the end.
std::size_t AVMutableCompositionTrack::splitAt(const CMTime& t) {
  if (t >= end()) return segments_.size();
  const auto after =
      std::upper_bound(segments_.begin(), segments_.end(), t,
                       [](const CMTime& instant, const auto& segment) { return instant < segment.target.start; });
  const auto index = static_cast<std::size_t>(after - segments_.begin());
  AVCompositionTrackSegment& hit = segments_[index - 1];
  if (hit.target.start == t) return index - 1;
  AVCompositionTrackSegment second = hit;
  keepPart(second, t, hit.target.end());
  keepPart(hit, hit.target.start, t);
  segments_.insert(after, std::move(second));
  return index;
}

/// Places `pieces`, `length` long in all, one after the other from `at` on.
void AVMutableCompositionTrack::insertSegments(std::vector<AVCompositionTrackSegment> pieces, const CMTime& at,
                                               const CMTime& length) {
  if (at > end()) {
    AVCompositionTrackSegment filler = gapOf(SegmentGap::empty, at - end());
    filler.target.start = end();
    segments_.push_back(std::move(filler));
  }
  CMTime start = at;
  for (AVCompositionTrackSegment& piece : pieces) {
    piece.target.start = start;
    start = piece.target.end();
  }
  const std::size_t index = splitAt(at);
  shiftFrom(index, length);
  segments_.insert(std::next(segments_.begin(), static_cast<std::ptrdiff_t>(index)),
                   std::make_move_iterator(pieces.begin()), std::make_move_iterator(pieces.end()));
}

/// Presents the segments `first` to `last` (not included), which fill `from`, in `length` from the same start.
/// Every end is mapped from there, so that roundings do not add up; some segments may come out zero long.
void AVMutableCompositionTrack::stretch(std::size_t first, std::size_t last, const CMTimeRange& from,
                                        const CMTime& length) {
  const CMTimeRange onto(from.start, length);
  CMTime start = onto.start;
  for (std::size_t i = first; i < last; ++i) {
    CMTimeRange& target = segments_[i].target;
    CMTime stop = onto.end();
    if (i + 1 < last) {
      const CMTime end = fitToTimescale(retimed(target.end(), from, onto), timescale_);
      stop = CMTimeMaximum(CMTimeMinimum(end, stop), start);  // where times were rounded, it may come out beyond
    }
    target = CMTimeRange::fromTo(start, stop);
    start = stop;
  }
}

void AVMutableCompositionTrack::shiftFrom(std::size_t index, const CMTime& by) {
  for (std::size_t i = index; i < segments_.size(); ++i) segments_[i].target.start += by;
}

const AVAssetTrack* AVMutableCompositionTrack::firstFileTrack() const {
  const AVAssetTrack* track = this;
  while (const AVMutableCompositionTrack* composition = asCompositionTrack(track)) {
    const auto segment = std::find_if(composition->segments_.begin(), composition->segments_.end(),
                                      [](const auto& candidate) { return candidate.sourceTrack != nullptr; });
    track = segment == composition->segments_.end() ? nullptr : segment->sourceTrack.get();
  }
  return track;
}

AVMediaType AVMutableCompositionTrack::mediaType() const { return mediaType_; }

CMPersistentTrackID AVMutableCompositionTrack::trackID() const { return trackID_; }

CMTimeRange AVMutableCompositionTrack::timeRange() const { return CMTimeRange(kCMTimeZero, end()); }

CGSize AVMutableCompositionTrack::naturalSize() const {
  const AVAssetTrack* const track = firstFileTrack();
  return track != nullptr ? track->naturalSize() : CGSize{};
}

CGAffineTransform AVMutableCompositionTrack::preferredTransform() const { return preferredTransform_; }

float AVMutableCompositionTrack::nominalFrameRate() const {
  const AVAssetTrack* const track = firstFileTrack();
  return track != nullptr ? track->nominalFrameRate() : 0;
}

float AVMutableCompositionTrack::estimatedDataRate() const {
  const AVAssetTrack* const track = firstFileTrack();
  return track != nullptr ? track->estimatedDataRate() : 0;
}

std::int32_t AVMutableCompositionTrack::naturalTimeScale() const {
  const AVAssetTrack* const track = firstFileTrack();
  return track != nullptr ? track->naturalTimeScale() : 0;
}

std::vector<AVAssetTrackSegment> AVMutableCompositionTrack::segments() const {
  return {segments_.begin(), segments_.end()};
}

std::string AVMutableCompositionTrack::codecName() const {
  const AVAssetTrack* const track = firstFileTrack();
  return track != nullptr ? track->codecName() : std::string();
}

int AVMutableCompositionTrack::channelCount() const {
  const AVAssetTrack* const track = firstFileTrack();
  return track != nullptr ? track->channelCount() : 0;
}

double AVMutableCompositionTrack::sampleRate() const {
  const AVAssetTrack* const track = firstFileTrack();
  return track != nullptr ? track->sampleRate() : 0;
}

std::shared_ptr<const MediaTrack> AVMutableCompositionTrack::media() const { return nullptr; }

}  // namespace clipworks
