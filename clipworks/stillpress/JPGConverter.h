#pragma once

#include <memory>
#include <string>

#include <clipworks/stillpress/ImageConverter.h>

namespace clipworks {

/// Makes JPEG files: quality 95 with chroma at full size, for pictures of up to 16,384 pixels a side.
class CLIPWORKS_API JPGConverter final : public ImageConverter {
 public:
  /// `JPGConverter()`.
  [[nodiscard]] static std::shared_ptr<JPGConverter> make();

  /// "jpg".
  [[nodiscard]] std::string fileExtension() const override { return "jpg"; }

 private:
  JPGConverter() = default;
  [[nodiscard]] Result<Data, ConverterError> encode(const engine::StillImage& still) const override;
};

}  // namespace clipworks
