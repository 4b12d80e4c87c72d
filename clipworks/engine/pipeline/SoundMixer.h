#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/SoundReader.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// The sound of one lane at the output's rate and layout, from its start on. Sound that plays several times is decoded
/// once where it fits `cachedBytes`. One thread at a time.
class SoundLaneReader {
 public:
  [[nodiscard]] static Expected<std::unique_ptr<SoundLaneReader>> open(const SoundLane& lane, int sampleRate, int channels);

  /// Adds the next `count` samples at the lane's volume to `mix`, interleaved.
  [[nodiscard]] Expected<void> addNext(std::int64_t count, float* mix);

  static constexpr std::int64_t cachedBytes = 32LL << 20;

 private:
  SoundLaneReader(const SoundLane& lane, SoundReader reader, int channels)
      : lane_(lane), reader_(std::move(reader)), channels_(channels) {}
  Expected<void> cacheIfRepeated();
  Expected<void> prepareConverter(int sampleRate);
  Expected<void> readSource(std::int64_t position, std::int64_t count, float* samples);
  Expected<void> readPlaced(std::int64_t count, std::vector<float>& samples);

  const SoundLane& lane_;
  SoundReader reader_;
  int channels_;                 // of the output
  std::int64_t position_ = 0;    // on the output's timeline, at the lane's own rate
  std::size_t piece_ = 0;        // the first that does not end before position_
  std::vector<float> cache_;     // of the source, from cacheStart_ on
  std::int64_t cacheStart_ = 0;
  Resampler converter_;          // null when neither rate nor layout changes
  std::vector<float> placed_;    // scratch
  std::vector<float> pending_;   // converted and not given yet
};

/// Adds up the lanes of a job. One thread at a time.
class SoundMixer {
 public:
  [[nodiscard]] static Expected<SoundMixer> open(const SoundJob& job);
  /// The next `count` samples, interleaved.
  [[nodiscard]] Expected<void> next(std::int64_t count, std::vector<float>& samples);

 private:
  explicit SoundMixer(int channels) : channels_(channels) {}
  int channels_;
  std::vector<std::unique_ptr<SoundLaneReader>> lanes_;
};

}  // namespace clipworks::engine
