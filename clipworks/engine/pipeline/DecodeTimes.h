#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// Gives coded pictures their decode times: strictly rising, never after the picture's own presentation, and evenly
/// spaced where the pictures are. Moving the source's decode times along would not do: at the joins of clips with
/// varying rates they would fall back.
///
/// The picture that is decoded as number i of its run gets the presentation time of the picture shown as number i, less
/// a constant delay; where a gap in the pictures makes that too late, it gets the time of the earliest picture still to
/// come, less one tick for each that may follow before that one. A picture that is hidden behind the end takes one
/// tick, so that it adds nothing to the length of the track.
class DecodeTimes {
 public:
  /// `reorderDepth` is the most pictures that are decoded before, but shown after another; `interval` the usual time
  /// between two pictures, in ticks.
  DecodeTimes(int reorderDepth, std::int64_t interval)
      : depth_(reorderDepth), delay_(reorderDepth * interval + reorderDepth) {}

  /// The samples that follow are those of `run`, placed at `start`.
  void beginRun(const PictureRun& run, std::int64_t start);

  /// The decode time of the next sample in decoding order, shown at `presentation` ticks of the output.
  [[nodiscard]] std::int64_t next(std::int64_t presentation);

 private:
  int depth_;
  std::int64_t delay_;
  std::vector<std::int64_t> times_;  // of all pictures but those behind the end, from the first to the last shown
  std::vector<bool> decoded_;        // of them
  std::size_t count_ = 0;            // of them, decoded so far
  std::size_t earliest_ = 0;         // the first that is not decoded yet
  std::int64_t last_ = INT64_MIN;
};

/// The most pictures that are decoded before but shown after one picture, for samples decoded in the order in which
/// `presentationRanks` lists their places in the order of presentation.
[[nodiscard]] int reorderDepth(const std::vector<std::uint32_t>& presentationRanks);

/// The usual distance between two of `times`, which rise: the median. 0 for a single one.
[[nodiscard]] std::int64_t usualInterval(const std::vector<std::int64_t>& times);

}  // namespace clipworks::engine
