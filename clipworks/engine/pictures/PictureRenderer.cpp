#include <clipworks/engine/pictures/PictureRenderer.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include <clipworks/engine/pictures/AffineSampler.h>
#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/PlaneTurns.h>

namespace clipworks::engine {
namespace {

// What a rotation by the double nearest to a right angle leaves of its cosine, 6e-17, is no part of the picture; on the
// largest pictures an error of this size moves no edge by a thousandth of a pixel.
constexpr double residue = 1e-8;

double snapped(double value) {
  const double whole = std::round(value);
  return std::abs(value - whole) <= residue * std::max(1.0, std::abs(whole)) ? whole : value;
}

AffineMap snapped(const AffineMap& map) {
  return {snapped(map.a), snapped(map.b), snapped(map.c), snapped(map.d), snapped(map.tx), snapped(map.ty)};
}

bool isWhole(double value) { return value == std::round(value); }

/// Along one axis of the canvas: a picture's side of `length` pixels lies from `start` on, `scale` times as long.
struct Side {
  double start = 0;
  double scale = 1;
  int length = 0;
  // The canvas's pixels whose centres the picture covers.
  int from = 0;
  int to = 0;

  void clipTo(int canvas) {
    const double end = start + scale * length;
    from = static_cast<int>(std::clamp(std::ceil(start - 0.5 - residue), 0.0, static_cast<double>(canvas)));
    to = static_cast<int>(std::clamp(std::ceil(end - 0.5 - residue), 0.0, static_cast<double>(canvas)));
  }
  [[nodiscard]] bool isMovedOnly(int chromaShift) const {
    return scale == 1 && isWhole(start) && std::fmod(start, 1 << chromaShift) == 0;
  }
};

/// Where a side lies whose pixels map to `factor`·p + `shift`; a negative factor has reversed it before.
Side sideOf(double factor, double shift, int length) {
  return {factor < 0 ? shift + factor * length : shift, std::abs(factor), length, 0, 0};
}

/// The same picture from pixel (x, y) on, `width` × `height` of it, without a copy. Starts on whole chroma samples.
Frame cropped(const Frame& picture, int x, int y, int width, int height) {
  Frame part = shareFrame(picture);
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture->format));
  for (int plane = 0; plane < av_pix_fmt_count_planes(static_cast<AVPixelFormat>(picture->format)); ++plane) {
    const bool chroma = plane == 1 || plane == 2;
    const std::ptrdiff_t column = (chroma ? x >> pixels->log2_chroma_w : x) * ((pixels->comp[0].depth + 7) / 8);
    const std::ptrdiff_t row = chroma ? y >> pixels->log2_chroma_h : y;
    part->data[plane] += row * picture->linesize[plane] + column;
  }
  part->width = width;
  part->height = height;
  return part;
}

int roundedUp(int value, int chromaShift) { return ((value + (1 << chromaShift) - 1) >> chromaShift) << chromaShift; }

/// `picture` with `margin` pixels (whole chroma samples) on each side, edges repeated.
Expected<Frame> withMargin(const Frame& picture, int margin) {
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture->format));
  const int right = roundedUp(picture->width, pixels.log2_chroma_w) + margin;
  const int below = roundedUp(picture->height, pixels.log2_chroma_h) + margin;
  auto padded = padFrame(picture, right, below);
  if (!padded || margin == 0) return padded;
  // The other two sides are padded as the first two were, in a picture turned by half a turn.
  auto turnedRound = turned(*padded, halfTurn);
  if (!turnedRound) return turnedRound;
  auto whole = padFrame(*turnedRound, right + margin, below + margin);
  if (!whole) return whole;
  auto result = turned(*whole, halfTurn);
  if (result) (*result)->chroma_location = picture->chroma_location;
  return result;
}

template <class Sample>
void blendRow(const Sample* from, const std::uint8_t* coverage, int coverageStep, int count, double opacity,
              Sample* to) {
  for (int x = 0; x < count; ++x) {
    if (coverage != nullptr && coverage[static_cast<std::ptrdiff_t>(x) * coverageStep] == 0) continue;
    to[x] = static_cast<Sample>(std::lround(to[x] + opacity * (from[x] - to[x])));
  }
}

}  // namespace

