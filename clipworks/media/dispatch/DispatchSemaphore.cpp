#include <clipworks/media/dispatch/DispatchSemaphore.h>

#include <utility>

#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
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
  ++blocked_;
  const bool isAvailable = wasSignaled_.wait_until(lock, deadline, [this] { return count_ > 0; });
  --blocked_;
  if (isAvailable) --count_;
  return isAvailable;
}

void DispatchSemaphore::whenAvailable(std::function<void()> work) {
  requireWork(work);
  {
    const std::lock_guard lock(mutex_);
    if (count_ == 0) return waiting_.push_back(std::move(work));
    --count_;
  }
  runWorkItem(std::move(work));
}

bool DispatchSemaphore::hasWaitingWork() const {
  const std::lock_guard lock(mutex_);
  return !waiting_.empty();
}

void DispatchSemaphore::signal() {
  std::unique_lock lock(mutex_);
  if (waiting_.empty() || count_ < blocked_) {
    ++count_;
    wasSignaled_.notify_one();
    return;
  }
  auto work = std::move(waiting_.front());
  waiting_.pop_front();
  lock.unlock();
  DispatchQueue::global().async(std::move(work));
}

}  // namespace clipworks
