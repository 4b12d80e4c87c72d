// The program `clipworks`: parses its arguments, runs one command, and turns what became of it into an exit code.

#include <unistd.h>

#include <cstdio>
#include <exception>

#include <app/Command.h>
#include <app/CommandLine.h>
#include <app/Failure.h>
#include <app/Interruption.h>
#include <app/Reporter.h>

namespace clipworks::app {
namespace {

int runProgram(int argc, const char* const* argv) {
  CommandLine commandLine;
  const auto commands = commandLine.parse(argc, argv);
  Reporter reporter(commandLine.options());
  if (!commands) {
    reporter.failed(commands.error());
    return static_cast<int>(commands.error().code);
  }
  if (commands->empty()) return static_cast<int>(ExitCode::done);

  Interruption interruption([&reporter] { reporter.failed({ExitCode::interrupted, "interrupted"}); });
  Outcome outcome = runCommands(*commands, {commandLine.options(), reporter, interruption});
  if (outcome && !reporter.isWritten()) outcome = failed("standard output cannot be written");
  if (outcome) return static_cast<int>(ExitCode::done);
  reporter.failed(outcome.error());
  // What could not be asked to stop still runs: it must not see this process being taken apart.
  if (outcome.error().code == ExitCode::interrupted) ::_exit(static_cast<int>(ExitCode::interrupted));
  return static_cast<int>(outcome.error().code);
}

}  // namespace
}  // namespace clipworks::app

int main(int argc, char** argv) {
  try {
    return clipworks::app::runProgram(argc, argv);
  } catch (const std::exception& thrown) {
    // Before there was anything to report with.
    (void)std::fprintf(stderr, "clipworks: %s\n", thrown.what());
    return static_cast<int>(clipworks::app::ExitCode::failed);
  }
}
