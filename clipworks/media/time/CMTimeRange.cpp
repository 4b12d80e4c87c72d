#include <clipworks/media/time/CMTimeRange.h>

namespace clipworks {

CMTimeRange CMTimeRange::fromTo(const CMTime& start, const CMTime& end) { return {start, end - start}; }

CMTime CMTimeRange::end() const { return start + duration; }

bool CMTimeRange::isValid() const {
  // Invalid times come before −∞ in the order of times.
  return start >= kCMTimeNegativeInfinity && duration >= kCMTimeZero && duration.epoch == 0;
}

bool CMTimeRange::isEmpty() const { return isValid() && duration == kCMTimeZero; }

bool CMTimeRange::isIndefinite() const { return isValid() && (start.isIndefinite() || duration.isIndefinite()); }

bool CMTimeRange::containsTime(const CMTime& time) const { return isValid() && start <= time && time < end(); }

bool CMTimeRange::containsTimeRange(const CMTimeRange& other) const {
  return isValid() && other.isValid() && start <= other.start && other.end() <= end();
}

CMTimeRange CMTimeRange::intersection(const CMTimeRange& other) const {
  if (!isValid() || !other.isValid()) return kCMTimeRangeInvalid;
  const CMTime laterStart = CMTimeMaximum(start, other.start);
  const CMTime earlierEnd = CMTimeMinimum(end(), other.end());
  if (laterStart >= earlierEnd) return kCMTimeRangeZero;
  // A range that is whole in the other keeps its representation: an end may have been rounded.
  if (containsTimeRange(other)) return other;
  if (other.containsTimeRange(*this)) return *this;
  return fromTo(laterStart, earlierEnd);
}

CMTimeRange CMTimeRange::unionWith(const CMTimeRange& other) const {
  if (!isValid() || !other.isValid()) return kCMTimeRangeInvalid;
  if (containsTimeRange(other)) return *this;
  if (other.containsTimeRange(*this)) return other;
  const CMTimeRange both = fromTo(CMTimeMinimum(start, other.start), CMTimeMaximum(end(), other.end()));
  return both.isValid() ? both : kCMTimeRangeInvalid;
}

}  // namespace clipworks
