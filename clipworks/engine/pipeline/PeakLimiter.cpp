#include <clipworks/engine/pipeline/PeakLimiter.h>

#include <algorithm>
#include <cmath>

namespace clipworks::engine {
namespace {

// This near to 1 (0.004 dB) a gain is inaudible, and becomes 1: going there ends.
constexpr double nearlyOne = 0.9995;

std::size_t samplesOf(double seconds, int sampleRate) {
  return std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(seconds * sampleRate)));
}

}  // namespace

PeakLimiter::PeakLimiter(int sampleRate, int channels)
    : channels_(static_cast<std::size_t>(channels)),
      lookAhead_(samplesOf(lookAheadSeconds, sampleRate)),
      release_(1.0 - std::exp(-1.0 / static_cast<double>(samplesOf(releaseSeconds, sampleRate)))),
      gains_(lookAhead_ + 1, 1.0),
      delayed_(lookAhead_ * channels_, 0.0F) {}

/// The least of `wanted` and of what the samples of the look ahead before it wanted.
float PeakLimiter::leastWanted(float wanted) {
  while (!window_.empty() && window_.back().gain >= wanted) window_.pop_back();
  window_.push_back({taken_, wanted});
  if (window_.front().sample + static_cast<std::int64_t>(lookAhead_) < taken_) window_.pop_front();
  return window_.front().gain;
}

/// The mean of the last gains, `gain` included. All that lay over a peak's sample are at most what it wanted, and so is
/// their mean.
double PeakLimiter::averaged(double gain) {
  double& oldest = gains_[static_cast<std::size_t>(taken_) % gains_.size()];
  if (oldest < 1.0) --reduced_;
  if (gain < 1.0) ++reduced_;
  sum_ += oldest - gain;
  oldest = gain;
  if (reduced_ == 0) sum_ = 0;  // what rounding left
  return 1.0 - sum_ / static_cast<double>(gains_.size());
}

void PeakLimiter::process(float* samples, std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i, ++taken_, samples += channels_) {
    float peak = 0;
    for (std::size_t channel = 0; channel < channels_; ++channel) {
      if (!std::isfinite(samples[channel])) samples[channel] = 0.0F;
      peak = std::max(peak, std::fabs(samples[channel]));
    }
    const float least = leastWanted(peak > 1.0F ? 1.0F / peak : 1.0F);
    held_ = std::min(static_cast<double>(least), held_ + (1.0 - held_) * release_);
    if (held_ > nearlyOne && least >= 1.0F) held_ = 1.0;
    const double gain = averaged(held_);

    float* delayed = delayed_.data() + static_cast<std::size_t>(taken_) % lookAhead_ * channels_;
    for (std::size_t channel = 0; channel < channels_; ++channel) {
      const float out = gain < 1.0 ? static_cast<float>(delayed[channel] * gain) : delayed[channel];
      delayed[channel] = samples[channel];
      samples[channel] = std::clamp(out, -1.0F, 1.0F);  // the product may round up by a bit
    }
  }
}

}  // namespace clipworks::engine
