#pragma once

#include <optional>
#include <string_view>

namespace clipworks::app {

/// A number written with digits, and nothing around it; no infinity.
[[nodiscard]] std::optional<double> parseNumber(std::string_view text);

}  // namespace clipworks::app
