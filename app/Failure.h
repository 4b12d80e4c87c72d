#pragma once

#include <optional>
#include <string>

#include <app/Limits.h>
#include <clipworks/edit/Error.h>
#include <clipworks/media/base/Result.h>

namespace clipworks::app {

/// What the process ends with.
enum class ExitCode : int {
  done = 0,
  failed = 1,
  /// Found before anything ran.
  wrongUse = 2,
  /// One of the limits that the options set.
  limitReached = 3,
  /// Of the system, not of the input: no space, no memory, no service. The same may succeed later.
  tryAgain = 4,
  interrupted = 130,
};

/// Why the program cannot do what it was asked.
struct Failure {
  ExitCode code = ExitCode::failed;
  /// One sentence for people, without the program's name and without a full stop.
  std::string sentence;
  /// What the library says of it, where it does.
  std::optional<ErrorCode> cause{};
};

/// The library's failure as the program's: out of memory is a limit where `limits` set one.
[[nodiscard]] Failure failureOf(const Error& error, const Limits& limits);

/// Success, or why not.
using Outcome = Result<void, Failure>;

/// `return failed(name + " has no sound track");`
[[nodiscard]] inline auto failed(std::string sentence) {
  return tl::make_unexpected(Failure{ExitCode::failed, std::move(sentence), {}});
}

/// `return wrongUse("--count must be at least 1");`
[[nodiscard]] inline auto wrongUse(std::string sentence) {
  return tl::make_unexpected(Failure{ExitCode::wrongUse, std::move(sentence), {}});
}

}  // namespace clipworks::app
