#pragma once

#include <string>
#include <utility>
#include <vector>

namespace clipworks::engine {

/// The libraries that read, draw and write media, and the versions that are loaded.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> libraryVersions();

}  // namespace clipworks::engine
