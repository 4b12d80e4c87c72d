#include <tests/support/PrintedLinesCapture.h>

#include <string_view>

#include <clipworks/media/base/PrintedLines.h>

namespace clipworks::test {

PrintedLinesCapture::PrintedLinesCapture() {
  setPrintedLineSink([this](std::string_view line) {
    const std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
  });
}

PrintedLinesCapture::~PrintedLinesCapture() { setPrintedLineSink({}); }

std::vector<std::string> PrintedLinesCapture::lines() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

}  // namespace clipworks::test
