#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include <clipworks/engine/Error.h>

namespace clipworks::engine {

/// Joins two stages of a pipeline, one thread each: the producer waits while `capacity` items are under way, the
/// consumer while there is none. Either side may end it: the producer with `finish()` or `fail()`, the consumer, or
/// whoever cancels, with `abandon()`.
template <class T>
class BoundedQueue {
 public:
  explicit BoundedQueue(std::size_t capacity) : capacity_(capacity) {}

  /// False when the consumer has gone: the producer then stops.
  [[nodiscard]] bool push(T item) {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [this] { return items_.size() < capacity_ || abandoned_; });
    if (abandoned_) return false;
    items_.push_back(std::move(item));
    ready_.notify_one();
    return true;
  }

  /// Whether `push` would return at once.
  [[nodiscard]] bool hasRoom() const {
    const std::lock_guard lock(mutex_);
    return items_.size() < capacity_ || abandoned_;
  }

  /// The next item; nothing at the end; the producer's failure after the items before it.
  [[nodiscard]] Expected<std::optional<T>> pop() {
    std::unique_lock lock(mutex_);
    ready_.wait(lock, [this] { return !items_.empty() || finished_ || abandoned_; });
    if (abandoned_) return failed(ErrorKind::cancelled, "cancelled");
    if (items_.empty()) {
      if (failure_) return tl::make_unexpected(*failure_);
      return std::nullopt;
    }
    std::optional<T> item(std::move(items_.front()));
    items_.pop_front();
    room_.notify_one();
    return item;
  }

  void finish() {
    const std::lock_guard lock(mutex_);
    finished_ = true;
    ready_.notify_all();
  }

  void fail(Error error) {
    const std::lock_guard lock(mutex_);
    failure_ = std::move(error);
    finished_ = true;
    ready_.notify_all();
  }

  /// Drops what is under way and releases both sides. From any thread.
  void abandon() {
    const std::lock_guard lock(mutex_);
    abandoned_ = true;
    items_.clear();
    room_.notify_all();
    ready_.notify_all();
  }

 private:
  const std::size_t capacity_;
  mutable std::mutex mutex_;
  std::condition_variable room_;
  std::condition_variable ready_;
  std::deque<T> items_;           // guarded by mutex_
  std::optional<Error> failure_;  // guarded by mutex_
  bool finished_ = false;         // guarded by mutex_
  bool abandoned_ = false;        // guarded by mutex_
};

}  // namespace clipworks::engine
