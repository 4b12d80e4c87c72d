#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include <clipworks/media/base/Export.h>

namespace clipworks {

class DispatchQueue;

/// The main queue: `DispatchQueue::main()`. Most operations report their results on it. It has no thread of its own;
/// it belongs to the host, which pumps it. **No pump, no result:** work waits, for ever if need be, until the host
/// does one of these:
/// - calls `run()` on its main thread, or `runOne(…)` again and again;
/// - watches `fileDescriptor()` in an event loop of its own, and calls `drain()` whenever it is readable;
/// - gives its own executor with `setExecutor(…)`.
/// Work runs one item at a time in the order given, as long as one thread pumps. `async`, `stop`, `fileDescriptor` and
/// `setExecutor` may be called on any thread. An exception that escapes an item ends the process with a sentence.
class CLIPWORKS_API DispatchMainQueue {
 public:
  /// An item of work.
  using Work = std::function<void()>;
  /// What runs items for a host that has an event loop of its own.
  using Executor = std::function<void(Work work)>;

  DispatchMainQueue(const DispatchMainQueue&) = delete;
  DispatchMainQueue& operator=(const DispatchMainQueue&) = delete;

  /// Adds an item and returns at once. The item is destroyed right after it ran, on the thread that ran it. An empty
  /// one is a programming error that ends the process.
  void async(Work work);

  /// Runs items on this thread, and waits for more, until `stop()`.
  void run();

  /// Makes the innermost `run()` return after the item that it is running; when none is, the next one returns at once.
  void stop();

  /// Runs the next item, waiting for it until `deadline`. False when none came. It pays no heed to `stop()`.
  bool runOne(std::chrono::steady_clock::time_point deadline);
  /// The same with the longest time to wait; zero or less does not wait.
  bool runOne(std::chrono::nanoseconds timeout);

  /// Runs the items that wait now, without waiting; those that they add stay for the next call. How many they were.
  std::size_t drain();

  /// A descriptor that is readable as long as items wait, for `poll` or `select`; never read from it or close it. −1
  /// when the system has none left.
  [[nodiscard]] int fileDescriptor();

  /// Hands every item to `executor` from now on, the waiting ones first, on the thread that calls `async` or this
  /// function; an empty executor restores the queue. The executor runs each item once, in the order given, when and
  /// where it likes, also within the call; it must not throw.
  void setExecutor(Executor executor);

 private:
  friend class DispatchQueue;

  DispatchMainQueue();
  ~DispatchMainQueue();  // never runs: work may come until the very end of the process

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace clipworks
