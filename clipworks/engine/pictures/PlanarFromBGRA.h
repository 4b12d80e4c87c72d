#pragma once

#include <cstddef>
#include <cstdint>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/Colour.h>

namespace clipworks::engine {

/// Rows of blue, green, red, alpha (ignored) as planar 4:2:0 with the matrix and range of `colour`, which the frame is
/// tagged with. Sizes are rounded up to even ones, the last column and row repeated. Luma is within half a level of the
/// exact value; chroma is that of the mean of each two by two pixels, so that pixels made by repeating chroma give it
/// back.
[[nodiscard]] Expected<Frame> planarFromBGRA(const std::uint8_t* bgra, std::ptrdiff_t bytesPerRow, int width,
                                             int height, const Colour& colour);

}  // namespace clipworks::engine
