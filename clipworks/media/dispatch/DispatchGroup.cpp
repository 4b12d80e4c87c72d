#include <clipworks/media/dispatch/DispatchGroup.h>

#include <utility>

#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/dispatch/GlobalWorkPool.h>
#include <clipworks/media/dispatch/WorkItem.h>

namespace clipworks {

std::shared_ptr<DispatchGroup> DispatchGroup::make() { return std::shared_ptr<DispatchGroup>(new DispatchGroup); }

void DispatchGroup::enter() {
  const std::lock_guard lock(mutex_);
  ++underWay_;
}

void DispatchGroup::leave() {
  std::vector<Notification> notifications;
  {
    const std::lock_guard lock(mutex_);
    if (underWay_ == 0) fatalError("a DispatchGroup may be left only as often as it was entered");
    if (--underWay_ > 0) return;
    ++timesEmpty_;
    becameEmpty_.notify_all();
    notifications.swap(notifications_);
  }
  for (Notification& notification : notifications) notification.queue.async(std::move(notification.work));
}

void DispatchGroup::notify(const DispatchQueue& queue, DispatchQueue::Work execute) {
  requireWork(execute);
  {
    const std::lock_guard lock(mutex_);
    if (underWay_ > 0) {
      notifications_.push_back({queue, std::move(execute)});
      return;
    }
  }
  queue.async(std::move(execute));
}

void DispatchGroup::wait() { waitUntil(std::chrono::steady_clock::time_point::max()); }

bool DispatchGroup::wait(std::chrono::nanoseconds timeout) { return waitUntil(deadlineAfter(timeout)); }

bool DispatchGroup::waitUntil(std::chrono::steady_clock::time_point deadline) {
  std::uint64_t before = 0;
  {
    const std::lock_guard lock(mutex_);
    if (underWay_ == 0) return true;
    before = timesEmpty_;
  }
  const GlobalWorkPool::BlockingScope blocking;
  std::unique_lock lock(mutex_);
  // Not the count itself: others may enter again before this thread gets to look.
  return becameEmpty_.wait_until(lock, deadline, [&] { return timesEmpty_ != before; });
}

}  // namespace clipworks
