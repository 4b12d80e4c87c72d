#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include <clipworks/media/time/CMTime.h>

namespace clipworks::app {

/// A place in a clip as people type it: seconds (2.5), a clock (1:02.5, 00:01:02.500), or the number of a picture (#0
/// is the first).
using TypedPlace = std::variant<CMTime, std::uint64_t>;

/// The place, exactly as it was typed, to the billionth of a second; nothing for anything else.
[[nodiscard]] std::optional<TypedPlace> typedPlace(const std::string& text);

}  // namespace clipworks::app
