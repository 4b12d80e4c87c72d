#include <clipworks/media/dispatch/WorkItem.h>

#include <exception>
#include <string>

#include <clipworks/media/base/PrintedLines.h>

namespace clipworks {

void requireWork(const std::function<void()>& work) noexcept {
  if (!work) fatalError("async and notify need a work item, but got an empty function");
}

void runWorkItem(std::function<void()> work) noexcept {
  try {
    work();
    work = nullptr;
  } catch (const std::exception& exception) {
    fatalError(std::string("no exception may escape a work item of a queue, but one did: ") + exception.what());
  } catch (...) {
    fatalError("no exception may escape a work item of a queue, but one of unknown type did");
  }
}

std::chrono::steady_clock::time_point deadlineAfter(std::chrono::nanoseconds timeout) {
  const auto now = std::chrono::steady_clock::now();
  const auto left = std::chrono::steady_clock::time_point::max() - now;
  return timeout < left ? now + timeout : std::chrono::steady_clock::time_point::max();
}

}  // namespace clipworks
