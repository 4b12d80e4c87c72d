#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <app/Failure.h>
#include <clipworks/worker/Worker.h>

namespace clipworks::app {

/// Does jobs one after the other in a worker, and remembers what became of the latest ones. Thread-safe.
class JobLane {
 public:
  enum class State { waiting, running, done, failed, cancelled };

  struct Job {
    std::vector<std::string> words;
    /// Of a job whose file is of use to this process alone, and goes with the job: what it is made of.
    std::string recipe{};
    State state = State::waiting;
    double share = 0;         ///< from 0 to 1
    double secondsLeft = -1;  ///< negative while it cannot be told
    double seconds = 0;       ///< that it took
    std::string error{};
    std::filesystem::path path{};
  };

  explicit JobLane(const WorkerOptions& options);
  /// Cancels what runs.
  ~JobLane();
  JobLane(const JobLane&) = delete;
  JobLane& operator=(const JobLane&) = delete;

  /// A job with a recipe is that which has the same one already, unless that failed. Fails where too many wait.
  [[nodiscard]] Result<std::uint64_t, Failure> add(std::vector<std::string> words, const std::string& recipe);
  [[nodiscard]] std::optional<Job> find(std::uint64_t number) const;
  /// False where there is no such job; one that is over stays what it is.
  bool cancel(std::uint64_t number);

 private:
  using Clock = std::chrono::steady_clock;
  void work(const std::stop_token& stop);
  void run(std::uint64_t number, std::stop_token stop);
  void note(std::uint64_t number, double share, Clock::duration elapsed);
  void forgetOldest();
  [[nodiscard]] bool isCancelled(std::uint64_t number) const;

  Worker worker_;
  mutable std::mutex mutex_;
  std::condition_variable_any changed_;
  std::map<std::uint64_t, Job> jobs_;                // guarded by mutex_
  std::deque<std::uint64_t> waiting_;                // guarded by mutex_
  std::map<std::uint64_t, std::stop_source> stops_;  // of those that are not over; guarded by mutex_
  std::uint64_t last_ = 0;                           // guarded by mutex_
  std::jthread thread_;
};

}  // namespace clipworks::app
