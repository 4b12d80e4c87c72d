#pragma once

#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>

#include <app/Interruption.h>

namespace clipworks::app {

/// Ctrl-C, and what else asks the process to end (SIGINT, SIGTERM, SIGHUP). Until `defer()` the first signal ends the
/// process at once with `ExitCode::interrupted`: there is nothing to undo. After it, the first one is only noted and
/// the main queue woken, so that whoever pumps it can cancel and clean up. A second one always ends the process at
/// once, whatever its threads are doing.
///
/// One a process, made before any other thread, since threads inherit which signals are blocked.
class SignalInterruption final : public Interruption {
 public:
  /// `onImmediateEnd` is called before the process ends at once at the first signal, on a thread of this object.
  explicit SignalInterruption(std::function<void()> onImmediateEnd);
  ~SignalInterruption() override;

  void defer() override;
  [[nodiscard]] bool isRequested() override { return stop_.stop_requested(); }
  [[nodiscard]] std::stop_token token() const override { return stop_.get_token(); }
  [[nodiscard]] bool endsProcess() const override { return true; }

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
