#include <clipworks/media/dispatch/DispatchMainQueue.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/dispatch/WorkItem.h>

namespace clipworks {

struct DispatchMainQueue::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Work> items;                    // guarded by mutex, like all below
  std::shared_ptr<const Executor> executor;  ///< null while the queue keeps its items itself
  bool stopIsAsked = false;
  int descriptor = -1;  ///< made when it is asked for
  bool descriptorIsReadable = false;

  // Both are called with the mutex held.

  Work takeFirst() {
    Work work = std::move(items.front());
    items.pop_front();
    updateDescriptor();
    return work;
  }

  void updateDescriptor() {
    if (descriptor < 0 || descriptorIsReadable == !items.empty()) return;
    std::uint64_t count = 1;
    const ssize_t moved =
        items.empty() ? read(descriptor, &count, sizeof count) : write(descriptor, &count, sizeof count);
    if (moved == static_cast<ssize_t>(sizeof count)) descriptorIsReadable = !items.empty();
  }
};

namespace {

/// Gives an item to the host's executor, in a wrapper that runs it with the rules of a queue.
void handOver(DispatchMainQueue::Work work, const DispatchMainQueue::Executor& executor) noexcept {
  try {
    auto item = std::make_shared<DispatchMainQueue::Work>(std::move(work));
    executor([item = std::move(item)] { runWorkItem(std::exchange(*item, nullptr)); });
  } catch (...) {
    fatalError("no exception may escape the executor of the main queue, but one did");
  }
}

}  // namespace

DispatchMainQueue::DispatchMainQueue() : state_(std::make_unique<State>()) {}

DispatchMainQueue::~DispatchMainQueue() = default;

void DispatchMainQueue::async(Work work) {
  requireWork(work);
  std::unique_lock lock(state_->mutex);
  if (const auto executor = state_->executor) {
    lock.unlock();  // it may run the item at once, and the item may add more
    handOver(std::move(work), *executor);
    return;
  }
  state_->items.push_back(std::move(work));
  state_->updateDescriptor();
  state_->changed.notify_one();
}

void DispatchMainQueue::run() {
  while (true) {
    std::unique_lock lock(state_->mutex);
    state_->changed.wait(lock, [this] { return state_->stopIsAsked || !state_->items.empty(); });
    if (std::exchange(state_->stopIsAsked, false)) return;
    Work work = state_->takeFirst();
    lock.unlock();
    runWorkItem(std::move(work));
  }
}

void DispatchMainQueue::stop() {
  const std::lock_guard lock(state_->mutex);
  state_->stopIsAsked = true;
  state_->changed.notify_all();
}

bool DispatchMainQueue::runOne(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(state_->mutex);
  if (!state_->changed.wait_until(lock, deadline, [this] { return !state_->items.empty(); })) return false;
  Work work = state_->takeFirst();
  lock.unlock();
  runWorkItem(std::move(work));
  return true;
}

bool DispatchMainQueue::runOne(std::chrono::nanoseconds timeout) { return runOne(deadlineAfter(timeout)); }

std::size_t DispatchMainQueue::drain() {
  std::unique_lock lock(state_->mutex);
  const std::size_t waiting = state_->items.size();
  std::size_t ran = 0;
  // An item may pump the queue itself, and so leave fewer.
  for (; ran < waiting && !state_->items.empty(); ++ran) {
    Work work = state_->takeFirst();
    lock.unlock();
    runWorkItem(std::move(work));
    lock.lock();
  }
  return ran;
}

int DispatchMainQueue::fileDescriptor() {
  const std::lock_guard lock(state_->mutex);
  if (state_->descriptor < 0) {
    state_->descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    state_->updateDescriptor();
  }
  return state_->descriptor;
}

void DispatchMainQueue::setExecutor(Executor executor) {
  const auto shared = executor ? std::make_shared<const Executor>(std::move(executor)) : nullptr;
  std::deque<Work> waiting;
  {
    const std::lock_guard lock(state_->mutex);
    state_->executor = shared;
    if (!shared) return;
    waiting.swap(state_->items);
    state_->updateDescriptor();
  }
  for (Work& work : waiting) handOver(std::move(work), *shared);
}

}  // namespace clipworks
