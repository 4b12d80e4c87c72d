#include <clipworks/media/composition/AVMutableCompositionTrack.h>

#include <algorithm>
#include <unordered_set>
#include <utility>
#include <vector>

#include <clipworks/media/composition/SegmentList.h>

namespace clipworks {
namespace {

using Segments = SegmentList<AVCompositionTrackSegment>;

const AVMutableCompositionTrack* asCompositionTrack(const AVAssetTrack* track) {
  return dynamic_cast<const AVMutableCompositionTrack*>(track);
}

/// Where the last segment of `track` ends. A composition's list may be long: it is not copied.
CMTime endOf(const AVAssetTrack& track) {
  if (const AVMutableCompositionTrack* composition = asCompositionTrack(&track)) return composition->timeRange().end();
  const std::vector<AVAssetTrackSegment> segments = track.segments();
  return segments.empty() ? kCMTimeZero : segments.back().target.end();
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
    : mediaType_(mediaType), trackID_(trackID), list_(std::make_unique<Segments>()) {}

AVMutableCompositionTrack::~AVMutableCompositionTrack() = default;

Result<void, NSError> AVMutableCompositionTrack::insertTimeRange(const CMTimeRange& timeRange,
                                                                 const std::shared_ptr<const AVAssetTrack>& of,
                                                                 const CMTime& at) {
  if (const std::optional<NSError> error = whyNotInsertable(timeRange, of, at)) return failure(*error);
  const CMTime available = CMTimeMaximum(endOf(*of) - timeRange.start, kCMTimeZero);
  const CMTime wanted = timeRange.duration.isPositiveInfinity() ? available : timeRange.duration;
  if (wanted == kCMTimeZero) return {};

  // The instants that were asked for take their time scales first: they stay exact, the join to the padding gives way.
  const CMTime start = list_->fit(at);
  const CMTime length = list_->fit(wanted);
  const CMTime presented = available < length ? list_->fit(available) : length;
  std::vector<AVCompositionTrackSegment> pieces;
  if (presented > kCMTimeZero) {
    AVCompositionTrackSegment piece;
    piece.source = CMTimeRange(timeRange.start, presented);
    piece.target.duration = presented;
    piece.sourceTrack = of;
    pieces.push_back(std::move(piece));
  }
  if (presented < length) pieces.push_back(Segments::gap(SegmentGap::hold, length - presented));
  list_->insert(std::move(pieces), start, length);
  return {};
}

void AVMutableCompositionTrack::insertEmptyTimeRange(const CMTimeRange& timeRange) {
  if (!isPlaceable(timeRange) || timeRange.start < kCMTimeZero || timeRange.duration == kCMTimeZero) return;
  if (!isPlaceable(CMTimeMaximum(timeRange.start, end()) + timeRange.duration)) return;
  const CMTime start = list_->fit(timeRange.start);
  const CMTime length = list_->fit(timeRange.duration);
  list_->insert({Segments::gap(SegmentGap::empty, length)}, start, length);
}

void AVMutableCompositionTrack::removeTimeRange(const CMTimeRange& timeRange) {
  if (!isPlaceable(timeRange.start)) return;
  if (!isPlaceable(timeRange) && !timeRange.duration.isPositiveInfinity()) return;
  const Clip clip(timeRange, end());
  const CMTime start = list_->fit(clip.start);
  const CMTime stop = list_->fit(clip.stop);
  if (start < stop) list_->remove(start, stop);
}

void AVMutableCompositionTrack::scaleTimeRange(const CMTimeRange& timeRange, const CMTime& toDuration) {
  if (!isPlaceable(timeRange) || !isPlaceable(toDuration) || toDuration < kCMTimeZero) return;
  const Clip clip(timeRange, end());
  if (clip.start >= clip.stop) return;
  const bool isWhole = clip.start == timeRange.start && clip.stop == timeRange.end();
  const CMTime share = isWhole ? toDuration : shareOf(toDuration, clip.stop - clip.start, timeRange.duration);
  if (!isPlaceable(end() - (clip.stop - clip.start) + share)) return;

  const CMTime start = list_->fit(clip.start);
  const CMTime stop = list_->fit(clip.stop);
  const CMTime length = list_->fit(share);
  if (length == kCMTimeZero) return removeTimeRange(timeRange);
  if (start < stop) list_->scale(start, stop, length);
}

void AVMutableCompositionTrack::setPreferredTransform(const CGAffineTransform& transform) {
  preferredTransform_ = transform;
}

const std::vector<AVCompositionTrackSegment>& AVMutableCompositionTrack::compositionSegments() const {
  return list_->segments();
}

CMTime AVMutableCompositionTrack::end() const { return list_->end(); }

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
  const auto& segments = list_->segments();
  for (std::size_t i = segments.size(); i > 0 && i + 2 > segments.size(); --i) {
    if (segments[i - 1].sourceTrack == of) return false;
  }
  std::vector<const AVMutableCompositionTrack*> open{asCompositionTrack(of.get())};
  std::unordered_set<const AVAssetTrack*> seen;
  while (!open.empty()) {
    const AVMutableCompositionTrack* const track = open.back();
    open.pop_back();
    if (track == this) return true;
    for (const AVCompositionTrackSegment& segment : track->compositionSegments()) {
      if (!seen.insert(segment.sourceTrack.get()).second) continue;
      if (const auto* nested = asCompositionTrack(segment.sourceTrack.get())) open.push_back(nested);
    }
  }
  return false;
}

const AVAssetTrack* AVMutableCompositionTrack::firstFileTrack() const {
  const AVAssetTrack* track = this;
  while (const AVMutableCompositionTrack* composition = asCompositionTrack(track)) {
    const auto& segments = composition->compositionSegments();
    const auto segment = std::find_if(segments.begin(), segments.end(),
                                      [](const auto& candidate) { return candidate.sourceTrack != nullptr; });
    track = segment == segments.end() ? nullptr : segment->sourceTrack.get();
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
  return {compositionSegments().begin(), compositionSegments().end()};
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
