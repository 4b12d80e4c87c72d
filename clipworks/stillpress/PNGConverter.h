#pragma once

#include <memory>
#include <string>

#include <clipworks/stillpress/ImageConverter.h>

namespace clipworks {

/// Makes PNG files of 8 bits a channel, without loss, for pictures of up to 16,384 pixels a side.
class CLIPWORKS_API PNGConverter final : public ImageConverter {
 public:
  /// `PNGConverter()`.
  [[nodiscard]] static std::shared_ptr<PNGConverter> make();

  /// "png".
  [[nodiscard]] std::string fileExtension() const override { return "png"; }

 private:
  PNGConverter() = default;
  [[nodiscard]] Result<Data, ConverterError> encode(const engine::StillImage& still) const override;
};

}  // namespace clipworks
