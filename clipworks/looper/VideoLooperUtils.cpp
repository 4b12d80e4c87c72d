#include <clipworks/looper/VideoLooperUtils.h>

#include <optional>
#include <string>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/ExportOutcome.h>
#include <clipworks/foundation/HEVCSupport.h>
#include <clipworks/foundation/OutputLocation.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>

namespace clipworks {
namespace {

/// The asset's length, rebuilt from its seconds: what every copy is placed and cut by.
CMTime clipLength(const AVAsset& asset) {
  const CMTime duration = asset.duration();
  return CMTime(duration.seconds(), duration.timescale);
}

void insertCopies(std::int64_t loopCount, const CMTime& length, const std::shared_ptr<AVAssetTrack>& video,
                  const std::shared_ptr<AVAssetTrack>& audio, AVMutableCompositionTrack* videoTrack,
                  AVMutableCompositionTrack* audioTrack) {
  const CMTimeRange whole(kCMTimeZero, length);
  for (std::int64_t i = 0; i < loopCount; ++i) {
    // Each copy's start is computed afresh from seconds, so that the rounding of one does not add to the next.
    const CMTime at(length.seconds() * static_cast<double>(i), length.timescale);
    // Kept: a failed insertion is dropped without a word, and the next one is tried.
    if (videoTrack != nullptr) (void)videoTrack->insertTimeRange(whole, video, at);
    if (audioTrack != nullptr) (void)audioTrack->insertTimeRange(whole, audio, at);
  }
}

/// Keeps the export from filling the device; without a figure there is no limit.
void limitToFreeSpace(AVAssetExportSession* session) {
  const auto capacity = URL(NSHomeDirectory()).volumeAvailableCapacityForImportantUsage();
  if (!capacity) return;
  printLine("Current capacity: " + std::to_string(*capacity));
  if (session != nullptr) session->setFileLengthLimit(*capacity);
}

}  // namespace

std::shared_ptr<VideoLooperUtils> VideoLooperUtils::make(URL videoURL) {
  return std::shared_ptr<VideoLooperUtils>(new VideoLooperUtils(std::move(videoURL)));
}

void VideoLooperUtils::createLoopComposition(std::int64_t loopCount, const CompositionCompletion& onComplete) {
  const auto asset = AVAsset::make(videoURL_);
  const auto videoTracks = asset->tracks(AVMediaTypeVideo);
  if (videoTracks.empty()) return onComplete(failure(VideoLooperError::generic));
  const auto audioTracks = asset->tracks(AVMediaTypeAudio);
  if (audioTracks.empty()) return onComplete(failure(VideoLooperError::generic));

  const CMTime length = clipLength(*asset);
  const auto composition = AVMutableComposition::make();
  const auto videoTrack = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  const auto audioTrack = composition->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  if (loopCount < 0) fatalError("VideoLooperUtils: a loop count must not be negative");
  insertCopies(loopCount, length, videoTracks.front(), audioTracks.front(), videoTrack.get(), audioTrack.get());
  if (videoTrack != nullptr) videoTrack->setPreferredTransform(videoTracks.front()->preferredTransform());

  composition_ = composition;
  onComplete(composition);
}

void VideoLooperUtils::exportCurrentComposition(ExportCompletion onComplete) {
  if (composition_ == nullptr) return onComplete(failure(VideoLooperError::generic));
  const URL url = prepareOutputLocation(FileSystem::shared().outputsURL(), std::nullopt, ".mp4");
  const auto preset =
      HEVCSupport::hasHEVCHardwareEncoder() ? AVAssetExportPresetHEVCHighestQuality : AVAssetExportPresetHighestQuality;
  const auto session = AVAssetExportSession::make(composition_, preset);
  if (session != nullptr) {
    session->setOutputURL(url);
    session->setOutputFileType(AVFileTypeMPEG4);
  }
  limitToFreeSpace(session.get());
  if (session == nullptr) return;  // kept: no completion then

  session->exportAsynchronously([session, url, onComplete = std::move(onComplete)] {
    const auto result = exportOutcome<VideoLooperError>(*session, url, "FAILED: ");
    DispatchQueue::main().async([onComplete, result] { onComplete(result); });
  });
}

}  // namespace clipworks
