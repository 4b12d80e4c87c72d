#include <clipworks/engine/pictures/PictureConverter.h>

#include <algorithm>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {

Expected<Frame> PictureConverter::convert(const Frame& picture) {
  Frame source = withPlainKind(picture);
  const auto format = static_cast<AVPixelFormat>(source->format);
  const bool smaller = source->width < width_ || source->height < height_;
  const int roomWidth =
      fit_ == Fit::pad && smaller ? std::max(width_, source->width) : source->width + source->width % 2;
  const int roomHeight =
      fit_ == Fit::pad && smaller ? std::max(height_, source->height) : source->height + source->height % 2;
  if (roomWidth != source->width || roomHeight != source->height) {
    auto padded = padFrame(source, roomWidth, roomHeight);
    if (!padded) return padded;
    source = std::move(*padded);
  }
  if (source->width == width_ && source->height == height_ && format == format_) return source;
  const PictureWindow whole{0, 0, static_cast<double>(source->width), static_cast<double>(source->height)};
  return resampler_.resample(source, whole, width_, height_, format_);
}

}  // namespace clipworks::engine
