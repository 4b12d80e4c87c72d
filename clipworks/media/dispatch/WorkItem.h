#pragma once

#include <chrono>
#include <functional>

namespace clipworks {

/// Ends the process when `work` is empty: the caller of an `async` broke its rule.
void requireWork(const std::function<void()>& work) noexcept;

/// Runs an item and destroys it, on this thread. Ends the process with a sentence when an exception escapes it.
void runWorkItem(std::function<void()> work) noexcept;

/// Now and `timeout` more, or the end of time where that is later still.
[[nodiscard]] std::chrono::steady_clock::time_point deadlineAfter(std::chrono::nanoseconds timeout);

}  // namespace clipworks
