#include <clipworks/exporter/NextLevelSessionExporter.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <string>
#include <utility>

#include <clipworks/engine/Thread.h>
#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/composition/AVMutableComposition.h>
#include <clipworks/media/export/ExportPreset.h>
#include <clipworks/media/export/ExportSessionFactory.h>
#include <clipworks/media/samples/WriterSettings.h>

namespace clipworks {
namespace {

using Status = AVAssetExportSessionStatus;

constexpr auto progressPeriod = std::chrono::milliseconds(100);

// x264's preset: chosen by measuring, docs/adr/0011-encoding-by-explicit-settings.md.
constexpr const char* encoderSpeed = "veryfast";

/// What the settings ask of an export of an asset with pictures, sound, or both.
Result<ExportPreset, NSError> presetFrom(const SettingsDictionary& video, const SettingsDictionary& audio,
                                         bool hasPictures, bool hasSound) {
  ExportPreset preset = *exportPreset(AVAssetExportPresetHighestQuality);
  preset.keepsCodedPictures = false;
  preset.speed = encoderSpeed;
  if (hasPictures || !video.empty()) {
    const auto pictures = pictureSettings(video);
    if (!pictures) return failure(pictures.error());
    if (pictures->codec == engine::VideoCodec::hevc)
      preset.quality = exportPreset(AVAssetExportPresetHEVCHighestQuality)->quality;
    preset.videoCodec = pictures->codec;
    preset.fixedSize = ExportPreset::FixedSize{pictures->width, pictures->height, pictures->fills};
    preset.videoBitRate = pictures->averageBitRate;
    preset.frameRate = pictures->frameRate;
  }
  if (hasSound || !audio.empty()) {
    const auto sound = soundSettings(audio, nullptr);
    if (!sound) return failure(sound.error());
    preset.fixedSound = *sound;
  }
  return preset;
}

/// A composition of the first track of each kind: of `range`, or of all that they show while the movie lasts, as every
/// operation takes it. Further tracks of a recording are other languages or other mixes of the same.
Result<std::shared_ptr<AVMutableComposition>, NSError> firstTracks(const AVAsset& asset,
                                                                   const std::optional<CMTimeRange>& range) {
  const auto composition = AVMutableComposition::make();
  for (const AVMediaType type : {AVMediaTypeVideo, AVMediaTypeAudio}) {
    const auto tracks = asset.tracks(type);
    if (tracks.empty()) continue;
    const auto track = composition->addMutableTrack(type, kCMPersistentTrackID_Invalid);
    const CMTime end = CMTimeMinimum(tracks.front()->timeRange().end(), asset.duration());
    const auto wanted = range.value_or(CMTimeRange(kCMTimeZero, end));
    if (auto inserted = track->insertTimeRange(wanted, tracks.front(), kCMTimeZero); !inserted)
      return failure(inserted.error());
    track->setPreferredTransform(tracks.front()->preferredTransform());
  }
  return composition;
}

}  // namespace

std::shared_ptr<NextLevelSessionExporter> NextLevelSessionExporter::make(const std::shared_ptr<AVAsset>& asset) {
  if (asset == nullptr) fatalError("NextLevelSessionExporter: an asset is needed");
  const auto url = asset->url();
  return std::shared_ptr<NextLevelSessionExporter>(new NextLevelSessionExporter(url ? AVAsset::make(*url) : asset));
}

void NextLevelSessionExporter::exportAsynchronously(RenderHandler /*renderHandler*/, ProgressHandler progressHandler,
                                                    CompletionHandler completionHandler) {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(hasStarted_, true)) fatalError("NextLevelSessionExporter: one exporter exports once");
  }
  progressHandler_ = std::move(progressHandler);
  completionHandler_ = std::move(completionHandler);
  auto thread =
      engine::Thread::start([self = shared_from_this()] { self->end(self->carryOut(self->progressHandler_)); });
  if (!thread) return end(failure(errorFromEngine(thread.error())));
  thread->detach();
}

void NextLevelSessionExporter::end(const Outcome& outcome) {
  progressHandler_ = nullptr;
  if (completionHandler_) completionHandler_(outcome);
  completionHandler_ = nullptr;
}

NextLevelSessionExporter::Outcome NextLevelSessionExporter::carryOut(const ProgressHandler& progressHandler) {
  auto session = makeSession();
  if (!session) return failure(session.error());
  {
    const std::lock_guard lock(mutex_);
    if (isCancelled_) return Status::cancelled;
    session_ = *session;
  }
  run(**session, progressHandler);
  {
    const std::lock_guard lock(mutex_);
    session_ = nullptr;
  }
  if (const auto error = (*session)->error(); error && (*session)->status() == Status::failed) return failure(*error);
  if ((*session)->status() == Status::completed && progressHandler) progressHandler(1.0F);
  return (*session)->status();
}

Result<std::shared_ptr<AVAssetExportSession>, NSError> NextLevelSessionExporter::makeSession() const {
  try {
    if (asset_->tracks().empty()) return failure(makeError(AVError::invalidSourceMedia, asset_->loadError()));
    const auto composition = firstTracks(*asset_, timeRange_);
    if (!composition) return failure(composition.error());
    const auto preset = presetFrom(videoConfiguration_, audioConfiguration_, !asset_->tracks(AVMediaTypeVideo).empty(),
                                   !asset_->tracks(AVMediaTypeAudio).empty());
    if (!preset) return failure(preset.error());
    auto session = makeExportSession(*composition, "explicit settings", *preset);
    if (session == nullptr) {
      return failure(
          makeError(AVError::exportFailed, std::string(AVVideoCodecKey) + ": there is no encoder for these pictures"));
    }
    if (outputURL_) session->setOutputURL(*outputURL_);
    session->setOutputFileType(outputFileType_);
    return session;
  } catch (const std::exception& thrown) {
    return failure(makeError(AVError::unknown, std::string("the export failed: ") + thrown.what()));
  }
}

void NextLevelSessionExporter::run(AVAssetExportSession& session, const ProgressHandler& progressHandler) {
  session.exportAsynchronously([self = shared_from_this()] {
    const std::lock_guard lock(self->mutex_);
    self->sessionEnded_ = true;
    self->ended_.notify_all();
  });
  float told = 0;
  std::unique_lock lock(mutex_);
  while (!ended_.wait_for(lock, progressPeriod, [this] { return sessionEnded_; })) {
    lock.unlock();
    const float progress = session.progress();
    if (progress > told && progressHandler) progressHandler(progress);
    told = std::max(told, progress);
    lock.lock();
  }
}

void NextLevelSessionExporter::cancelExport() {
  std::shared_ptr<AVAssetExportSession> session;
  {
    const std::lock_guard lock(mutex_);
    isCancelled_ = true;
    session = session_;
  }
  if (session != nullptr) session->cancelExport();
}

}  // namespace clipworks
