#include <app/manual/CommandSyntax.h>

#include <CLI/CLI.hpp>

namespace clipworks::app {
namespace {

/// Line breaks are there for the columns of the help.
std::string onOneLine(const std::string& text) { return CLI::detail::find_and_replace(text, "\n", " "); }

std::vector<std::string> namesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const auto& name : option.get_snames()) names.push_back("-" + name);
  for (const auto& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

/// The commands' way to write values: "a|b" are words to choose from, DIR is a directory, what begins with FILE or
/// AUDIO is one.
OptionSyntax::Offer offerFor(const std::string& value) {
  using Offer = OptionSyntax::Offer;
  if (value.find('|') != std::string::npos) return Offer::choices;
  if (value == "DIR") return Offer::directories;
  return value.starts_with("FILE") || value.starts_with("AUDIO") ? Offer::files : Offer::nothing;
}

std::string descriptionOf(const CLI::Option& option) {
  std::string description = onOneLine(option.get_description());
  for (const auto* other : option.get_excludes()) description += "; not together with " + other->get_name();
  return description;
}

OptionSyntax syntaxOf(const CLI::Option& option) {
  OptionSyntax syntax;
  syntax.names = namesOf(option);
  if (syntax.names.empty()) {
    syntax.value = option.get_name(true);
  } else if (option.get_type_size() != 0) {
    syntax.value = option.get_type_name();
  }
  syntax.offer = offerFor(syntax.value);
  if (syntax.offer == OptionSyntax::Offer::choices) syntax.choices = CLI::detail::split(syntax.value, '|');
  syntax.description = descriptionOf(option);
  syntax.isNeeded = option.get_required();
  syntax.isRepeated = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
  return syntax;
}

}  // namespace

CommandSyntax CommandSyntax::of(const CLI::App& parser) {
  CommandSyntax syntax{parser.get_name(), parser.get_description(), parser.get_footer(), {}, {}, {}};
  for (const auto* option : parser.get_options([](const CLI::Option*) { return true; })) {
    (option->nonpositional() ? syntax.options : syntax.arguments).push_back(syntaxOf(*option));
  }
  for (const auto* command : parser.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) syntax.commands.push_back(of(*command));  // else it is shown to nobody
  }
  return syntax;
}

}  // namespace clipworks::app
