#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// A counting semaphore. Any thread. Whoever waits or signals holds it, so it may be let go with any count, even while
/// items wait on it for ever.
class CLIPWORKS_API DispatchSemaphore {
 public:
  /// `DispatchSemaphore(value:)`: lets `value` waits through before the first signal. A negative value is a programming
  /// error that ends the process.
  [[nodiscard]] static std::shared_ptr<DispatchSemaphore> make(std::int64_t value);

  DispatchSemaphore(const DispatchSemaphore&) = delete;
  DispatchSemaphore& operator=(const DispatchSemaphore&) = delete;

  /// Takes one from the count, blocking while it is 0. Which of several blocked threads goes next is not defined.
  void wait();
  /// The same, blocking for `timeout` at most. False when it was over first; nothing is taken then.
  [[nodiscard]] bool wait(std::chrono::nanoseconds timeout);

  /// A wait that keeps no thread: `work` runs once one could be taken from the count, on this thread before this
  /// returns when there is one, else on the global queue. Blocked threads come first. While the count stays 0, the
  /// semaphore keeps `work`.
  void whenAvailable(std::function<void()> work);
  /// Whether work given to `whenAvailable` has not begun.
  [[nodiscard]] bool hasWaitingWork() const;

  /// Adds one to the count.
  void signal();

 private:
  explicit DispatchSemaphore(std::int64_t value) : count_(value) {}
  bool waitUntil(std::chrono::steady_clock::time_point deadline);

  mutable std::mutex mutex_;
  std::condition_variable wasSignaled_;
  std::int64_t count_;                         // guarded by mutex_, like all below
  std::int64_t blocked_ = 0;                   ///< threads in a wait
  std::deque<std::function<void()>> waiting_;  ///< works that wait for the count
};

}  // namespace clipworks
