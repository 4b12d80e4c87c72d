#include <clipworks/engine/pipeline/DecodeTimes.h>

#include <algorithm>

namespace clipworks::engine {

void DecodeTimes::beginRun(const PictureRun& run, std::int64_t start) {
  pictures_ = &run.pictures;
  start_ = start;
  decoded_.assign(run.pictures.size(), false);
  count_ = 0;
  earliest_ = 0;
}

std::int64_t DecodeTimes::next(std::int64_t presentation) {
  const auto shown = std::lower_bound(pictures_->begin(), pictures_->end(), presentation - start_,
                                      [](const ShownPicture& p, std::int64_t t) { return p.time < t; });
  const std::size_t place = std::min(count_, pictures_->size() - 1);
  const std::int64_t even = start_ + (*pictures_)[place].time - delay_;
  const std::int64_t earliest = start_ + (*pictures_)[std::min(earliest_, pictures_->size() - 1)].time - depth_;
  const std::int64_t time = std::max(last_ == INT64_MIN ? INT64_MIN : last_ + 1, std::min(even, earliest));
  if (shown != pictures_->end()) decoded_[static_cast<std::size_t>(shown - pictures_->begin())] = true;
  while (earliest_ < decoded_.size() && decoded_[earliest_]) ++earliest_;
  ++count_;
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

std::int64_t usualInterval(const PictureRun& run) {
  if (run.pictures.size() < 2) return 0;
  std::vector<std::int64_t> intervals;
  intervals.reserve(run.pictures.size() - 1);
  for (std::size_t i = 1; i < run.pictures.size(); ++i) {
    intervals.push_back(run.pictures[i].time - run.pictures[i - 1].time);
  }
  const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
  std::nth_element(intervals.begin(), middle, intervals.end());
  return *middle;
}

}  // namespace clipworks::engine
