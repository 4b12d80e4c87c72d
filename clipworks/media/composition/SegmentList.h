#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

#include <clipworks/media/composition/SegmentArithmetic.h>

namespace clipworks {

/// A timeline of segments: in order, from zero, without holes, each target starting exactly where the one before it
/// ends. All its instants have one common time scale of 31 bits at most (`fit`), so that segments meet exactly and
/// splitting loses nothing. A value; `Segment` is an `AVAssetTrackSegment` or derives from it, and is split by the
/// `keepPart` for it.
template <class Segment>
class SegmentList {
 public:
  [[nodiscard]] const std::vector<Segment>& segments() const { return segments_; }
  [[nodiscard]] bool isEmpty() const { return segments_.empty(); }
  [[nodiscard]] CMTime end() const { return segments_.empty() ? kCMTimeZero : segments_.back().target.end(); }

  /// `t` as an instant of this timeline, which the functions below ask for; see `fitToTimescale`.
  [[nodiscard]] CMTime fit(const CMTime& t) { return fitToTimescale(t, timescale_); }

  /// A gap of a length; its place comes when it is inserted.
  [[nodiscard]] static Segment gap(SegmentGap kind, const CMTime& length) {
    Segment made;
    made.gap = kind;
    made.target.duration = length;
    return made;
  }

  /// Places `pieces`, `length` long in all, one after the other from `at` on; what lies there moves later. An `at`
  /// behind the end fills up to it with an empty gap.
  void insert(std::vector<Segment> pieces, const CMTime& at, const CMTime& length) {
    if (at > end()) {
      Segment filler = gap(SegmentGap::empty, at - end());
      filler.target.start = end();
      segments_.push_back(std::move(filler));
    }
    CMTime start = at;
    for (Segment& piece : pieces) {
      piece.target.start = start;
      start = piece.target.end();
    }
    const std::size_t index = splitAt(at);
    shiftFrom(index, length);
    segments_.insert(place(index), std::make_move_iterator(pieces.begin()), std::make_move_iterator(pieces.end()));
  }

  /// Takes out what lies from `start` to `stop`, later than `start`; what follows moves earlier.
  void remove(const CMTime& start, const CMTime& stop) {
    const std::size_t first = splitAt(start);
    const std::size_t last = splitAt(stop);
    segments_.erase(place(first), place(last));
    shiftFrom(first, start - stop);
  }

  /// Presents what lies from `start` to `stop`, later than `start`, in `length`, above zero; segments within keep their
  /// shares, what follows moves.
  void scale(const CMTime& start, const CMTime& stop, const CMTime& length) {
    const std::size_t first = splitAt(start);
    const std::size_t last = splitAt(stop);
    stretch(first, last, CMTimeRange::fromTo(start, stop), length);
    shiftFrom(last, length - (stop - start));
    std::erase_if(segments_, [](const auto& segment) { return segment.target.duration == kCMTimeZero; });
  }

  /// Calls `change` with every segment; it leaves the targets alone.
  template <class Change>
  void forEach(Change change) {
    for (Segment& segment : segments_) change(segment);
  }

 private:
  [[nodiscard]] auto place(std::size_t index) {
    return std::next(segments_.begin(), static_cast<std::ptrdiff_t>(index));
  }

  /// The index of the segment that starts at `t`, after the one in which `t` lies was split; the number of segments
  /// when `t` is not before the end.
  std::size_t splitAt(const CMTime& t) {
    if (t >= end()) return segments_.size();
    const auto after =
        std::upper_bound(segments_.begin(), segments_.end(), t,
                         [](const CMTime& instant, const auto& segment) { return instant < segment.target.start; });
    const auto index = static_cast<std::size_t>(after - segments_.begin());
    Segment& hit = segments_[index - 1];
    if (hit.target.start == t) return index - 1;
    Segment second = hit;
    keepPart(second, t, hit.target.end());
    keepPart(hit, hit.target.start, t);
    segments_.insert(after, std::move(second));
    return index;
  }

  /// Every end is mapped from the start of `from`, so that roundings do not add up; some segments may come out zero
  /// long.
  void stretch(std::size_t first, std::size_t last, const CMTimeRange& from, const CMTime& length) {
    const CMTimeRange onto(from.start, length);
    CMTime start = onto.start;
    for (std::size_t i = first; i < last; ++i) {
      CMTimeRange& target = segments_[i].target;
      CMTime stop = onto.end();
      if (i + 1 < last) {
        const CMTime end = fit(retimed(target.end(), from, onto));
        stop = CMTimeMaximum(CMTimeMinimum(end, stop), start);  // where times were rounded, it may come out beyond
      }
      target = CMTimeRange::fromTo(start, stop);
      start = stop;
    }
  }

  void shiftFrom(std::size_t index, const CMTime& by) {
    for (std::size_t i = index; i < segments_.size(); ++i) segments_[i].target.start += by;
  }

  std::vector<Segment> segments_;
  std::int32_t timescale_ = 1;  // all instants are whole counts of 1 / timescale_
};

}  // namespace clipworks
