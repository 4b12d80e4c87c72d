#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace clipworks::engine {

/// Keeps samples within full scale (±1) without clipping them. All channels get one gain, so that sides do not move.
///
/// Each sample asks for the gain 1 / peak, or 1 where it fits. The gain used is the least that any sample of the next
/// `lookAheadSeconds` asks for, then let go slowly (`releaseSeconds`), then averaged over the look ahead: it is down
/// before a peak arrives, moves without a step, and never lets a peak through. Where nothing has asked for less, it is
/// exactly 1, and samples pass bit for bit. Samples that are not numbers become silence. One thread at a time.
class PeakLimiter {
 public:
  /// `sampleRate` in hertz.
  PeakLimiter(int sampleRate, int channels);

  /// The samples of every channel that go in before the first comes out.
  [[nodiscard]] std::int64_t delay() const { return static_cast<std::int64_t>(lookAhead_); }

  /// Takes `count` samples of every channel, interleaved, and puts as many in their place: those taken `delay()`
  /// samples earlier; silence before the first.
  void process(float* samples, std::int64_t count);

  static constexpr double lookAheadSeconds = 0.005;
  static constexpr double releaseSeconds = 0.08;

 private:
  struct Wanted {
    std::int64_t sample = 0;
    float gain = 1.0F;
  };
  float leastWanted(float wanted);
  double averaged(double gain);

  std::size_t channels_;
  std::size_t lookAhead_;
  double release_;  // share of the way back to 1 that one sample goes
  std::int64_t taken_ = 0;
  std::deque<Wanted> window_;  // rising gains; the first is the least of the look ahead
  double held_ = 1.0;
  std::vector<double> gains_;   // the last of the look ahead, a ring
  std::size_t reduced_ = 0;     // how many of them are below 1
  double sum_ = 0;              // of 1 - gain
  std::vector<float> delayed_;  // a ring
};

}  // namespace clipworks::engine
