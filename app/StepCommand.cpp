#include <app/StepCommand.h>

#include <CLI/CLI.hpp>

#include <app/EditRun.h>

namespace clipworks::app {

void StepCommand::configure(CLI::App& parser) {
  const Files files = takesFiles();
  if (!follows_ || files == Files::asOne) {
    auto* file = parser.add_option("FILE", files_, files == Files::one ? "The clip" : "The clips");
    file->type_name("")->required();
    if (files == Files::one) file->expected(1);
  }
  addOptions(parser);
}

std::vector<std::filesystem::path> StepCommand::files() const {
  if (follows_) return {};
  return {files_.begin(), takesFiles() == Files::asOne ? files_.begin() + 1 : files_.end()};
}

std::vector<std::filesystem::path> StepCommand::otherFiles() const {
  return {files_.begin() + (follows_ ? 0 : 1), files_.end()};
}

Result<Edit, Error> StepCommand::open(const std::filesystem::path& file, const InputLimits& limits) const {
  return Edit::open(file, extent(), limits);
}

Needs StepCommand::needs() const {
  Needs needs;
  needs.inputs.assign(files_.begin(), files_.end());
  needs.makesFiles = true;
  needs.replacedName = givenName();
  return needs;
}

Outcome StepCommand::run(const Program& program) { return runEdit({this}, program); }

}  // namespace clipworks::app
