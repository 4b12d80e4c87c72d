#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/types.h>

namespace clipworks::test {

struct ProgramOptions {
  /// From the start to the end of the program; when it has passed, the program and its children are killed.
  std::chrono::milliseconds deadline{60'000};
  /// "NAME=value" each, beside or in place of what this process has.
  std::vector<std::string> environment{};
  /// Empty: the caller's.
  std::filesystem::path workingDirectory{};
  /// Asked for the next bytes of standard input until it returns none, on a thread of its own. Null: there are none.
  std::function<std::string()> nextInput{};
};

struct ProgramResult {
  /// -1 when the program was ended by a signal; 127 when it could not be started.
  int exitCode = -1;
  /// The signal that ended the program; 0 when it ended by itself.
  int signal = 0;
  bool timedOut = false;
  std::string standardOutput;
  std::string standardError;

  [[nodiscard]] bool succeeded() const { return exitCode == 0; }
};
std::ostream& operator<<(std::ostream& out, const ProgramResult& result);

/// A program running beside the test, in a process group of its own; killed when it is still there at destruction.
/// Not through a shell. For one thread.
class RunningProgram {
 public:
  explicit RunningProgram(const std::vector<std::string>& argv, const ProgramOptions& options = {});
  ~RunningProgram();
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  /// Sends `signal` to the program (not to its group).
  void send(int signal) const;

  /// Waits until the program has printed `text` on standard output or standard error. False when the program ended,
  /// or the deadline passed, without it.
  [[nodiscard]] bool waitForText(std::string_view text);

  /// Waits for the program's end, or kills it at the deadline.
  ProgramResult wait();

 private:
  /// Waits for the end for at most `patience`; false when it has not come.
  bool hasEnded(std::chrono::milliseconds patience);
  [[nodiscard]] std::chrono::milliseconds timeLeft() const;

  std::chrono::steady_clock::time_point end_;
  ProgramResult result_;
  pid_t pid_ = -1;
  int processFd_ = -1;
  int output_ = -1;  ///< what it prints, in memory
  int error_ = -1;
  std::jthread feeder_;
};

/// Runs a program to its end.
inline ProgramResult runProgram(const std::vector<std::string>& argv, const ProgramOptions& options = {}) {
  return RunningProgram(argv, options).wait();
}

}  // namespace clipworks::test
