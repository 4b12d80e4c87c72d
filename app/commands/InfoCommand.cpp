#include <string>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/AssetDescription.h>
#include <app/Command.h>
#include <clipworks/edit/Describe.h>
#include <clipworks/edit/Edit.h>

namespace clipworks::app {
namespace {

class InfoCommand final : public Command {
 public:
  std::string name() const override { return "info"; }
  std::string purpose() const override { return "Tell what files hold: length, tracks, orientation, edits"; }
  std::string notes() const override {
    return "A file that cannot be read is named on standard error; the others are still told.\n"
           "With --json one object is printed, with all figures.\n\n"
           "Examples: clipworks info clip.mp4 voice.m4a\n"
           "          clipworks --json info clip.mp4\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", files_, "The files")->type_name("")->required();
  }

  Needs needs() const override { return {{files_.begin(), files_.end()}}; }

  Outcome run(const Program& program) override {
    if (program.options.planOnly) return wrongUse("info makes nothing; --plan is for commands that do");
    if (program.options.json) program.reporter.keepEventsOff();
    std::vector<std::string> objects;
    std::vector<Failure> errors;
    for (const auto& file : files_) {
      const auto asset = AVAsset::make(URL(file), program.options.inputs);
      const std::string error = asset->loadError();
      if (!error.empty()) errors.push_back(failureOf(file, program.options));
      if (program.options.json) {
        objects.push_back(describe(file, program.options.inputs));
      } else if (error.empty()) {
        program.reporter.text(describedForPeople(file, *asset));
      }
    }
    if (program.options.json) program.reporter.text(fmt::format("{{\"files\":[{}]}}\n", fmt::join(objects, ",")));
    if (errors.empty()) return {};
    for (std::size_t i = 0; i + 1 < errors.size(); ++i) program.reporter.warning(errors[i].sentence);
    return failure(errors.back());
  }

 private:
  static Failure failureOf(const std::string& file, const Options& options) {
    const auto edit = Edit::open(file, Edit::Extent::movie, options.inputs);
    return edit ? Failure{} : app::failureOf(edit.error(), options.limits);
  }

  std::vector<std::string> files_;
};

const RegisteredCommand<InfoCommand> registration;

}  // namespace
}  // namespace clipworks::app
