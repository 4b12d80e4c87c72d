#pragma once

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// Code points of ITU-T H.273: how the numbers of a picture are meant. Always complete: see `completeColour`.
struct Colour {
  int primaries = 1;
  int transfer = 1;
  int matrix = 1;
  bool fullRange = false;
  friend bool operator==(const Colour&, const Colour&) = default;
};

/// The colour of `parameters`, what it does not say filled in as players do: BT.709 for high definition, BT.601 below.
[[nodiscard]] Colour completeColour(const AVCodecParameters& parameters);
/// The same for pictures of a size, of which `told` is known; the code point 2 stands for what is not.
[[nodiscard]] Colour completeColour(int width, int height, const Colour& told);
/// Writes it on `parameters` where they tell nothing.
void completeTags(AVCodecParameters& parameters);
/// Whether a transfer characteristic is PQ (SMPTE ST 2084) or HLG (ARIB STD-B67).
[[nodiscard]] bool isHighDynamicRange(AVColorTransferCharacteristic transfer);
/// Of a decoded frame.
[[nodiscard]] Colour completeColour(const AVFrame& frame);
/// Writes `colour` on a frame.
void tag(AVFrame& frame, const Colour& colour);

}  // namespace clipworks::engine
