#include <clipworks/engine/pipeline/DecodeTimes.h>

#include <algorithm>

namespace clipworks::engine {

void DecodeTimes::beginRun(const PictureRun& run, std::int64_t start) {
  times_.clear();
  for (const auto* pictures : {&run.hiddenBefore, &run.pictures}) {
    for (const auto& picture : *pictures) times_.push_back(start + picture.time);
  }
  decoded_.assign(times_.size(), false);
  count_ = 0;
  earliest_ = 0;
}

std::int64_t DecodeTimes::next(std::int64_t presentation) {
  const auto timeOf = [this](std::size_t place) { return times_[std::min(place, times_.size() - 1)]; };
  const std::int64_t even = timeOf(count_) - delay_;
  const std::int64_t earliest = timeOf(earliest_) - depth_;
  const std::int64_t time = std::max(last_ == INT64_MIN ? INT64_MIN : last_ + 1, std::min(even, earliest));
  const auto shown = std::lower_bound(times_.begin(), times_.end(), presentation);
  if (shown != times_.end()) {
    decoded_[static_cast<std::size_t>(shown - times_.begin())] = true;
    ++count_;
  }
  while (earliest_ < decoded_.size() && decoded_[earliest_]) ++earliest_;
  last_ = time;
  return time;
}

int reorderDepth(const std::vector<std::uint32_t>& presentationRanks) {
  // A picture of rank r decoded as number i has i - r more decoded before it than are shown before it.
  std::int64_t depth = 0;
  for (std::size_t i = 0; i < presentationRanks.size(); ++i) {
    depth = std::max(depth, static_cast<std::int64_t>(i) - static_cast<std::int64_t>(presentationRanks[i]));
  }
  return static_cast<int>(depth);
}

std::int64_t usualInterval(const std::vector<std::int64_t>& times) {
  if (times.size() < 2) return 0;
  std::vector<std::int64_t> intervals;
  intervals.reserve(times.size() - 1);
  for (std::size_t i = 1; i < times.size(); ++i) intervals.push_back(times[i] - times[i - 1]);
  const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
  std::nth_element(intervals.begin(), middle, intervals.end());
  return *middle;
}

}  // namespace clipworks::engine
