#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace clipworks::test {

/// Collects the lines that the library prints, from any thread, as long as it lives. One at a time.
class PrintedLinesCapture {
 public:
  PrintedLinesCapture();
  ~PrintedLinesCapture();
  PrintedLinesCapture(const PrintedLinesCapture&) = delete;
  PrintedLinesCapture& operator=(const PrintedLinesCapture&) = delete;

  [[nodiscard]] std::vector<std::string> lines() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;  // guarded by mutex_
};

}  // namespace clipworks::test
