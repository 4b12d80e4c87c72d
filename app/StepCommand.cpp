#include <app/StepCommand.h>

#include <CLI/CLI.hpp>

#include <app/EditRun.h>

namespace clipworks::app {

void StepCommand::configure(CLI::App& parser) {
  if (!follows_) {
    auto* file = parser.add_option("FILE", files_, takesSeveralFiles() ? "The clips" : "The clip");
    file->type_name("")->required();
    if (!takesSeveralFiles()) file->expected(1);
  }
  addOptions(parser);
}

Outcome StepCommand::run(const Program& program) { return runEdit({this}, program); }

}  // namespace clipworks::app
