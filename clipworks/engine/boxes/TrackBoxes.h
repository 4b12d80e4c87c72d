#pragma once

#include <cstddef>
#include <span>

#include <clipworks/engine/boxes/MovieBoxes.h>

namespace clipworks::engine {

/// Reads the content of a `trak` box. What is missing or cut off keeps its default; a list that is cut off has the
/// entries that are there. Fails only with `tooLarge`, beyond a limit. May throw `std::bad_alloc`.
[[nodiscard]] Expected<MovieBoxes::Track> readTrack(std::span<const std::byte> trak);

}  // namespace clipworks::engine
