#include <app/CommandLine.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>
#include <type_traits>

#include <CLI/CLI.hpp>

#include <app/Licenses.h>
#include <app/ParseNumber.h>
#include <app/StepCommand.h>

namespace clipworks::app {
namespace {

constexpr const char* purpose = "Edits real phone clips, exactly and fast, and tells what they hold.";

constexpr const char* notes = R"(Examples:
  clipworks loop clip.mp4 --count 3
  clipworks speed clip.mp4 --from 2 --to 4 --ratio 2 then crop --rect 0,0,800,800 then compress --preset 720p -o short.mp4
  clipworks --json info clip.mp4

"then" joins steps to one movie that is encoded once; times and rectangles of
a step are those of what the step before it shows.

A new file is named after its clip and what was done ("clip-looped.mp4"), with
a number behind where that is there already. Its path goes to standard output,
everything else to standard error. `clipworks COMMAND --help` tells a command's
own arguments.

Exit codes: 0 done; 1 failed, with the reason on standard error; 2 wrong use,
nothing was done; 3 a limit of the options was reached; 4 the system had no
space, memory or service, and the same may succeed later; 130 interrupted. But
for 0, no file is left.)";

const std::map<std::string, CodecChoice> codecNames{
    {"auto", CodecChoice::automatic}, {"h264", CodecChoice::h264}, {"hevc", CodecChoice::hevc}};

const std::map<std::string, ConfinementMode> confinementNames{
    {"auto", ConfinementMode::automatic}, {"require", ConfinementMode::required}, {"off", ConfinementMode::off}};

/// Broken arguments leave the options unset, but how to tell of them depends on this one.
bool asksForJson(int argc, const char* const* argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--") return false;
    if (argument == "--json") return true;
  }
  return false;
}

/// An option whose value is a number from `least` to `most`; `what` names it for people.
template <class Number>
void addNumber(CLI::App& parser, const std::string& option, const std::string& type, Number& number, double least,
               double most, const std::string& what, const std::string& description) {
  parser
      .add_option_function<std::string>(
          option, [&number](const std::string& text) { number = static_cast<Number>(*parseNumber(text)); }, description)
      ->type_name(type)
      ->check([=](const std::string& text) {
        const auto typed = parseNumber(text);
        const bool isWhole = !std::is_integral_v<Number> || (typed && *typed == std::floor(*typed));
        return typed && isWhole && *typed >= least && *typed <= most ? "" : "takes " + what + ", not \"" + text + "\"";
      });
}

void addSize(CLI::App& parser, const std::string& option, std::optional<std::int64_t>& size, const std::string& help) {
  parser
      .add_option_function<std::string>(
          option, [&size](const std::string& text) { size = bytesIn(text); }, help)
      ->type_name("SIZE")
      ->check([](const std::string& text) {
        return bytesIn(text) ? "" : "takes a size such as 500MB or 1.5GiB, not \"" + text + "\"";
      });
}

std::string notEmpty(const std::string& text) { return text.empty() ? "takes the path of a directory" : ""; }

std::string sentenceFor(const CLI::App& parser, const CLI::ParseError& error) {
  // Without a command nothing else was understood either; the first such word is what people mistyped.
  const auto unknown = parser.remaining();
  if (parser.get_subcommands().empty() && !unknown.empty()) return "\"" + unknown.front() + "\" is not known";
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

/// The words of each command; "then" stands between them.
std::vector<std::vector<std::string>> splitAtThen(int argc, const char* const* argv) {
  std::vector<std::vector<std::string>> parts(1);
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "then") {
      parts.emplace_back();
    } else {
      parts.back().emplace_back(argv[i]);
    }
  }
  return parts;
}

}  // namespace

CommandLine::CommandLine() {
  addRunOptions(first_.parser);
  addMovieOptions(first_.parser);
  addCommands(first_, Origin::commandLine, false);
}

