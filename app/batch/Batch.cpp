#include <app/batch/Batch.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <thread>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <app/ProgressLine.h>
#include <app/jobs/Job.h>

namespace clipworks::app {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

/// The codes of jobs that failed, from what helps least.
constexpr std::array severity{ExitCode::done,     ExitCode::tryAgain, ExitCode::limitReached,
                              ExitCode::wrongUse, ExitCode::failed,   ExitCode::interrupted};

ExitCode worse(ExitCode one, ExitCode other) {
  const auto rank = [](ExitCode code) { return std::find(severity.begin(), severity.end(), code); };
  return rank(one) < rank(other) ? other : one;
}

/// A crash comes as `internal`, and may have been the machine's.
bool mayBeTriedAgain(const Failure& failure, int attempts) {
  return failure.code == ExitCode::tryAgain || (failure.cause == ErrorCode::internal && attempts < 2);
}

std::int64_t memoryIn(const std::string& plans) {
  const json told = json::parse(plans, nullptr, false);
  std::int64_t most = 0;
  if (!told.is_object()) return most;
  for (const auto& plan : told.value("plans", json::array()))
    most = std::max(most, plan.value("memory", std::int64_t(0)));
  return most;
}

WorkerOptions workerOptions(const Options& options) {
  WorkerOptions worker;
  worker.program = "/proc/self/exe";
  worker.requiresConfinement = options.confinement == ConfinementMode::required;
  return worker;
}

}  // namespace

Batch::Batch(JobList jobs, const BatchOptions& options, const Program& program)
    : list_(std::move(jobs)),
      options_(options),
      hostOptions_(program.options),
      reporter_(program.reporter),
      stop_(program.interruption.token()),
      memory_(options.memory) {}

Outcome Batch::run() {
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < options_.jobs; ++i) threads.emplace_back([this] { work(); });
  }
  tellEnd();
  if (stop_.stop_requested()) return failure(Failure{ExitCode::interrupted, "interrupted", ErrorCode::cancelled});
  if (failed_ == 0) return {};
  return failure(Failure{worst_, fmt::format("{} of {} jobs failed", failed_, done_ + skipped_ + failed_), {}});
}

void Batch::work() {
  Worker worker(workerOptions(hostOptions_));
  while (const auto job = next()) {
    const Ended ended = doOne(worker, *job);
    if (!ended.report && ended.report.error().code == ExitCode::interrupted) return;
    note(ended);
  }
}

std::optional<ListedJob> Batch::next() {
  const std::lock_guard lock(mutex_);
  if (stop_.stop_requested()) return std::nullopt;
  return list_.next();
}

Batch::Ended Batch::doOne(Worker& worker, const ListedJob& job) {
  Ended ended;
  ended.job = job;
  const auto begun = std::chrono::steady_clock::now();
  const auto parsed = Job::parse(job.text);
  if (!parsed) {
    ended.report = failure(parsed.error());
    return ended;
  }
  ended.id = parsed->id;
  const bool isFree = [&] {
    const std::lock_guard lock(mutex_);
    return outputs_.take(parsed->output);
  }();
  if (!isFree) {
    ended.report = wrongUse("another job of the batch makes " + parsed->output.string());
    return ended;
  }
  const auto& words = parsed->commands.front();
  const bool hasLimit =
      std::any_of(words.begin(), words.end(), [](const auto& word) { return word.starts_with("--memory="); });
  do {
    if (ended.attempts > 0 && !waits(std::exp2(ended.attempts - 1))) break;
    ended.report = attempt(worker, job, hasLimit);
    ++ended.attempts;
  } while (!ended.report && ended.attempts < options_.attempts &&
           mayBeTriedAgain(ended.report.error(), ended.attempts));
  ended.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
  return ended;
}

std::vector<std::string> Batch::words(const ListedJob& job) const {
  std::vector<std::string> words{"run", job.text, "--threads", std::to_string(options_.threads)};
  const auto& inputs = hostOptions_.inputs;
  if (options_.replaces) words.emplace_back("--force");
  if (options_.wantsSHA256) words.emplace_back("--sha256");
  if (inputs.takesAnyCodec) words.emplace_back("--any-codec");
  if (inputs.mostPixels > 0) words.insert(words.end(), {"--max-pixels", std::to_string(inputs.mostPixels)});
  if (inputs.mostSeconds > 0) words.insert(words.end(), {"--max-seconds", fmt::format("{}", inputs.mostSeconds)});
  return words;
}

