#include <clipworks/media/images/CGImage.h>

#include <utility>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/engine/stills/BGRAPixels.h>
#include <clipworks/engine/stills/StillColor.h>
#include <clipworks/media/base/SettingsKeys.h>

namespace clipworks {
namespace {

constexpr std::size_t bytesPerPixel = 4;

}  // namespace

std::shared_ptr<const CGImage> CGImage::make(std::size_t width, std::size_t height, const std::uint8_t* bgra,
                                             std::size_t bytesPerRow) {
  constexpr std::size_t most = engine::limits::maxPictureSide;
  if (width < 1 || height < 1 || width > most || height > most) return nullptr;
  auto frame = engine::frameOfBGRA(static_cast<int>(width), static_cast<int>(height), bgra, bytesPerRow);
  if (!frame) return nullptr;
  return std::make_shared<const CGImage>(
      std::make_shared<const engine::StillImage>(engine::StillImage{std::move(*frame), {}}));
}

CGImage::CGImage(std::shared_ptr<const engine::StillImage> still) : still_(std::move(still)) {}

std::size_t CGImage::width() const { return static_cast<std::size_t>(still_->frame->width); }

std::size_t CGImage::height() const { return static_cast<std::size_t>(still_->frame->height); }

std::size_t CGImage::bytesPerRow() const { return width() * bytesPerPixel; }

std::vector<std::uint8_t> CGImage::copyData() const { return engine::copyBGRA(still_->frame); }

SettingsDictionary CGImage::colorAttachments() const {
  const AVFrame& frame = *still_->frame;
  if (frame.colorspace == AVCOL_SPC_RGB) return {};
  const engine::YUVMeaning meaning = engine::meaningOf(frame);
  return {{kCVImageBufferYCbCrMatrixKey, static_cast<int>(meaning.matrix)},
          {kCVImageBufferColorPrimariesKey, static_cast<int>(frame.color_primaries)},
          {kCVImageBufferTransferFunctionKey, static_cast<int>(frame.color_trc)},
          {kCVImageBufferFullRangeKey, meaning.isFullRange}};
}

}  // namespace clipworks
