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
#include <app/confinement/Confinement.h>
#include <clipworks/media/asset/DamagedMedia.h>

namespace clipworks::app {

/// All that the program prints. Results go to standard output as lines, or as JSON lines with --json; failures and the
/// progress bar go to standard error. Thread-safe; nothing throws for a stream that cannot be written.
class Reporter {
 public:
  explicit Reporter(const Options& options);

  /// A line that is shown with --verbose only.
  void log(std::string_view line);
  /// How far the work is, from 0 to 1. A value that is not worth a new event or bar is left out.
  void progress(double value);
  /// A line in place of the progress, such as a level meter; on a terminal only.
  void status(std::string_view line);
  /// A line for people.
  void note(std::string_view line);
  /// A file that the command made.
  void output(const std::filesystem::path& path);
  /// One more line of JSON for programs.
  void event(const nlohmann::ordered_json& event);
  /// The receipt of a job; `isOld`: the job was done before, and nothing was done now.
  void receipt(const std::filesystem::path& path, bool isOld);
  /// The work is done; nothing follows.
  void done();
  /// What the event at the end tells of it.
  void confined(const Confinement& confinement);
  /// Pictures of an input are damaged, and shown as far as they could be decoded. The event at the end tells it, too.
  void damaged(const DamagedMedia& media);
  void warning(std::string_view sentence);
  /// One of several inputs failed; the others go on. The event at the end tells it, too.
  void inputFailed(const std::filesystem::path& input, std::string_view sentence);
  /// Ready-made text: the result of a command that makes no files.
  void text(std::string_view text);
  /// Results are no stream of events from now on, but `text` alone; failures go to standard error alone.
  void keepEventsOff();

  /// The work failed; nothing follows.
  void failed(const Failure& failure);
  /// Whether everything for standard output was written.
  [[nodiscard]] bool isWritten() const;

 private:
  // All of these: with mutex_ held.
  void writeOut(std::string_view text);
  void writeSentence(std::string_view sentence);
  void clearBar();
  [[nodiscard]] nlohmann::ordered_json errorEvent(const Failure& failure) const;

  const bool json_;
  const bool verbose_;
  const bool showsBar_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

  mutable std::mutex mutex_;
  Confinement confinement_;  // guarded by mutex_
  std::string receipt_;      // guarded by mutex_
  bool isSkipped_ = false;   // guarded by mutex_
  struct FailedInput {
    std::filesystem::path path;
    std::string sentence;
  };

  std::vector<DamagedMedia> damaged_;           // guarded by mutex_
  std::vector<std::filesystem::path> outputs_;  // guarded by mutex_
  std::vector<FailedInput> failedInputs_;       // guarded by mutex_
  double shownProgress_ = -1;                   // guarded by mutex_
  bool barIsShown_ = false;                     // guarded by mutex_
  bool hasEvents_ = true;                       // guarded by mutex_
  bool isWritten_ = true;                       // guarded by mutex_
};

}  // namespace clipworks::app
