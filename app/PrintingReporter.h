#pragma once

#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <app/Failure.h>
#include <app/Options.h>
#include <app/Reporter.h>

namespace clipworks::app {

/// All that the program prints. Results go to standard output as lines, or as JSON lines with --json; failures and the
/// progress bar go to standard error. Thread-safe; nothing throws for a stream that cannot be written.
class PrintingReporter final : public Reporter {
 public:
  explicit PrintingReporter(const Options& options);

  /// Shown with --verbose only.
  void log(std::string_view line) override;
  /// A value that is not worth a new event or bar is left out.
  void progress(double value) override;
  /// On a terminal only; nothing of it in a pipe.
  void status(std::string_view line) override;
  void note(std::string_view line) override;
  void output(const std::filesystem::path& path) override;
  void done() override;
  /// The event at the end tells it, too.
  void damaged(const std::string& fileName, std::int64_t pictures) override;
  void warning(std::string_view sentence) override;
  /// The event at the end tells it, too.
  void inputFailed(const std::filesystem::path& input, std::string_view sentence) override;
  void text(std::string_view text) override;
  /// The text of a failure goes to standard error alone from now on, since standard output is no stream of events.
  void keepEventsOff() override;

  /// The work failed; nothing follows.
  void failed(const Failure& failure);
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

  std::vector<std::pair<std::string, std::int64_t>> damaged_;  // guarded by mutex_; names and pictures
  std::vector<std::filesystem::path> outputs_;                 // guarded by mutex_
  std::vector<FailedInput> failedInputs_;                      // guarded by mutex_
  double shownProgress_ = -1;                                  // guarded by mutex_
  bool barIsShown_ = false;                                    // guarded by mutex_
  bool hasEvents_ = true;                                      // guarded by mutex_
  bool isWritten_ = true;                                      // guarded by mutex_
};

}  // namespace clipworks::app
