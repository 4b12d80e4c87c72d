#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// A frame of packed BGRA, tagged sRGB, with a copy of the rows at `bgra`.
[[nodiscard]] Expected<Frame> frameOfBGRA(int width, int height, const std::uint8_t* bgra, std::size_t bytesPerRow);

/// A still's pixels as rows of blue, green, red and 255, without padding, by the picture's own matrix and range, with
/// repeated chroma. (libyuv's 8-bit factors cannot hold blue's of BT.709 and are up to 12 levels off; ours have 16.)
/// Black when the picture is of a kind that stills do not have, or memory is out.
[[nodiscard]] std::vector<std::uint8_t> copyBGRA(const Frame& picture);

}  // namespace clipworks::engine
