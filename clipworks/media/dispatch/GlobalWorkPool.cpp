#include <clipworks/media/dispatch/GlobalWorkPool.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

#include <clipworks/engine/Processors.h>
#include <clipworks/engine/Thread.h>
#include <clipworks/media/dispatch/WorkItem.h>

namespace clipworks {

namespace {

constexpr auto idleTime = std::chrono::seconds(5);
/// The monitor looks this often while items wait.
constexpr auto monitorPeriod = std::chrono::milliseconds(10);
/// While enough threads are really running, one more helps only if they wait for what is not started yet, in a loop:
/// one thread in so many periods.
constexpr unsigned periodsPerThreadUnderLoad = 10;
constexpr std::size_t largestGrowth = 1024;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t stackSize = 8U << 20U;  // sanitizers make frames several times larger
#else
constexpr std::size_t stackSize = 1U << 20U;
#endif

/// How many of these threads of this process run or could run: those in the state `R` of proc(5). Stops counting at
/// `enough`. Threads that cannot be looked at count as blocked.
std::size_t countRunning(const std::vector<pid_t>& threads, std::size_t enough) {
  std::size_t running = 0;
  for (const pid_t thread : threads) {
    if (running == enough) break;
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(file, text);
    // The state follows the name, which is in parentheses and may hold anything.
    const std::size_t nameEnd = text.rfind(')');
    if (nameEnd != std::string::npos && text.compare(nameEnd, 3, ") R") == 0) ++running;
  }
  return running;
}

}  // namespace

GlobalWorkPool& GlobalWorkPool::shared() {
  static GlobalWorkPool& pool = *new GlobalWorkPool;
  return pool;
}

// Four at least: work that reads and writes files spends much of its time waiting.
GlobalWorkPool::GlobalWorkPool() : target_(static_cast<std::size_t>(std::max(4, engine::usableProcessors()))) {}

thread_local GlobalWorkPool::Worker* GlobalWorkPool::ownWorker_ = nullptr;

void GlobalWorkPool::add(Work work) {
  std::unique_lock lock(mutex_);
  pending_.push_back(std::move(work));
  if (idle_ > 0) workCame_.notify_one();
  growToTarget();
  // Where the system allows no thread at all, nobody else would ever run it.
  while (workers_.empty() && starting_ == 0 && !pending_.empty()) {
    Work item = std::move(pending_.front());
    pending_.pop_front();
    lock.unlock();
    runWorkItem(std::move(item));
    lock.lock();
  }
}

GlobalWorkPool::BlockingScope::BlockingScope() {
  if (ownWorker_ == nullptr) return;
  GlobalWorkPool& pool = shared();
  const std::lock_guard lock(pool.mutex_);
  pool.setBusy(*ownWorker_, false);
  pool.growToTarget();
}

GlobalWorkPool::BlockingScope::~BlockingScope() {
  if (ownWorker_ == nullptr) return;
  GlobalWorkPool& pool = shared();
  const std::lock_guard lock(pool.mutex_);
  pool.setBusy(*ownWorker_, true);
}

void GlobalWorkPool::setBusy(Worker& worker, bool isBusy) {
  worker.isBusy = isBusy;
  isBusy ? ++busy_ : --busy_;
}

void GlobalWorkPool::work() {
  Worker self{gettid()};
  ownWorker_ = &self;
  std::unique_lock lock(mutex_);
  --starting_;
  workers_.insert(&self);
  while (true) {
    ++idle_;
    const bool hasItem = workCame_.wait_for(lock, idleTime, [this] { return !pending_.empty(); });
    --idle_;
    if (!hasItem) break;
    Work item = std::move(pending_.front());
    pending_.pop_front();
    ++itemsTaken_;
    setBusy(self, true);
    lock.unlock();
    runWorkItem(std::move(item));
    lock.lock();
    setBusy(self, false);
  }
  workers_.erase(&self);
  ownWorker_ = nullptr;
}

void GlobalWorkPool::monitor() {
  std::unique_lock lock(mutex_);
  while (monitorNeeded_.wait_for(lock, idleTime, [this] { return itemsLackThreads(); })) {
    std::size_t growth = 1;
    unsigned periodsUnderLoad = 0;
    while (itemsLackThreads()) {
      const std::uint64_t takenBefore = itemsTaken_;
      lock.unlock();
      std::this_thread::sleep_for(monitorPeriod);
      lock.lock();
      if (itemsTaken_ != takenBefore) continue;
      const std::vector<pid_t> busy = busyThreads();
      lock.unlock();
      const bool isUnderLoad = countRunning(busy, target_) == target_;
      lock.lock();
      if (!isUnderLoad) {
        growBy(growth);
        growth = std::min(growth * 2, largestGrowth);
      } else if (++periodsUnderLoad % periodsPerThreadUnderLoad == 0) {
        growBy(1);
      }
    }
  }
  monitorLives_ = false;
}

void GlobalWorkPool::growToTarget() {
  while (itemsLackThreads() && busy_ + idle_ + starting_ < target_) {
    if (!startWorker()) break;
  }
  if (itemsLackThreads()) wakeMonitor();
}

void GlobalWorkPool::growBy(std::size_t count) {
  for (std::size_t i = 0; i < count && itemsLackThreads(); ++i) {
    if (!startWorker()) return;
  }
}

std::vector<pid_t> GlobalWorkPool::busyThreads() const {
  std::vector<pid_t> threads;
  for (const Worker* worker : workers_) {
    if (worker->isBusy) threads.push_back(worker->thread);
  }
  return threads;
}

bool GlobalWorkPool::startWorker() {
  // When the system has no thread left, the item waits for one of those there are, and the monitor tries again.
  if (!startThread(&GlobalWorkPool::work)) return false;
  ++starting_;
  return true;
}

void GlobalWorkPool::wakeMonitor() {
  if (monitorLives_) {
    monitorNeeded_.notify_one();
  } else {
    monitorLives_ = startThread(&GlobalWorkPool::monitor);
  }
}

bool GlobalWorkPool::startThread(ThreadMain main) {
  auto thread = engine::Thread::start([this, main] { (this->*main)(); },
                                      {.name = "clipworks-queue", .stackSize = stackSize, .isPatient = false});
  if (thread) thread->detach();
  return thread.has_value();
}

}  // namespace clipworks
