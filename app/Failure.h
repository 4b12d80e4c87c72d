#pragma once

#include <string>

#include <clipworks/media/base/Result.h>

namespace clipworks::app {

/// What the process ends with.
enum class ExitCode : int {
  done = 0,
  failed = 1,
  /// Found before anything ran.
  wrongUse = 2,
  interrupted = 130,
};

/// Why the program cannot do what it was asked.
struct Failure {
  ExitCode code = ExitCode::failed;
  /// One sentence for people, without the program's name and without a full stop.
  std::string sentence;
};

/// Success, or why not.
using Outcome = Result<void, Failure>;

/// `return failed(name + " has no sound track");`
[[nodiscard]] inline auto failed(std::string sentence) {
  return tl::make_unexpected(Failure{ExitCode::failed, std::move(sentence)});
}

/// `return wrongUse("--count must be at least 1");`
[[nodiscard]] inline auto wrongUse(std::string sentence) {
  return tl::make_unexpected(Failure{ExitCode::wrongUse, std::move(sentence)});
}

}  // namespace clipworks::app