void CommandLine::addRunOptions(CLI::App& parser) {
  parser.name("clipworks");
  parser.description(purpose);
  parser.get_formatter()->column_width(30);
  parser.get_formatter()->label("REQUIRED", "(needed)");
  parser.get_formatter()->label("SUBCOMMAND", "COMMAND");
  parser.get_formatter()->label("Positionals", "Arguments");
  parser.footer(notes);
  parser.require_subcommand(0, 1);
  parser
      .add_option_function<std::string>(
          "-o,--output", [this](const std::string& file) { options_.output = file; },
          "The new file; default: a name of its own in --outputs")
      ->type_name("FILE")
      ->check([](const std::string& text) { return text.empty() ? "takes the path of a file" : ""; });
  parser.add_flag("--force", options_.replacesFile, "Replace the file of --output where it is there already");
  parser.add_flag("--plan", options_.planOnly, "Tell what would be done, and do nothing");
  parser
      .add_option_function<std::string>(
          "--outputs", [this](const std::string& directory) { options_.outputs = directory; },
          "Where results go; default: the current directory")
      ->type_name("DIR")
      ->check(notEmpty);
  parser
      .add_option_function<std::string>(
          "--temp", [this](const std::string& directory) { options_.temp = directory; },
          "Where intermediate files go; edits make none")
      ->type_name("DIR")
      ->check(notEmpty);
  parser.add_flag("--json", options_.json, "Standard output holds JSON lines: progress, done or error");
  parser.add_flag("--verbose", options_.verbose, "Tell why tracks were encoded, too");
  parser
      .add_option_function<std::string>(
          "--confinement", [this](const std::string& name) { options_.confinement = confinementNames.at(name); },
          "Give up, before a clip is read, what clips never need:\nother files, the network, other programs; default: auto,\nas far as the system allows")
      ->type_name("auto|require|off")
      ->check([](const std::string& name) {
        return confinementNames.contains(name) ? "" : "takes auto, require or off, not \"" + name + "\"";
      });
  parser.set_version_flag("--version", "clipworks " CLIPWORKS_VERSION, "Print the version");
  parser.add_flag_callback(
      "--licenses", [] { throw CLI::CallForVersion(licenses(), 0); }, "Print the licences that hold for this program");
  parser.set_help_flag("-h,--help", "Print this help");
}

void CommandLine::addMovieOptions(CLI::App& parser) {
  parser
      .add_option_function<std::string>(
          "--codec", [this](const std::string& name) { options_.codec = codecNames.at(name); },
          "For the pictures; default: auto, which is HEVC where the first\ninput is HEVC and can be copied in part, else H.264")
      ->type_name("auto|h264|hevc")
      ->check([](const std::string& name) {
        return codecNames.contains(name) ? "" : "takes auto, h264 or hevc, not \"" + name + "\"";
      });
  parser.add_flag(
      "--strip-metadata", options_.stripMetadata,
      "Leave out the date, place and device of the recording,\nand its data tracks, which are kept otherwise");
  parser.add_flag_callback(
      "--verify", [this] { options_.verification = Verification::always; },
      "Decode each result once and compare it with its plan; done\nby itself where pictures are copied in pieces");
  parser.add_flag_callback(
      "--no-verify", [this] { options_.verification = Verification::never; }, "Do not, even there");
  parser.add_flag(
      "--clean", options_.clean,
      "Leave nothing in the file that is not shown: encode the\ngroups of pictures that a cut goes through");
  // Not for people: what a page shows while somebody works.
  parser.add_flag("--draft", options_.draft, "Encode quickly, to look at")->group("");
  parser.add_flag("--strict", options_.strict,
                  "Fail where pictures of an input are damaged, instead of\nshowing what could be decoded");
  addSize(parser, "--memory", options_.limits.memory, "The most memory, such as 1GB; more is a failure");
  addSize(parser, "--max-output", options_.limits.file,
          "The most bytes of a new file, such as 500MB; more is a\nfailure");
  constexpr double mostPixels = 268'435'456;
  addNumber(parser, "--max-pixels", "N", options_.inputs.mostPixels, 1, mostPixels,
            "a whole number from 1 to 268435456", "Fail where pictures of an input have more, width × height");
  constexpr double leastSeconds = 0.001;
  constexpr double mostSeconds = 1e9;
  addNumber(parser, "--timeout", "S", options_.limits.seconds, leastSeconds, mostSeconds, "seconds, more than 0",
            "The most seconds that it may take; longer is a failure");
  addNumber(parser, "--max-seconds", "S", options_.inputs.mostSeconds, leastSeconds, mostSeconds,
            "seconds, more than 0", "Fail where an input lasts longer");
  parser.add_flag("--any-codec", options_.inputs.takesAnyCodec,
                  "Decode whatever the libraries can, not only what\ntelephones, cameras and screen recorders write");
  constexpr double mostThreads = 1024;
  addNumber(parser, "--threads", "N", options_.threads, 1, mostThreads, "a whole number from 1 to 1024",
            "Of each encoder and decoder, at most; default: as many as\nsuit the processors that the program may use");
}

