#include <clipworks/stillpress/EncodedStill.h>

#include <utility>

namespace clipworks {

Result<Data, ConverterError> encodedStill(engine::Expected<std::vector<std::uint8_t>> bytes) {
  if (bytes) return Data(std::move(*bytes));
  const engine::ErrorKind kind = bytes.error().kind;
  const bool isImage = kind == engine::ErrorKind::tooLarge || kind == engine::ErrorKind::unsupported;
  return failure(ConverterError(isImage ? ConverterError::Code::unsupportedImage : ConverterError::Code::encodingFailed,
                                bytes.error().sentence));
}

}  // namespace clipworks
