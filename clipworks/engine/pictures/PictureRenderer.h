#pragma once

#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/AffineMap.h>
#include <clipworks/engine/pictures/PictureResampler.h>

namespace clipworks::engine {

/// A picture and where it lies on a canvas.
struct PictureLayer {
  Frame picture;
  AffineMap map;       ///< from the picture's pixels to the canvas's
  double opacity = 1;  ///< from 0 to 1
};

/// Draws pictures over black on a canvas, in YUV throughout. Quarter turns, mirrors and shifts by whole chroma samples
/// move samples and change none; a crop of an upright picture shares its buffers. At other shifts and scales along the
/// axes one resampling step serves, luma staying exact at whole shifts; anything else is sampled bicubically. One
/// thread at a time.
class PictureRenderer {
 public:
  /// A canvas of `width` × `height` pixels of `format`, planar YUV of 8 to 16 bits.
  PictureRenderer(int width, int height, AVPixelFormat format) : width_(width), height_(height), format_(format) {}

  /// `layers`, all of the canvas's format, from the back to the front. Shares the buffers of a picture that covers the
  /// canvas as it is.
  [[nodiscard]] Expected<Frame> render(const std::vector<PictureLayer>& layers);

 private:
  /// Pixels for a rectangle of the canvas: `picture` lies with its top left corner at (x, y), and the rectangle from
  /// (left, top) to (right, bottom) of the canvas shows it. Samples outside are not to be looked at.
  struct Patch {
    Frame picture;
    int x = 0;
    int y = 0;
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    Frame coverage;  ///< null, or where the patch shows: a grey picture of the canvas's size, 0 or 255
  };
  Expected<std::optional<Patch>> place(const Frame& picture, const AffineMap& map);
  Expected<std::optional<Patch>> placeAlongAxes(const Frame& picture, const AffineMap& map);
  Expected<std::optional<Patch>> placeAnywhere(const Frame& picture, const AffineMap& map);
  [[nodiscard]] bool isWholeCanvas(const Patch& patch) const;
  void draw(const Patch& patch, double opacity, AVFrame& canvas) const;

  int width_;
  int height_;
  AVPixelFormat format_;
  PictureResampler resampler_;
};

}  // namespace clipworks::engine
