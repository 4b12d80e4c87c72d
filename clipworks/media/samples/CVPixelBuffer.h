#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/SettingsDictionary.h>
#include <clipworks/media/base/SettingsKeys.h>

namespace clipworks {

/// One plane of a pixel buffer: rows from the top.
struct PixelPlane {
  std::uint8_t* baseAddress = nullptr;
  std::size_t bytesPerRow = 0;
  std::size_t width = 0;  ///< in pixels, for the chromas of bi-planar buffers in pairs
  std::size_t height = 0;
};

/// A picture in memory. The pixels are not copied: they belong to a decoder, or to whoever made the buffer. Several
/// threads may read at once.
class CLIPWORKS_API CVPixelBuffer {
 public:
  /// A buffer over `planes` of one of the pixel formats of SettingsKeys.h. `owner` is kept until the buffer goes.
  CVPixelBuffer(std::size_t width, std::size_t height, std::uint32_t pixelFormatType, std::vector<PixelPlane> planes,
                std::shared_ptr<const void> owner);

  /// In pixels.
  [[nodiscard]] std::size_t width() const { return width_; }
  [[nodiscard]] std::size_t height() const { return height_; }
  /// `kCVPixelFormatType_32BGRA`, …
  [[nodiscard]] std::uint32_t pixelFormatType() const { return pixelFormatType_; }
  /// One for BGRA, luma and chroma for the bi-planar formats.
  [[nodiscard]] const std::vector<PixelPlane>& planes() const { return planes_; }

  /// How the pixels are, or were, meant: the keys `kCVImageBuffer…`. Empty: unknown.
  [[nodiscard]] const SettingsDictionary& attachments() const { return attachments_; }
  void setAttachments(SettingsDictionary attachments) { attachments_ = std::move(attachments); }

 private:
  std::size_t width_;
  std::size_t height_;
  std::uint32_t pixelFormatType_;
  std::vector<PixelPlane> planes_;
  std::shared_ptr<const void> owner_;
  SettingsDictionary attachments_;
};

/// Called with the address of the pixels when their buffer goes.
using CVPixelBufferReleaseBytesCallback = std::function<void(const void* baseAddress)>;

/// Wraps the rows at `baseAddress` without copying them; the caller keeps them alive as long as the buffer, or what was
/// made of it, may look at them. Of one-plane formats only: `kCVPixelFormatType_32BGRA`. `releaseCallback` may be
/// empty; `pixelBufferAttributes` is not looked at. Null for another format, a size that is 0 or over 16,384, or rows
/// that are shorter than their pixels.
[[nodiscard]] CLIPWORKS_API std::shared_ptr<CVPixelBuffer> CVPixelBufferCreateWithBytes(
    std::size_t width, std::size_t height, std::uint32_t pixelFormatType, void* baseAddress, std::size_t bytesPerRow,
    CVPixelBufferReleaseBytesCallback releaseCallback, const SettingsDictionary& pixelBufferAttributes);

/// The same for bi-planar formats: the rows of luma, and those of both chromas side by side.
[[nodiscard]] CLIPWORKS_API std::shared_ptr<CVPixelBuffer> CVPixelBufferCreateWithPlanarBytes(
    std::size_t width, std::size_t height, std::uint32_t pixelFormatType, void* luma, std::size_t lumaBytesPerRow,
    void* chroma, std::size_t chromaBytesPerRow, CVPixelBufferReleaseBytesCallback releaseCallback);

}  // namespace clipworks
