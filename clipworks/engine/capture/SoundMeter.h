#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace clipworks::engine {

/// How loud one channel is, as shares of full scale from 0 to 1.
struct SoundLevel {
  double peak = 0;
  double rootMeanSquare = 0;
};

/// Measures the sound that passes between two looks. Thread-safe.
class SoundMeter {
 public:
  explicit SoundMeter(int channels) : channels_(static_cast<std::size_t>(channels)) {}

  /// Takes note of whole frames, interleaved.
  void add(std::span<const std::int16_t> samples);
  /// The levels of each channel since the last look; nothing when no sound has come since.
  [[nodiscard]] std::vector<SoundLevel> take();

 private:
  struct Sums {
    int peak = 0;
    std::int64_t squares = 0;
  };

  const std::size_t channels_;
  std::mutex mutex_;
  std::vector<Sums> sums_;   // guarded by mutex_; one a channel
  std::int64_t frames_ = 0;  // guarded by mutex_
};

}  // namespace clipworks::engine
