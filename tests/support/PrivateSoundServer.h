#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {

/// A PulseAudio server of its own, without hardware: its one microphone gives what this object feeds it, silence with a
/// short burst of sound twice a second, at the pace of the clock. Asked for, it is not necessarily there: see
/// `isRunning()`. For one thread.
class PrivateSoundServer {
 public:
  using Clock = std::chrono::steady_clock;

  PrivateSoundServer();
  ~PrivateSoundServer();
  PrivateSoundServer(const PrivateSoundServer&) = delete;
  PrivateSoundServer& operator=(const PrivateSoundServer&) = delete;

  [[nodiscard]] bool isRunning() const { return whyNot_.empty(); }
  /// Why it does not run, for the message of a skipped test.
  [[nodiscard]] const std::string& whyNot() const { return whyNot_; }

  /// Where its socket lies; closed to other users at first.
  [[nodiscard]] const std::filesystem::path& directory() const { return directory_.path(); }

  /// What a program needs in its environment to find this server and no other.
  [[nodiscard]] std::vector<std::string> environment() const;
  /// The same for this process.
  void enter() const;
  /// What a program needs to find neither server nor device.
  [[nodiscard]] static std::vector<std::string> noSoundEnvironment();

  /// The level of the burst's samples, which tells one burst from another.
  [[nodiscard]] static std::int16_t levelOf(std::size_t burst) { return static_cast<std::int16_t>(1'000 + burst); }
  /// When the bursts sounded: the moment at which each one's first sample was given to the server.
  [[nodiscard]] std::vector<Clock::time_point> bursts() const;
  /// Waits until `count` bursts more have sounded. False when they do not come.
  [[nodiscard]] bool waitForBursts(std::size_t count);

  /// Ends the server as a crash would.
  void kill();

 private:
  [[nodiscard]] std::string socket() const { return "unix:" + directory_.file("native").string(); }
  void feed();

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
