#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
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

  /// Adds one to the count.
  void signal();

 private:
  explicit DispatchSemaphore(std::int64_t value) : count_(value) {}
  bool waitUntil(std::chrono::steady_clock::time_point deadline);

  std::mutex mutex_;
  std::condition_variable wasSignaled_;
  std::int64_t count_;  // guarded by mutex_
};

}  // namespace clipworks
