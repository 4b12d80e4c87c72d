#include <clipworks/engine/pictures/AffineSampler.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

/// The same map between planes whose samples are `acrossStep` pixels wide and `downStep` high, those of shared columns
/// at the left of their pixels.
AffineMap betweenPlanes(const AffineMap& m, double acrossStep, double downStep) {
  const double left = (1 - acrossStep) / 2;  // from the middle
  const double tx = m.tx + (m.a - 1) * left;
  const double ty = m.ty + m.b * left;
  return {m.a, m.b * acrossStep / downStep, m.c * downStep / acrossStep, m.d, tx / acrossStep, ty / downStep};
}

std::array<double, 4> splineWeights(double t) {
  return {((-0.5 * t + 1) * t - 0.5) * t, (1.5 * t - 2.5) * t * t + 1, ((-1.5 * t + 2) * t + 0.5) * t,
          (0.5 * t - 0.5) * t * t};
}

struct Plane {
  const std::uint8_t* data;
  int stride;
  int width;
  int height;
};

template <class Sample>
double sampleAt(const Plane& plane, double x, double y) {
  const double column = std::floor(x - 0.5);
  const double row = std::floor(y - 0.5);
  const auto across = splineWeights(x - 0.5 - column);
  const auto down = splineWeights(y - 0.5 - row);
  double sum = 0;
  for (int j = 0; j < 4; ++j) {
    const int lineNumber = std::clamp(static_cast<int>(row) - 1 + j, 0, plane.height - 1);
    const auto* line =
        reinterpret_cast<const Sample*>(plane.data + static_cast<std::ptrdiff_t>(lineNumber) * plane.stride);
    double inLine = 0;
    for (int i = 0; i < 4; ++i) {
      inLine +=
          across[static_cast<std::size_t>(i)] * line[std::clamp(static_cast<int>(column) - 1 + i, 0, plane.width - 1)];
    }
    sum += down[static_cast<std::size_t>(j)] * inLine;
  }
  return sum;
}

template <class Sample>
void samplePlane(const Plane& source, const AffineMap& toSource, int width, int height, double greatest, AVFrame& to,
                 int plane) {
  for (int y = 0; y < height; ++y) {
    auto* line = reinterpret_cast<Sample*>(to.data[plane] + static_cast<std::ptrdiff_t>(y) * to.linesize[plane]);
    for (int x = 0; x < width; ++x) {
      const double cx = x + 0.5;
      const double cy = y + 0.5;
      const double sx = toSource.a * cx + toSource.c * cy + toSource.tx;
      const double sy = toSource.b * cx + toSource.d * cy + toSource.ty;
      // Far outside nothing is shown; the coverage says so.
      if (sx < -2 || sy < -2 || sx > source.width + 2 || sy > source.height + 2) {
        line[x] = 0;
        continue;
      }
      line[x] = static_cast<Sample>(std::lround(std::clamp(sampleAt<Sample>(source, sx, sy), 0.0, greatest)));
    }
  }
}

void markCoverage(const AffineMap& toSource, const AVFrame& source, AVFrame& coverage) {
  for (int y = 0; y < coverage.height; ++y) {
    std::uint8_t* line = coverage.data[0] + static_cast<std::ptrdiff_t>(y) * coverage.linesize[0];
    for (int x = 0; x < coverage.width; ++x) {
      const double sx = toSource.a * (x + 0.5) + toSource.c * (y + 0.5) + toSource.tx;
      const double sy = toSource.b * (x + 0.5) + toSource.d * (y + 0.5) + toSource.ty;
      line[x] = sx >= 0 && sy >= 0 && sx < source.width && sy < source.height ? 255 : 0;
    }
  }
}

}  // namespace

Expected<SampledPicture> sampleAffine(const Frame& source, const AffineMap& map, int width, int height) {
  const auto format = static_cast<AVPixelFormat>(source->format);
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format);
  auto picture = allocateFrame(width, height, format);
  if (!picture) return tl::make_unexpected(picture.error());
  av_frame_copy_props(picture->get(), source.get());
  auto coverage = allocateFrame(width, height, AV_PIX_FMT_GRAY8);
  if (!coverage) return tl::make_unexpected(coverage.error());
  const AffineMap toSource = inverseOf(map);
  const double greatest = (1 << pixels.comp[0].depth) - 1;
  for (int plane = 0; plane < 3; ++plane) {
    const int stepX = plane == 0 ? 0 : pixels.log2_chroma_w;
    const int stepY = plane == 0 ? 0 : pixels.log2_chroma_h;
    const Plane from{source->data[plane], source->linesize[plane], AV_CEIL_RSHIFT(source->width, stepX),
                     AV_CEIL_RSHIFT(source->height, stepY)};
    const AffineMap planeMap = betweenPlanes(toSource, 1 << stepX, 1 << stepY);
    const auto sample = pixels.comp[0].depth > 8 ? samplePlane<std::uint16_t> : samplePlane<std::uint8_t>;
    sample(from, planeMap, AV_CEIL_RSHIFT(width, stepX), AV_CEIL_RSHIFT(height, stepY), greatest, **picture, plane);
  }
  markCoverage(toSource, *source, **coverage);
  return SampledPicture{std::move(*picture), std::move(*coverage)};
}

}  // namespace clipworks::engine
