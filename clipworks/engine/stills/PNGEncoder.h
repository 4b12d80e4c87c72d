#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/pictures/StillImage.h>

namespace clipworks::engine {

/// A PNG file of 8-bit RGB; what is read back is exactly `planarRGB` with interpolated chroma, and the same picture
/// gives the same bytes. zlib's level 3 on averaged neighbours: within 1 % of the size that level 6 and a free choice
/// of filters give on grainy pictures (a quarter above it on flat ones), in a quarter of the time, which `threads`
/// threads share, see `deflatedRows`. Tagged sRGB with the matching gAMA and cHRM chunks, or with an ICC profile for
/// wider primaries. Recording facts go into an eXIf chunk. Fails as `encodeJPEG` does, or with `outOfMemory`.
[[nodiscard]] Expected<std::vector<std::uint8_t>> encodePNG(const StillImage& still, int threads = 0);

}  // namespace clipworks::engine
