#include <clipworks/media/dispatch/DispatchSemaphore.h>

#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/dispatch/GlobalWorkPool.h>
#include <clipworks/media/dispatch/WorkItem.h>

namespace clipworks {

std::shared_ptr<DispatchSemaphore> DispatchSemaphore::make(std::int64_t value) {
  if (value < 0) fatalError("a DispatchSemaphore cannot start below 0");
  return std::shared_ptr<DispatchSemaphore>(new DispatchSemaphore(value));
}

void DispatchSemaphore::wait() { waitUntil(std::chrono::steady_clock::time_point::max()); }

bool DispatchSemaphore::wait(std::chrono::nanoseconds timeout) { return waitUntil(deadlineAfter(timeout)); }

bool DispatchSemaphore::waitUntil(std::chrono::steady_clock::time_point deadline) {
  {
    const std::lock_guard lock(mutex_);
    if (count_ > 0) {
      --count_;
      return true;
    }
  }
  const GlobalWorkPool::BlockingScope blocking;
  std::unique_lock lock(mutex_);
  if (!wasSignaled_.wait_until(lock, deadline, [this] { return count_ > 0; })) return false;
  --count_;
  return true;
}

void DispatchSemaphore::signal() {
  const std::lock_guard lock(mutex_);
  ++count_;
  wasSignaled_.notify_one();
}

}  // namespace clipworks
