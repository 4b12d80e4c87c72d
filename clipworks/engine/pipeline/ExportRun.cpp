#include <clipworks/engine/pipeline/ExportRun.h>

#include <algorithm>
#include <optional>
#include <string>

#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/output/MovieWriter.h>
#include <clipworks/engine/pipeline/CodedPictures.h>
#include <clipworks/engine/pipeline/CodedSound.h>
#include <clipworks/engine/pipeline/PictureTrackWriter.h>
#include <clipworks/engine/pipeline/Verification.h>

namespace clipworks::engine {
namespace {

// How far the sound may fall behind the pictures before its samples are written together: players read both with one
// short look ahead, and the index stays small.
constexpr double interleaveSeconds = 0.25;

class SoundTrackWriter {
 public:
  SoundTrackWriter(const SoundJob& job, CodedSound& sound, MovieWriter& movie, int track)
      : job_(job), sound_(sound), movie_(movie), track_(track) {}

  [[nodiscard]] bool isDone() const { return done_; }
  [[nodiscard]] double writtenSeconds() const { return static_cast<double>(until_) / job_.encoder.sampleRate; }
  [[nodiscard]] double share() const {
    return done_ || job_.length == 0 ? 1.0 : static_cast<double>(until_) / static_cast<double>(job_.length);
  }

  Expected<void> writeNext() {
    auto packet = sound_.next();
    if (!packet) return tl::make_unexpected(packet.error());
    if (!*packet) {
      done_ = true;
      return {};
    }
    until_ = std::max(until_, (**packet)->pts + (**packet)->duration);
    auto stored = movie_.write(track_, ***packet);
    if (!stored) return tl::make_unexpected(stored.error());
    return {};
  }

