#include <app/manual/ManualPage.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include <fmt/format.h>
#include <CLI/StringTools.hpp>

namespace clipworks::app {
namespace {

/// Text as it stands. In man(7) these characters are typographic signs unless they are escaped, and a line that begins
/// with a dot or a quote is a request.
std::string plain(const std::string& text) {
  std::string escaped = text.starts_with('.') ? "\\&" : "";
  for (const char character : text) {
    switch (character) {
      case '\\':
        escaped += "\\e";
        break;
      case '-':
        escaped += "\\-";
        break;
      case '\'':
        escaped += "\\(aq";
        break;
      case '`':
        escaped += "\\(ga";
        break;
      case '^':
        escaped += "\\(ha";
        break;
      case '~':
        escaped += "\\(ti";
        break;
      default:
        escaped += character;
    }
  }
  return escaped;
}

std::string bold(const std::string& text) { return "\\fB" + plain(text) + "\\fR"; }
std::string italic(const std::string& text) { return "\\fI" + plain(text) + "\\fR"; }

/// Sentences: hyphens may break, and a mention of the program's help is one of its page.
std::string prose(const std::string& text) {
  const std::string escaped = CLI::detail::find_and_replace(plain(text), "\\-", "-");
  return CLI::detail::find_and_replace(
      CLI::detail::find_and_replace(escaped, "\"clipworks --help\"", "\\fBclipworks\\fR(1)"), "--", "\\-\\-");
}

std::string sentence(const std::string& text) { return prose(text) + (text.ends_with('.') ? "" : "."); }

std::string capitalised(std::string text) {
  if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

/// The notes of a command's help, sorted into the sections of a page.
class Notes {
 public:
  explicit Notes(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) add(line);
    endParagraph();
  }

  std::string description;
  std::string examples;
  std::string exitStatus;

 private:
  void add(const std::string& line) {
    if (line.empty()) return endParagraph();
    if (line.starts_with("Example")) return addFirstExample(line);
    if (line.starts_with(' ')) return addExample(line);
    paragraph_ += (paragraph_.empty() ? "" : " ") + line;
  }

  /// "Example: COMMAND", "Example, REMARK: COMMAND", or "Examples:" alone.
  void addFirstExample(const std::string& line) {
    const auto colon = line.find(':');
    const auto comma = line.find(", ");
    if (comma < colon) examples += ".PP\n" + prose(capitalised(line.substr(comma + 2, colon - comma - 1))) + '\n';
    if (colon != std::string::npos) addExample(line.substr(colon + 1));
  }

  void addExample(const std::string& line) {
    const std::string command = CLI::detail::trim_copy(line);
    if (!command.empty()) examples += ".PP\n.nf\n.RS 4\n" + plain(command) + "\n.RE\n.fi\n";
  }

  void endParagraph() {
    if (paragraph_.empty()) return;
    const std::string exitCodes = "Exit codes: ";
    if (paragraph_.starts_with(exitCodes)) {
      exitStatus += ".PP\n" + sentence(paragraph_.substr(exitCodes.size())) + '\n';
    } else {
      description += ".PP\n" + prose(paragraph_) + '\n';
    }
    paragraph_.clear();
  }

  std::string paragraph_;
};

/// "--quality low|high", as it is typed.
std::string typed(const OptionSyntax& option) {
  std::string text;
  for (const auto& name : option.names) text += (text.empty() ? "" : ", ") + bold(name);
  if (option.value.empty()) return text;
  if (!text.empty()) text += ' ';
  if (option.choices.empty()) return text + italic(option.value);
  for (const auto& choice : option.choices) text += (choice == option.choices.front() ? "" : "|") + bold(choice);
  return text;
}

/// By its last name, and never broken into lines.
std::string inSynopsis(const OptionSyntax& option) {
  OptionSyntax shown = option;
  if (!shown.names.empty()) shown.names = {shown.names.back()};
  const std::string text = CLI::detail::find_and_replace(typed(shown), " ", "\\ ");
  return (option.isNeeded ? text : "[" + text + "]") + (option.isRepeated ? "..." : "");
}

std::string synopsis(const CommandSyntax& program, const CommandSyntax& command) {
  std::string text = bold(program.name) + " [" + italic("OPTION") + "]... " + bold(command.name);
  for (const auto& argument : command.arguments) text += ' ' + inSynopsis(argument);
  for (const auto& option : command.options) {
    if (option.names.back() != "--help") text += ' ' + inSynopsis(option);
  }
  return text;
}

std::string list(const std::vector<OptionSyntax>& options) {
  std::string text;
  for (const auto& option : options) text += ".TP\n" + typed(option) + '\n' + sentence(option.description) + '\n';
  return text;
}

std::string section(const std::string& title, const std::string& body) {
  return body.empty() ? "" : ".SH " + title + '\n' + body + (body.ends_with('\n') ? "" : "\n");
}

std::string head(const std::string& name, std::string purpose, const std::string& version) {
  std::string title = name;
  std::transform(title.begin(), title.end(), title.begin(), [](unsigned char letter) { return std::toupper(letter); });
  if (purpose.ends_with('.')) purpose.pop_back();
  // No date: the same source makes the same page on any day. No hyphens of the formatter's: words are to be typed.
  return fmt::format(".TH {} 1 \"\" \"Clipworks {}\" \"Clipworks\"\n.nh\n.ad l\n", plain(title), version) +
         section("NAME", plain(name) + " \\- " + prose(purpose));
}

std::string pageOf(const CommandSyntax& program, const CommandSyntax& command) {
  return program.name + "-" + command.name;
}

}  // namespace

std::string manualPage(const CommandSyntax& program, const std::string& version) {
  const Notes notes(program.notes);
  std::string commands;
  std::string pages;
  for (const auto& command : program.commands) {
    commands += ".TP\n" + bold(command.name) + '\n' + sentence(command.purpose) + '\n';
    pages += (pages.empty() ? "" : ",\n") + bold(pageOf(program, command)) + "(1)";
  }
  return head(program.name, program.purpose, version) +
         section("SYNOPSIS", bold(program.name) + " [" + italic("OPTION") + "]... " + italic("COMMAND") + " ...") +
         section("DESCRIPTION", prose(program.purpose) + '\n' + notes.description) + section("COMMANDS", commands) +
         section("OPTIONS", prose("They may stand before the command or behind it.") + '\n' + list(program.options)) +
         section("EXIT STATUS", notes.exitStatus) + section("EXAMPLES", notes.examples) + section("SEE ALSO", pages);
}

std::string manualPage(const CommandSyntax& program, const CommandSyntax& command, const std::string& version) {
  const Notes notes(command.notes);
  return head(pageOf(program, command), command.purpose, version) + section("SYNOPSIS", synopsis(program, command)) +
         section("DESCRIPTION", sentence(command.purpose) + '\n' + notes.description) +
         section("ARGUMENTS", list(command.arguments)) + section("OPTIONS", list(command.options)) +
         section("EXIT STATUS", notes.exitStatus) + section("EXAMPLES", notes.examples) +
         section("SEE ALSO", bold(program.name) + "(1)");
}

}  // namespace clipworks::app
