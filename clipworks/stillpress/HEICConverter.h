#pragma once

#include <memory>
#include <string>

#include <clipworks/stillpress/ImageConverter.h>

namespace clipworks {

/// Makes HEIC files: one HEVC picture, visually transparent, 4:2:0. For pictures from 16 × 16 to 35,651,584 pixels and
/// 16,384 a side.
class CLIPWORKS_API HEICConverter final : public ImageConverter {
 public:
  /// `HEICConverter()`.
  [[nodiscard]] static std::shared_ptr<HEICConverter> make();

  /// "heic".
  [[nodiscard]] std::string fileExtension() const override { return "heic"; }

 private:
  HEICConverter() = default;
  [[nodiscard]] Result<Data, ConverterError> encode(const engine::StillImage& still) const override;
};

}  // namespace clipworks
