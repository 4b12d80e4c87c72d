#pragma once

#include <stop_token>

namespace clipworks::app {

/// Whether a command is asked to stop. Used by the thread that runs the command.
class Interruption {
 public:
  Interruption() = default;
  virtual ~Interruption() = default;
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  /// From now on there is something to clean up: a request is noted, and the command answers it.
  virtual void defer() = 0;
  [[nodiscard]] virtual bool isRequested() = 0;
  /// The same, for work that looks by itself.
  [[nodiscard]] virtual std::stop_token token() const = 0;
  /// Whether the process ends right after a command that was asked to stop, so that work which cannot be stopped need
  /// not be waited for.
  [[nodiscard]] virtual bool endsProcess() const = 0;
};

}  // namespace clipworks::app
