#include <clipworks/engine/Thread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <latch>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include <clipworks/engine/Processors.h>

namespace clipworks::engine {
namespace {

constexpr int mostTries = 10;
constexpr std::chrono::milliseconds betweenTries{1};

/// Blocks this thread's signals, so that threads made meanwhile leave them to the host's; not those that a thread
/// causes itself.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t most;
    sigfillset(&most);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT, SIGPROF}) sigdelset(&most, own);
    pthread_sigmask(SIG_SETMASK, &most, &former_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t former_{};
};

struct Beginning {
  std::function<void()> work;
  const char* name;
};

void* threadMain(void* beginning) noexcept {
  const std::unique_ptr<Beginning> own(static_cast<Beginning*>(beginning));
  pthread_setname_np(pthread_self(), own->name);  // else it would have that of the thread that made it
  own->work();
  return nullptr;
}

/// 0 or a value of errno.
int create(pthread_t& handle, Beginning& beginning, std::size_t stackSize) {
  pthread_attr_t attributes;
  if (const int code = pthread_attr_init(&attributes); code != 0) return code;
  if (stackSize != 0) pthread_attr_setstacksize(&attributes, stackSize);
  const SignalsBlocked signalsBlocked;
  const int code = pthread_create(&handle, &attributes, &threadMain, &beginning);
  pthread_attr_destroy(&attributes);
  return code;
}

}  // namespace

Expected<Thread> Thread::start(std::function<void()> work, const ThreadManner& manner) {
  std::unique_ptr<Beginning> beginning(new (std::nothrow) Beginning{std::move(work), manner.name});
  if (beginning == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a thread");
  Thread thread;
  int code = create(thread.handle_, *beginning, manner.stackSize);
  for (int tries = 1; code == EAGAIN && manner.isPatient && tries < mostTries; ++tries) {
    std::this_thread::sleep_for(betweenTries);
    code = create(thread.handle_, *beginning, manner.stackSize);
  }
  if (code != 0) return failed(ErrorKind::noThreads, "the system allows no more threads", code);
  (void)beginning.release();  // the thread owns it now
  thread.isJoinable_ = true;
  return thread;
}

Thread::Thread(Thread&& other) noexcept
    : handle_(other.handle_), isJoinable_(std::exchange(other.isJoinable_, false)) {}

Thread& Thread::operator=(Thread&& other) noexcept {
  join();
  handle_ = other.handle_;
  isJoinable_ = std::exchange(other.isJoinable_, false);
  return *this;
}

void Thread::join() {
  if (std::exchange(isJoinable_, false)) pthread_join(handle_, nullptr);
}

void Thread::detach() {
  if (std::exchange(isJoinable_, false)) pthread_detach(handle_);
}

namespace {

/// Fails where the system would not allow `count` more threads at once.
Expected<void> requireThreads(unsigned count) {
  constexpr std::size_t smallStack = 256U << 10U;
  std::latch end(1);
  std::vector<Thread> threads;  // joined before the latch goes
  threads.reserve(count);
  Expected<void> room;
  for (unsigned i = 0; i < count && room; ++i) {
    auto thread = Thread::start([&end] { end.wait(); }, {.stackSize = smallStack});
    if (thread) {
      threads.push_back(std::move(*thread));
    } else {
      room = tl::make_unexpected(thread.error());
    }
  }
  end.count_down();
  return room;
}

/// As many as an encoder of pictures makes at most, roughly: a pool for the processors, and frames coded side by side.
unsigned threadsOfAnEncoder(int threads) {
  constexpr unsigned others = 4;
  return 2 * static_cast<unsigned>(threads > 0 ? threads : usableProcessors()) + others;
}

using Clock = std::chrono::steady_clock;

struct Starts {
  std::shared_timed_mutex mutex;  // shared while one is under way
  std::atomic<bool> processEnds = false;
  std::atomic<Clock::time_point> last = Clock::time_point::min();  // when the last one was over
};

Starts& starts() {
  static auto& instance = *new Starts;  // never destroyed: threads may ask it until the very end of the process
  return instance;
}

/// Runs before the libraries are taken down. Later starts fail rather than wait, since somebody may wait for them.
void endStarts() {
  constexpr std::chrono::seconds mostPatience{3};  // for a large still
  constexpr std::chrono::milliseconds firstSteps{50};
  starts().processEnds = true;
  { const std::unique_lock underWay(starts().mutex, mostPatience); }
  if (const auto last = starts().last.load(); last != Clock::time_point::min()) {
    std::this_thread::sleep_until(last + firstSteps);
  }
}

// When the library is loaded, after those below it: it runs before they are taken down, also where the very first start
// comes while the process ends.
const bool isRegistered = std::atexit(endStarts) == 0;

}  // namespace

Expected<EncoderStart> EncoderStart::begin(int threads) {
  std::shared_lock lock(starts().mutex);
  if (!isRegistered || starts().processEnds) return failed(ErrorKind::cancelled, "the process is ending");
  if (auto room = requireThreads(threadsOfAnEncoder(threads)); !room) return tl::make_unexpected(room.error());
  return EncoderStart(std::move(lock));
}

EncoderStart::~EncoderStart() {
  if (lock_.owns_lock()) starts().last = Clock::now();
}

}  // namespace clipworks::engine
