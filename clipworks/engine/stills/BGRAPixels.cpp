#include <clipworks/engine/stills/BGRAPixels.h>

#include <libyuv.h>

#include <clipworks/engine/pictures/BGRAFromPlanar.h>
#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/PictureResampler.h>
#include <clipworks/engine/stills/StillColor.h>
#include <clipworks/engine/stills/StillPixels.h>

namespace clipworks::engine {
namespace {

void packPlanes(const AVFrame& planes, std::uint8_t* to, int stride) {
  libyuv::MergeARGBPlane(planes.data[2], planes.linesize[2], planes.data[0], planes.linesize[0], planes.data[1],
                         planes.linesize[1], nullptr, 0, to, stride, planes.width, planes.height);
}

}  // namespace

Expected<Frame> frameOfBGRA(int width, int height, const std::uint8_t* bgra, std::size_t bytesPerRow) {
  auto frame = allocateFrame(width, height, AV_PIX_FMT_BGRA);
  if (!frame) return frame;
  AVFrame& copy = **frame;
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* row = bgra + static_cast<std::size_t>(y) * bytesPerRow;
    std::copy_n(row, static_cast<std::size_t>(width) * 4,
                copy.data[0] + static_cast<std::ptrdiff_t>(y) * copy.linesize[0]);
  }
  copy.color_primaries = AVCOL_PRI_BT709;
  copy.color_trc = AVCOL_TRC_IEC61966_2_1;
  copy.colorspace = AVCOL_SPC_RGB;
  copy.color_range = AVCOL_RANGE_JPEG;
  return frame;
}

std::vector<std::uint8_t> copyBGRA(const Frame& picture) {
  const int width = picture->width;
  const int height = picture->height;
  const int stride = width * 4;
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
  if (picture->format == AV_PIX_FMT_BGRA || picture->format == AV_PIX_FMT_BGR0) {
    libyuv::ARGBCopy(picture->data[0], picture->linesize[0], bytes.data(), stride, width, height);
    for (std::size_t alpha = 3; alpha < bytes.size(); alpha += 4) bytes[alpha] = 255;
    return bytes;
  }
  const auto fit = checkStill(*picture);
  const YUVMeaning meaning = meaningOf(*picture);
  if (fit && canFillBGRA(plainKind(picture->format))) {
    fillBGRA(*picture, meaning.matrix, meaning.isFullRange, bytes.data(), stride);
    return bytes;
  }
  const Expected<Frame> planes = fit ? planarRGB(picture, SharedChroma::repeated) : tl::make_unexpected(fit.error());
  if (planes) packPlanes(**planes, bytes.data(), stride);
  return bytes;
}

}  // namespace clipworks::engine