 private:
  const SoundJob& job_;
  CodedSound& sound_;
  MovieWriter& movie_;
  int track_;
  std::int64_t until_ = 0;
  bool done_ = false;
};

double pictureSeconds(const PictureJob& job, const PictureTrackWriter& writer) {
  return static_cast<double>(writer.writtenUntil()) / job.timescale;
}

Expected<ExportReport> withoutDamage(ExportReport report) {
  if (report.damaged == nullptr) return report;
  const auto files = report.damaged->files();
  if (files.empty()) return report;
  return failed(ErrorKind::damaged, files.front().sentence() + ", which strict work does not allow");
}

}  // namespace

ExportRun::ExportRun(ExportJob job) : job_(std::move(job)) {}
ExportRun::~ExportRun() = default;

void ExportRun::cancel() {
  const std::lock_guard lock(mutex_);
  cancelled_ = true;
  if (file_) file_->cancel();
  if (pictures_) pictures_->abandon();
  if (sound_) sound_->abandon();
}

void ExportRun::report(double share) {
  const auto now = static_cast<float>(std::clamp(share, 0.0, 1.0));
  if (now > progress()) progress_.store(now, std::memory_order_relaxed);
}

bool ExportRun::isCancelled() {
  const std::lock_guard lock(mutex_);
  return cancelled_;
}

Expected<void> ExportRun::verifyFile() {
  // It has no name yet, and whatever is in it was let in already.
  auto handle = FileHandle::again(file_->handle(), file_->name());
  auto written = handle ? MediaFile::open(std::move(*handle), file_->name(), {limits::maxPixels, true})
                        : tl::make_unexpected(std::move(handle.error()));
  auto verified = written ? verify(*written, job_, [this] { return isCancelled(); })
                          : tl::make_unexpected(std::move(written.error()));
  if (verified || verified.error().kind == ErrorKind::cancelled) return verified;
  return failed(ErrorKind::internal, file_->name() + " did not become what was planned: " + verified.error().sentence);
}

Expected<ExportReport> ExportRun::run(const OnProgress& onProgress) {
  auto report = write(onProgress);
  if (report && job_.verifies) {
    if (auto verified = verifyFile(); !verified) report = tl::make_unexpected(verified.error());
  }
  // They go once nobody can cancel them any more, and in this order.
  std::unique_ptr<OutputFile> file;
  std::unique_ptr<CodedPictures> pictures;
  std::unique_ptr<CodedSound> sound;
  {
    const std::lock_guard lock(mutex_);
    if (pictures_) pictures_->abandon();
    if (sound_) sound_->abandon();
    if (cancelled_) report = failed(ErrorKind::cancelled, "the export was cancelled");
    if (report && job_.isStrict) report = withoutDamage(std::move(*report));
    if (report) {
      report->bytes = file_->handle().size();
      if (job_.accepts && !job_.accepts(report->bytes))
        report = failed(ErrorKind::lengthLimit, "the file has a size that will not do");
    }
    if (report) {
      if (auto named = file_->commit(); !named) report = tl::make_unexpected(named.error());
      if (report) report->path = file_->path();
    }
    file = std::move(file_);
    pictures = std::move(pictures_);
    sound = std::move(sound_);
  }
  return report;
}

Expected<ExportReport> ExportRun::write(const OnProgress& onProgress) {
  {
    const std::lock_guard lock(mutex_);
    if (cancelled_) return failed(ErrorKind::cancelled, "the export was cancelled");
    auto file = OutputFile::create(job_.path, job_.fileLengthLimit, job_.existing, job_.files);
    if (!file) return tl::make_unexpected(file.error());
    file_ = std::move(*file);
    if (job_.pictures) pictures_ = std::make_unique<CodedPictures>(*job_.pictures);
    if (job_.sound) sound_ = std::make_unique<CodedSound>(*job_.sound);
  }
  auto movie = MovieWriter::create(*file_, job_.movieTimescale, job_.metadata, job_.container);
  if (!movie) return tl::make_unexpected(movie.error());

  std::optional<PictureTrackWriter> pictures;
  std::optional<SoundTrackWriter> sound;
  std::optional<int> picturesTrack;
  if (pictures_) {
    if (auto opened = pictures_->open(); !opened) return tl::make_unexpected(opened.error());
    auto track = (*movie)->addTrack(pictures_->format(), job_.pictures->timescale, job_.pictures->matrix);
    if (!track) return tl::make_unexpected(track.error());
    if (auto described = (*movie)->setHDRMetadata(*track, pictures_->hdrMetadata()); !described) {
      return tl::make_unexpected(described.error());
    }
    pictures.emplace(*job_.pictures, *pictures_, **movie, *track);
    picturesTrack = *track;
  }
  if (sound_) {
    if (auto opened = sound_->open(); !opened) return tl::make_unexpected(opened.error());
    auto track = (*movie)->addTrack(sound_->format(), job_.sound->encoder.sampleRate, std::nullopt);
    if (!track) return tl::make_unexpected(track.error());
    sound.emplace(*job_.sound, *sound_, **movie, *track);
  }
  if (!job_.data.empty()) (*movie)->addDataTracks(job_.data, picturesTrack);
  if (auto begun = (*movie)->begin(); !begun) return tl::make_unexpected(begun.error());

  bool soundCatchesUp = false;
  while ((pictures && !pictures->isDone()) || (sound && !sound->isDone())) {
    const double shown = pictures ? pictureSeconds(*job_.pictures, *pictures) : 0.0;
    if (sound && !sound->isDone()) {
      const double behind = pictures && !pictures->isDone() ? shown - sound->writtenSeconds() : interleaveSeconds;
      soundCatchesUp = behind >= interleaveSeconds || (soundCatchesUp && behind > 0);
    } else {
      soundCatchesUp = false;
    }
    auto written = soundCatchesUp || !pictures || pictures->isDone() ? sound->writeNext() : pictures->writeNext();
    if (!written) return tl::make_unexpected(written.error());
    const double pictureShare = pictures && job_.pictures->end > 0 ? static_cast<double>(pictures->writtenUntil()) /
                                                                         static_cast<double>(job_.pictures->end)
                                                                   : 1.0;
    const double share = std::min(pictureShare, sound ? sound->share() : 1.0);
    report(share);
    if (onProgress) onProgress(share, pictures ? pictures->picturesWritten() : 0);
  }
  if (auto finished = (*movie)->finish(); !finished) return tl::make_unexpected(finished.error());
  ExportReport report;
  if (pictures_) {
    report.replacedPictures = pictures_->replacedPictures();
    report.damaged = pictures_->damagedPictures();
  }
  return report;
}

}  // namespace clipworks::engine
