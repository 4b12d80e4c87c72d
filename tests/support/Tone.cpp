#include <tests/support/Tone.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <numeric>
#include <span>
#include <stdexcept>
#include <utility>

namespace clipworks::test {

namespace {

constexpr double pi = std::numbers::pi;
constexpr double toneLevel = 0.35;
constexpr double sweepLevel = 0.12;
constexpr double sweepFrom = 4000;
constexpr double sweepTo = 7000;
/// Below this root mean square it is silent.
constexpr double silence = 0.01;

double pitchOfSecond(std::int64_t second) { return 400 + 100 * static_cast<double>(second % tonePeriod); }

/// Phase of the tone at `t`, as turns: every second of it holds a whole number of periods, so only the running one
/// counts.
double turnsAt(double t) {
  const double second = std::floor(t);
  return (t - second) * pitchOfSecond(static_cast<std::int64_t>(second));
}

/// Amplitude of `frequency` in the samples (Goertzel, with a Hann window so that neighbours don't leak in).
double amplitudeOf(double frequency, const Sound& sound) {
  std::complex<double> sum;
  double weights = 0;
  const auto n = static_cast<double>(sound.samples.size());
  for (std::size_t i = 0; i < sound.samples.size(); ++i) {
    const double at = static_cast<double>(i);
    const double weight = 0.5 - 0.5 * std::cos(2 * pi * at / n);
    sum += weight * sound.samples[i] * std::polar(1.0, 2 * pi * frequency * at / sound.rate);
    weights += weight;
  }
  return 2 * std::abs(sum) / weights;
}

}  // namespace

double likeness(const Sound& a, const Sound& b, int lag) {
  const auto from = [](const Sound& sound, int start) {
    return std::span(sound.samples)
        .subspan(std::min(sound.samples.size(), static_cast<std::size_t>(std::max(0, start))));
  };
  const auto x = from(a, -lag);
  const auto y = from(b, lag);
  double product = 0;
  double energyX = 0;
  double energyY = 0;
  for (std::size_t i = 0; i < std::min(x.size(), y.size()); ++i) {
    product += static_cast<double>(x[i]) * y[i];
    energyX += static_cast<double>(x[i]) * x[i];
    energyY += static_cast<double>(y[i]) * y[i];
  }
  const double energy = energyX * energyY;
  return energy > 0 ? product / std::sqrt(energy) : 0;
}

Sound Sound::part(double from, double to) const {
  Sound result{rate, {}};
  const auto first = std::llround(from * rate);
  const auto last = std::llround(to * rate);
  result.samples.assign(static_cast<std::size_t>(std::max(0LL, last - first)), 0.0F);
  for (auto i = std::max(0LL, first); i < std::min(last, static_cast<long long>(samples.size())); ++i) {
    result.samples[static_cast<std::size_t>(i - first)] = samples[static_cast<std::size_t>(i)];
  }
  return result;
}

double Sound::level() const {
  const double sum = std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0);
  return samples.empty() ? 0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

Sound makeTone(int rate, double fromSeconds, double lengthSeconds) {
  Sound sound{rate, {}};
  sound.samples.resize(static_cast<std::size_t>(std::llround(lengthSeconds * rate)));
  const bool sweeps = rate > 2 * sweepTo;
  for (std::size_t i = 0; i < sound.samples.size(); ++i) {
    const double t = fromSeconds + static_cast<double>(i) / rate;
    double value = toneLevel * std::sin(2 * pi * turnsAt(t));
    if (sweeps) {
      const double u = t - std::floor(t);
      value += sweepLevel * std::sin(2 * pi * (sweepFrom * u + (sweepTo - sweepFrom) * u * u / 2));
    }
    sound.samples[i] = static_cast<float>(value);
  }
  return sound;
}

int toneSecondAt(const Sound& sound, double t) {
  const Sound window = sound.part(t, t + 0.08);
  if (window.level() < silence) return -1;
  std::array<double, tonePeriod> amplitudes{};
  for (std::size_t second = 0; second < amplitudes.size(); ++second) {
    amplitudes[second] = amplitudeOf(pitchOfSecond(static_cast<std::int64_t>(second)), window);
  }
  const auto best = std::max_element(amplitudes.begin(), amplitudes.end());
  const double loudest = std::exchange(*best, 0);
  const double next = *std::max_element(amplitudes.begin(), amplitudes.end());
  // A sine's amplitude is √2 times its level: most of what is heard must be this one pitch.
  const bool standsOut = loudest > window.level() && next < loudest / 4;
  return standsOut ? static_cast<int>(best - amplitudes.begin()) : -1;
}

std::optional<double> lagMilliseconds(const Sound& reference, const Sound& got, double reach) {
  if (reference.rate != got.rate) throw std::invalid_argument("the sounds to compare have different rates");
  if (reference.level() < silence || got.level() < silence) return std::nullopt;
  const int reachSamples = static_cast<int>(reach * reference.rate / 1000);
  const auto at = [&](int lag) { return likeness(reference, got, lag); };
  int best = 0;
  double highest = at(0);
  for (int lag = -reachSamples; lag <= reachSamples; ++lag) {
    if (const double value = at(lag); value > highest) {
      highest = value;
      best = lag;
    }
  }
  if (highest < 0.5) return std::nullopt;
  // The peak of the parabola through the best three.
  const double before = at(best - 1);
  const double after = at(best + 1);
  const double curvature = before - 2 * highest + after;
  const double fraction = curvature < 0 ? std::clamp(0.5 * (before - after) / curvature, -0.5, 0.5) : 0;
  return 1000 * (best + fraction) / reference.rate;
}

}  // namespace clipworks::test
