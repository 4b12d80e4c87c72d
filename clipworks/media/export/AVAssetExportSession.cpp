#include <clipworks/media/export/AVAssetExportSession.h>

#include <algorithm>
#include <exception>
#include <mutex>

#include <clipworks/engine/Thread.h>
#include <clipworks/engine/input/DamagedPictures.h>
#include <clipworks/engine/pipeline/ExportRun.h>
#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/asset/FileTypes.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/export/ExportPlan.h>
#include <clipworks/media/export/ExportPreset.h>
#include <clipworks/media/export/ExportSessionFactory.h>

namespace clipworks {
namespace {

/// The sessions between start and completion.
class LiveSessions {
 public:
  static LiveSessions& shared() {
    // Never destroyed: sessions may outlive the end of main().
    static auto* instance = new LiveSessions();
    return *instance;
  }
  void add(std::shared_ptr<AVAssetExportSession> session) {
    const std::lock_guard lock(mutex_);
    sessions_.push_back(std::move(session));
  }
  void remove(const AVAssetExportSession* session) {
    const std::lock_guard lock(mutex_);
    std::erase_if(sessions_, [session](const auto& live) { return live.get() == session; });
  }
  std::vector<std::shared_ptr<AVAssetExportSession>> all() {
    const std::lock_guard lock(mutex_);
    return sessions_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::shared_ptr<AVAssetExportSession>> sessions_;  // guarded by mutex_
};

class ExportSession final : public AVAssetExportSession {
 public:
  ExportSession(std::shared_ptr<AVAsset> asset, std::string_view presetName, const ExportPreset& preset)
      : asset_(std::move(asset)), presetName_(presetName), preset_(preset) {}

  void setOutputURL(const URL& outputURL) override { outputURL_ = outputURL; }
  std::optional<URL> outputURL() const override { return outputURL_; }
  void setOutputFileType(AVFileType outputFileType) override { outputFileType_ = outputFileType; }
  void setFileLengthLimit(std::int64_t fileLengthLimit) override { fileLengthLimit_ = fileLengthLimit; }
  std::int64_t fileLengthLimit() const override { return fileLengthLimit_; }
  void setShouldOptimizeForNetworkUse(bool optimize) override { optimizes_ = optimize; }
  bool shouldOptimizeForNetworkUse() const override { return optimizes_; }
  void setVideoComposition(std::shared_ptr<const AVMutableVideoComposition> composition) override {
    videoComposition_ = std::move(composition);
  }
  std::shared_ptr<const AVMutableVideoComposition> videoComposition() const override { return videoComposition_; }
  void setAudioMix(std::shared_ptr<const AVMutableAudioMix> audioMix) override { audioMix_ = std::move(audioMix); }
  std::shared_ptr<const AVMutableAudioMix> audioMix() const override { return audioMix_; }
  void setKeepsRecordingMetadata(bool keeps) override { keepsMetadata_ = keeps; }
  std::string presetName() const override { return presetName_; }

  void exportAsynchronously(std::function<void()> completionHandler) override;
  void cancelExport() override;
  AVAssetExportSessionStatus status() const override;
  std::optional<NSError> error() const override;
  float progress() const override;
  std::vector<ExportedTrack> exportedTracks() const override;
  std::vector<DamagedMedia> damagedMedia() const override;

 private:
  using Outcome = Result<std::vector<ExportedTrack>, NSError>;
  Outcome carryOut(const std::vector<ExportTrack>& tracks);
  std::shared_ptr<engine::ExportRun> startRun(engine::ExportJob job);
  void end(Outcome outcome);
  void finish(Outcome outcome);

  const std::shared_ptr<AVAsset> asset_;
  const std::string presetName_;
  const ExportPreset preset_;

  // Settings: only the configuring thread touches them before the start, only the session's own after it.
  std::optional<URL> outputURL_;
  std::string outputFileType_{AVFileTypeMPEG4};
  std::int64_t fileLengthLimit_ = 0;
  bool optimizes_ = false;
  std::shared_ptr<const AVMutableVideoComposition> videoComposition_;
  std::shared_ptr<const AVMutableAudioMix> audioMix_;
  bool keepsMetadata_ = true;
  std::vector<ExportTrack> tracks_;          // what is exported, once it starts
  std::function<void()> completionHandler_;  // likewise

