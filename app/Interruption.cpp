#include <app/Interruption.h>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <utility>

#include <app/Failure.h>
#include <clipworks/media/dispatch/DispatchQueue.h>

namespace clipworks::app {
namespace {

constexpr int exitCode = static_cast<int>(ExitCode::interrupted);

sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  return signals;
}

}  // namespace

Interruption::Interruption(std::function<void()> onImmediateEnd) : onImmediateEnd_(std::move(onImmediateEnd)) {
  // A reader of ours that goes away must not kill us between two files; the failed write is seen instead.
  std::signal(SIGPIPE, SIG_IGN);
  const sigset_t signals = endingSignals();
  signals_ = ::signalfd(-1, &signals, SFD_CLOEXEC);
  end_ = ::eventfd(0, EFD_CLOEXEC);
  // Without the descriptors the signals keep their default, which ends the process at once.
  if (signals_ < 0 || end_ < 0) return;
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  try {
    thread_ = std::thread([this] { watch(); });
  } catch (const std::system_error&) {  // the system allows no more threads: their default, too
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  }
}

Interruption::~Interruption() {
  if (thread_.joinable()) {
    const std::uint64_t one = 1;
    (void)!::write(end_, &one, sizeof one);
    thread_.join();
  }
  if (signals_ >= 0) ::close(signals_);
  if (end_ >= 0) ::close(end_);
}

void Interruption::defer() {
  const std::lock_guard lock(mutex_);
  isDeferred_ = true;
}

void Interruption::watch() {
  pollfd awaited[] = {{signals_, POLLIN, 0}, {end_, POLLIN, 0}};
  while (::poll(awaited, 2, -1) < 0 && errno == EINTR) {
  }
  if ((awaited[1].revents & POLLIN) == 0) take();
}

void Interruption::take() {
  signalfd_siginfo taken{};
  (void)!::read(signals_, &taken, sizeof taken);
  // The next one comes on this thread, as a plain signal: it needs no lock and waits for nobody.
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, [](int) { ::_exit(exitCode); });
  const sigset_t signals = endingSignals();
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);

  {
    // Held to the end, so that nothing that would have to be undone is begun beside it.
    const std::lock_guard lock(mutex_);
    if (!isDeferred_) {
      onImmediateEnd_();
      ::_exit(exitCode);
    }
  }
  stop_.request_stop();
  DispatchQueue::main().async([] {});
  // Stays, with the signals unblocked, until this object goes.
  pollfd end = {end_, POLLIN, 0};
  while (::poll(&end, 1, -1) < 0 && errno == EINTR) {
  }
}

}  // namespace clipworks::app
