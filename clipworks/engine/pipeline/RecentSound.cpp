#include <clipworks/engine/pipeline/RecentSound.h>

#include <algorithm>

namespace clipworks::engine {

Expected<void> RecentSound::read(std::int64_t position, std::int64_t count, float* samples) {
  if (position < start_ || position > end()) {
    recent_.clear();
    start_ = position;
  }
  const std::int64_t channels = sound_.channels();
  const std::int64_t known = std::min(count, end() - position);
  samples = std::copy_n(recent_.begin() + (position - start_) * channels, known * channels, samples);
  if (known == count) return {};
  if (auto read = sound_.read(position + known, count - known, samples); !read) return read;
  remember(samples, count - known);
  return {};
}

void RecentSound::remember(const float* samples, std::int64_t count) {
  const std::int64_t channels = sound_.channels();
  recent_.insert(recent_.end(), samples, samples + count * channels);
  // Dropped in bulk, so that each sample is moved once.
  const std::int64_t tooMany = end() - start_ - most_;
  if (tooMany < most_) return;
  recent_.erase(recent_.begin(), recent_.begin() + tooMany * channels);
  start_ += tooMany;
}

}  // namespace clipworks::engine
