#pragma once

#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>

namespace clipworks::app {

/// Ctrl-C, and what else asks the process to end (SIGINT, SIGTERM, SIGHUP). Until `defer()` the first signal ends the
/// process at once with `ExitCode::interrupted`: there is nothing to undo. After it, the first one is only noted: work
/// ends by `token()`, and the main queue is woken for those who wait on it. A second one always ends the process at
/// once, whatever its threads are doing.
///
/// One a process, made before any other thread, since threads inherit which signals are blocked.
class Interruption {
 public:
  /// `onImmediateEnd` is called before the process ends at once at the first signal, on a thread of this object.
  explicit Interruption(std::function<void()> onImmediateEnd);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  /// From now on there is something to clean up.
  void defer();
  [[nodiscard]] bool isRequested() { return stop_.stop_requested(); }
  [[nodiscard]] std::stop_token token() const { return stop_.get_token(); }

 private:
  void watch();
  void take();

  std::function<void()> onImmediateEnd_;
  int signals_ = -1;  // readable when a signal came
  int end_ = -1;      // readable when this object goes
  std::stop_source stop_;
  std::mutex mutex_;
  bool isDeferred_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace clipworks::app
