#pragma once

#include <cstddef>
#include <functional>
#include <shared_mutex>
#include <utility>

#include <pthread.h>

#include <clipworks/engine/Error.h>

namespace clipworks::engine {

/// How a thread is made.
struct ThreadManner {
  const char* name = "clipworks";  ///< up to 15 characters
  std::size_t stackSize = 0;       ///< bytes; 0: the system's usual size
  /// Whether some milliseconds are waited when the system is at its limit, since a thread that has just ended counts a
  /// moment longer.
  bool isPatient = true;
};

/// A thread. The only place of the library that makes one: where the system allows no more of them, that is a failure
/// like any other, with a sentence. The host's signals stay with the host's threads.
class Thread {
 public:
  /// Fails with `noThreads` or `outOfMemory`; `work` is destroyed then without having run. It must not throw, and is
  /// destroyed on the thread.
  [[nodiscard]] static Expected<Thread> start(std::function<void()> work, const ThreadManner& manner = {});
  Thread() = default;
  Thread(Thread&& other) noexcept;
  Thread& operator=(Thread&& other) noexcept;
  /// Waits for its end.
  ~Thread() { join(); }

  /// Waits for its end; nothing happens when it was joined, detached or never started.
  void join();
  /// Lets it run on by itself.
  void detach();
  [[nodiscard]] bool isJoinable() const { return isJoinable_; }

 private:
  pthread_t handle_{};
  bool isJoinable_ = false;
};

/// Held while an encoder's library makes threads of its own, and does not get on without them: the HEVC encoder waits
/// for ever for those that it could not make, and its threads do not survive their first steps once the libraries below
/// it are taken down at the end of the process. So it starts only where there is room for them, and the end of the
/// process waits for starts that are under way.
class EncoderStart {
 public:
  /// For an encoder that is told to have `threads` threads; 0: none, so that it goes by the processors. Fails with
  /// `noThreads` where the system would not allow enough of them, with `cancelled` when the process ends.
  [[nodiscard]] static Expected<EncoderStart> begin(int threads);
  EncoderStart(EncoderStart&&) noexcept = default;
  EncoderStart& operator=(EncoderStart&&) = delete;
  ~EncoderStart();

 private:
  explicit EncoderStart(std::shared_lock<std::shared_timed_mutex> lock) : lock_(std::move(lock)) {}
  std::shared_lock<std::shared_timed_mutex> lock_;
};

}  // namespace clipworks::engine
