#pragma once

#include <filesystem>

namespace clipworks::app {

/// Whether a file's name is one of a clip, by its ending, in letters of any size. What is in it is found by reading it.
[[nodiscard]] bool isClipName(const std::filesystem::path& file);

}  // namespace clipworks::app
