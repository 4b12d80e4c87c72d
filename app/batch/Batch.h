#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

#include <app/Command.h>
#include <app/batch/JobList.h>
#include <app/batch/MemoryShares.h>
#include <clipworks/worker/Worker.h>

namespace clipworks::app {

/// How a batch is done.
struct BatchOptions {
  int jobs = 1;             ///< at the same time, at most
  int threads = 1;          ///< of each encoder and decoder of a job
  std::int64_t memory = 0;  ///< bytes, of all jobs that run
  bool replaces = false;    ///< what is there and was not finished
  bool wantsSHA256 = false;
  int attempts = 3;  ///< at a job that may be tried again
};

/// Does jobs beside each other, each in a confined worker, as many as fit into memory by their plans. Jobs that fail do
/// not hold up others; what may succeed later is tried again. One object a batch.
class Batch {
 public:
  Batch(JobList jobs, const BatchOptions& options, const Program& program);

  /// Until all are done, or somebody asks to stop. Fails with the worst of the jobs' exit codes.
  [[nodiscard]] Outcome run();

 private:
  /// What became of a job.
  struct Ended {
    ListedJob job;
    std::string id;
    Result<WorkerReport, Failure> report = WorkerReport{};
    int attempts = 0;
    double seconds = 0;
  };
  void work();
  [[nodiscard]] std::optional<ListedJob> next();
  [[nodiscard]] Ended doOne(Worker& worker, const ListedJob& job);
  [[nodiscard]] Result<WorkerReport, Failure> attempt(Worker& worker, const ListedJob& job, bool hasLimit);
  [[nodiscard]] std::vector<std::string> words(const ListedJob& job) const;
  [[nodiscard]] bool waits(double seconds);
  void note(const Ended& ended);
  void showProgress();
  void tellEnd();

  JobList list_;  // guarded by mutex_
  const BatchOptions options_;
  const Options& hostOptions_;
  Reporter& reporter_;
  const std::stop_token stop_;
  MemoryShares memory_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

  std::mutex mutex_;
  OutputNames outputs_;                     // guarded by mutex_
  std::map<std::int64_t, double> running_;  // shares of lines that are done in part; guarded by mutex_
  std::int64_t done_ = 0;                   // guarded by mutex_
  std::int64_t skipped_ = 0;                // guarded by mutex_
  std::int64_t failed_ = 0;                 // guarded by mutex_
  Confinement confinement_;                 // the least of the jobs'; guarded by mutex_
  ExitCode worst_ = ExitCode::done;         // guarded by mutex_
};

}  // namespace clipworks::app
