#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/SettingsDictionary.h>

namespace clipworks {

namespace engine {
struct StillImage;
}

/// A still picture. Immutable; share it freely between threads. One that comes from a video keeps the video's own
/// pixels, and is converted only when someone asks for others.
class CLIPWORKS_API CGImage {
 public:
  /// From rows of 32-bit pixels in the order blue, green, red, alpha (ignored), taken as sRGB. `bytesPerRow` may be
  /// larger than four times the width. The bytes are copied. Null when a size is below 1 or over 16,384.
  [[nodiscard]] static std::shared_ptr<const CGImage> make(std::size_t width, std::size_t height,
                                                           const std::uint8_t* bgra, std::size_t bytesPerRow);
  /// From a picture of the engine. Within the platform only.
  explicit CGImage(std::shared_ptr<const engine::StillImage> still);

  /// In pixels.
  [[nodiscard]] std::size_t width() const;
  /// In pixels.
  [[nodiscard]] std::size_t height() const;
  /// Of what `copyData` gives: four bytes a pixel, without padding.
  [[nodiscard]] std::size_t bytesPerRow() const;

  /// The pixels as rows of blue, green, red, alpha (255), by the picture's own matrix and range, from top to bottom.
  /// Fast, in integers: within two levels of the exact value. From any thread.
  [[nodiscard]] std::vector<std::uint8_t> copyData() const;

  /// By which matrix and range `copyData` makes the pixels of the video's, and what its colours mean: the keys
  /// `kCVImageBuffer…`, for a pixel buffer of them that shall become video again. Empty when there was no video.
  [[nodiscard]] SettingsDictionary colorAttachments() const;

  /// The engine's picture. Within the platform only.
  [[nodiscard]] const std::shared_ptr<const engine::StillImage>& still() const { return still_; }

 private:
  std::shared_ptr<const engine::StillImage> still_;
};

}  // namespace clipworks
