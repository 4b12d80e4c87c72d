#include <clipworks/stillpress/HEICConverter.h>

#include <clipworks/engine/stills/HEICEncoder.h>
#include <clipworks/stillpress/EncodedStill.h>

namespace clipworks {

std::shared_ptr<HEICConverter> HEICConverter::make() { return std::shared_ptr<HEICConverter>(new HEICConverter()); }

Result<Data, ConverterError> HEICConverter::encode(const engine::StillImage& still) const {
  return encodedStill(engine::encodeHEIC(still));
}

}  // namespace clipworks
