#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <app/Command.h>
#include <app/Limits.h>
#include <app/confinement/Confinement.h>
#include <clipworks/edit/SystemFacts.h>

namespace clipworks::app {
namespace {

std::string kernel() {
  utsname facts{};
  return ::uname(&facts) == 0 ? std::string(facts.sysname) + " " + facts.release : "";
}

/// For whoever is no administrator; 0 where that cannot be told.
std::uint64_t freeBytes(const std::filesystem::path& directory) {
  struct statvfs facts {};
  return ::statvfs(directory.c_str(), &facts) == 0 ? facts.f_bavail * facts.f_frsize : 0;
}

class DoctorCommand final : public Command {
 public:
  std::string name() const override { return "doctor"; }
  std::string purpose() const override { return "Tell what this system has for the program, and what is missing"; }
  std::string notes() const override {
    return "Exit code 1 where a clip could not be edited here: an encoder is missing, or there is no space.\n\n"
           "Example: clipworks --json doctor";
  }
  void configure(CLI::App&) override {}
  Needs needs() const override { return {.isTrusted = true}; }

  Outcome run(const Program& program) override {
    const SystemFacts facts = systemFacts();
    const Confinement confinement = availableConfinement();
    const std::uint64_t free = freeBytes(program.options.outputs);
    if (program.options.json) {
      program.reporter.keepEventsOff();
      program.reporter.text(jsonOf(facts, confinement, free).dump() + '\n');
    } else {
      tell(program, facts, confinement, free);
    }
    for (const auto& encoder : facts.encoders) {
      if (!encoder.works) return failed("there is no working encoder for " + encoder.name);
    }
    if (free == 0) return failed("there is no space in " + program.options.outputs.string());
    return {};
  }

 private:
  static nlohmann::ordered_json jsonOf(const SystemFacts& facts, const Confinement& confinement, std::uint64_t free) {
    nlohmann::ordered_json object{{"version", CLIPWORKS_VERSION}, {"kernel", kernel()}};
    object["confinement"] = {{"landlock", confinement.landlock}, {"seccomp", confinement.systemCalls}};
    for (const auto& encoder : facts.encoders) object["encoders"][encoder.name] = encoder.works;
    object["recordsSound"] = facts.recordsSound;
    object["freeBytes"] = free;
    for (const auto& library : facts.libraries) object["libraries"][library.name] = library.version;
    return object;
  }

  static void tell(const Program& program, const SystemFacts& facts, const Confinement& confinement,
                   std::uint64_t free) {
    const bool hasColours = ::isatty(STDOUT_FILENO) == 1;
    const auto line = [&](bool isGood, const std::string& name, const std::string& text) {
      const char* mark = isGood ? "ok" : "--";
      const std::string shown = hasColours ? fmt::format("\x1b[{}m{}\x1b[0m", isGood ? 32 : 31, mark) : mark;
      program.reporter.text(fmt::format("{}  {:<14} {}\n", shown, name, text));
    };
    line(true, "version", "clipworks " CLIPWORKS_VERSION ", " + kernel());
    const std::string held = fmt::format("Landlock {}, seccomp", confinement.landlock);
    line(confinement.isWhole(), "confinement", confinement.isWhole() ? held : confinement.lacks());
    for (const auto& encoder : facts.encoders)
      line(encoder.works, encoder.name, encoder.works ? "can be encoded" : "cannot be encoded: no encoder opens");
    line(facts.recordsSound, "sound", facts.recordsSound ? "can be recorded" : facts.soundError);
    line(free > 0, "space",
         fmt::format("{} in {}", shownSize(static_cast<double>(free)), program.options.outputs.string()));
    std::vector<std::string> libraries;
    for (const auto& library : facts.libraries) libraries.push_back(library.name + " " + library.version);
    line(true, "libraries", fmt::format("{}", fmt::join(libraries, ", ")));
  }
};

const RegisteredCommand<DoctorCommand> registration;

}  // namespace
}  // namespace clipworks::app
