#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <clipworks/engine/output/VideoEncoder.h>

namespace clipworks {

/// What a preset asks of an export: the one place where presets are told apart.
struct ExportPreset {
  /// The codec of encoded pictures; nothing when they are only copied.
  std::optional<engine::VideoCodec> videoCodec;
  /// Whether coded pictures of that codec may be kept as they are.
  bool keepsCodedPictures = true;
  /// The pictures fit in a square of this side, in pixels; 0 keeps their size.
  int largestSide = 0;
  /// Bits a second of pictures; 0 encodes at constant quality.
  std::int64_t videoBitRate = 0;
  /// Constant rate factor, and the library's preset: chosen by measuring, docs/adr/0004-quality-behind-highest.md.
  double quality = 0;
  const char* speed = "";
  /// Bits a second for each channel of sound.
  std::int64_t soundBitRatePerChannel = 96'000;
};

/// Nothing for a name that is none of the presets'.
[[nodiscard]] std::optional<ExportPreset> exportPreset(std::string_view presetName);

}  // namespace clipworks
