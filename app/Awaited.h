#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include <clipworks/media/dispatch/DispatchQueue.h>

namespace clipworks::app {

/// What an operation will report through a completion closure, seen also when it never will: a closure that is
/// destroyed uncalled is noticed. Both wake the main queue. The closure may be copied, called and destroyed on any
/// thread.
template <class Value>
class Awaited {
 public:
  /// The closure for the operation; to be asked for once.
  [[nodiscard]] std::function<void(const Value&)> closure() {
    return [guard = std::make_shared<Guard>(state_)](const Value& value) { guard->state->end(value); };
  }

  /// Called, or gone uncalled.
  [[nodiscard]] bool isOver() const {
    const std::lock_guard lock(state_->mutex);
    return state_->isOver;
  }

  /// What it was called with; nothing when it is gone uncalled.
  [[nodiscard]] std::optional<Value> value() const {
    const std::lock_guard lock(state_->mutex);
    return state_->value;
  }

 private:
  struct State {
    std::mutex mutex;
    bool isOver = false;         // guarded by mutex
    std::optional<Value> value;  // guarded by mutex

    void end(std::optional<Value> reported) {
      {
        const std::lock_guard lock(mutex);
        if (isOver) return;
        isOver = true;
        value = std::move(reported);
      }
      DispatchQueue::main().async([] {});
    }
  };

  /// Lives as long as any copy of the closure.
  struct Guard {
    explicit Guard(std::shared_ptr<State> state_) : state(std::move(state_)) {}
    ~Guard() { state->end(std::nullopt); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    std::shared_ptr<State> state;
  };

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace clipworks::app
