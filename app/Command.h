#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <app/Failure.h>
#include <app/Interruption.h>
#include <app/Needs.h>
#include <app/Options.h>
#include <app/Reporter.h>
#include <app/jobs/Job.h>
#include <app/jobs/Receipt.h>

namespace CLI {
class App;
}

namespace clipworks::app {

/// One run of the program: what a command may use.
struct Program {
  const Options& options;
  Reporter& reporter;
  Interruption& interruption;
  /// Makes new files, also where the process itself may make none.
  std::shared_ptr<engine::NewFiles> files;
  /// Where a job is done; null else.
  Receipt* receipt = nullptr;
};

/// One command of the program. Adding one: a source file in app/commands with a class and a `RegisteredCommand` for it,
/// and the file's line in app/CMakeLists.txt. Commands that change clips derive from `StepCommand`.
class Command {
 public:
  Command() = default;
  virtual ~Command() = default;
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  [[nodiscard]] virtual std::string name() const = 0;
  /// Whether it is for other programs of ours, and shown to nobody.
  [[nodiscard]] virtual bool isPrivate() const { return false; }
  /// One line for the list of commands.
  [[nodiscard]] virtual std::string purpose() const = 0;
  /// An example and what else the command's help says below its options.
  [[nodiscard]] virtual std::string notes() const = 0;
  /// Adds the command's arguments to `parser`, bound to members.
  virtual void configure(CLI::App& parser) = 0;
  /// The job in whose place the command stands; nothing for most.
  [[nodiscard]] virtual Result<std::optional<Job>, Failure> job() const { return std::nullopt; }
  /// What it needs to do so, by its arguments.
  [[nodiscard]] virtual Needs needs() const { return {}; }
  /// Does the work, after the arguments were parsed. Prints results itself; failures are the caller's to print.
  [[nodiscard]] virtual Outcome run(const Program& program) = 0;
};

/// What they need together.
[[nodiscard]] Needs needsOf(const std::vector<Command*>& commands);

/// Runs a command, or several that are steps of one movie; what they throw is a failure, too.
[[nodiscard]] Outcome runCommands(const std::vector<Command*>& commands, const Program& program);

/// Names a command's class to the program, from a constant in the class's own source file.
class CommandRegistration {
 public:
  using Factory = std::function<std::unique_ptr<Command>()>;
  explicit CommandRegistration(Factory factory);
};

template <class ACommand>
class RegisteredCommand : public CommandRegistration {
 public:
  RegisteredCommand() : CommandRegistration([] { return std::make_unique<ACommand>(); }) {}
};

/// A fresh object of every registered command, by name.
[[nodiscard]] std::vector<std::unique_ptr<Command>> makeCommands();

}  // namespace clipworks::app
