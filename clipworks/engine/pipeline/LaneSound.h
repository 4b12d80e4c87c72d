#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/input/SoundReader.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// The sound of a lane's track by the positions that its pieces count in, at the track's own rate and layout: those of
/// the media's clock or, through the lane's mirror, backwards. A mirrored track is decoded in blocks, each of them
/// forwards after a jump and, in rising order of positions, once. Blocks lie where they lie whatever is asked for, so
/// what a mirrored lane gives does not depend on where reading began. One thread at a time.
class LaneSound {
 public:
  /// After a stop request, a first look at where packets lie fails with `cancelled`; it may take seconds.
  [[nodiscard]] static Expected<LaneSound> open(const SoundLane& lane, std::stop_token stop = {});

  [[nodiscard]] int sampleRate() const { return reader_.sampleRate(); }
  [[nodiscard]] int channels() const { return reader_.channels(); }

  /// Writes `count` samples of every channel from `position` on, interleaved, to `samples`. Positions without media, on
  /// either side, are silence. Cheapest in rising order.
  [[nodiscard]] Expected<void> read(std::int64_t position, std::int64_t count, float* samples);

  /// Of every channel, held at a time where there is a mirror.
  static constexpr std::int64_t blockSamples = 65'536;

 private:
  /// Samples of the media's clock, from `begin` to before `end`.
  struct Range {
    std::int64_t begin = 0;
    std::int64_t end = 0;
  };
  LaneSound(SoundReader reader, std::optional<std::int64_t> mirror, std::stop_token stop)
      : reader_(std::move(reader)), mirror_(mirror), stop_(std::move(stop)) {}
  static Range mirroredRange(const SoundLane& lane, int sampleRate);
  Expected<void> readMirrored(std::int64_t position, std::int64_t count, float* samples);
  Expected<void> load(std::int64_t start);

  SoundReader reader_;
  std::optional<std::int64_t> mirror_;
  std::stop_token stop_;
  std::optional<Range> toLearn_;  // where the file does not tell its places to the sample; before the first block
  std::vector<float> block_;      // interleaved, in the media's order; empty before the first one
  std::int64_t blockStart_ = 0;   // on the media's clock
};

}  // namespace clipworks::engine