Expected<Frame> PictureRenderer::render(const std::vector<PictureLayer>& layers) {
  Frame canvas;
  for (const auto& layer : layers) {
    if (!(layer.opacity > 0)) continue;
    auto patch = place(layer.picture, layer.map);
    if (!patch) return tl::make_unexpected(patch.error());
    if (!*patch) continue;
    const double opacity = std::min(layer.opacity, 1.0);
    if (opacity == 1 && isWholeCanvas(**patch)) {
      canvas = cropped((*patch)->picture, -(*patch)->x, -(*patch)->y, width_, height_);
      continue;
    }
    if (canvas == nullptr || av_frame_is_writable(canvas.get()) == 0) {
      auto drawn = canvas == nullptr
                       ? blackFrame(width_, height_, format_, layer.picture->color_range == AVCOL_RANGE_JPEG)
                       : padFrame(canvas, width_, height_);
      if (!drawn) return drawn;
      if (canvas == nullptr) av_frame_copy_props(drawn->get(), layer.picture.get());
      canvas = std::move(*drawn);
    }
    draw(**patch, opacity, *canvas);
  }
  return canvas != nullptr ? Expected<Frame>(std::move(canvas)) : blackFrame(width_, height_, format_, false);
}

Expected<std::optional<PictureRenderer::Patch>> PictureRenderer::place(const Frame& picture, const AffineMap& map) {
  const AffineMap clean = snapped(map);
  for (const double number : {clean.a, clean.b, clean.c, clean.d, clean.tx, clean.ty}) {
    if (!std::isfinite(number)) return std::optional<Patch>{};
  }
  if (clean.a * clean.d - clean.b * clean.c == 0) return std::optional<Patch>{};
  const bool alongAxes = (clean.b == 0 && clean.c == 0) || (clean.a == 0 && clean.d == 0);
  return alongAxes ? placeAlongAxes(picture, clean) : placeAnywhere(picture, clean);
}

Expected<std::optional<PictureRenderer::Patch>> PictureRenderer::placeAlongAxes(const Frame& picture,
                                                                                const AffineMap& map) {
  const bool swaps = map.a == 0;
  Side across = sideOf(swaps ? map.c : map.a, map.tx, swaps ? picture->height : picture->width);
  Side down = sideOf(swaps ? map.b : map.d, map.ty, swaps ? picture->width : picture->height);
  across.clipTo(width_);
  down.clipTo(height_);
  if (across.from >= across.to || down.from >= down.to) return std::optional<Patch>{};
  auto upright = turned(picture, *turnOf(map.a, map.b, map.c, map.d), TurnedChroma::movedToLeft);
  if (!upright) return tl::make_unexpected(upright.error());

  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format_);
  const int stepX = pixels.log2_chroma_w;
  const int stepY = pixels.log2_chroma_h;
  Patch patch{nullptr, 0, 0, across.from, down.from, across.to, down.to, nullptr};
  if ((*upright)->format == format_ && across.isMovedOnly(stepX) && down.isMovedOnly(stepY)) {
    patch.picture = std::move(*upright);
    patch.x = static_cast<int>(across.start);
    patch.y = static_cast<int>(down.start);
    return std::optional<Patch>(std::move(patch));
  }
  // The patch starts and ends on whole chroma samples, so it may reach out of the picture by a few pixels.
  patch.x = across.from >> stepX << stepX;
  patch.y = down.from >> stepY << stepY;
  const int patchWidth = roundedUp(across.to, stepX) - patch.x;
  const int patchHeight = roundedUp(down.to, stepY) - patch.y;
  constexpr int chromaStep = 2;
  const int margin = chromaStep * static_cast<int>(std::ceil(1 + 1 / std::min(across.scale, down.scale)));
  auto wide = withMargin(*upright, margin);
  if (!wide) return tl::make_unexpected(wide.error());
  const PictureWindow window{(patch.x - across.start) / across.scale + margin,
                             (patch.y - down.start) / down.scale + margin, patchWidth / across.scale,
                             patchHeight / down.scale};
  auto resampled = resampler_.resample(*wide, window, patchWidth, patchHeight, format_);
  if (!resampled) return tl::make_unexpected(resampled.error());
  patch.picture = std::move(*resampled);
  return std::optional<Patch>(std::move(patch));
}

