#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/App.hpp>

#include <app/Command.h>
#include <app/Failure.h>
#include <app/Options.h>

namespace clipworks::app {

/// The program's arguments: the options that hold for every command, and one command with its own.
class CommandLine {
 public:
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// What was asked for: the commands between which "then" stands, or none, when a text was asked for and printed
  /// (help, version, licences). Fails with wrong use.
  [[nodiscard]] Result<std::vector<Command*>, Failure> parse(int argc, const char* const* argv);

  /// As far as they were understood.
  [[nodiscard]] const Options& options() const { return options_; }

  /// What jobs may say, for texts about it.
  [[nodiscard]] const CLI::App& jobParser();

  /// All that is understood, for texts about it.
  [[nodiscard]] const CLI::App& parser() const { return first_.parser; }

 private:
  /// Understands the words of one command.
  struct Part {
    CLI::App parser;
    std::vector<std::unique_ptr<Command>> commands;
  };
  using Words = std::vector<std::string>;
  enum class Origin { commandLine, job };
  void addRunOptions(CLI::App& parser);
  void addMovieOptions(CLI::App& parser);
  static void addCommands(Part& part, Origin origin, bool follows);
  [[nodiscard]] Part& addPart(Origin origin, bool follows);
  [[nodiscard]] Result<std::vector<Command*>, Failure> parse(const std::vector<Words>& commands, Origin origin);
  [[nodiscard]] Result<std::vector<Command*>, Failure> parseJob(const Job& job, const Words& hostWords);
  [[nodiscard]] static Result<Command*, Failure> parse(Part& part, const Words& words);

  Options options_;
  Part first_;
  std::vector<std::unique_ptr<Part>> later_;
};

}  // namespace clipworks::app
