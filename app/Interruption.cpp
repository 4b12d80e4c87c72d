#include <app/Interruption.h>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include <clipworks/media/dispatch/DispatchQueue.h>

namespace clipworks::app {
namespace {

constexpr int exitCode = static_cast<int>(ExitCode::interrupted);

// What is asked to stop does so within a tenth of a second, but on a machine that does something else.
constexpr double graceSeconds = 5;

using Clock = std::chrono::steady_clock;

/// For poll(): until `seconds` after `start`; -1 for never.
int millisecondsUntil(Clock::time_point start, std::optional<double> seconds) {
  if (!seconds) return -1;
  const double left = *seconds - std::chrono::duration<double>(Clock::now() - start).count();
  return static_cast<int>(std::clamp(std::ceil(left * 1000), 0.0, static_cast<double>(INT_MAX)));
}

sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  return signals;
}

}  // namespace

Interruption::Interruption(std::optional<double> seconds, std::function<void(const Failure&)> onImmediateEnd)
    : seconds_(seconds), onImmediateEnd_(std::move(onImmediateEnd)) {
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

Failure Interruption::failure() const {
  if (!isTooLate_) return {ExitCode::interrupted, "interrupted"};
  return {ExitCode::limitReached, fmt::format("it takes longer than the {} s that --timeout allows", *seconds_)};
}

void Interruption::watch() {
  pollfd awaited[] = {{end_, POLLIN, 0}, {signals_, POLLIN, 0}};
  const auto start = Clock::now();
  int ready = 0;
  do {
    ready = ::poll(awaited, 2, millisecondsUntil(start, seconds_));
  } while (ready < 0 && errno == EINTR);
  if ((awaited[0].revents & POLLIN) != 0) return;
  isTooLate_ = ready == 0;
  take();
}

void Interruption::take() {
  signalfd_siginfo taken{};
  if (!isTooLate_) (void)!::read(signals_, &taken, sizeof taken);
  // The next one comes on this thread, as a plain signal: it needs no lock and waits for nobody.
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, [](int) { ::_exit(exitCode); });
  const sigset_t signals = endingSignals();
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  endIfNothingBegan();
  stop_.request_stop();
  DispatchQueue::main().async([] {});
  // Stays, with the signals unblocked, until this object goes.
  pollfd end = {end_, POLLIN, 0};
  const auto start = Clock::now();
  int ready = 0;
  do {
    ready = ::poll(&end, 1, isTooLate_ ? millisecondsUntil(start, graceSeconds) : -1);
  } while (ready < 0 && errno == EINTR);
  if (ready != 0) return;
  onImmediateEnd_(failure());
  ::_exit(static_cast<int>(failure().code));
}

void Interruption::endIfNothingBegan() {
  // Held to the end, so that nothing that would have to be undone is begun beside it.
  const std::lock_guard lock(mutex_);
  if (isDeferred_) return;
  onImmediateEnd_(failure());
  ::_exit(static_cast<int>(failure().code));
}

}  // namespace clipworks::app
