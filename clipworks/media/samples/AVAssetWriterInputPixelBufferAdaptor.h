#pragma once

#include <memory>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/samples/AVAssetWriterInput.h>
#include <clipworks/media/samples/CVPixelBuffer.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// Appends pictures that are no sample buffers to an input. Used like the input itself.
class CLIPWORKS_API AVAssetWriterInputPixelBufferAdaptor {
 public:
  /// `AVAssetWriterInputPixelBufferAdaptor(assetWriterInput:sourcePixelBufferAttributes:)`; the attributes are not
  /// looked at: every buffer says what it is.
  [[nodiscard]] static std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> make(
      std::shared_ptr<AVAssetWriterInput> assetWriterInput, const SettingsDictionary& sourcePixelBufferAttributes = {});

  /// `append(_:withPresentationTime:)`. The pixels are not looked at any more when it returns. False when the writer
  /// does not write (any more), or the buffer is null or cannot be written, which makes the writer fail.
  bool append(const std::shared_ptr<CVPixelBuffer>& pixelBuffer, const CMTime& withPresentationTime);

 private:
  explicit AVAssetWriterInputPixelBufferAdaptor(std::shared_ptr<AVAssetWriterInput> input) : input_(std::move(input)) {}
  std::shared_ptr<AVAssetWriterInput> input_;
};

}  // namespace clipworks
