#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include <clipworks/engine/boxes/MovieBoxes.h>

namespace clipworks::engine {

/// Finds the iTunSMPB item in the content of a `meta` box, written the standard's way or QuickTime's. Null when there
/// is none, or none that can be read.
[[nodiscard]] std::optional<MovieBoxes::GaplessInfo> findGaplessInfo(std::span<const std::byte> meta);

}  // namespace clipworks::engine
