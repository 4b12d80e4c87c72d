#include <clipworks/engine/pictures/BiPlanar.h>

#include <libyuv/convert.h>
#include <libyuv/convert_from.h>

#include <algorithm>
#include <array>
#include <cmath>

#include <clipworks/engine/pictures/FramePadding.h>

namespace clipworks::engine {
namespace {

using Levels = std::array<std::uint8_t, 256>;

// From video to full range or back: ITU-T H.273, 8.3, equations 23 to 25 and 29 to 31. `steps` and `offset` are those
// of video range.
Levels rangeTable(double steps, double offset, double fullSteps, double fullOffset, PictureRange to) {
  Levels levels{};
  for (std::size_t i = 0; i < levels.size(); ++i) {
    const auto level = static_cast<double>(i);
    const double moved = to == PictureRange::full ? (level - offset) * fullSteps / steps + fullOffset
                                                  : (level - fullOffset) * steps / fullSteps + offset;
    levels[i] = static_cast<std::uint8_t>(std::clamp(std::lround(moved), 0L, 255L));
  }
  return levels;
}

void apply(const Levels& levels, std::uint8_t* plane, std::ptrdiff_t bytesPerRow, int width, int height) {
  for (int y = 0; y < height; ++y) {
    std::uint8_t* row = plane + y * bytesPerRow;
    std::transform(row, row + width, row, [&](std::uint8_t level) { return levels[level]; });
  }
}

void changeRange(AVFrame& frame, PictureRange to) {
  static const std::array<Levels, 2> luma = {rangeTable(219, 16, 255, 0, PictureRange::video),
                                             rangeTable(219, 16, 255, 0, PictureRange::full)};
  static const std::array<Levels, 2> chroma = {rangeTable(224, 128, 255, 128, PictureRange::video),
                                               rangeTable(224, 128, 255, 128, PictureRange::full)};
  const std::size_t which = to == PictureRange::full ? 1 : 0;
  apply(luma[which], frame.data[0], frame.linesize[0], frame.width, frame.height);
  apply(chroma[which], frame.data[1], frame.linesize[1], (frame.width + 1) / 2 * 2, (frame.height + 1) / 2);
}

}  // namespace

Expected<Frame> BiPlanarConverter::convert(const Frame& picture) {
  if (toPlanar_ == nullptr || width_ != picture->width || height_ != picture->height) {
    width_ = picture->width;
    height_ = picture->height;
    // Odd sizes are only reached through even ones.
    toPlanar_ = std::make_unique<PictureConverter>(width_ + width_ % 2, height_ + height_ % 2, AV_PIX_FMT_YUV420P,
                                                   PictureConverter::Fit::pad);
  }
  auto planar = toPlanar_->convert(picture);
  if (!planar) return planar;
  auto biPlanar = allocateFrame(width_, height_, AV_PIX_FMT_NV12);
  if (!biPlanar) return biPlanar;
  av_frame_copy_props(biPlanar->get(), planar->get());
  const AVFrame& from = **planar;
  AVFrame& to = **biPlanar;
  if (libyuv::I420ToNV12(from.data[0], from.linesize[0], from.data[1], from.linesize[1], from.data[2], from.linesize[2],
                         to.data[0], to.linesize[0], to.data[1], to.linesize[1], width_, height_) != 0) {
    return failed(ErrorKind::internal, "a picture cannot be converted");
  }
  const PictureRange has = from.color_range == AVCOL_RANGE_JPEG ? PictureRange::full : PictureRange::video;
  if (has != range_) changeRange(to, range_);
  to.color_range = range_ == PictureRange::full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  return biPlanar;
}

Expected<Frame> planarFromBiPlanar(const std::uint8_t* luma, std::ptrdiff_t lumaBytesPerRow, const std::uint8_t* chroma,
                                   std::ptrdiff_t chromaBytesPerRow, int width, int height, PictureRange range) {
  auto frame = allocateFrame(width, height, AV_PIX_FMT_YUV420P);
  if (!frame) return frame;
  AVFrame& to = **frame;
  if (libyuv::NV12ToI420(luma, static_cast<int>(lumaBytesPerRow), chroma, static_cast<int>(chromaBytesPerRow),
                         to.data[0], to.linesize[0], to.data[1], to.linesize[1], to.data[2], to.linesize[2], width,
                         height) != 0) {
    return failed(ErrorKind::internal, "a picture cannot be converted");
  }
  to.color_range = range == PictureRange::full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  return frame;
}

}  // namespace clipworks::engine
