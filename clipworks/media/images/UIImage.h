#pragma once

#include <memory>
#include <utility>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/geometry/CGSize.h>
#include <clipworks/media/images/CGImage.h>

namespace clipworks {

/// A picture to show or to save, upright as it is. A value that shares its pixels.
class CLIPWORKS_API UIImage {
 public:
  /// `UIImage(cgImage:)`.
  explicit UIImage(std::shared_ptr<const CGImage> cgImage) : cgImage_(std::move(cgImage)) {}

  /// The pixels; null when it was made from none.
  [[nodiscard]] const std::shared_ptr<const CGImage>& cgImage() const { return cgImage_; }
  /// In pixels; zero without pixels.
  [[nodiscard]] CGSize size() const {
    if (cgImage_ == nullptr) return {};
    return {static_cast<double>(cgImage_->width()), static_cast<double>(cgImage_->height())};
  }

 private:
  std::shared_ptr<const CGImage> cgImage_;
};

}  // namespace clipworks
