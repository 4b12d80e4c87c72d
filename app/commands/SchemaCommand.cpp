#include <app/Command.h>
#include <app/CommandLine.h>
#include <app/jobs/JobSchema.h>

namespace clipworks::app {
namespace {

class SchemaCommand final : public Command {
 public:
  std::string name() const override { return "schema"; }
  std::string purpose() const override { return "Print the JSON schema of jobs"; }
  std::string notes() const override {
    return "Jobs are what \"clipworks run\" and \"clipworks batch\" do.\n\nExample: clipworks schema > job.schema.json";
  }
  void configure(CLI::App&) override {}
  Needs needs() const override {
    Needs needs;
    needs.isTrusted = true;
    return needs;
  }
  Outcome run(const Program& program) override {
    CommandLine commandLine;
    program.reporter.text(jobSchema(CommandSyntax::of(commandLine.jobParser())));
    return {};
  }
};

const RegisteredCommand<SchemaCommand> registration;

}  // namespace
}  // namespace clipworks::app
