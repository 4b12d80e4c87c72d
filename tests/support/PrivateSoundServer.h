#pragma once

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>

#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {

/// A PulseAudio server of its own, without hardware: its one microphone gives what this object feeds it, silence with a
/// short burst of sound twice a second, at the pace of the clock. Asked for, it is not necessarily there: see
/// `isRunning()`. For one thread.
class PrivateSoundServer {
 public:
  using Clock = std::chrono::steady_clock;

  PrivateSoundServer() {
    std::signal(SIGPIPE, SIG_IGN);  // feeding a server that was killed
    const auto script = directory_.file("server.pa");
    const auto microphone = directory_.file("microphone");
    // The loopback keeps the microphone running as hardware does: idle, it would leave old sound in the pipe.
    std::ofstream(script)
        << "load-module module-native-protocol-unix auth-anonymous=1 socket=" << directory_.file("native").string()
        << "\nload-module module-pipe-source source_name=microphone format=s16le rate=44100 channels=2 file="
        << microphone.string()
        << "\nload-module module-null-sink sink_name=nowhere\n"
           "load-module module-loopback source=microphone sink=nowhere\n"
           "set-default-source microphone\n";
    server_ = std::make_unique<RunningProgram>(
        std::vector<std::string>{"pulseaudio", "-n", "-F", script, "--system=false", "--daemonize=no",
                                 "--use-pid-file=no", "--exit-idle-time=-1", "--realtime=no", "--high-priority=no",
                                 "--log-target=stderr", "--log-level=info"},
        ProgramOptions{.deadline = std::chrono::minutes(5), .environment = environment()});
    const bool isUp = server_->waitForText("Daemon startup complete");
    microphone_ = isUp ? ::open(microphone.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    if (microphone_ >= 0) {
      feeder_ = std::thread([this] { feed(); });
    } else {
      kill();
      whyNot_ = "no private PulseAudio server can be started here: " + server_->wait().standardError;
    }
  }
  ~PrivateSoundServer() {
    {
      const std::lock_guard lock(mutex_);
      isOver_ = true;
    }
    changed_.notify_all();
    if (feeder_.joinable()) feeder_.join();
    if (microphone_ >= 0) ::close(microphone_);
  }
  PrivateSoundServer(const PrivateSoundServer&) = delete;
  PrivateSoundServer& operator=(const PrivateSoundServer&) = delete;

  [[nodiscard]] bool isRunning() const { return whyNot_.empty(); }
  /// Why it does not run, for the message of a skipped test.
  [[nodiscard]] const std::string& whyNot() const { return whyNot_; }

  /// Where its socket lies; closed to other users at first.
  [[nodiscard]] const std::filesystem::path& directory() const { return directory_.path(); }

  /// What a program needs in its environment to find this server and no other.
  [[nodiscard]] std::vector<std::string> environment() const {
    const std::string home = directory_.path();
    return {"PULSE_SERVER=" + socket(), "HOME=" + home, "XDG_RUNTIME_DIR=" + home,
            "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/none"};
  }
  /// The same for this process.
  void enter() const { ::setenv("PULSE_SERVER", socket().c_str(), 1); }
  /// What a program needs to find neither server nor device.
  [[nodiscard]] static std::vector<std::string> noSoundEnvironment() {
    return {"PULSE_SERVER=unix:/nowhere/native", "ALSA_CONFIG_PATH=/dev/null"};
  }

  /// The level of the burst's samples, which tells one burst from another.
  [[nodiscard]] static std::int16_t levelOf(std::size_t burst) { return static_cast<std::int16_t>(1'000 + burst); }
  /// When the bursts sounded: the moment at which each one's first sample was given to the server.
  [[nodiscard]] std::vector<Clock::time_point> bursts() const {
    const std::lock_guard lock(mutex_);
    return bursts_;
  }
  /// Waits until `count` bursts more have sounded. False when they do not come.
  [[nodiscard]] bool waitForBursts(std::size_t count) {
    std::unique_lock lock(mutex_);
    const std::size_t wanted = bursts_.size() + count;
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return bursts_.size() >= wanted; });
  }

  /// Ends the server as a crash would.
  void kill() {
    server_->send(SIGKILL);
    (void)server_->wait();
  }

 private:
  [[nodiscard]] std::string socket() const { return "unix:" + directory_.file("native").string(); }

  // Short, since the server knows no more of a sample's moment than when its block came.
  using Blocks = std::chrono::duration<std::int64_t, std::ratio<1, 300>>;
  static constexpr std::size_t framesPerBlock = 44'100 / 300;
  static constexpr int blocksPerBurst = 15;
  static constexpr int blocksBetweenBursts = 150;

  // Blocks at their times by the clock, so that a late one delays no other.
  void feed() {
    const auto start = Clock::now();
    std::unique_lock lock(mutex_);
    for (std::int64_t i = 0; !changed_.wait_until(lock, start + Blocks(i), [this] { return isOver_; }); ++i) {
      const auto phase = i % blocksBetweenBursts;
      const auto level = levelOf(static_cast<std::size_t>(i / blocksBetweenBursts));
      const std::vector<std::int16_t> samples(2 * framesPerBlock, phase < blocksPerBurst ? level : std::int16_t{0});
      if (phase == 0) bursts_.push_back(Clock::now());
      // What a busy server does not take in time is lost; another error tells that it has gone.
      if (::write(microphone_, samples.data(), samples.size() * sizeof samples[0]) < 0 && errno != EAGAIN) return;
      if (phase == 0) changed_.notify_all();
    }
  }

  TemporaryDirectory directory_;
  std::string whyNot_;
  std::unique_ptr<RunningProgram> server_;
  int microphone_ = -1;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Clock::time_point> bursts_;  // guarded by mutex_
  bool isOver_ = false;                    // guarded by mutex_
  std::thread feeder_;
};

}  // namespace clipworks::test
