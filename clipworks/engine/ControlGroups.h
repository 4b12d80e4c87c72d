#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace clipworks::engine {

/// The least of what the control groups (cgroups) of this process say, from its own up to the root; nothing where none
/// says anything. `controller` is "cpu" or "memory", by which version 1 mounts them; `told` reads one group's
/// directory. `root` holds `proc` and `sys`.
[[nodiscard]] std::optional<double> leastOfControlGroups(
    const std::filesystem::path& root, const std::string& controller,
    const std::function<std::optional<double>(const std::filesystem::path& group)>& told);

/// The first word of a file; empty where it cannot be read.
[[nodiscard]] std::string firstWordIn(const std::filesystem::path& file);

}  // namespace clipworks::engine
