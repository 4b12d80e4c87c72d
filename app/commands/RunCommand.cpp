#include <CLI/CLI.hpp>

#include <app/Command.h>

namespace clipworks::app {
namespace {

/// Stands for the commands of a job, which run in its place.
class RunCommand final : public Command {
 public:
  std::string name() const override { return "run"; }
  std::string purpose() const override { return "Do a job that is written as JSON, once"; }
  std::string notes() const override {
    return "A job is one line of JSON. The keys of a step are its command's options without\n"
           "dashes; \"clipworks schema\" tells all of them. Beside the new file, which is never\n"
           "there in part, FILE.receipt.json is left last: the job, digests of what was read\n"
           "and made, and how. A job whose files fit its receipt is done, and returns at once.\n"
           "A file that is there without one is replaced with --force only.\n\n"
           "Example: clipworks run '{\"in\": \"a.mp4\", \"steps\": [{\"step\": \"trim\", \"from\": 1, \"to\": 2.5},\n"
           "             {\"step\": \"compress\", \"preset\": \"480p\"}], \"out\": \"b.mp4\"}'";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("JOB", place_, "A file with the job, - for standard input, or the JSON itself")
        ->type_name("")
        ->required();
    parser.add_flag("--sha256", wantsSHA256_, "Have SHA-256 in the receipt, too");
  }

  Result<std::optional<Job>, Failure> job() const override {
    auto job = Job::read(place_);
    if (!job) return failure(job.error());
    job->wantsSHA256 = wantsSHA256_;
    return std::move(*job);
  }

  Outcome run(const Program&) override { return failed("a job's own commands run in its place"); }

 private:
  std::string place_;
  bool wantsSHA256_ = false;
};

const RegisteredCommand<RunCommand> registration;

}  // namespace
}  // namespace clipworks::app
