#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <clipworks/engine/output/SoundEncoder.h>
#include <clipworks/engine/output/VideoEncoder.h>

namespace clipworks {

/// What a preset, or a caller's explicit settings, ask of an export: the one place where presets are told apart.
struct ExportPreset {
  /// Pictures of just this many pixels, odd sides rounded up by the encoder.
  struct FixedSize {
    int width = 0;
    int height = 0;
    bool fills = false;  ///< what another shape makes stick out is cropped; else pictures are stretched
  };

  /// The codec of encoded pictures; nothing when they are only copied.
  std::optional<engine::VideoCodec> videoCodec;
  /// Whether coded pictures of that codec may be kept as they are.
  bool keepsCodedPictures = true;
  /// Whether pictures that are not shown may stay in the file, hidden, where those that are refer to them, and sound
  /// before and behind a cut.
  bool hidesPictures = true;
  /// The pictures fit in a square of this side, in pixels; 0 keeps their size.
  int largestSide = 0;
  /// Every picture is drawn upright onto one of this size; nothing leaves its own size and orientation.
  std::optional<FixedSize> fixedSize;
  /// Bits a second of pictures; 0 encodes at constant quality.
  std::int64_t videoBitRate = 0;
  /// Constant rate factor, and the library's preset: chosen by measuring, docs/adr/0004-quality-behind-highest.md.
  double quality = 0;
  const char* speed = "";
  /// Pictures from one that can be decoded by itself to the next, at most.
  int longestGroup = 300;
  /// Pictures a second, for the rate control; nothing measures them.
  std::optional<double> frameRate;
  /// Bits a second for each channel of sound.
  std::int64_t soundBitRatePerChannel = 96'000;
  /// Sound of just this kind; nothing leaves rate and channels to the sources.
  std::optional<engine::SoundEncoderSettings> fixedSound;
};

/// Nothing for a name that is none of the presets'.
[[nodiscard]] std::optional<ExportPreset> exportPreset(std::string_view presetName);

}  // namespace clipworks
