#pragma once

#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <app/Failure.h>
#include <app/Options.h>

namespace clipworks::app {

/// `text` on one line, safe for a terminal: control characters become spaces.
[[nodiscard]] std::string printable(std::string_view text);

/// All that the program prints. Results go to standard output as lines, or as JSON lines with --json; failures and the
/// progress bar go to standard error. Thread-safe; nothing throws for a stream that cannot be written.
class Reporter {
 public:
  explicit Reporter(const Options& options);
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  /// A line that the library printed; shown with --verbose only.
  void log(std::string_view line);
  /// How far the work is, from 0 to 1. A value that is not worth a new event or bar is left out.
  void progress(double value);
  /// A line on the terminal in place of the progress bar, such as a level meter; nothing of it in a pipe.
  void status(std::string_view line);
  /// A line for people on standard error, as it is.
  void note(std::string_view line);
  /// A file that the command made.
  void output(const std::filesystem::path& path);
  /// The work is done; nothing follows.
  void done();
  /// The work failed; nothing follows.
  void failed(const Failure& failure);
  /// One of several inputs failed; the others go on.
  void warning(std::string_view sentence);
  /// The same for a command that makes files; the event at the end tells it, too.
  void inputFailed(const std::filesystem::path& input, std::string_view sentence);
  /// Ready-made text for standard output.
  void text(std::string_view text);
  /// The text of a failure goes to standard error alone from now on, since standard output is no stream of events.
  void keepEventsOff();

  /// Whether everything for standard output was written.
  [[nodiscard]] bool isWritten() const;

 private:
  // All of these: with mutex_ held.
  void writeOut(std::string_view text);
  void writeSentence(std::string_view sentence);
  void clearBar();
  [[nodiscard]] nlohmann::ordered_json errorEvent(const std::string& sentence) const;

  const bool json_;
  const bool verbose_;
  const bool showsBar_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

  mutable std::mutex mutex_;
  struct FailedInput {
    std::filesystem::path path;
    std::string sentence;
  };

  std::vector<std::filesystem::path> outputs_;  // guarded by mutex_
  std::vector<FailedInput> failedInputs_;       // guarded by mutex_
  double shownProgress_ = -1;                   // guarded by mutex_
  bool barIsShown_ = false;                     // guarded by mutex_
  bool hasEvents_ = true;                       // guarded by mutex_
  bool isWritten_ = true;                       // guarded by mutex_
};

}  // namespace clipworks::app