  mutable std::mutex mutex_;
  AVAssetExportSessionStatus status_ = AVAssetExportSessionStatus::unknown;  // guarded by mutex_
  bool cancelled_ = false;                                                   // guarded by mutex_
  std::optional<NSError> error_;                                             // guarded by mutex_
  std::vector<ExportedTrack> exportedTracks_;                                // guarded by mutex_
  std::vector<DamagedMedia> damagedMedia_;                                   // guarded by mutex_
  std::shared_ptr<engine::ExportRun> run_;                                   // guarded by mutex_
};

NSError cancelledError() { return makeError(AVError::operationCancelled, "the export was cancelled"); }

void ExportSession::exportAsynchronously(std::function<void()> completionHandler) {
  {
    const std::lock_guard lock(mutex_);
    if (status_ != AVAssetExportSessionStatus::unknown) fatalError("AVAssetExportSession: one session exports once");
    status_ = AVAssetExportSessionStatus::waiting;
  }
  LiveSessions::shared().add(shared_from_this());
  // The compositions may change once this returns, so what they show now is taken here.
  if (videoComposition_ != nullptr) videoComposition_ = videoComposition_->copy();
  tracks_ = snapshotTracks(*asset_, audioMix_.get());
  completionHandler_ = std::move(completionHandler);
  const auto self = std::static_pointer_cast<ExportSession>(shared_from_this());
  auto thread = engine::Thread::start([self] { self->end(self->carryOut(self->tracks_)); });
  if (!thread) return end(failure(errorFromEngine(thread.error())));
  thread->detach();
}

void ExportSession::end(Outcome outcome) {
  finish(std::move(outcome));
  tracks_.clear();
  completionHandler_();
  completionHandler_ = nullptr;
  LiveSessions::shared().remove(this);
}

ExportSession::Outcome ExportSession::carryOut(const std::vector<ExportTrack>& tracks) {
  try {
    {
      const std::lock_guard lock(mutex_);
      if (cancelled_) return failure(cancelledError());
      status_ = AVAssetExportSessionStatus::exporting;
    }
    if (!outputURL_) return failure(makeError(AVError::exportFailed, "the export was given no place for its file"));
    const auto container = movieContainer(outputFileType_);
    if (!container) {
      return failure(makeError(AVError::exportFailed, "files of the type " + outputFileType_ + " are not written"));
    }
    auto plan = planExport(tracks, videoComposition_.get(), preset_, keepsMetadata_);
    if (!plan) return failure(plan.error());
    plan->job.path = outputURL_->path();
    plan->job.fileLengthLimit = fileLengthLimit_;
    plan->job.container = *container;
    auto report = startRun(std::move(plan->job))->run();
    if (!report) return failure(errorFromEngine(report.error()));
    if (report->damaged != nullptr) {
      const std::lock_guard lock(mutex_);
      damagedMedia_ = damagedMediaIn(*report->damaged);
    }
    if (report->replacedPictures > 0) {
      plan->tracks.front().remark += (plan->tracks.front().remark.empty() ? "" : " ") +
                                     std::to_string(report->replacedPictures) +
                                     " pictures could not be decoded; the ones before them stay on screen.";
    }
    return std::move(plan->tracks);
  } catch (const std::bad_alloc&) {
    return failure(makeError(AVError::outOfMemory, "out of memory while exporting"));
  } catch (const std::exception& thrown) {
    return failure(makeError(AVError::unknown, std::string("the export failed: ") + thrown.what()));
  }
}

std::shared_ptr<engine::ExportRun> ExportSession::startRun(engine::ExportJob job) {
  auto run = std::make_shared<engine::ExportRun>(std::move(job));
  const std::lock_guard lock(mutex_);
  run_ = run;
  if (cancelled_) run->cancel();
  return run;
}

void ExportSession::finish(Outcome outcome) {
  const std::lock_guard lock(mutex_);
  if (outcome) {
    exportedTracks_ = std::move(*outcome);
    status_ = AVAssetExportSessionStatus::completed;
    return;
  }
  error_ = outcome.error();
  const bool cancelled = error_->code() == static_cast<int>(AVError::operationCancelled);
  status_ = cancelled ? AVAssetExportSessionStatus::cancelled : AVAssetExportSessionStatus::failed;
}

void ExportSession::cancelExport() {
  std::shared_ptr<engine::ExportRun> run;
  {
    const std::lock_guard lock(mutex_);
    cancelled_ = true;
    run = run_;
  }
  if (run != nullptr) run->cancel();
}

AVAssetExportSessionStatus ExportSession::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::optional<NSError> ExportSession::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

float ExportSession::progress() const {
  const std::lock_guard lock(mutex_);
  if (status_ == AVAssetExportSessionStatus::completed) return 1.0F;
  constexpr float notYetWhole = 0.999F;
  return run_ == nullptr ? 0.0F : std::min(run_->progress(), notYetWhole);
}

std::vector<ExportedTrack> ExportSession::exportedTracks() const {
  const std::lock_guard lock(mutex_);
  return exportedTracks_;
}

std::vector<DamagedMedia> ExportSession::damagedMedia() const {
  const std::lock_guard lock(mutex_);
  return damagedMedia_;
}

}  // namespace

std::shared_ptr<AVAssetExportSession> AVAssetExportSession::make(const std::shared_ptr<AVAsset>& asset,
                                                                 std::string_view presetName) {
  const auto preset = exportPreset(presetName);
  return asset == nullptr || !preset ? nullptr : makeExportSession(asset, presetName, *preset);
}

std::shared_ptr<AVAssetExportSession> makeExportSession(const std::shared_ptr<AVAsset>& asset, std::string_view name,
                                                        const ExportPreset& preset) {
  if (preset.videoCodec) {
    const bool hevc = *preset.videoCodec == engine::VideoCodec::hevc;
    if (!EncoderAvailability::isAvailable(hevc ? VideoCodecKind::hevc : VideoCodecKind::h264)) return nullptr;
  }
  return std::make_shared<ExportSession>(asset, name, preset);
}

std::vector<std::shared_ptr<AVAssetExportSession>> AVAssetExportSession::liveSessions() {
  return LiveSessions::shared().all();
}

}  // namespace clipworks
