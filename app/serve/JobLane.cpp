#include <app/serve/JobLane.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <system_error>

namespace clipworks::app {
namespace {

constexpr std::size_t mostWaiting = 50;
constexpr std::size_t mostRemembered = 64;
constexpr double leastShareToReckon = 0.01;

}  // namespace

JobLane::JobLane(const WorkerOptions& options)
    : worker_(options), thread_([this](const std::stop_token& stop) { work(stop); }) {}

JobLane::~JobLane() {
  thread_.request_stop();
  const std::lock_guard lock(mutex_);
  for (auto& [number, source] : stops_) source.request_stop();
}

Result<std::uint64_t, Failure> JobLane::add(std::vector<std::string> words, const std::string& recipe) {
  const std::lock_guard lock(mutex_);
  for (const auto& [number, job] : jobs_) {
    const bool isOfUse = job.state != State::failed && job.state != State::cancelled && !isCancelled(number);
    if (!recipe.empty() && job.recipe == recipe && isOfUse) return number;
  }
  if (waiting_.size() >= mostWaiting) return failure(Failure{ExitCode::tryAgain, "too much waits to be done", {}});
  // One row for all lanes.
  static std::atomic<std::uint64_t> latest = 0;
  last_ = ++latest;
  jobs_.emplace(last_, Job{std::move(words), recipe});
  stops_.emplace(last_, std::stop_source());
  waiting_.push_back(last_);
  forgetOldest();
  changed_.notify_all();
  return last_;
}

/// With mutex_ held.
bool JobLane::isCancelled(std::uint64_t number) const {
  const auto found = stops_.find(number);
  return found != stops_.end() && found->second.stop_requested();
}

/// With mutex_ held.
void JobLane::forgetOldest() {
  while (jobs_.size() > mostRemembered && !stops_.contains(jobs_.begin()->first)) {
    const Job& job = jobs_.begin()->second;
    std::error_code ignored;
    if (!job.recipe.empty() && !job.path.empty()) std::filesystem::remove(job.path, ignored);
    jobs_.erase(jobs_.begin());
  }
}

std::optional<JobLane::Job> JobLane::find(std::uint64_t number) const {
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(number);
  return found == jobs_.end() ? std::nullopt : std::optional(found->second);
}

bool JobLane::cancel(std::uint64_t number) {
  std::stop_source stop(std::nostopstate);
  {
    const std::lock_guard lock(mutex_);
    if (!jobs_.contains(number)) return false;
    if (const auto found = stops_.find(number); found != stops_.end()) stop = found->second;
    if (const auto waits = std::find(waiting_.begin(), waiting_.end(), number); waits != waiting_.end()) {
      waiting_.erase(waits);
      stops_.erase(number);
      jobs_.at(number).state = State::cancelled;
    }
  }
  stop.request_stop();
  return true;
}

void JobLane::work(const std::stop_token& stop) {
  for (;;) {
    std::uint64_t number = 0;
    std::stop_token cancelled;
    {
      std::unique_lock lock(mutex_);
      if (!changed_.wait(lock, stop, [this] { return !waiting_.empty(); }) || stop.stop_requested()) return;
      number = waiting_.front();
      waiting_.pop_front();
      cancelled = stops_.at(number).get_token();
      jobs_.at(number).state = State::running;
    }
    run(number, std::move(cancelled));
  }
}

void JobLane::run(std::uint64_t number, std::stop_token stop) {
  const auto start = Clock::now();
  const auto words = find(number)->words;
  const auto made = worker_.run(
      words, [&](double share) { note(number, share, Clock::now() - start); }, stop);
  const std::lock_guard lock(mutex_);
  Job& job = jobs_.at(number);
  job.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  stops_.erase(number);
  if (made && !made->paths.empty()) {
    job.state = State::done;
    job.share = 1;
    job.path = made->paths.front();
  } else {
    job.state = stop.stop_requested() ? State::cancelled : State::failed;
    if (!made) job.error = made.error().sentence;
  }
  forgetOldest();
}

void JobLane::note(std::uint64_t number, double share, Clock::duration elapsed) {
  const std::lock_guard lock(mutex_);
  Job& job = jobs_.at(number);
  job.share = std::clamp(share, 0.0, 1.0);
  if (share >= leastShareToReckon)
    job.secondsLeft = std::chrono::duration<double>(elapsed).count() * (1 - share) / share;
}

}  // namespace clipworks::app