Expected<std::optional<PictureRenderer::Patch>> PictureRenderer::placeAnywhere(const Frame& picture,
                                                                               const AffineMap& map) {
  auto placed = turned(picture, {}, TurnedChroma::movedToLeft);
  if (!placed) return tl::make_unexpected(placed.error());
  Frame source = std::move(*placed);
  AffineMap fromSource = map;
  // A smaller picture is made first, so that the sampling between its pixels does not skip any.
  const double across = std::min(1.0, std::hypot(map.a, map.b));
  const double down = std::min(1.0, std::hypot(map.c, map.d));
  if (across < 1 || down < 1) {
    const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format_);
    auto even = withMargin(source, 0);
    if (!even) return tl::make_unexpected(even.error());
    const int width =
        roundedUp(std::max(2, static_cast<int>(std::ceil(across * (*even)->width))), pixels.log2_chroma_w);
    const int height =
        roundedUp(std::max(2, static_cast<int>(std::ceil(down * (*even)->height))), pixels.log2_chroma_h);
    const PictureWindow whole{0, 0, static_cast<double>((*even)->width), static_cast<double>((*even)->height)};
    auto smaller = resampler_.resample(*even, whole, width, height, format_);
    if (!smaller) return tl::make_unexpected(smaller.error());
    const double enlargeX = static_cast<double>((*even)->width) / width;
    const double enlargeY = static_cast<double>((*even)->height) / height;
    fromSource = {map.a * enlargeX, map.b * enlargeX, map.c * enlargeY, map.d * enlargeY, map.tx, map.ty};
    source = cropped(*smaller, 0, 0, static_cast<int>(std::ceil(picture->width / enlargeX)),
                     static_cast<int>(std::ceil(picture->height / enlargeY)));
  }
  auto sampled = sampleAffine(source, fromSource, width_, height_);
  if (!sampled) return tl::make_unexpected(sampled.error());
  return std::optional<Patch>(
      Patch{std::move(sampled->picture), 0, 0, 0, 0, width_, height_, std::move(sampled->coverage)});
}

bool PictureRenderer::isWholeCanvas(const Patch& patch) const {
  return patch.coverage == nullptr && patch.left == 0 && patch.top == 0 && patch.right == width_ &&
         patch.bottom == height_ && patch.picture->format == format_;
}

void PictureRenderer::draw(const Patch& patch, double opacity, AVFrame& canvas) const {
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format_);
  const int bytes = (pixels.comp[0].depth + 7) / 8;
  for (int plane = 0; plane < 3; ++plane) {
    const int stepX = plane == 0 ? 0 : pixels.log2_chroma_w;
    const int stepY = plane == 0 ? 0 : pixels.log2_chroma_h;
    const int left = patch.left >> stepX;
    const int count = AV_CEIL_RSHIFT(patch.right, stepX) - left;
    for (int y = patch.top >> stepY; y < AV_CEIL_RSHIFT(patch.bottom, stepY); ++y) {
      const std::uint8_t* from = patch.picture->data[plane] +
                                 static_cast<std::ptrdiff_t>(y - (patch.y >> stepY)) * patch.picture->linesize[plane] +
                                 static_cast<std::ptrdiff_t>(left - (patch.x >> stepX)) * bytes;
      std::uint8_t* to = canvas.data[plane] + static_cast<std::ptrdiff_t>(y) * canvas.linesize[plane] +
                         static_cast<std::ptrdiff_t>(left) * bytes;
      const std::uint8_t* coverage = nullptr;
      if (patch.coverage != nullptr) {
        coverage = patch.coverage->data[0] + static_cast<std::ptrdiff_t>(y << stepY) * patch.coverage->linesize[0] +
                   (static_cast<std::ptrdiff_t>(left) << stepX);
      }
      if (coverage == nullptr && opacity == 1) {
        std::memcpy(to, from, static_cast<std::size_t>(count) * static_cast<std::size_t>(bytes));
      } else if (bytes == 1) {
        blendRow(from, coverage, 1 << stepX, count, opacity, to);
      } else {
        blendRow(reinterpret_cast<const std::uint16_t*>(from), coverage, 1 << stepX, count, opacity,
                 reinterpret_cast<std::uint16_t*>(to));
      }
    }
  }
}

}  // namespace clipworks::engine
