#include <clipworks/engine/pictures/AffineResampling.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

/// A position in the source, counted from the middle of its first pixel.
struct Place {
  double x = 0;
  double y = 0;
};

std::uint8_t bilinear(const AVFrame& from, int plane, Place place) {
  const auto column = [&](double x) { return std::clamp(static_cast<int>(x), 0, from.width - 1); };
  const auto row = [&](double y) {
    return from.data[plane] + static_cast<std::ptrdiff_t>(std::clamp(static_cast<int>(y), 0, from.height - 1)) * from.linesize[plane];
  };
  const double left = std::floor(place.x);
  const double top = std::floor(place.y);
  const double toRight = place.x - left;
  const double toBottom = place.y - top;
  const auto across = [&](const std::uint8_t* samples) {
    return samples[column(left)] * (1 - toRight) + samples[column(left + 1)] * toRight;
  };
  return static_cast<std::uint8_t>(std::lround(across(row(top)) * (1 - toBottom) + across(row(top + 1)) * toBottom));
}

}  // namespace

Expected<Frame> transformed(const Frame& picture, const std::array<double, 4>& transform, int width, int height) {
  auto result = blackFrame(width, height, AV_PIX_FMT_YUV444P, picture->color_range == AVCOL_RANGE_JPEG);
  if (!result) return result;
  av_frame_copy_props(result->get(), picture.get());
  const auto& [a, b, c, d] = transform;
  const double determinant = a * d - b * c;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double fromMiddleX = x + 0.5 - width / 2.0;
      const double fromMiddleY = y + 0.5 - height / 2.0;
      const Place place{(d * fromMiddleX - c * fromMiddleY) / determinant + picture->width / 2.0 - 0.5,
                        (a * fromMiddleY - b * fromMiddleX) / determinant + picture->height / 2.0 - 0.5};
      const bool isCovered = place.x > -0.5 && place.y > -0.5 && place.x < picture->width - 0.5 && place.y < picture->height - 0.5;
      if (!isCovered) continue;
      for (int plane = 0; plane < 3; ++plane) {
        (*result)->data[plane][static_cast<std::ptrdiff_t>(y) * (*result)->linesize[plane] + x] = bilinear(*picture, plane, place);
      }
    }
  }
  return result;
}

}  // namespace clipworks::engine
