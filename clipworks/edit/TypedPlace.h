#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// A place in a clip as people type it: seconds (2.5), a clock (1:02.5, 00:01:02.500), or the number of a picture (#0
/// is the first).
using TypedPlace = std::variant<CMTime, std::uint64_t>;

/// The place, exactly as it was typed, to the billionth of a second; nothing for anything else. Any thread.
[[nodiscard]] CLIPWORKS_API std::optional<TypedPlace> typedPlace(const std::string& text);

/// When `place` is: for a picture's number, when that picture comes on screen. Fails with `badArgument` where there is
/// no such picture, and as `pictureTimes` does. Any thread.
[[nodiscard]] CLIPWORKS_API Result<CMTime, Error> timeOfPlace(const Edit& edit, const TypedPlace& place);

}  // namespace clipworks
