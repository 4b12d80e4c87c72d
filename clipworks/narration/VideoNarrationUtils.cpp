#include <clipworks/narration/VideoNarrationUtils.h>

#include <string>
#include <utility>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/ExportOutcome.h>
#include <clipworks/foundation/HEVCSupport.h>
#include <clipworks/foundation/OutputLocation.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/SettingsDictionary.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/base/UUID.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/narration/NarrationMix.h>

namespace clipworks {
namespace {

/// 16-bit little-endian integers, stereo, 44.1 kHz.
SettingsDictionary recorderSettings() {
  return {{AVFormatIDKey, kAudioFormatLinearPCM}, {AVSampleRateKey, 44100},           {AVNumberOfChannelsKey, 2},
          {AVLinearPCMBitDepthKey, 16},           {AVLinearPCMIsBigEndianKey, false}, {AVLinearPCMIsFloatKey, false}};
}

std::string_view presetFor(ExportQuality quality, bool hasHEVC) {
  switch (quality) {
    case ExportQuality::low:
      return AVAssetExportPresetLowQuality;
    case ExportQuality::highCompressed:
      return hasHEVC ? AVAssetExportPresetHEVCHighestQuality : AVAssetExportPresetHighestQuality;
    case ExportQuality::highLossless:
      return AVAssetExportPresetPassthrough;
  }
  return AVAssetExportPresetPassthrough;
}

}  // namespace

std::shared_ptr<VideoNarrationUtils> VideoNarrationUtils::make() {
  return std::shared_ptr<VideoNarrationUtils>(new VideoNarrationUtils());
}

void VideoNarrationUtils::requestAuthorization(std::function<void(bool)> onComplete) {
  recordingSession_.requestRecordPermission(std::move(onComplete));
}

bool VideoNarrationUtils::startNarration(const CMTime& at, const std::weak_ptr<VideoNarrationUtilsDelegate>& delegate) {
  {
    // First of all: kept, that they hold even when nothing comes of the recording.
    const std::lock_guard lock(mutex_);
    delegate_ = delegate;
    startTime_ = at;
  }
  if (!configureSession()) return false;
  // The recorder takes the container from what it writes, not from the name; kept, that the two do not match.
  const URL url = FileSystem::shared().outputsURL().appendingPathComponent(UUID::make().uuidString() + ".m4a");
  const auto recorder = AVAudioRecorder::make(url, recorderSettings());
  if (!recorder) return false;

  std::shared_ptr<AVAudioRecorder> replaced = *recorder;
  {
    const std::lock_guard lock(mutex_);
    audioRecorder_.swap(replaced);
  }
  // Kept: an earlier one that still runs is let go without being stopped.
  replaced.reset();
  (*recorder)->setDelegate(weak_from_this());
  if ((*recorder)->record()) return true;
  forget(*recorder);
  return false;
}

void VideoNarrationUtils::forget(const std::shared_ptr<AVAudioRecorder>& recorder) {
  std::shared_ptr<AVAudioRecorder> released;
  const std::lock_guard lock(mutex_);
  if (audioRecorder_ == recorder) released = std::move(audioRecorder_);
}

bool VideoNarrationUtils::configureSession() {
  return recordingSession_
             .setCategory(AVAudioSessionCategoryPlayAndRecord, AVAudioSessionModeSpokenAudio,
                          AVAudioSessionRouteSharingPolicy::default_, AVAudioSessionCategoryOptionDefaultToSpeaker)
             .has_value() &&
         recordingSession_.setActive(true, 0).has_value();
}

void VideoNarrationUtils::finishNarration() {
  std::shared_ptr<AVAudioRecorder> recorder;
  {
    const std::lock_guard lock(mutex_);
    recorder = std::move(audioRecorder_);
    audioRecorder_ = nullptr;
  }
  if (recorder != nullptr) recorder->stop();
}

void VideoNarrationUtils::audioRecorderDidFinishRecording(const std::shared_ptr<AVAudioRecorder>& recorder,
                                                          bool successfully) {
  forget(recorder);
  std::shared_ptr<VideoNarrationUtilsDelegate> delegate;
  std::optional<CMTime> startTime;
  {
    const std::lock_guard lock(mutex_);
    delegate = delegate_.lock();
    startTime = startTime_;
  }
  if (delegate == nullptr) return;
  if (successfully && startTime) {
    delegate->narrationDidFinish(NarrationPiece{*startTime, recorder->url(), 1.0F});
  } else {
    delegate->narrationDidFinish(failure(NarrationError::generic));
  }
}

std::shared_ptr<AVAudioRecorder> VideoNarrationUtils::audioRecorder() const {
  const std::lock_guard lock(mutex_);
  return audioRecorder_;
}

std::optional<CMTime> VideoNarrationUtils::startTime() const {
  const std::lock_guard lock(mutex_);
  return startTime_;
}

void VideoNarrationUtils::createComposition(const URL& videoURL, const std::vector<NarrationPiece>& narrations,
                                            float baseVolume, const CompositionCompletion& onComplete) {
  auto mix = NarrationMix::ofVideo(videoURL, baseVolume);
  if (!mix) return onComplete(failure(NarrationError::generic));
  for (const auto& piece : narrations) mix->add(piece);

  // Always at least the video's own sound, so there is always a mix.
  const auto audioMix = AVMutableAudioMix::make();
  audioMix->setInputParameters(mix->inputParameters());
  currentAudioMix_ = audioMix;
  currentComposition_ = mix->composition();
  onComplete(currentComposition_);
}

void VideoNarrationUtils::exportComposition(ExportQuality quality, ExportCompletion onComplete) {
  if (currentComposition_ == nullptr) return onComplete(failure(NarrationError::generic));
  const URL url = prepareOutputLocation(FileSystem::shared().outputsURL(), std::nullopt, ".mp4");
  const bool hasHEVC = HEVCSupport::hasHEVCHardwareEncoder();
  printLine(std::string("Has HEVC support: ") + (hasHEVC ? "true" : "false"));
  const auto session = AVAssetExportSession::make(currentComposition_, presetFor(quality, hasHEVC));
  if (session == nullptr) return;  // kept: no completion then
  session->setOutputURL(url);
  session->setOutputFileType(AVFileTypeMPEG4);
  session->setAudioMix(currentAudioMix_);
  session->exportAsynchronously([session, url, onComplete = std::move(onComplete)] {
    const auto result = exportOutcome<NarrationError>(*session, url, "Failed: ");
    DispatchQueue::main().async([onComplete, result] { onComplete(result); });
  });
}

}  // namespace clipworks
