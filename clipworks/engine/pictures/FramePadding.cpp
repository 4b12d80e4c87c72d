#include <clipworks/engine/pictures/FramePadding.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace clipworks::engine {
namespace {

struct PlaneShape {
  int width = 0;  // in samples
  int height = 0;
};

PlaneShape planeShape(const AVPixFmtDescriptor& pixels, int plane, int width, int height) {
  const bool chroma = plane == 1 || plane == 2;
  return {chroma ? AV_CEIL_RSHIFT(width, pixels.log2_chroma_w) : width,
          chroma ? AV_CEIL_RSHIFT(height, pixels.log2_chroma_h) : height};
}

void padPlane(const std::uint8_t* from, int fromStride, PlaneShape fromShape, std::uint8_t* to, int toStride,
              PlaneShape toShape, int bytesPerSample) {
  const auto sample = static_cast<std::size_t>(bytesPerSample);
  for (int y = 0; y < toShape.height; ++y) {
    const std::uint8_t* row = from + static_cast<std::ptrdiff_t>(std::min(y, fromShape.height - 1)) * fromStride;
    std::uint8_t* out = to + static_cast<std::ptrdiff_t>(y) * toStride;
    std::memcpy(out, row, static_cast<std::size_t>(fromShape.width) * sample);
    for (int x = fromShape.width; x < toShape.width; ++x) {
      std::memcpy(out + static_cast<std::size_t>(x) * sample,
                  row + static_cast<std::size_t>(fromShape.width - 1) * sample, sample);
    }
  }
}

}  // namespace

Expected<Frame> padFrame(const Frame& frame, int width, int height) {
  const auto format = static_cast<AVPixelFormat>(frame->format);
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format);
  auto padded = allocateFrame(width, height, format);
  if (!padded) return padded;
  av_frame_copy_props(padded->get(), frame.get());
  const int bytesPerSample = (pixels->comp[0].depth + 7) / 8;
  for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
    padPlane(frame->data[plane], frame->linesize[plane], planeShape(*pixels, plane, frame->width, frame->height),
             (*padded)->data[plane], (*padded)->linesize[plane], planeShape(*pixels, plane, width, height),
             bytesPerSample);
  }
  return padded;
}

Expected<Frame> blackFrame(int width, int height, AVPixelFormat format, bool fullRange) {
  auto frame = allocateFrame(width, height, format);
  if (!frame) return frame;
  std::array<std::ptrdiff_t, 4> strides{};
  std::copy_n((*frame)->linesize, strides.size(), strides.begin());
  const auto range = fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  if (av_image_fill_black((*frame)->data, strides.data(), format, range, width, height) < 0) {
    return failed(ErrorKind::unsupported, "no black for this kind of picture");
  }
  (*frame)->color_range = range;
  return frame;
}

}  // namespace clipworks::engine
