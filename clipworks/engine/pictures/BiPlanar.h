#pragma once

#include <cstddef>
#include <cstdint>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/PictureConverter.h>

namespace clipworks::engine {

enum class PictureRange { video, full };

/// Turns decoded pictures into 8-bit bi-planar 4:2:0 (luma, then both chromas side by side) of one range, the size and
/// the matrix kept; deeper pictures are rounded, with diffused errors. One thread at a time.
class BiPlanarConverter {
 public:
  explicit BiPlanarConverter(PictureRange range) : range_(range) {}

  [[nodiscard]] Expected<Frame> convert(const Frame& picture);

 private:
  PictureRange range_;
  std::unique_ptr<PictureConverter> toPlanar_;
  int width_ = 0;  // of toPlanar_
  int height_ = 0;
};

/// Bi-planar rows as a planar frame, `width` × `height`, tagged as of full or video range.
[[nodiscard]] Expected<Frame> planarFromBiPlanar(const std::uint8_t* luma, std::ptrdiff_t lumaBytesPerRow,
                                                 const std::uint8_t* chroma, std::ptrdiff_t chromaBytesPerRow,
                                                 int width, int height, PictureRange range);

}  // namespace clipworks::engine
