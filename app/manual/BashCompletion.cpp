#include <algorithm>

#include <fmt/format.h>
#include <CLI/StringTools.hpp>

#include <app/manual/ShellCompletion.h>

namespace clipworks::app {
namespace {

// %COMMANDS%, %VALUES%, %OPTIONS% and %ARGUMENTS% stand for what the program understands.
constexpr const char* script = R"script(# Completion of clipworks for bash, made from the program's own list of options.

# Sets `offer` to what may follow the option $2 of the command $1; fails when nothing does.
_clipworks_value() {
  case $1:$2 in
%VALUES%    *) return 1 ;;
  esac
}

# Offers the words of $1 that begin with what was typed.
_clipworks_words() {
  mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

# Files are left to readline, which knows how to quote their names.
_clipworks_offer() {
  case $1 in
    files) compopt -o default ;;
    directories) compopt -o dirnames ;;
    words*) _clipworks_words "${1#words}" "$2" ;;
  esac
}

_clipworks() {
  local command="" offer="" options="" typed=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      -*)
        # Readline takes the "=" of --count=3 for a word of its own.
        if _clipworks_value "$command" "${COMP_WORDS[i]}"; then
          [[ ${COMP_WORDS[i + 1]} != = ]] || ((++i))
          ((++i))
        fi
        ;;
      "then") command="" ;;
      *) command=${command:-${COMP_WORDS[i]}} ;;
    esac
  done
  if [[ $typed == = ]]; then
    typed=""
  elif [[ $option == = ]]; then
    option=${COMP_WORDS[COMP_CWORD - 2]}
  fi

  if _clipworks_value "$command" "$option"; then
    _clipworks_offer "$offer" "$typed"
    return
  fi
  case $command in
%OPTIONS%  esac
  if [[ $typed == -* ]]; then
    _clipworks_words "$options %PROGRAM_OPTIONS%" "$typed"
  elif [[ -z $command ]]; then
    _clipworks_words "%COMMANDS%" "$typed"
  else
    case $command in
%ARGUMENTS%    esac
  fi
}

complete -F _clipworks clipworks
)script";

std::string offerOf(const OptionSyntax& option) {
  switch (option.offer) {
    case OptionSyntax::Offer::choices:
      return "\"words " + CLI::detail::join(option.choices, " ") + "\"";
    case OptionSyntax::Offer::files:
      return "files";
    case OptionSyntax::Offer::directories:
      return "directories";
    case OptionSyntax::Offer::nothing:
      break;
  }
  return "nothing";
}

/// The options of the program, whose `command` is "*", hold behind every command.
std::string valueCases(const std::string& command, const std::vector<OptionSyntax>& options) {
  std::string cases;
  for (const auto& option : options) {
    if (option.value.empty()) continue;
    for (const auto& name : option.names)
      cases += fmt::format("    {}:{}) offer={} ;;\n", command, name, offerOf(option));
  }
  return cases;
}

std::string optionNames(const std::vector<OptionSyntax>& options) {
  std::string names;
  for (const auto& option : options) names += (names.empty() ? "" : " ") + CLI::detail::join(option.names, " ");
  return names;
}

std::string filled(std::string text, const std::string& mark, const std::string& content) {
  return CLI::detail::find_and_replace(std::move(text), mark, content);
}

}  // namespace

std::string bashCompletion(const CommandSyntax& program) {
  std::string values = valueCases("*", program.options);
  std::string options;
  std::string arguments;
  std::vector<std::string> commands;
  for (const auto& command : program.commands) {
    commands.push_back(command.name);
    values += valueCases(command.name, command.options);
    options += fmt::format("    {}) options=\"{}\" ;;\n", command.name, optionNames(command.options));
    if (!command.arguments.empty()) {
      arguments += fmt::format("      {}) _clipworks_offer {} \"$typed\" ;;\n", command.name,
                               offerOf(command.arguments.front()));
    }
  }
  std::string text = filled(script, "%VALUES%", values);
  text = filled(text, "%OPTIONS%", options);
  text = filled(text, "%PROGRAM_OPTIONS%", optionNames(program.options));
  text = filled(text, "%COMMANDS%", CLI::detail::join(commands, " "));
  return filled(text, "%ARGUMENTS%", arguments);
}

}  // namespace clipworks::app
