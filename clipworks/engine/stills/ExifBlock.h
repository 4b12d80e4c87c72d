#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/pictures/StillImage.h>

namespace clipworks::engine {

/// What stands before the block in a JPEG's APP1 marker (EXIF 2.32, 4.7.2).
inline constexpr std::array<std::uint8_t, 6> exifPrefix{'E', 'x', 'i', 'f', 0, 0};

/// An EXIF block (a TIFF structure, without the prefix) with the recording's date, place and device, and the picture's
/// size and colour space. Empty when the recording tells none of them. The same still gives the same bytes.
[[nodiscard]] Expected<std::vector<std::uint8_t>> exifBlock(const StillImage& still);

}  // namespace clipworks::engine
