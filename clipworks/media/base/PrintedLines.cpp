#include <clipworks/media/base/PrintedLines.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace clipworks {

namespace {

struct Printer {
  std::mutex mutex;
  std::function<void(std::string_view)> sink;  // guarded by mutex
};

Printer& printer() {
  // Never destroyed: work that the end of the process cuts off may print until then.
  static Printer& shared = *new Printer;
  return shared;
}

/// One `write`, repeated only for what the system did not take.
void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      pollfd writable{descriptor, POLLOUT, 0};
      poll(&writable, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

std::string onOneLine(std::string_view text) {
  std::string line(text);
  for (char& character : line) {
    if (character == '\n' || character == '\r') character = ' ';
  }
  return line;
}

}  // namespace

void printLine(std::string_view line) noexcept {
  try {
    std::string text = onOneLine(line);
    Printer& shared = printer();
    const std::lock_guard lock(shared.mutex);
    if (shared.sink) {
      shared.sink(text);
      return;
    }
    std::fflush(stdout);
    writeAll(STDOUT_FILENO, text += '\n');
  } catch (...) {  // NOLINT(bugprone-empty-catch): an operation must not fail because it cannot say how it is doing
  }
}

void setPrintedLineSink(std::function<void(std::string_view line)> sink) {
  Printer& shared = printer();
  const std::lock_guard lock(shared.mutex);
  std::swap(shared.sink, sink);
}

void fatalError(std::string_view sentence) noexcept {
  std::fflush(stdout);
  writeAll(STDERR_FILENO, "clipworks: fatal error: ");
  writeAll(STDERR_FILENO, sentence);
  writeAll(STDERR_FILENO, "\n");
  std::abort();
}

}  // namespace clipworks
