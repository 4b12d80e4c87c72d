#include <app/Failure.h>

#include <utility>

namespace clipworks::app {
namespace {

ExitCode exitCodeOf(const Error& error, const Limits& limits) {
  switch (error.code) {
    case ErrorCode::badArgument:
      return ExitCode::wrongUse;
    case ErrorCode::cancelled:
      return ExitCode::interrupted;
    case ErrorCode::limitReached:
      return ExitCode::limitReached;
    case ErrorCode::noMemory:
      return limits.memory ? ExitCode::limitReached : ExitCode::tryAgain;
    case ErrorCode::noSpace:
    case ErrorCode::busy:
      return ExitCode::tryAgain;
    default:
      return ExitCode::failed;
  }
}

}  // namespace

Failure failureOf(const Error& error, const Limits& limits) {
  std::string sentence = error.code == ErrorCode::cancelled ? "interrupted" : error.sentence;
  if (error.code == ErrorCode::noMemory && limits.memory)
    sentence += " (--memory allows " + shownSize(static_cast<double>(*limits.memory)) + ")";
  return {exitCodeOf(error, limits), std::move(sentence), error.code};
}

}  // namespace clipworks::app
