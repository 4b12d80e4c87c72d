#include <clipworks/media/samples/AVAssetWriterInputPixelBufferAdaptor.h>

#include <utility>

namespace clipworks {

std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> AVAssetWriterInputPixelBufferAdaptor::make(
    std::shared_ptr<AVAssetWriterInput> assetWriterInput, const SettingsDictionary& /*sourcePixelBufferAttributes*/) {
  return std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor>(
      new AVAssetWriterInputPixelBufferAdaptor(std::move(assetWriterInput)));
}

bool AVAssetWriterInputPixelBufferAdaptor::append(const std::shared_ptr<CVPixelBuffer>& pixelBuffer,
                                                  const CMTime& withPresentationTime) {
  return pixelBuffer != nullptr && input_->append(*pixelBuffer, withPresentationTime);
}

}  // namespace clipworks
