#include <fmt/format.h>
#include <CLI/StringTools.hpp>

#include <app/manual/ShellCompletion.h>

namespace clipworks::app {
namespace {

// %COMMANDS%, %OPTIONS% and %CASES% stand for what the program understands.
constexpr const char* script = R"script(#compdef clipworks
# Completion of clipworks for zsh, made from the program's own list of options.

_clipworks() {
  local curcontext=$curcontext state
  local -a line names understood
  local -A opt_args
  names=(
%COMMANDS%  )
  understood=(
%OPTIONS%  )
  _arguments -C $understood ':command:->command' '*::argument:->argument'
  case $state in
    command) _describe command names ;;
    argument)
      case $line[1] in
%CASES%      esac
      _arguments $understood
      ;;
  esac
}

_clipworks "$@"
)script";

/// A word in single quotes, for the shell.
std::string quoted(const std::string& text) { return "'" + CLI::detail::find_and_replace(text, "'", "'\\''") + "'"; }

/// Colons and brackets separate the fields of an argument of `_arguments`; a backslash makes them text.
std::string field(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    if (character == ':' || character == '[' || character == ']' || character == '\\') escaped += '\\';
    escaped += character;
  }
  return escaped;
}

std::string actionOf(const OptionSyntax& option) {
  switch (option.offer) {
    case OptionSyntax::Offer::choices:
      return "(" + CLI::detail::join(option.choices, " ") + ")";
    case OptionSyntax::Offer::files:
      return "_files";
    case OptionSyntax::Offer::directories:
      return "_files -/";
    case OptionSyntax::Offer::nothing:
      break;
  }
  return " ";
}

/// One line for each name of an option, as `_arguments` takes them.
std::string specifications(const std::vector<OptionSyntax>& options, const std::string& indent) {
  std::string lines;
  for (const auto& option : options) {
    const std::string value = option.value.empty() ? "" : fmt::format(":{}:{}", field(option.value), actionOf(option));
    for (const auto& name : option.names) {
      const std::string start = option.isRepeated ? "*" : "";
      const std::string end = !option.value.empty() && name.starts_with("--") ? "=" : "";
      lines += indent + quoted(fmt::format("{}{}{}[{}]{}", start, name, end, field(option.description), value)) + '\n';
    }
  }
  return lines;
}

std::string caseOf(const CommandSyntax& command) {
  std::string lines = fmt::format("        {})\n          understood+=(\n", command.name);
  lines += specifications(command.options, "            ");
  for (const auto& argument : command.arguments) {
    lines += "            " +
             quoted((argument.isRepeated ? "*:" : ":") + field(argument.value) + ":" + actionOf(argument)) + '\n';
  }
  return lines + "          )\n          ;;\n";
}

}  // namespace

std::string zshCompletion(const CommandSyntax& program) {
  std::string commands;
  std::string cases;
  for (const auto& command : program.commands) {
    commands += "    " + quoted(field(command.name) + ":" + command.purpose) + '\n';
    cases += caseOf(command);
  }
  std::string text = CLI::detail::find_and_replace(script, "%COMMANDS%", commands);
  text = CLI::detail::find_and_replace(text, "%OPTIONS%", specifications(program.options, "    "));
  return CLI::detail::find_and_replace(text, "%CASES%", cases);
}

}  // namespace clipworks::app
