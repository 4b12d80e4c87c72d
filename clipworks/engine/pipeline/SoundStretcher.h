#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// Plays a piece of sound in another length, exact to the sample: sample `i` of its source is heard at `i` × length /
/// source length. The pitch stays; only a piece that plays more than `greatestRatio` times slower or faster, where
/// nothing of the sound is left to recognise, is re-timed plainly, and its pitch moves along.
/// Streams: memory does not grow with the piece. One thread at a time.
class SoundStretcher {
 public:
  /// Writes `count` samples of every channel from `position` of the source on, interleaved. It is asked in rising
  /// order, for the piece's source and what is around it.
  using ReadSource = std::function<Expected<void>(std::int64_t position, std::int64_t count, float* samples)>;

  /// Reads nothing yet. `sampleRate` in hertz.
  [[nodiscard]] static std::unique_ptr<SoundStretcher> make(const SoundPiece& piece, int sampleRate, int channels,
                                                            ReadSource readSource);
  virtual ~SoundStretcher() = default;
  SoundStretcher(const SoundStretcher&) = delete;
  SoundStretcher& operator=(const SoundStretcher&) = delete;

  /// The next `count` samples, interleaved, from the piece's start on. `leastTail` seconds may be read behind its end:
  /// the source goes on there at the same pace.
  [[nodiscard]] virtual Expected<void> read(std::int64_t count, float* samples) = 0;

  /// How far before and behind the piece's source it reads, at most; in samples.
  [[nodiscard]] static std::int64_t surroundings(const SoundPiece& piece, int sampleRate);

  static constexpr double greatestRatio = 32;
  static constexpr double leastTail = 0.04;

 protected:
  SoundStretcher() = default;
};

}  // namespace clipworks::engine
