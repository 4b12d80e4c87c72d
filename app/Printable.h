#pragma once

#include <string>
#include <string_view>

namespace clipworks::app {

/// `text` on one line, safe for a terminal: control characters become spaces.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace clipworks::app
