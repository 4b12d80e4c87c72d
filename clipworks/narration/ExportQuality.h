#pragma once

#include <optional>
#include <string_view>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// At which quality a narrated video is exported.
enum class ExportQuality {
  /// Small: H.264 within 480 × 480.
  low,
  /// The highest quality, HEVC where it can be encoded.
  highCompressed,
  /// The video's own coded pictures.
  highLossless,
};

/// `rawValue`: "low", "highCompressed" or "highLossless".
[[nodiscard]] CLIPWORKS_API std::string_view rawValue(ExportQuality quality);
/// `ExportQuality(rawValue:)`. Nothing for any other text.
[[nodiscard]] CLIPWORKS_API std::optional<ExportQuality> exportQuality(std::string_view rawValue);

}  // namespace clipworks
