#include <clipworks/stillpress/ImageConverter.h>

#include <exception>

#include <clipworks/engine/pictures/StillImage.h>

namespace clipworks {
void ImageConverter::convert(const Completion& onComplete) { onComplete(converted()); }

Result<Data, ConverterError> ImageConverter::converted() const {
  if (!image_ || image_->cgImage() == nullptr) {
    return failure(ConverterError(ConverterError::Code::noImage, "there is no image to convert"));
  }
  const auto& still = *image_->cgImage()->still();
  try {
    if (keepsMetadata_) return encode(still);
    return encode(engine::StillImage{engine::shareFrame(still.frame), {}, still.isDithered});
  } catch (const std::exception& error) {
    return failure(ConverterError(ConverterError::Code::encodingFailed,
                                  std::string("the picture cannot be encoded: ") + error.what()));
  }
}

}  // namespace clipworks
