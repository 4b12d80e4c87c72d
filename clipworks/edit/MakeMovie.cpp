#include <clipworks/edit/MakeMovie.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <exception>
#include <new>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Files.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/pipeline/ExportRun.h>
#include <clipworks/media/asset/FileTypes.h>

namespace clipworks {
namespace {

using Clock = std::chrono::steady_clock;

engine::MovieContainer containerOf(const std::filesystem::path& path, const Edit& edit) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  if (extension == ".mov") return *movieContainer(AVFileTypeQuickTimeMovie);
  if (extension == ".m4a" && !edit.hasPictures()) return *movieContainer(AVFileTypeAppleM4A);
  return *movieContainer(AVFileTypeMPEG4);
}

/// Guesses the time that is left, and passes everything on.
class ProgressTeller {
 public:
  ProgressTeller(const MovieOptions& options, std::string stage) : options_(options) { told_.stage = std::move(stage); }

  void tell(double share, std::int64_t pictures) {
    if (!options_.onProgress) return;
    constexpr double notYetWhole = 0.999;
    told_.share = std::max(told_.share, std::min(share, notYetWhole));
    told_.pictures = pictures;
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    constexpr double leastSeconds = 0.5;
    if (seconds > leastSeconds && told_.share > 0) told_.secondsLeft = seconds * (1 - told_.share) / told_.share;
    options_.onProgress(told_);
  }

 private:
  const MovieOptions& options_;
  const Clock::time_point start_ = Clock::now();
  Progress told_;
};

std::int64_t picturesOf(const MovieReport& report) {
  std::int64_t pictures = 0;
  for (const auto& track : report.tracks) pictures += track.pictures;
  return pictures;
}

Result<MovieReport, Error> make(const Edit& edit, const std::filesystem::path& path, const MovieOptions& options,
                                std::exception_ptr& thrownByProgress) {
  if (options.stop.stop_requested()) return failed(ErrorCode::cancelled, "cancelled");
  if (auto fit = checkFiles(edit.state(), path, options.existing); !fit) return failure(fit.error());
  auto planned = plan(edit, options.plan);
  if (!planned) return failure(planned.error());
  const bool encodes = std::any_of(planned->tracks.begin(), planned->tracks.end(),
                                   [](const PlannedTrack& track) { return !track.isCopied; });
  engine::ExportJob job = *planned->job;
  job.path = path;
  job.container = containerOf(path, edit);
  job.fileLengthLimit = options.mostBytes;
  job.existing = engineExisting(options.existing);
  job.isStrict = options.isStrict;
  if (options.threads > 0) job.limitThreads(options.threads);
  engine::ExportRun run(std::move(job));
  const std::stop_callback cancels(options.stop, [&run] { run.cancel(); });
  ProgressTeller progress(options, encodes ? "encoding" : "copying");
  auto report = run.run([&](double share, std::int64_t pictures) {
    try {
      progress.tell(share, pictures);
    } catch (...) {
      thrownByProgress = std::current_exception();
      run.cancel();
    }
  });
  if (!report) return failure(fromEngine(report.error()));
  MovieReport made{std::move(report->path),
                   std::move(planned->tracks),
                   std::move(planned->leftOut),
                   std::move(planned->remarks),
                   {},
                   planned->length,
                   report->bytes};
  if (report->damaged != nullptr) made.damaged = damagedMediaIn(*report->damaged);
  return made;
}

}  // namespace

Result<MovieReport, Error> makeMovie(const Edit& edit, const std::filesystem::path& path, const MovieOptions& options) {
  std::exception_ptr thrownByProgress;
  Result<MovieReport, Error> made = failed(ErrorCode::internal, "");
  try {
    made = make(edit, path, options, thrownByProgress);
  } catch (const std::bad_alloc&) {
    return failed(ErrorCode::internal, edit.name() + ": out of memory");
  } catch (const std::exception& thrown) {
    return failed(ErrorCode::internal, edit.name() + ": " + thrown.what());
  }
  if (thrownByProgress) std::rethrow_exception(thrownByProgress);
  if (made && options.onProgress) options.onProgress({1, picturesOf(*made), 0, "done"});
  return made;
}

}  // namespace clipworks
