#pragma once

#include <array>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// `picture` (8-bit 4:4:4) turned by x' = a·x + c·y, y' = b·x + d·y about its middle, onto the middle of a black picture
/// of `width` × `height`; `transform` is a b c d and can be inverted. Bilinear: for turns and shears, not for scaling
/// down.
[[nodiscard]] Expected<Frame> transformed(const Frame& picture, const std::array<double, 4>& transform, int width, int height);

}  // namespace clipworks::engine
