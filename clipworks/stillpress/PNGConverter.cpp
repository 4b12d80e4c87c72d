#include <clipworks/stillpress/PNGConverter.h>

#include <clipworks/engine/stills/PNGEncoder.h>
#include <clipworks/stillpress/EncodedStill.h>

namespace clipworks {

std::shared_ptr<PNGConverter> PNGConverter::make() { return std::shared_ptr<PNGConverter>(new PNGConverter()); }

Result<Data, ConverterError> PNGConverter::encode(const engine::StillImage& still) const {
  return encodedStill(engine::encodePNG(still));
}

}  // namespace clipworks
