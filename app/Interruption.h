#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

#include <app/Failure.h>

namespace clipworks::app {

/// Ctrl-C, and what else asks the process to end (SIGINT, SIGTERM, SIGHUP). Until `defer()` the first signal ends the
/// process at once with `ExitCode::interrupted`: there is nothing to undo. After it, the first one is only noted: work
/// ends by `token()`, and the main queue is woken for those who wait on it. A second one always ends the process at
/// once, whatever its threads are doing.
///
/// A time that is over is like the first signal, and ends the process by itself where the work does not soon.
///
/// One a process, made before any other thread, since threads inherit which signals are blocked.
class Interruption {
 public:
  /// `seconds` is the most that the work may take, from now on. `onImmediateEnd` is called before the process ends at
  /// once, on a thread of this object.
  Interruption(std::optional<double> seconds, std::function<void(const Failure&)> onImmediateEnd);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  /// From now on there is something to clean up.
  void defer();
  [[nodiscard]] bool isRequested() { return stop_.stop_requested(); }
  /// What ended the work.
  [[nodiscard]] Failure failure() const;
  [[nodiscard]] std::stop_token token() const { return stop_.get_token(); }

 private:
  void watch();
  void take();
  void endIfNothingBegan();

  const std::optional<double> seconds_;
  std::function<void(const Failure&)> onImmediateEnd_;
  std::atomic<bool> isTooLate_ = false;
  int signals_ = -1;  // readable when a signal came
  int end_ = -1;      // readable when this object goes
  std::stop_source stop_;
  std::mutex mutex_;
  bool isDeferred_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace clipworks::app
