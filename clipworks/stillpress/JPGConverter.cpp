#include <clipworks/stillpress/JPGConverter.h>

#include <clipworks/engine/stills/JPEGEncoder.h>
#include <clipworks/stillpress/EncodedStill.h>

namespace clipworks {

std::shared_ptr<JPGConverter> JPGConverter::make() { return std::shared_ptr<JPGConverter>(new JPGConverter()); }

Result<Data, ConverterError> JPGConverter::encode(const engine::StillImage& still) const {
  return encodedStill(engine::encodeJPEG(still));
}

}  // namespace clipworks
