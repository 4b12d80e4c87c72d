#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/CachedPictureReader.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/input/PictureReader.h>
#include <clipworks/engine/pictures/WholePictures.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// Decodes what one track gives to a run, one picture after the other: numbers that rise with two pictures in memory,
/// numbers that fall from a bounded memory, which takes every group once for each window that fits. One thread at a
/// time; decoders have threads of their own.
class LayerPictures {
 public:
  /// Counts damaged pictures in `damaged`. `cacheLimit` in bytes, for numbers that fall. `threads`: see
  /// `PictureDecoder::open`.
  [[nodiscard]] static Expected<LayerPictures> open(RunLayer layer, std::shared_ptr<DamagedPictures> damaged,
                                                    std::size_t cacheLimit, int threads = 0);
  /// Whether the numbers of `layer` fall.
  [[nodiscard]] static bool fall(const RunLayer& layer) { return layer.pictures.front() > layer.pictures.back(); }

  /// The next picture, deinterlaced where the track is interlaced. Fails with `damaged` when nothing decodes; where
  /// numbers fall, with `cancelled` soon after a stop request.
  [[nodiscard]] Expected<Frame> next(const std::stop_token& stop);

  /// How many of the pictures decoded stand in for one that did not decode.
  [[nodiscard]] std::int64_t replacedPictures() const {
    return falling_ ? falling_->replacedPictures() : rising_->replacedPictures();
  }

 private:
  explicit LayerPictures(RunLayer layer) : layer_(std::move(layer)) {}
  Expected<void> openFalling(std::shared_ptr<DamagedPictures> damaged, std::size_t cacheLimit, int threads);
  Expected<void> openRising(std::shared_ptr<DamagedPictures> damaged, int threads);

  RunLayer layer_;
  std::optional<PictureReader> rising_;  // one of the two
  std::optional<CachedPictureReader> falling_;
  std::optional<WholePictures> whole_;
  std::size_t place_ = 0;  // of the next picture among the layer's
};

}  // namespace clipworks::engine
