#pragma once

#include <functional>
#include <memory>
#include <string>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/dispatch/DispatchMainQueue.h>
#include <clipworks/media/dispatch/DispatchQoS.h>

namespace clipworks {

/// A queue of work items; a handle, cheap to copy, for any thread. Items start in the order in which they were added
/// and are destroyed right after they ran, on the thread that ran them. Work that was added runs even when no handle
/// is left. An exception that escapes an item ends the process with a sentence.
///
/// The end of the process waits for no item: those that still run or block then are cut off.
class CLIPWORKS_API DispatchQueue {
 public:
  /// An item of work.
  using Work = std::function<void()>;

  /// The host's queue. **No pump, no result:** see `DispatchMainQueue`.
  [[nodiscard]] static DispatchMainQueue& main();

  /// The concurrent queue. An item that blocks keeps no other from running: threads are made as they are needed, and
  /// end after some idle seconds. Blocking on `DispatchSemaphore` and `DispatchGroup` is noticed at once, any other
  /// blocking after some hundredths of a second; busy items share a number of threads that suits the processors.
  [[nodiscard]] static DispatchQueue global(DispatchQoS qos = DispatchQoS::default_);

  /// `DispatchQueue(label:)`: a serial queue, one item at a time, on the threads of the global queue.
  [[nodiscard]] static DispatchQueue make(std::string label);

  /// The main queue as a handle, for what takes any queue.
  DispatchQueue(DispatchMainQueue& main);  // NOLINT(google-explicit-constructor): it is a queue

  /// Adds an item and returns at once. An empty one is a programming error that ends the process. Where the system
  /// allows the process no thread at all, an item for the global queue, or a serial one, runs before this returns, on
  /// the calling thread: hold no lock that it needs.
  void async(Work work) const;

  /// For people: the label of a serial queue, or `main` or `global`.
  [[nodiscard]] const std::string& label() const;

 private:
  class Target;
  class MainTarget;
  class GlobalTarget;
  class SerialTarget;

  explicit DispatchQueue(std::shared_ptr<Target> target);

  std::shared_ptr<Target> target_;
};

}  // namespace clipworks
