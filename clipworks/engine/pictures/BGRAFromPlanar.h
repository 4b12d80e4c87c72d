#pragma once

#include <cstddef>
#include <cstdint>

#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// Whether `fillBGRA` takes pictures of that kind: planar YUV of 8 bits, chroma as fine as luma or half as fine.
[[nodiscard]] bool canFillBGRA(AVPixelFormat format);

/// The picture as rows of blue, green, red and 255 at `bgra`, by a matrix (of ITU-T H.273) and range, with repeated
/// chroma; within one level of the exact value. `planarFromBGRA` undoes it.
void fillBGRA(const AVFrame& picture, int matrix, bool fullRange, std::uint8_t* bgra, std::ptrdiff_t bytesPerRow);

}  // namespace clipworks::engine
