#include <clipworks/engine/pictures/TrackSize.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

/// Whole chroma steps, the next ones from `length` on.
int upToStep(int length, int shift) { return AV_CEIL_RSHIFT(length, shift) << shift; }

/// The nearest whole chroma steps to `length`, one at least and `most` at most, which is whole steps itself.
int nearestSteps(double length, int shift, int most) {
  const int step = 1 << shift;
  return std::clamp(static_cast<int>(std::lround(length / step)) * step, step, most);
}

}  // namespace

Expected<Frame> TrackSize::fit(const Frame& picture) {
  if (picture->width == width_ && picture->height == height_) return shareFrame(picture);
  const Frame plain = withPlainKind(picture);
  const auto format = static_cast<AVPixelFormat>(plain->format);
  auto inner = scaled(plain);
  if (!inner) return inner;
  auto whole = blackFrame(width_, height_, format, plain->color_range == AVCOL_RANGE_JPEG);
  if (!whole) return whole;
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format);
  const int bytes = pixels.comp[0].depth > 8 ? 2 : 1;
  const auto middle = [](int room, int length, int shift) { return std::max(room - length, 0) / 2 >> shift << shift; };
  const int left = middle(width_, (*inner)->width, pixels.log2_chroma_w);
  const int top = middle(height_, (*inner)->height, pixels.log2_chroma_h);
  for (int plane = 0; plane < 3; ++plane) {
    const int x = plane > 0 ? pixels.log2_chroma_w : 0;
    const int y = plane > 0 ? pixels.log2_chroma_h : 0;
    const int width = AV_CEIL_RSHIFT(std::min((*inner)->width, width_ - left), x);
    const int height = AV_CEIL_RSHIFT(std::min((*inner)->height, height_ - top), y);
    const std::ptrdiff_t stride = (*whole)->linesize[plane];
    av_image_copy_plane((*whole)->data[plane] + (top >> y) * stride + static_cast<std::ptrdiff_t>(left >> x) * bytes,
                        static_cast<int>(stride), (*inner)->data[plane], (*inner)->linesize[plane], width * bytes,
                        height);
  }
  const AVColorRange range = (*whole)->color_range;
  av_frame_copy_props(whole->get(), plain.get());
  (*whole)->color_range = range;
  (*whole)->sample_aspect_ratio = pixelAspect_;
  return whole;
}

// The picture's own aspect in the track's pixels.
Expected<Frame> TrackSize::scaled(const Frame& picture) {
  const auto format = static_cast<AVPixelFormat>(picture->format);
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format);
  const AVRational told = picture->sample_aspect_ratio;
  const double aspect = (told.num > 0 && told.den > 0 ? av_q2d(told) : 1.0) / av_q2d(pixelAspect_);
  const double factor = std::min(width_ / (picture->width * aspect), static_cast<double>(height_) / picture->height);
  const int width =
      nearestSteps(picture->width * aspect * factor, pixels.log2_chroma_w, upToStep(width_, pixels.log2_chroma_w));
  const int height =
      nearestSteps(picture->height * factor, pixels.log2_chroma_h, upToStep(height_, pixels.log2_chroma_h));
  auto even = padFrame(picture, upToStep(picture->width, pixels.log2_chroma_w),
                       upToStep(picture->height, pixels.log2_chroma_h));
  if (!even) return even;
  const PictureWindow window{0, 0, static_cast<double>(picture->width), static_cast<double>(picture->height)};
  return resampler_.resample(*even, window, width, height, format);
}

}  // namespace clipworks::engine
