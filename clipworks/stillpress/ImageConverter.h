#pragma once

#include <optional>
#include <utility>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/images/UIImage.h>
#include <clipworks/stillpress/Converter.h>

namespace clipworks {

namespace engine {
struct StillImage;
}

/// What the converters have in common: an image to set, and the work on the thread that calls `convert`, which returns
/// after `onComplete` has run. One thread at a time.
///
/// Files carry the date, the place and the device of the recording that the picture was taken from, as EXIF, unless
/// told otherwise; and say whose red, green and blue they mean, where that is not sRGB's.
class CLIPWORKS_API ImageConverter : public Converter {
 public:
  /// What is converted; nothing at first, which makes `convert` fail.
  [[nodiscard]] const std::optional<UIImage>& image() const { return image_; }
  void setImage(std::optional<UIImage> image) { image_ = std::move(image); }

  /// Whether the file tells of the recording; it does unless told otherwise.
  void setKeepsRecordingMetadata(bool keepsRecordingMetadata) { keepsMetadata_ = keepsRecordingMetadata; }

  void convert(const Completion& onComplete) final;

 protected:
  ImageConverter() = default;
  /// The format's encoder; may throw.
  [[nodiscard]] virtual Result<Data, ConverterError> encode(const engine::StillImage& still) const = 0;

 private:
  [[nodiscard]] Result<Data, ConverterError> converted() const;

  std::optional<UIImage> image_;
  bool keepsMetadata_ = true;
};

}  // namespace clipworks
