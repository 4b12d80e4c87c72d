#include <clipworks/media/samples/CVPixelBuffer.h>

#include <utility>

namespace clipworks {
namespace {

constexpr std::size_t mostSide = 16'384;

bool isSize(std::size_t width, std::size_t height) {
  return width > 0 && height > 0 && width <= mostSide && height <= mostSide;
}

/// Calls the callback when the last reference goes.
std::shared_ptr<const void> ownerOf(const void* bytes, CVPixelBufferReleaseBytesCallback release) {
  if (!release) return nullptr;
  return std::shared_ptr<const void>(bytes, [release = std::move(release)](const void* address) { release(address); });
}

}  // namespace

CVPixelBuffer::CVPixelBuffer(std::size_t width, std::size_t height, std::uint32_t pixelFormatType,
                             std::vector<PixelPlane> planes, std::shared_ptr<const void> owner)
    : width_(width),
      height_(height),
      pixelFormatType_(pixelFormatType),
      planes_(std::move(planes)),
      owner_(std::move(owner)) {}

std::shared_ptr<CVPixelBuffer> CVPixelBufferCreateWithBytes(std::size_t width, std::size_t height,
                                                            std::uint32_t pixelFormatType, void* baseAddress,
                                                            std::size_t bytesPerRow,
                                                            CVPixelBufferReleaseBytesCallback releaseCallback,
                                                            const SettingsDictionary& /*pixelBufferAttributes*/) {
  constexpr std::size_t bytesPerPixel = 4;
  const bool isOneRow = pixelFormatType == kCVPixelFormatType_32BGRA && bytesPerRow >= width * bytesPerPixel;
  if (!isSize(width, height) || !isOneRow || baseAddress == nullptr) return nullptr;
  std::vector<PixelPlane> planes{{static_cast<std::uint8_t*>(baseAddress), bytesPerRow, width, height}};
  return std::make_shared<CVPixelBuffer>(width, height, pixelFormatType, std::move(planes),
                                         ownerOf(baseAddress, std::move(releaseCallback)));
}

std::shared_ptr<CVPixelBuffer> CVPixelBufferCreateWithPlanarBytes(std::size_t width, std::size_t height,
                                                                  std::uint32_t pixelFormatType, void* luma,
                                                                  std::size_t lumaBytesPerRow, void* chroma,
                                                                  std::size_t chromaBytesPerRow,
                                                                  CVPixelBufferReleaseBytesCallback releaseCallback) {
  const bool isBiPlanar = pixelFormatType == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange ||
                          pixelFormatType == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
  const std::size_t pairs = (width + 1) / 2;
  if (!isSize(width, height) || !isBiPlanar || luma == nullptr || chroma == nullptr) return nullptr;
  if (lumaBytesPerRow < width || chromaBytesPerRow < 2 * pairs) return nullptr;
  std::vector<PixelPlane> planes{{static_cast<std::uint8_t*>(luma), lumaBytesPerRow, width, height},
                                 {static_cast<std::uint8_t*>(chroma), chromaBytesPerRow, pairs, (height + 1) / 2}};
  return std::make_shared<CVPixelBuffer>(width, height, pixelFormatType, std::move(planes),
                                         ownerOf(luma, std::move(releaseCallback)));
}

}  // namespace clipworks
