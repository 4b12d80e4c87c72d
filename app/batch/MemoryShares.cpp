#include <app/batch/MemoryShares.h>

namespace clipworks::app {

bool MemoryShares::take(std::int64_t bytes, const std::stop_token& stop) {
  if (bytes > whole_) return false;
  std::unique_lock lock(mutex_);
  const std::uint64_t turn = nextTurn_++;
  const bool isMine = changed_.wait(lock, stop, [&] { return turn == served_ && bytes <= left_; });
  ++served_;  // also where it gives up: nobody is left then
  changed_.notify_all();
  if (!isMine) return false;
  left_ -= bytes;
  return true;
}

void MemoryShares::giveBack(std::int64_t bytes) {
  const std::lock_guard lock(mutex_);
  left_ += bytes;
  changed_.notify_all();
}

}  // namespace clipworks::app
