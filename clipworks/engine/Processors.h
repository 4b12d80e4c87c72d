#pragma once

#include <filesystem>
#include <optional>

namespace clipworks::engine {

/// How many processors this process may use at once, 1 at least: those of its affinity, and no more than the quota of
/// its control groups comes to, rounded up. Read once. Any thread.
[[nodiscard]] int usableProcessors();

/// How many threads a coder shall have that may have `wanted`; for 0, as many as suit `usableProcessors`. What comes
/// out is 0, which lets the coder's library choose, where that finds the same: where the machine is all for this
/// process.
[[nodiscard]] int coderThreads(int wanted);

/// How many processors' time the control groups of this process leave it, the least along its path; nothing where there
/// is no quota. Version 2 of control groups says it in `cpu.max`, version 1 in `cpu.cfs_quota_us` and
/// `cpu.cfs_period_us` (Linux, Documentation/admin-guide/cgroup-v2.rst, and scheduler/sched-bwc.rst). `root` holds
/// `proc` and `sys`.
[[nodiscard]] std::optional<double> processorQuota(const std::filesystem::path& root = "/");

}  // namespace clipworks::engine
