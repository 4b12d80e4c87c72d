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
#include <clipworks/edit/SizeBudget.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/output/DirectNewFiles.h>
#include <clipworks/engine/pipeline/ExportRun.h>
#include <clipworks/media/asset/FileTypes.h>

namespace clipworks {
namespace {

using Clock = std::chrono::steady_clock;

/// In small letters: ".mp4".
std::string endingOf(const std::filesystem::path& path) {
  std::string ending = path.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char c) { return std::tolower(c); });
  return ending;
}

engine::MovieContainer containerOf(const std::filesystem::path& path, const Edit& edit) {
  const std::string ending = endingOf(path);
  if (ending == ".mov") return *movieContainer(AVFileTypeQuickTimeMovie);
  if (ending == ".m4a" && !edit.hasPictures()) return *movieContainer(AVFileTypeAppleM4A);
  return *movieContainer(AVFileTypeMPEG4);
}

/// Fails for a name that promises another kind of file.
Result<void, Error> checkEnding(const std::filesystem::path& path) {
  const std::string ending = endingOf(path);
  for (const char* other : {".webm", ".mkv", ".avi", ".mpg", ".mpeg", ".ts", ".mts", ".flv", ".wmv", ".gif", ".mp3",
                            ".wav", ".jpg", ".jpeg", ".png", ".heic"}) {
    if (ending == other)
      return failed(ErrorCode::badArgument, "movies are written as .mp4, .mov or .m4a, not as " + ending);
  }
  return {};
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

/// Two tries at most to come close under a size.
class SizeTrial {
 public:
  /// `beside`: bytes that are not the pictures'.
  SizeTrial(std::int64_t most, std::int64_t beside, double seconds)
      : most_(static_cast<double>(most)), beside_(static_cast<double>(beside)), seconds_(seconds) {}

  /// Whether a file will do. The first may be made again where it is too large, or smaller than it need be.
  bool accepts(std::int64_t bytes) {
    bytes_ = bytes;
    ++tries_;
    const double share = static_cast<double>(bytes) / most_;
    isRefused_ = share > 1 || (tries_ == 1 && share < closeEnough && share > noMoreToSpend);
    return !isRefused_;
  }
  [[nodiscard]] bool wantsAnother() const { return isRefused_ && tries_ == 1; }
  [[nodiscard]] bool hasFailed() const { return isRefused_ && tries_ == 2; }
  [[nodiscard]] std::int64_t bytes() const { return bytes_; }

  /// The bits a second for the pictures by which the next file comes out right: as many bits more or less as the file
  /// lacked or had too many, and no more than in proportion. An encoder keeps to a rate the worse the shorter the
  /// movie.
  [[nodiscard]] std::int64_t nextRate(std::int64_t rate) const {
    const double aim = most_ * (seconds_ < shortSeconds ? aimOfShort : aimOfLong);
    const double pictures = std::max(static_cast<double>(bytes_) - beside_, 1.0);
    const double inProportion = static_cast<double>(rate) * std::clamp((aim - beside_) / pictures, 0.5, 2.0);
    const double byBits = static_cast<double>(rate) + (aim - static_cast<double>(bytes_)) * 8 / seconds_;
    return std::max(static_cast<std::int64_t>(std::min(inProportion, byBits)), engine::leastBitRate);
  }

 private:
  static constexpr double closeEnough = 0.97;
  static constexpr double shortSeconds = 10;
  static constexpr double aimOfShort = 0.95;
  static constexpr double aimOfLong = 0.986;
  // Pictures that take that little of what they may have are as good as they get.
  static constexpr double noMoreToSpend = 0.5;

  double most_;
  double beside_;
  double seconds_;
  std::int64_t bytes_ = 0;
  int tries_ = 0;
  bool isRefused_ = false;
};

std::int64_t picturesOf(const MovieReport& report) {
  std::int64_t pictures = 0;
  for (const auto& track : report.tracks) pictures += track.pictures;
  return pictures;
}

/// Copied, but not as one piece.
bool copiesPieces(const engine::PictureJob& job) {
  const auto& runs = job.runs;
  return job.copiesAny() &&
         (runs.size() > 1 || !runs.front().hiddenBefore.empty() || !runs.front().hiddenAfter.empty());
}

bool wantsVerification(const engine::ExportJob& job, Verification wanted) {
  if (wanted != Verification::automatic) return wanted == Verification::always;
  return job.pictures && copiesPieces(*job.pictures);
}

Result<MovieReport, Error> make(const Edit& edit, const std::filesystem::path& path, const MovieOptions& options,
                                std::exception_ptr& thrownByProgress) {
  if (options.stop.stop_requested()) return failed(ErrorCode::cancelled, "cancelled");
  if (auto fit = checkEnding(path); !fit) return failure(fit.error());
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
  job.files = options.files;
  job.isStrict = options.isStrict;
  job.verifies = wantsVerification(job, options.verification);
  const bool isEncoded = job.pictures && !job.pictures->copiesAll();
  const std::int64_t mostBytes = edit.state().wanted.mostBytes;
  const bool mayTryTwice = mostBytes > 0 && isEncoded;
  if (mostBytes > 0 && !isEncoded) job.fileLengthLimit = mostBytes;
  if (options.threads > 0) job.limitThreads(options.threads);
  ProgressTeller progress(options, encodes ? "encoding" : "copying");
  const auto runOnce = [&](engine::ExportJob once, double from, double to) {
    engine::ExportRun run(std::move(once));
    const std::stop_callback cancels(options.stop, [&run] { run.cancel(); });
    return run.run([&](double share, std::int64_t pictures) {
      try {
        progress.tell(from + share * (to - from), pictures);
      } catch (...) {
        thrownByProgress = std::current_exception();
        run.cancel();
      }
    });
  };
  SizeTrial trial(mostBytes, mostBytes > 0 ? SizeBudget::of(mostBytes, measureOf(edit.state())).beside : 0,
                  planned->length.seconds());
  if (mayTryTwice) job.accepts = [&trial](std::int64_t bytes) { return trial.accepts(bytes); };
  auto report = runOnce(job, 0, mayTryTwice ? 0.5 : 1);
  if (!report && trial.wantsAnother()) {
    job.pictures->encoder.averageBitRate = trial.nextRate(job.pictures->encoder.averageBitRate);
    report = runOnce(job, 0.5, 1);
  }
  if (!report && trial.hasFailed()) {
    return failed(ErrorCode::limitReached, edit.name() + " could not be brought under " + std::to_string(mostBytes) +
                                               " bytes; its last try had " + std::to_string(trial.bytes()));
  }
  if (!report) return failure(fromEngine(report.error()));
  MovieReport made{std::move(report->path),
                   std::move(planned->tracks),
                   std::move(planned->leftOut),
                   std::move(planned->remarks),
                   {},
                   planned->length,
                   report->bytes,
                   job.verifies};
  if (report->damaged != nullptr) made.damaged = damagedMediaIn(*report->damaged);
  return made;
}

}  // namespace

std::unique_ptr<engine::NewFiles> newFilesOfThisProcess() { return std::make_unique<engine::DirectNewFiles>(); }

Result<MovieReport, Error> makeMovie(const Edit& edit, const std::filesystem::path& path, const MovieOptions& options) {
  std::exception_ptr thrownByProgress;
  Result<MovieReport, Error> made = failed(ErrorCode::internal, "");
  try {
    made = make(edit, path, options, thrownByProgress);
  } catch (const std::bad_alloc&) {
    return failed(ErrorCode::noMemory, edit.name() + ": out of memory");
  } catch (const std::exception& thrown) {
    return failed(ErrorCode::internal, edit.name() + ": " + thrown.what());
  }
  if (thrownByProgress) std::rethrow_exception(thrownByProgress);
  if (made && options.onProgress) options.onProgress({1, picturesOf(*made), 0, "done"});
  return made;
}

}  // namespace clipworks