void CommandLine::addCommands(Part& part, Origin origin, bool follows) {
  part.commands = makeCommands();
  for (const auto& command : part.commands) {
    auto* step = dynamic_cast<StepCommand*>(command.get());
    if (origin == Origin::job && (step == nullptr || command->isPrivate())) continue;
    if (follows && step != nullptr) step->follow();
    CLI::App* parser =
        part.parser.add_subcommand(command->name(), command->purpose())->group(command->isPrivate() ? "" : "Commands");
    // The program's options are understood behind the command, too.
    parser->fallthrough();
    parser->footer(command->notes() +
                   "\n\"clipworks --help\" tells the options that hold for every command, and the exit codes.");
    command->configure(*parser);
  }
}

CommandLine::Part& CommandLine::addPart(Origin origin, bool follows) {
  Part& part = *later_.emplace_back(std::make_unique<Part>());
  if (origin == Origin::commandLine) addRunOptions(part.parser);
  addMovieOptions(part.parser);
  addCommands(part, origin, follows);
  return part;
}

const CLI::App& CommandLine::jobParser() { return addPart(Origin::job, true).parser; }

Result<Command*, Failure> CommandLine::parse(Part& part, const Words& words) {
  try {
    part.parser.parse(Words(words.rbegin(), words.rend()));  // the library wants the last word first
  } catch (const CLI::Success& asked) {
    part.parser.exit(asked);
    return nullptr;
  } catch (const CLI::ParseError& error) {
    const auto chosen = part.parser.get_subcommands();
    const std::string command = chosen.empty() ? "" : chosen.front()->get_name() + " ";
    return wrongUse(sentenceFor(part.parser, error) + "; \"clipworks " + command + "--help\" tells more");
  }
  if (part.parser.get_subcommands().empty()) return wrongUse("a command is needed; \"clipworks --help\" lists them");
  const std::string name = part.parser.get_subcommands().front()->get_name();
  return std::find_if(part.commands.begin(), part.commands.end(),
                      [&name](const auto& command) { return command->name() == name; })
      ->get();
}

Result<std::vector<Command*>, Failure> CommandLine::parse(const std::vector<Words>& words, Origin origin) {
  std::vector<Command*> commands;
  for (const Words& part : words) {
    const bool isFirst = commands.empty();
    const auto command = parse(isFirst && origin == Origin::commandLine ? first_ : addPart(origin, !isFirst), part);
    if (!command) return failure(command.error());
    if (*command == nullptr) return std::vector<Command*>{};
    const auto* before = isFirst ? nullptr : dynamic_cast<StepCommand*>(commands.back());
    if (!isFirst && (before == nullptr || before->isLast()))
      return wrongUse("nothing can follow \"" + commands.back()->name() + "\"");
    commands.push_back(*command);
    const bool isStep = dynamic_cast<StepCommand*>(*command) != nullptr;
    if (!isStep && !isFirst) return wrongUse("\"" + (*command)->name() + "\" cannot stand behind \"then\"");
  }
  return commands;
}

Result<std::vector<Command*>, Failure> CommandLine::parseJob(const Job& job, const Words& hostWords) {
  if (options_.output) return wrongUse("a job names its own new file; --output goes with other commands");
  auto commands = parse(job.commands, Origin::job);
  if (!commands) return commands;
  // Again: what the host asks for holds, whatever the job says.
  if (const auto again = parse(first_, hostWords); !again) return failure(again.error());
  options_.output = job.output;
  options_.job = job;
  return commands;
}

Result<std::vector<Command*>, Failure> CommandLine::parse(int argc, const char* const* argv) {
  const auto words = splitAtThen(argc, argv);
  auto commands = parse(words, Origin::commandLine);
  if (!commands) options_.json = asksForJson(argc, argv);
  if (!commands || commands->size() != 1) return commands;
  const auto job = commands->front()->job();
  if (!job) return failure(job.error());
  return *job ? parseJob(**job, words.front()) : commands;
}

}  // namespace clipworks::app