Result<WorkerReport, Failure> Batch::attempt(Worker& worker, const ListedJob& job, bool hasLimit) {
  auto all = words(job);
  all.emplace_back("--plan");
  const auto planned = worker.run(all, {}, stop_);
  if (!planned) return failure(failureOf(planned.error(), {}));
  if (planned->wasDone) return *planned;
  const std::int64_t memory = memoryIn(planned->text);
  if (!memory_.take(memory, stop_)) {
    if (stop_.stop_requested()) return failure(Failure{ExitCode::interrupted, "interrupted", ErrorCode::cancelled});
    return failure(
        Failure{ExitCode::limitReached,
                fmt::format("it may need {} of memory, and the batch has {}", shownSize(static_cast<double>(memory)),
                            shownSize(static_cast<double>(options_.memory))),
                ErrorCode::limitReached});
  }
  all.pop_back();
  if (!hasLimit) all.insert(all.end(), {"--memory", std::to_string(memory)});
  const auto onProgress = [this, &job](double share) {
    {
      const std::lock_guard lock(mutex_);
      running_[job.line] = share;
    }
    showProgress();
  };
  auto done = worker.run(all, onProgress, stop_);
  memory_.giveBack(memory);
  if (!done) return failure(failureOf(done.error(), {}));
  return std::move(*done);
}

/// False where it was interrupted.
bool Batch::waits(double seconds) {
  std::unique_lock lock(mutex_);
  std::condition_variable_any never;
  never.wait_for(lock, stop_, std::chrono::duration<double>(seconds), [] { return false; });
  return !stop_.stop_requested();
}

void Batch::note(const Ended& ended) {
  const auto& [job, id, report, attempts, seconds] = ended;
  ordered_json event{{"event", "job"}, {"line", job.line}};
  if (!id.empty()) event["id"] = id;
  event["state"] = !report ? "failed" : report->wasDone ? "skipped" : "done";
  if (report) {
    event["outputs"] = ordered_json::array();
    for (const auto& path : report->paths) event["outputs"].push_back(path.string());
  } else {
    event["message"] = report.error().sentence;
    event["exit"] = static_cast<int>(report.error().code);
    if (report.error().cause) event["code"] = name(*report.error().cause);
  }
  event["attempts"] = attempts;
  event["seconds"] = seconds;
  reporter_.event(event);
  if (!report)
    reporter_.warning(
        fmt::format("job {}: {}", id.empty() ? fmt::format("in line {}", job.line) : id, report.error().sentence));
  {
    const std::lock_guard lock(mutex_);
    running_.erase(job.line);
    if (report && (done_ + skipped_ == 0 || report->landlock < confinement_.landlock)) {
      confinement_.landlock = report->landlock;
      confinement_.systemCalls = report->systemCalls;
    }
    ++(!report ? failed_ : report->wasDone ? skipped_ : done_);
    if (!report) worst_ = worse(worst_, report.error().code);
  }
  showProgress();
}

void Batch::showProgress() {
  const std::lock_guard lock(mutex_);
  const auto elapsed = std::chrono::steady_clock::now() - start_;
  const std::int64_t ended = done_ + skipped_ + failed_;
  std::string line =
      fmt::format("{:.1f} jobs a second", static_cast<double>(ended) / std::chrono::duration<double>(elapsed).count());
  if (failed_ > 0) line += fmt::format(", {} failed", failed_);
  if (!list_.count()) return reporter_.status(fmt::format("{} jobs, {}", ended, line));
  double share = static_cast<double>(ended);
  for (const auto& [number, part] : running_) share += part;
  share /= static_cast<double>(*list_.count());
  reporter_.progress(share);
  reporter_.status(fmt::format("{}  {} of {}, {}",
                               progressLine(share, std::chrono::duration_cast<std::chrono::milliseconds>(elapsed)),
                               ended, *list_.count(), line));
}

void Batch::tellEnd() {
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  const std::int64_t ended = done_ + skipped_ + failed_;
  reporter_.confined(confinement_);
  reporter_.event({{"event", "report"},
                   {"jobs", ended},
                   {"done", done_},
                   {"skipped", skipped_},
                   {"failed", failed_},
                   {"seconds", seconds}});
  std::string text = fmt::format("{} jobs in {:.1f} s: {} done", ended, seconds, done_);
  if (skipped_ > 0) text += fmt::format(", {} done before", skipped_);
  if (failed_ > 0) text += fmt::format(", {} failed", failed_);
  reporter_.note(text);
}

}  // namespace clipworks::app
