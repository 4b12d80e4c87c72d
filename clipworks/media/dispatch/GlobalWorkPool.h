#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <unordered_set>
#include <vector>

#include <sys/types.h>

namespace clipworks {

/// The threads behind the global queue. Items start in the order in which they were added.
///
/// As long as no more than `target_` threads are busy, a waiting item gets a thread at once. Beyond that it waits for
/// one, unless busy threads turn out to be blocked: those that block in a `BlockingScope` do not count as busy, and
/// when for a while no item was taken, a monitor thread asks the system which of the others are really running, and
/// adds threads. Idle threads end, the monitor too. Where the system refuses a thread, items wait for those that there
/// are; where there is none, the caller of `add` runs them.
///
/// There is one pool, which is never destroyed, and nobody joins its threads: items may block for ever.
class GlobalWorkPool {
 public:
  using Work = std::function<void()>;

  [[nodiscard]] static GlobalWorkPool& shared();

  GlobalWorkPool(const GlobalWorkPool&) = delete;
  GlobalWorkPool& operator=(const GlobalWorkPool&) = delete;

  /// Any thread.
  void add(Work work);

  /// While it lives, this thread is blocked; when it is one of the pool's, another may do its share. Not to be nested.
  class BlockingScope {
   public:
    BlockingScope();
    ~BlockingScope();
    BlockingScope(const BlockingScope&) = delete;
    BlockingScope& operator=(const BlockingScope&) = delete;
  };

 private:
  /// A thread of the pool; lives on its stack.
  struct Worker {
    pid_t thread;
    bool isBusy = false;
  };

  using ThreadMain = void (GlobalWorkPool::*)();

  GlobalWorkPool();

  void work();
  void monitor();
  void setBusy(Worker& worker, bool isBusy);

  // All of these are called with mutex_ held.
  [[nodiscard]] bool itemsLackThreads() const { return pending_.size() > idle_ + starting_; }
  void growToTarget();
  bool startWorker();
  void wakeMonitor();
  void growBy(std::size_t count);
  [[nodiscard]] std::vector<pid_t> busyThreads() const;

  [[nodiscard]] bool startThread(ThreadMain main);

  static thread_local Worker* ownWorker_;  ///< null on threads that are not the pool's

  const std::size_t target_;  ///< busy threads that suit the processors

  std::mutex mutex_;
  std::condition_variable workCame_;
  std::condition_variable monitorNeeded_;
  std::deque<Work> pending_;  // guarded by mutex_, like all below
  std::size_t idle_ = 0;      ///< threads that wait for items
  std::size_t starting_ = 0;  ///< threads that are made but have not come to look for items yet
  std::size_t busy_ = 0;      ///< threads that run an item and are not known to be blocked
  std::unordered_set<const Worker*> workers_;
  std::uint64_t itemsTaken_ = 0;  ///< from the beginning
  bool monitorLives_ = false;
};

}  // namespace clipworks
