#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include <clipworks/media/geometry/CGAffineTransform.h>

namespace clipworks {

/// A transform as the matrix of a track's header: a b u c d v x y w, in 16.16 and 2.30 (ISO/IEC 14496-12, 8.3.2).
/// Nothing for the identity, which is left out.
[[nodiscard]] std::optional<std::array<std::int32_t, 9>> trackMatrix(const CGAffineTransform& t);

}  // namespace clipworks
