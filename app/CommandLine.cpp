#include <app/CommandLine.h>

#include <algorithm>
#include <map>
#include <string_view>

#include <CLI/CLI.hpp>

#include <app/Licenses.h>

namespace clipworks::app {
namespace {

constexpr const char* purpose = "Edits real phone clips, exactly and fast, and tells what they hold.";

constexpr const char* notes = R"(Examples:
  clipworks loop clip.mp4 --count 3
  clipworks --outputs results --verbose loop clip.mov --count 10
  clipworks --json info clip.mp4

The path of each new file goes to standard output, everything else to standard
error. `clipworks COMMAND --help` tells a command's own arguments.

Exit codes: 0 done; 1 failed, with the reason on standard error; 2 wrong use,
nothing was done; 130 interrupted, no file is left.)";

const std::map<std::string, CodecChoice> codecNames{
    {"auto", CodecChoice::automatic}, {"h264", CodecChoice::h264}, {"hevc", CodecChoice::hevc}};

/// Broken arguments leave the options unset, but how to tell of them depends on this one.
bool asksForJson(int argc, const char* const* argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--") return false;
    if (argument == "--json") return true;
  }
  return false;
}

std::string notEmpty(const std::string& text) { return text.empty() ? "takes the path of a directory" : ""; }

}  // namespace

CommandLine::CommandLine() : parser_(purpose, "clipworks") {
  parser_.get_formatter()->column_width(30);
  parser_.get_formatter()->label("REQUIRED", "(needed)");
  parser_.get_formatter()->label("SUBCOMMAND", "COMMAND");
  parser_.get_formatter()->label("Positionals", "Arguments");
  parser_.footer(notes);
  parser_.require_subcommand(0, 1);
  addOptions();
  addCommands();
}

void CommandLine::addOptions() {
  parser_
      .add_option_function<std::string>(
          "--outputs", [this](const std::string& directory) { options_.outputs = directory; },
          "Where results go; default: the current directory")
      ->type_name("DIR")
      ->check(notEmpty);
  parser_
      .add_option_function<std::string>(
          "--temp", [this](const std::string& directory) { options_.temp = directory; },
          "Where intermediate files go; default: a hidden directory\nbeside the results, gone at the end")
      ->type_name("DIR")
      ->check(notEmpty);
  parser_.add_flag("--json", options_.json, "Standard output holds JSON lines: progress, done or error");
  parser_.add_flag("--verbose", options_.verbose, "Show the library's own lines, too");
  parser_
      .add_option_function<std::string>(
          "--codec", [this](const std::string& name) { options_.codec = codecNames.at(name); },
          "For the pictures; default: auto, which is HEVC where the first\ninput is HEVC, else H.264")
      ->type_name("auto|h264|hevc")
      ->check([](const std::string& name) {
        return codecNames.contains(name) ? "" : "takes auto, h264 or hevc, not \"" + name + "\"";
      });
  parser_.add_flag("--strip-metadata", options_.stripMetadata,
                   "Leave out the date, place and device of the recording,\nwhich are kept otherwise");
  parser_.add_flag("--strict", options_.strict,
                   "Fail where pictures of an input are damaged, instead of\nshowing what could be decoded");
  parser_.set_version_flag("--version", "clipworks " CLIPWORKS_VERSION, "Print the version");
  parser_.add_flag_callback(
      "--licenses", [] { throw CLI::CallForVersion(licenses(), 0); }, "Print the licences that hold for this program");
  parser_.set_help_flag("-h,--help", "Print this help");
}

void CommandLine::addCommands() {
  commands_ = makeCommands();
  for (const auto& command : commands_) {
    CLI::App* parser = parser_.add_subcommand(command->name(), command->purpose())->group("Commands");
    // The program's options are understood behind the command, too.
    parser->fallthrough();
    parser->footer(command->notes());
    command->configure(*parser);
  }
}

std::string CommandLine::sentenceFor(const CLI::ParseError& error) const {
  // Without a command nothing else was understood either; the first such word is what people mistyped.
  const auto unknown = parser_.remaining();
  if (parser_.get_subcommands().empty() && !unknown.empty()) return "\"" + unknown.front() + "\" is not known";
  // The library's own sentences begin with the option's name and a colon; of unknown words they end with them.
  const std::string sentence = error.what();
  const std::size_t colon = sentence.find(": ");
  if (colon == std::string::npos) return sentence;
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr)
    return "\"" + sentence.substr(colon + 2) + "\" is not known";
  const std::string option = sentence.substr(0, colon);
  const bool isBare = dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr;
  return option + (isBare ? " needs a value" : sentence.substr(colon + 1));
}

Result<Command*, Failure> CommandLine::parse(int argc, const char* const* argv) {
  try {
    parser_.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    parser_.exit(asked);
    return nullptr;
  } catch (const CLI::ParseError& error) {
    options_.json = asksForJson(argc, argv);
    const auto chosen = parser_.get_subcommands();
    const std::string command = chosen.empty() ? "" : chosen.front()->get_name() + " ";
    return wrongUse(sentenceFor(error) + "; \"clipworks " + command + "--help\" tells more");
  }
  if (parser_.get_subcommands().empty()) return wrongUse("a command is needed; \"clipworks --help\" lists them");
  const std::string name = parser_.get_subcommands().front()->get_name();
  const auto chosen = std::find_if(commands_.begin(), commands_.end(),
                                   [&name](const auto& command) { return command->name() == name; });
  return chosen->get();
}

}  // namespace clipworks::app
