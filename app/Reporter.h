#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace clipworks::app {

/// What a command tells while it works, and what it made. Any thread.
class Reporter {
 public:
  Reporter() = default;
  virtual ~Reporter() = default;
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  /// A line that the library printed.
  virtual void log(std::string_view line) = 0;
  /// How far the work is, from 0 to 1.
  virtual void progress(double value) = 0;
  /// A line in place of the progress, such as a level meter.
  virtual void status(std::string_view line) = 0;
  /// A line for people.
  virtual void note(std::string_view line) = 0;
  /// A file that the command made.
  virtual void output(const std::filesystem::path& path) = 0;
  /// The work is done; nothing follows.
  virtual void done() = 0;
  /// Pictures of an input are damaged; what could be decoded of them is in the result.
  virtual void damaged(const std::string& fileName, std::int64_t pictures) = 0;
  /// One of several inputs failed; the others go on.
  virtual void warning(std::string_view sentence) = 0;
  /// The same for a command that makes files.
  virtual void inputFailed(const std::filesystem::path& input, std::string_view sentence) = 0;
  /// Ready-made text: the result of a command that makes no files.
  virtual void text(std::string_view text) = 0;
  /// Results are no stream of events from now on, but `text` alone.
  virtual void keepEventsOff() = 0;
};

}  // namespace clipworks::app
