#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>

namespace clipworks {

/// How a worker does its jobs. The limits hold for each job; 0 is none.
struct WorkerOptions {
  /// The program "clipworks", looked for as a shell does where it has no folder.
  std::filesystem::path program = "clipworks";
  /// Whether a job fails where the system cannot confine it whole; else it is confined as far as that goes.
  bool requiresConfinement = false;
  std::int64_t mostMemory = 0;     ///< bytes
  double mostSeconds = 0;          ///< until it ends
  std::int64_t mostFileBytes = 0;  ///< of a new file
};

/// What became of a job.
struct WorkerReport {
  std::vector<std::filesystem::path> paths;  ///< of the new files
  int landlock = 0;                          ///< version of Landlock that held; 0: none
  bool systemCalls = false;                  ///< calls to the kernel were filtered
  /// What the command told that makes no file, such as "info" or one with "--plan"; line by line.
  std::string text;
  bool wasDone = false;  ///< of a job: it was done before, and nothing was done now
};

/// Does jobs in another process, for hosts that cannot confine themselves and take files from strangers: each job in a
/// copy of a process that has read no file, confined to the job's own files, within its limits (docs/security.md). What
/// a file does to it is an `Error` here, a crash, too. One process serves any number of jobs; it is started with the
/// first, and anew where it is gone.
///
/// Any thread; jobs of one worker take turns, several workers do theirs beside each other.
class CLIPWORKS_API Worker {
 public:
  /// Called with the share of the job that is done, from 0 to 1.
  using OnProgress = std::function<void(double share)>;

  /// Starts nothing yet.
  explicit Worker(WorkerOptions options = {});
  /// Cancels nothing: there is no job under way.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Does what the program does with these arguments: {"loop", "clip.mp4", "--count", "3", "-o", "three.mp4"}.
  /// `onProgress` is called on the caller's thread; what it throws cancels the job and is passed on. A request to stop
  /// ends the job within a tenth of a second. Fails as the command does; with `limitReached` at a limit, `noMemory`
  /// where the system ended the job, `notFound` where the program cannot be started, and `internal` after a crash.
  [[nodiscard]] Result<WorkerReport, Error> run(const std::vector<std::string>& arguments,
                                                const OnProgress& onProgress = {}, const std::stop_token& stop = {});

  /// Makes the movie of an edit as `makeMovie` does; `options.files` and the details of its progress do not hold.
  [[nodiscard]] Result<WorkerReport, Error> makeMovie(const Edit& edit, const std::filesystem::path& path,
                                                      const MovieOptions& options = {});

 private:
  class Process;
  [[nodiscard]] Result<WorkerReport, Error> run(const std::vector<std::string>& arguments, std::int64_t mostFileBytes,
                                                const OnProgress& onProgress, const std::stop_token& stop);
  [[nodiscard]] std::vector<std::string> limited(const std::vector<std::string>& arguments,
                                                 std::int64_t mostFileBytes) const;

  const WorkerOptions options_;
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace clipworks
