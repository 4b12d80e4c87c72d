#pragma once

#include <string>

namespace clipworks::app {

/// What `--licenses` prints: our licence, and those of the libraries that the program runs on.
[[nodiscard]] std::string licenses();

}  // namespace clipworks::app
