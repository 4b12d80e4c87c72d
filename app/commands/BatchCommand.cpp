#include <algorithm>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <app/Command.h>
#include <app/batch/Batch.h>
#include <clipworks/edit/SystemFacts.h>

namespace clipworks::app {
namespace {

// Of what is there: other programs want to live, too.
constexpr double shareOfMemory = 0.8;
constexpr int mostJobs = 1024;

class BatchCommand final : public Command {
 public:
  std::string name() const override { return "batch"; }
  std::string purpose() const override { return "Do many jobs, several at the same time"; }
  std::string notes() const override {
    return "JOBS has a job in each line, as \"clipworks run\" takes it. Each runs in a confined\n"
           "process of its own, and leaves a receipt. As many run at the same time as there are\n"
           "processors, and as fit into memory by their plans. Those that fail do not hold up\n"
           "others; what may succeed later (exit code 4) is tried again. After any end the same\n"
           "command with --resume does what is left. --memory and --timeout hold for all of it.\n\n"
           "Exit code 0 when all jobs are done, else that of the worst.\n\n"
           "Examples: clipworks batch jobs.jsonl --jobs 4\n"
           "          clipworks batch --from clips --preset 480p --outputs small";
  }

  void configure(CLI::App& parser) override {
    parser.add_option("JOBS", place_, "A file with a job in each line, or - for standard input")->type_name("");
    parser.add_option("--from", directory_, "In place of JOBS: compress every clip in this directory")
        ->type_name("DIR");
    parser.add_option("--preset", preset_, "With --from: see \"clipworks compress --help\"")->type_name("P");
    parser.add_option("--max-size", maxSize_, "With --from: of each new file, such as 25MB")->type_name("SIZE");
    parser.add_option("--jobs", jobs_, "How many at the same time; default: as many as processors")
        ->type_name("N")
        ->check(CLI::Range(1, mostJobs));
    parser.add_flag("--resume", resumes_, "Replace files that are there and have no receipt that fits");
    parser.add_flag("--sha256", wantsSHA256_, "Have SHA-256 in the receipts, too");
  }

  /// Reads the list alone; clips are read by its workers.
  Needs needs() const override { return {.isTrusted = true}; }

  Outcome run(const Program& program) override {
    const Options& options = program.options;
    if (options.planOnly) return wrongUse("a batch has no plan; \"clipworks run --plan\" tells a job's");
    if (options.output) return wrongUse("jobs name their own new files; --outputs goes with --from");
    if (place_.empty() == directory_.empty()) return wrongUse("either JOBS or --from is needed");
    if (directory_.empty() && (!preset_.empty() || !maxSize_.empty()))
      return wrongUse("--preset and --max-size go with --from");
    auto jobs = directory_.empty() ? JobList::open(place_) : jobsForDirectory(options);
    if (!jobs) return failure(jobs.error());
    const int processors = usableProcessors();
    BatchOptions batch;
    batch.jobs = jobs_.value_or(processors);
    batch.threads = options.threads > 0 ? options.threads : std::max(1, processors / batch.jobs);
    batch.memory =
        options.limits.memory.value_or(static_cast<std::int64_t>(shareOfMemory * static_cast<double>(usableMemory())));
    batch.replaces = resumes_ || options.replacesFile;
    batch.wantsSHA256 = wantsSHA256_;
    program.interruption.defer();
    if (const Outcome done = Batch(std::move(*jobs), batch, program).run(); !done) return done;
    program.reporter.done();
    return {};
  }

 private:
  Result<JobList, Failure> jobsForDirectory(const Options& options) const {
    nlohmann::ordered_json step = nlohmann::ordered_json::object();
    if (!preset_.empty()) step["preset"] = preset_;
    if (!maxSize_.empty()) step["max-size"] = maxSize_;
    if (step.empty()) return wrongUse("--from needs --preset or --max-size");
    return JobList::compressing(directory_, options.outputs, step.dump());
  }

  std::string place_;
  std::string directory_;
  std::string preset_;
  std::string maxSize_;
  std::optional<int> jobs_;
  bool resumes_ = false;
  bool wantsSHA256_ = false;
};

const RegisteredCommand<BatchCommand> registration;

}  // namespace
}  // namespace clipworks::app
