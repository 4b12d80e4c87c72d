#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/pipeline/LaneSound.h>

namespace clipworks::engine {

/// Reads sound that is needed again soon: the last samples read are remembered, so that going back a little does not
/// jump in the file. A jump costs time, and where a recorder stamped packets when they arrived, sound after it would
/// not lie where it lay before. One thread at a time.
class RecentSound {
 public:
  /// Remembers `samples` of every channel. `sound` must outlive this.
  RecentSound(LaneSound& sound, std::int64_t samples) : sound_(sound), most_(samples) {}

  /// As `LaneSound::read`.
  [[nodiscard]] Expected<void> read(std::int64_t position, std::int64_t count, float* samples);

 private:
  [[nodiscard]] std::int64_t end() const {
    return start_ + static_cast<std::int64_t>(recent_.size()) / sound_.channels();
  }
  void remember(const float* samples, std::int64_t count);

  LaneSound& sound_;
  std::int64_t most_;
  std::int64_t start_ = 0;     // position of recent_'s first sample
  std::vector<float> recent_;  // interleaved
};

}  // namespace clipworks::engine
