#include <clipworks/engine/capture/SoundMeter.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace clipworks::engine {
namespace {

constexpr double fullScale = 32'768;
// A look that never comes must not let the sums overflow: some minutes at any rate.
constexpr std::int64_t mostFrames = 1 << 26;

}  // namespace

void SoundMeter::add(std::span<const std::int16_t> samples) {
  const std::lock_guard lock(mutex_);
  if (frames_ == 0 || frames_ > mostFrames) {
    sums_.assign(channels_, Sums{});
    frames_ = 0;
  }
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const int value = samples[i];
    Sums& sums = sums_[i % channels_];
    sums.peak = std::max(sums.peak, std::abs(value));
    sums.squares += std::int64_t{value} * value;
  }
  frames_ += static_cast<std::int64_t>(samples.size() / channels_);
}

std::vector<SoundLevel> SoundMeter::take() {
  const std::lock_guard lock(mutex_);
  std::vector<SoundLevel> levels;
  if (frames_ == 0) return levels;
  for (const Sums& sums : sums_) {
    const double meanSquare = static_cast<double>(sums.squares) / static_cast<double>(frames_);
    levels.push_back({sums.peak / fullScale, std::sqrt(meanSquare) / fullScale});
  }
  frames_ = 0;
  return levels;
}

}  // namespace clipworks::engine
