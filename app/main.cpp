// The program `clipworks`: parses its arguments, confines itself, runs one command, and turns what became of it into an
// exit code.

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <app/Command.h>
#include <app/CommandLine.h>
#include <app/Failure.h>
#include <app/Interruption.h>
#include <app/Limits.h>
#include <app/Reporter.h>
#include <app/Serving.h>
#include <app/confinement/Confinement.h>

namespace clipworks::app {
namespace {

/// What became of the commands, once this process is confined.
Outcome outcomeOf(const std::vector<Command*>& commands, const Options& options, Reporter& reporter) {
  // Before there is a thread, and before a byte of an input is read.
  Needs needs = needsOf(commands);
  std::optional<Receipt> receipt;
  if (options.job) {
    receipt.emplace(*options.job, needs.inputs);
    needs.inputs.insert(needs.inputs.end(), receipt->olderOutputs().begin(), receipt->olderOutputs().end());
  }
  const auto confined = confine(needs, options);
  if (!confined) return failure(confined.error());
  reporter.confined(confined->confinement);
  enforce(options.limits);  // later than that: the library that filters calls does not look whether it gets its memory
  if (options.confinement == ConfinementMode::automatic && !needs.isTrusted && confined->confinement.isNothing())
    reporter.warning(confined->confinement.lacks() + "; what a clip does to this program is not confined");

  Interruption interruption(options.limits.seconds, [&reporter](const Failure& failure) { reporter.failed(failure); });
  Outcome outcome =
      runCommands(commands, {options, reporter, interruption, confined->files, receipt ? &*receipt : nullptr});
  if (!interruption.isRequested()) return outcome;
  if (!outcome && outcome.error().code == ExitCode::interrupted) outcome = failure(interruption.failure());
  if (outcome) return outcome;
  // What could not be asked to stop still runs: it must not see this process being taken apart.
  reporter.failed(outcome.error());
  ::_exit(static_cast<int>(outcome.error().code));
}

int runProgram(int argc, const char* const* argv) {
  CommandLine commandLine;
  const auto commands = commandLine.parse(argc, argv);
  const Options& options = commandLine.options();
  Reporter reporter(options);
  if (commands && commands->empty()) return static_cast<int>(ExitCode::done);
  Outcome outcome;
  try {
    outcome = commands ? outcomeOf(*commands, options, reporter) : failure(commands.error());
  } catch (const std::bad_alloc&) {
    outcome = failure(failureOf({ErrorCode::noMemory, "out of memory"}, options.limits));
  }
  if (outcome && !reporter.isWritten()) outcome = failed("standard output cannot be written");
  if (outcome) return static_cast<int>(ExitCode::done);
  reporter.failed(outcome.error());
  return static_cast<int>(outcome.error().code);
}

int runWords(const std::vector<std::string>& words) {
  std::vector<const char*> pointers;
  for (const auto& word : words) pointers.push_back(word.c_str());
  try {
    return runProgram(static_cast<int>(pointers.size()), pointers.data());
  } catch (const std::exception& thrown) {
    (void)std::fprintf(stderr, "clipworks: %s\n", thrown.what());
    return static_cast<int>(ExitCode::failed);
  }
}

}  // namespace
}  // namespace clipworks::app

int main(int argc, char** argv) {
  try {
    // Not for people: see Serving.h.
    if (argc == 2 && std::string_view(argv[1]) == "worker") return clipworks::app::serveJobs(clipworks::app::runWords);
    return clipworks::app::runProgram(argc, argv);
  } catch (const std::exception& thrown) {
    // Before there was anything to report with.
    (void)std::fprintf(stderr, "clipworks: %s\n", thrown.what());
    return static_cast<int>(clipworks::app::ExitCode::failed);
  }
}
