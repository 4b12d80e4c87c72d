#pragma once

#include <optional>
#include <vector>

namespace clipworks::test {

/// Mono sound on a timeline: sample i is heard at i / rate seconds.
struct Sound {
  int rate = 0;
  std::vector<float> samples;

  [[nodiscard]] double seconds() const { return static_cast<double>(samples.size()) / rate; }
  /// The samples from `from` up to, but not including, `to` (seconds); what lies outside is silence.
  [[nodiscard]] Sound part(double from, double to) const;
  /// Root of the mean square.
  [[nodiscard]] double level() const;
};

/// The test tone: in second s of the timeline a sine of 400 + 100 · (s mod 32) hertz whose phase runs on, at 0.35 of
/// full scale; where the rate allows, a faint sweep from 4 to 7 kHz in each second, which makes the tone unlike itself
/// a few periods later, so that a shift can be measured.
[[nodiscard]] Sound makeTone(int rate, double fromSeconds, double lengthSeconds);

/// Seconds after which the pitches start again.
inline constexpr int tonePeriod = 32;

/// Which second of the test tone is heard in the 80 ms after `t`, modulo `tonePeriod`; -1 when it is silent there, no
/// pitch stands out, or two do.
[[nodiscard]] int toneSecondAt(const Sound& sound, double t);

/// How alike `a` is to `b` where `b` comes `lag` samples later: -1 … 1.
[[nodiscard]] double likeness(const Sound& a, const Sound& b, int lag);

/// By how many milliseconds `got` comes later than `reference`, found by cross-correlation within ± `reach`; to a
/// fraction of a sample. Nothing when either is silent or the two are unlike at every shift.
[[nodiscard]] std::optional<double> lagMilliseconds(const Sound& reference, const Sound& got, double reach = 60);

}  // namespace clipworks::test
