#include <clipworks/engine/pictures/ZimgPictures.h>

namespace clipworks::engine {

AVPixelFormat withoutRange(int format) {
  switch (format) {
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
      return AV_PIX_FMT_YUV440P;
    default:
      return static_cast<AVPixelFormat>(format);
  }
}

bool isAlignedForZimg(const AVFrame& frame) {
  for (int plane = 0; plane < 3; ++plane) {
    if (reinterpret_cast<std::uintptr_t>(frame.data[plane]) % zimgAlignment != 0) return false;
    if (frame.linesize[plane] <= 0 || static_cast<std::uintptr_t>(frame.linesize[plane]) % zimgAlignment != 0) return false;
  }
  return true;
}

std::optional<zimgxx::zimage_format> describeForZimg(AVPixelFormat format, int width, int height, bool fullRange,
                                                     AVChromaLocation location) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  if (pixels == nullptr || pixels->nb_components < 3 || av_pix_fmt_count_planes(format) < 3) return std::nullopt;
  constexpr std::uint64_t unfit =
      AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_PAL;
  if ((pixels->flags & unfit) != 0) return std::nullopt;
  zimgxx::zimage_format image;
  image.width = static_cast<unsigned>(width);
  image.height = static_cast<unsigned>(height);
  image.depth = static_cast<unsigned>(pixels->comp[0].depth);
  image.pixel_type = image.depth > 8 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
  image.subsample_w = static_cast<unsigned>(pixels->log2_chroma_w);
  image.subsample_h = static_cast<unsigned>(pixels->log2_chroma_h);
  image.color_family = ZIMG_COLOR_YUV;
  image.pixel_range = fullRange ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
  const bool known = location >= AVCHROMA_LOC_LEFT && location <= AVCHROMA_LOC_BOTTOM;
  image.chroma_location = known ? static_cast<zimg_chroma_location_e>(location - 1) : ZIMG_CHROMA_LEFT;
  return image;
}

zimgxx::zimage_buffer_const readByZimg(const AVFrame& frame) {
  zimgxx::zimage_buffer_const buffer;
  for (unsigned plane = 0; plane < 3; ++plane) {
    buffer.data(plane) = frame.data[plane];
    buffer.stride(plane) = frame.linesize[plane];
    buffer.mask(plane) = ZIMG_BUFFER_MAX;
  }
  return buffer;
}

zimgxx::zimage_buffer writtenByZimg(const AVFrame& frame) {
  zimgxx::zimage_buffer buffer;
  for (unsigned plane = 0; plane < 3; ++plane) {
    buffer.data(plane) = frame.data[plane];
    buffer.stride(plane) = frame.linesize[plane];
    buffer.mask(plane) = ZIMG_BUFFER_MAX;
  }
  return buffer;
}

}  // namespace clipworks::engine
