#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <clipworks/edit/Edit.h>
#include <clipworks/edit/Error.h>
#include <clipworks/edit/Plan.h>
#include <clipworks/media/asset/DamagedMedia.h>
#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/Result.h>

namespace clipworks {

namespace engine {
class NewFiles;
}

/// How far the work is.
struct Progress {
  double share = 0;                   ///< from 0 to 1, never falling; 1 only once the file is in its place
  std::int64_t pictures = 0;          ///< written so far
  std::optional<double> secondsLeft;  ///< as far as that can be guessed
  std::string stage;                  ///< "copying", "encoding", "done"
};

/// What becomes of a file that has the new one's name already.
enum class ExistingFile {
  refused,   ///< a failure
  replaced,  ///< in one step, when the new one is whole
  numbered,  ///< it stays, and the new one gets a number: "clip-2.mp4"
};

/// Whether a finished movie is compared with its plan before it gets its name: it is read and decoded once, its count
/// and times of pictures, the first and the last picture of every stretch, and the length of its sound are checked.
enum class Verification {
  automatic,  ///< where pictures are copied in pieces: cut, hidden, beside encoded ones, of several clips
  always,
  never,
};

/// How a movie is made.
struct MovieOptions {
  PlanOptions plan{};
  /// A difference is a failure, `internal`, that leaves no file.
  Verification verification = Verification::automatic;
  ExistingFile existing = ExistingFile::refused;
  /// Whether damaged pictures of an input are a failure; else what could be decoded is shown.
  bool isStrict = false;
  /// Threads that each encoder and decoder may have at most; 0 is as many as suit the processors that the process may
  /// use: those of its affinity, and no more than the quota of its control group (cgroup) comes to.
  int threads = 0;
  /// The most bytes that the file may have; 0 is no limit.
  std::int64_t mostBytes = 0;
  /// Makes the file in place of this process, for hosts that may not write to directories; null: this process.
  std::shared_ptr<engine::NewFiles> files{};
  /// Called on the caller's thread as the work goes on. What it throws ends the work and is passed on.
  std::function<void(const Progress&)> onProgress{};
  /// A request ends the work within a tenth of a second.
  std::stop_token stop{};
};

/// What became of an edit.
struct MovieReport {
  std::filesystem::path path;        ///< of the new file
  std::vector<PlannedTrack> tracks;  ///< as they were made
  std::vector<PlannedLoss> leftOut;
  std::vector<std::string> remarks;
  std::vector<DamagedMedia> damaged;  ///< files whose pictures could not be decoded whole, where they were encoded
  CMTime length;
  std::int64_t bytes = 0;
  bool isVerified = false;  ///< it was compared with its plan
};

/// Makes new files by this process itself, for whoever does so for another one.
[[nodiscard]] CLIPWORKS_API std::unique_ptr<engine::NewFiles> newFilesOfThisProcess();

/// Makes the movie at `path`: MP4, for ".mov" QuickTime, for ".m4a" sound alone. Works on the caller's thread and
/// threads of its own, and returns when the file is whole under its name, or nothing is left of it. Any number at once.
/// Fails as `plan` does; with `badArgument` where `path` is one of the edit's own files, or has the ending of another
/// kind of file (".webm"); with `notFound`, `notWritable`, `noSpace`, `limitReached`, `damaged`, `noEncoder`,
/// `cancelled` or `internal`.
[[nodiscard]] CLIPWORKS_API Result<MovieReport, Error> makeMovie(const Edit& edit, const std::filesystem::path& path,
                                                                 const MovieOptions& options = {});

}  // namespace clipworks
