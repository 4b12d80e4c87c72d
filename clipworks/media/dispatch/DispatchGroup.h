#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/dispatch/DispatchQueue.h>

namespace clipworks {

/// Counts work that is under way and tells when none is left. Any thread. Those who have work under way hold the
/// group; when the last of them lets it go without leaving, its notifications simply vanish.
class CLIPWORKS_API DispatchGroup {
 public:
  /// `DispatchGroup()`: empty.
  [[nodiscard]] static std::shared_ptr<DispatchGroup> make();

  DispatchGroup(const DispatchGroup&) = delete;
  DispatchGroup& operator=(const DispatchGroup&) = delete;

  /// One more is under way.
  void enter();

  /// One is done. When it was the last one, the notifications are added to their queues, in the order given. Leaving
  /// more often than entering is a programming error that ends the process.
  void leave();

  /// `notify(queue:execute:)`: adds `work` to `queue` once none is under way, at once when none is.
  void notify(const DispatchQueue& queue, DispatchQueue::Work execute);

  /// Blocks until none is under way.
  void wait();
  /// The same, for `timeout` at most. False when it was over first.
  [[nodiscard]] bool wait(std::chrono::nanoseconds timeout);

 private:
  DispatchGroup() = default;
  bool waitUntil(std::chrono::steady_clock::time_point deadline);

  struct Notification {
    DispatchQueue queue;
    DispatchQueue::Work work;
  };

  std::mutex mutex_;
  std::condition_variable becameEmpty_;
  std::int64_t underWay_ = 0;                // guarded by mutex_
  std::uint64_t timesEmpty_ = 0;             // guarded by mutex_
  std::vector<Notification> notifications_;  // guarded by mutex_
};

}  // namespace clipworks
