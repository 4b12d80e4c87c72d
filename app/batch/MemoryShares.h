#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stop_token>

namespace clipworks::app {

/// Memory that jobs beside each other share by what their plans say. Any thread.
class MemoryShares {
 public:
  /// Of so many bytes.
  explicit MemoryShares(std::int64_t whole) : whole_(whole), left_(whole) {}

  /// Takes a share, and waits until there is one, in the order of asking: what is large is not overtaken for ever.
  /// False where the whole is less, or after a request to stop.
  [[nodiscard]] bool take(std::int64_t bytes, const std::stop_token& stop);
  void giveBack(std::int64_t bytes);

 private:
  const std::int64_t whole_;
  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::int64_t left_;           // guarded by mutex_
  std::uint64_t nextTurn_ = 0;  // guarded by mutex_
  std::uint64_t served_ = 0;    // guarded by mutex_
};

}  // namespace clipworks::app
