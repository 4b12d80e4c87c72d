#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <clipworks/media/base/PrintedLines.h>

namespace clipworks::test {

/// Collects the lines that the library prints, from any thread, as long as it lives. One at a time.
class PrintedLinesCapture {
 public:
  PrintedLinesCapture() {
    setPrintedLineSink([this](std::string_view line) {
      const std::lock_guard lock(mutex_);
      lines_.emplace_back(line);
    });
  }
  ~PrintedLinesCapture() { setPrintedLineSink({}); }
  PrintedLinesCapture(const PrintedLinesCapture&) = delete;
  PrintedLinesCapture& operator=(const PrintedLinesCapture&) = delete;

  [[nodiscard]] std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;  // guarded by mutex_
};

}  // namespace clipworks::test
