#pragma once

#include <optional>
#include <string_view>

namespace clipworks::app {

/// A file of page/, which is part of the program.
struct PageFile {
  std::string_view type;
  std::string_view bytes;
};

/// By its name; the page itself for "".
[[nodiscard]] std::optional<PageFile> pageFile(std::string_view name);

}  // namespace clipworks::app
