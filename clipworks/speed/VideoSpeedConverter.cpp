#include <clipworks/speed/VideoSpeedConverter.h>

#include <string_view>
#include <utility>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/ExportOutcome.h>
#include <clipworks/foundation/HEVCSupport.h>
#include <clipworks/foundation/OutputLocation.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>

namespace clipworks {
namespace {

using ConversionError = VideoSpeedConverter::ConversionError;
using ConversionQuality = VideoSpeedConverter::ConversionQuality;

std::string_view presetFor(ConversionQuality quality) {
  if (quality == ConversionQuality::low) return AVAssetExportPresetLowQuality;
  return HEVCSupport::hasHEVCHardwareEncoder() ? AVAssetExportPresetHEVCHighestQuality
                                               : AVAssetExportPresetHighestQuality;
}

}  // namespace

std::shared_ptr<VideoSpeedConverter> VideoSpeedConverter::make(URL videoURL) {
  return std::shared_ptr<VideoSpeedConverter>(new VideoSpeedConverter(std::move(videoURL)));
}

void VideoSpeedConverter::createComposition(double startTime, double endTime, double ratio,
                                            const CompositionCompletion& onComplete) {
  const auto asset = AVAsset::make(videoURL_);
  const auto videoTracks = asset->tracks(AVMediaTypeVideo);
  if (videoTracks.empty()) return onComplete(failure(ConversionError::generic));
  const auto audioTracks = asset->tracks(AVMediaTypeAudio);
  if (audioTracks.empty()) return onComplete(failure(ConversionError::generic));

  const std::int32_t timescale = asset->duration().timescale;
  const CMTimeRange whole(kCMTimeZero, CMTime(asset->duration().seconds(), timescale));
  const auto composition = AVMutableComposition::make();
  const auto videoTrack = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  if (videoTrack != nullptr) {
    (void)videoTrack->insertTimeRange(whole, videoTracks.front(), kCMTimeZero);  // kept: a failure is dropped
    videoTrack->setPreferredTransform(videoTracks.front()->preferredTransform());
  }
  const auto audioTrack = composition->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  if (audioTrack != nullptr) (void)audioTrack->insertTimeRange(whole, audioTracks.front(), kCMTimeZero);

  const auto stretch = CMTimeRange::fromTo(CMTime(startTime, timescale), CMTime(endTime, timescale));
  const CMTime newLength((endTime - startTime) * ratio, timescale);
  if (videoTrack != nullptr) videoTrack->scaleTimeRange(stretch, newLength);
  if (audioTrack != nullptr) audioTrack->scaleTimeRange(stretch, newLength);

  composition_ = composition;
  onComplete(composition);
}

void VideoSpeedConverter::applySpeedChange(double startTime, double endTime, double ratio,
                                           const std::optional<std::string>& fileName, ConversionQuality quality,
                                           ExportCompletion onComplete) {
  if (composition_ == nullptr) {
    bool isBuilt = false;
    createComposition(startTime, endTime, ratio, [&isBuilt](const auto& result) { isBuilt = result.has_value(); });
    if (!isBuilt) return onComplete(failure(ConversionError::generic));
  }
  const URL url = prepareOutputLocation(FileSystem::shared().outputsURL(), fileName, ".mp4");
  printLine(std::string("Supports HEVC: ") + (HEVCSupport::hasHEVCHardwareEncoder() ? "true" : "false"));
  const auto session = AVAssetExportSession::make(composition_, presetFor(quality));
  if (session == nullptr) return;  // kept: no completion then
  session->setOutputURL(url);
  session->setOutputFileType(AVFileTypeMPEG4);
  session->exportAsynchronously([session, url, onComplete = std::move(onComplete)] {
    const auto result = exportOutcome<ConversionError>(*session, url, "FAILED: ");
    DispatchQueue::main().async([onComplete, result] { onComplete(result); });
  });
}

}  // namespace clipworks
