#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/engine/pipeline/LaneSound.h>
#include <clipworks/engine/pipeline/RecentSound.h>
#include <clipworks/engine/pipeline/SoundStretcher.h>

namespace clipworks::engine {

/// The sound of one lane at the output's rate and layout, in rising order. Sound that plays several times is decoded
/// once where it fits `cachedBytes`. Where a piece goes on with the source of the one before it at another pace, the
/// two are faded into each other for `seamSeconds` from the seam on. One thread at a time.
class SoundLaneReader {
 public:
  /// The lane must outlive the reader. Starts at `from`, in samples of the output: 0, or where `mayStartAt` allows it.
  /// `stop` as for `LaneSound`.
  [[nodiscard]] static Expected<std::unique_ptr<SoundLaneReader>> open(const SoundLane& lane, int sampleRate,
                                                                       int channels, std::int64_t from,
                                                                       std::stop_token stop = {});

  /// Whether a reader that starts at `from` gives what one gives that has read all before: nothing that is
  /// stretched, and no seam, lies there, and neither the lane's rate nor its file needs what came before.
  [[nodiscard]] static bool mayStartAt(std::int64_t from, const SoundLane& lane, int sampleRate);
  SoundLaneReader(const SoundLaneReader&) = delete;
  SoundLaneReader& operator=(const SoundLaneReader&) = delete;

  /// Adds the next `count` samples at the lane's volume to `mix`, interleaved.
  [[nodiscard]] Expected<void> addNext(std::int64_t count, float* mix);

  static constexpr std::int64_t cachedBytes = 32LL << 20;
  static constexpr double seamSeconds = 0.01;
  static_assert(2 * seamSeconds < SoundStretcher::leastTail);

 private:
  SoundLaneReader(const SoundLane& lane, LaneSound sound, int channels)
      : lane_(lane), sound_(std::move(sound)), channels_(channels) {}
  Expected<void> prepareSource();
  Expected<void> prepareConverter(int sampleRate);
  Expected<void> readSource(std::int64_t position, std::int64_t count, float* samples);
  Expected<void> readPiece(std::int64_t offset, std::int64_t count, float* samples);
  Expected<void> beginPiece(std::size_t index);
  Expected<void> readPlaced(std::int64_t count, std::vector<float>& samples);

  const SoundLane& lane_;
  LaneSound sound_;
  int channels_;                               // of the output
  std::int64_t position_ = 0;                  // on the output's timeline, at the lane's own rate
  std::size_t piece_ = 0;                      // the first that does not end before position_
  std::size_t begun_ = SIZE_MAX;               // the piece that the members below belong to
  std::unique_ptr<SoundStretcher> stretcher_;  // null when it is not stretched
  std::vector<float> seam_;                    // how it begins, when faded into
  std::optional<RecentSound> recent_;          // where pieces are stretched: they read beyond their ends
  std::vector<float> cache_;                   // where they are not, and play again; of the source, from cacheStart_ on
  std::int64_t cacheStart_ = 0;
  Resampler converter_;         // null when neither rate nor layout changes
  std::vector<float> placed_;   // scratch
  std::vector<float> pending_;  // converted and not given yet
};

}  // namespace clipworks::engine
