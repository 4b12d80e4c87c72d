#include <clipworks/narration/ExportQuality.h>

namespace clipworks {

std::string_view rawValue(ExportQuality quality) {
  switch (quality) {
    case ExportQuality::low:
      return "low";
    case ExportQuality::highCompressed:
      return "highCompressed";
    case ExportQuality::highLossless:
      return "highLossless";
  }
  return "";
}

std::optional<ExportQuality> exportQuality(std::string_view rawValue) {
  for (const auto quality : {ExportQuality::low, ExportQuality::highCompressed, ExportQuality::highLossless}) {
    if (rawValue == clipworks::rawValue(quality)) return quality;
  }
  return std::nullopt;
}

}  // namespace clipworks
