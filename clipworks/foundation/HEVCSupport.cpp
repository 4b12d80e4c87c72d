#include <clipworks/foundation/HEVCSupport.h>

#include <clipworks/media/export/EncoderAvailability.h>

namespace clipworks {
namespace {

constexpr unsigned hevcCode = 0x68766331;  // 'hvc1'

}  // namespace

bool HEVCSupport::hasHEVCHardwareEncoder() {
  static const bool available = VTCopySupportedPropertyDictionaryForEncoder(1920, 1080, hevcCode) == 0;
  return available;
}

}  // namespace clipworks
