#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/AffineMap.h>
#include <clipworks/engine/pictures/PictureResampler.h>

namespace clipworks::engine {

/// Scales single pictures so that they cover a canvas, quarter turns and mirrors included. What is not shown is
/// cropped, the rest resampled in one step, and only the result is turned, so that a large picture is read just once.
/// One thread at a time.
class PictureFitter {
 public:
  /// A canvas of `width` × `height` pixels, whole chroma steps of what `fit` makes.
  PictureFitter(int width, int height) : width_(width), height_(height) {}

  /// Whether `map`, from the picture to the canvas, scales along the axes and leaves no part of the canvas bare.
  [[nodiscard]] bool covers(const AVFrame& picture, const AffineMap& map) const;

  /// `picture`, which covers the canvas under `map`, as pixels of `format`, with its own properties but for the
  /// colours that `change` gives it. Fails with
  /// `unsupported` for kinds that are not resampled.
  [[nodiscard]] Expected<Frame> fit(const Frame& picture, const AffineMap& map, AVPixelFormat format,
                                    const ColourChange& change = {});

 private:
  int width_;
  int height_;
  PictureResampler resampler_{ResamplingFilter::lanczos};
};

}  // namespace clipworks::engine
