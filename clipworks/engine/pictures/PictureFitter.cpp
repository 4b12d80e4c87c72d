#include <clipworks/engine/pictures/PictureFitter.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/PlaneTurns.h>

namespace clipworks::engine {
namespace {

// Pixels of the source by which rounding may move an edge.
constexpr double tolerance = 1e-6;

bool swapsAxes(const AffineMap& map) { return std::abs(map.a) + std::abs(map.d) < std::abs(map.b) + std::abs(map.c); }

bool isAlongAxes(const AffineMap& map) {
  constexpr double residue = 1e-9;  // what is left of the cosine of a right angle, against the scale
  const double along = std::max({std::abs(map.a), std::abs(map.b), std::abs(map.c), std::abs(map.d)});
  const double other =
      swapsAxes(map) ? std::max(std::abs(map.a), std::abs(map.d)) : std::max(std::abs(map.b), std::abs(map.c));
  return std::isfinite(along) && along > 0 && other <= residue * along;
}

/// What the canvas shows of the picture, in the picture's pixels.
PictureWindow windowOf(const AffineMap& map, int width, int height) {
  const bool swaps = swapsAxes(map);
  const double acrossFactor = swaps ? map.b : map.a;  // from the picture's x
  const double downFactor = swaps ? map.c : map.d;    // from its y
  const double acrossShift = swaps ? map.ty : map.tx;
  const double downShift = swaps ? map.tx : map.ty;
  const auto [left, right] =
      std::minmax({-acrossShift / acrossFactor, ((swaps ? height : width) - acrossShift) / acrossFactor});
  const auto [top, bottom] =
      std::minmax({-downShift / downFactor, ((swaps ? width : height) - downShift) / downFactor});
  return {left, top, right - left, bottom - top};
}

/// The part of a side of `length` pixels from `start` on, `part` long, without what rounding let stick out.
void clip(double& start, double& part, int length) {
  const double end = std::min(start + part, static_cast<double>(length));
  start = std::max(start, 0.0);
  part = end - start;
}

}  // namespace

bool PictureFitter::covers(const AVFrame& picture, const AffineMap& map) const {
  if (!isAlongAxes(map)) return false;
  const PictureWindow window = windowOf(map, width_, height_);
  return window.left >= -tolerance && window.top >= -tolerance &&
         window.left + window.width <= picture.width + tolerance &&
         window.top + window.height <= picture.height + tolerance;
}

Expected<Frame> PictureFitter::fit(const Frame& picture, const AffineMap& map, AVPixelFormat format,
                                   const ColourChange& change) {
  PictureWindow window = windowOf(map, width_, height_);
  clip(window.left, window.width, picture->width);
  clip(window.top, window.height, picture->height);
  Frame whole = shareFrame(picture);
  if (picture->width % 2 != 0 || picture->height % 2 != 0) {
    // Whole chroma steps; what is repeated to fill them is not shown.
    auto even = padFrame(picture, picture->width + picture->width % 2, picture->height + picture->height % 2);
    if (!even) return even;
    whole = std::move(*even);
  }
  const bool swaps = swapsAxes(map);
  auto scaled = resampler_.resample(whole, window, swaps ? height_ : width_, swaps ? width_ : height_, format, change);
  if (!scaled) return scaled;
  return turned(*scaled, *turnOf(map.a, map.b, map.c, map.d), TurnedChroma::movedToLeft);
}

}  // namespace clipworks::engine
