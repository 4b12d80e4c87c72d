#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace clipworks::app {

/// An option of a command, or one of its arguments, which has no name.
struct OptionSyntax {
  /// What a shell can offer in its place.
  enum class Offer { nothing, choices, files, directories };

  /// As they are typed, "-h" before "--help"; none for an argument.
  std::vector<std::string> names;
  /// What is typed behind the name, as the help writes it: "N", "low|high", "FILE"; empty for a flag.
  std::string value;
  /// The words between which `value` lets choose; empty when it does not.
  std::vector<std::string> choices;
  Offer offer = Offer::nothing;
  /// On one line.
  std::string description;
  bool isNeeded = false;
  bool isRepeated = false;
};

/// What people type for a command of the program, or for the program itself, read from the parser that understands it:
/// the manual pages and the completions of shells are made from this, so a new command is in all of them.
struct CommandSyntax {
  std::string name;
  std::string purpose;
  /// The text below the options in the help.
  std::string notes;
  std::vector<OptionSyntax> arguments;
  std::vector<OptionSyntax> options;
  /// The program's; a command has none.
  std::vector<CommandSyntax> commands;

  /// What `parser` understands, with its subcommands.
  [[nodiscard]] static CommandSyntax of(const CLI::App& parser);
};

}  // namespace clipworks::app
