#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/engine/pipeline/PeakLimiter.h>
#include <clipworks/engine/pipeline/SoundLaneReader.h>

namespace clipworks::engine {

/// Adds up the lanes of a job, and keeps the sum within full scale where the job asks for it. One thread at a time.
class SoundMixer {
 public:
  /// The job must outlive the mixer. Starts at `from`, in samples: 0, or where every lane allows it and nothing is
  /// limited. `stop` as for `LaneSound`.
  [[nodiscard]] static Expected<SoundMixer> open(const SoundJob& job, std::int64_t from,
                                                 const std::stop_token& stop = {});
  /// The next `count` samples, interleaved.
  [[nodiscard]] Expected<void> next(std::int64_t count, std::vector<float>& samples);

 private:
  explicit SoundMixer(int channels) : channels_(channels) {}
  Expected<void> addUp(std::int64_t count, std::vector<float>& samples);

  int channels_;
  std::vector<std::unique_ptr<SoundLaneReader>> lanes_;
  std::optional<PeakLimiter> limiter_;
};

}  // namespace clipworks::engine
