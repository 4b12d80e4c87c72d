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
/// come, less one tick for each that may follow before that one.
class DecodeTimes {
 public:
  /// `reorderDepth` is the most pictures that are decoded before, but shown after another; `interval` the usual time
  /// between two pictures, in ticks.
  DecodeTimes(int reorderDepth, std::int64_t interval)
      : depth_(reorderDepth), delay_(reorderDepth * interval + reorderDepth) {}

  /// The samples that follow are those of `run`, placed at `start`. The run must outlive them.
  void beginRun(const PictureRun& run, std::int64_t start);

  /// The decode time of the next sample in decoding order, shown at `presentation` ticks of the output.
  [[nodiscard]] std::int64_t next(std::int64_t presentation);

 private:
  int depth_;
  std::int64_t delay_;
  const std::vector<ShownPicture>* pictures_ = nullptr;
  std::int64_t start_ = 0;
  std::vector<bool> decoded_;   // by order of presentation
  std::size_t count_ = 0;       // decoded so far in the run
  std::size_t earliest_ = 0;    // the first picture not decoded yet
  std::int64_t last_ = INT64_MIN;
};

/// The most pictures that are decoded before but shown after one picture, for samples decoded in the order in which
/// `presentationRanks` lists their places in the order of presentation.
[[nodiscard]] int reorderDepth(const std::vector<std::uint32_t>& presentationRanks);

/// The usual time between two pictures of a run: the median. 0 for a single picture.
[[nodiscard]] std::int64_t usualInterval(const PictureRun& run);

}  // namespace clipworks::engine
