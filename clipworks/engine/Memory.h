#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace clipworks::engine {

/// How many bytes of memory this process and its children may take now, without swapping: what the system has available
/// (`MemAvailable` of /proc/meminfo, proc(5)), and no more than the control groups of the process leave, which is their
/// limit without what they use, files apart that nobody holds. Version 2 of control groups says it in `memory.max`,
/// `memory.current` and `memory.stat`, version 1 in `memory.limit_in_bytes`, `memory.usage_in_bytes` and `memory.stat`
/// (Linux, Documentation/admin-guide/cgroup-v2.rst and cgroup-v1/memory.rst). `root` holds `proc` and `sys`. 0 where
/// nothing is told. Any thread.
[[nodiscard]] std::int64_t usableMemory(const std::filesystem::path& root = "/");

/// Whether so many bytes could be had at once now; they are given back. Any thread.
[[nodiscard]] bool hasMemory(std::size_t bytes);

}  // namespace clipworks::engine
