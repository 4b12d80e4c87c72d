#include <clipworks/rotate/VideoRotateUtils.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <optional>
#include <string>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/OutputLocation.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/PrintedText.h>
#include <clipworks/media/composition/AVMutableComposition.h>
#include <clipworks/media/composition/AVMutableVideoComposition.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/rotate/CropTransform.h>

namespace clipworks {
namespace {

using RotateError = VideoRotateUtils::RotateError;

constexpr double quarterTurn = std::numbers::pi / 2;

/// What rotation and crop share: the whole video as one segment of a composition, and what draws it.
struct OneSegment {
  std::shared_ptr<AVAsset> asset;
  std::shared_ptr<AVAssetTrack> video;
  std::shared_ptr<AVAssetTrack> audio;  // null without sound
  float frameRate = 0;
  std::shared_ptr<AVMutableComposition> composition = AVMutableComposition::make();
  std::shared_ptr<AVMutableCompositionTrack> videoTrack;
  std::shared_ptr<AVMutableCompositionTrack> audioTrack;
};

/// Nothing for a file without pictures.
std::optional<OneSegment> openForOneSegment(const URL& url) {
  OneSegment segment;
  segment.asset = AVAsset::make(url);
  const auto videoTracks = segment.asset->tracks(AVMediaTypeVideo);
  if (videoTracks.empty()) return std::nullopt;
  segment.video = videoTracks.front();
  segment.frameRate = segment.video->nominalFrameRate();
  const auto audioTracks = segment.asset->tracks(AVMediaTypeAudio);
  if (!audioTracks.empty()) segment.audio = audioTracks.front();

  segment.videoTrack = segment.composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  if (segment.videoTrack == nullptr) return std::nullopt;
  // Also for a video without sound, whose track of sound stays empty.
  segment.audioTrack = segment.composition->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  return segment;
}

void insertWhole(const OneSegment& segment) {
  const CMTimeRange whole(kCMTimeZero, segment.asset->duration());
  // Kept: a failed insertion is passed over, and the export decides.
  (void)segment.videoTrack->insertTimeRange(whole, segment.video, kCMTimeZero);
  if (segment.audio != nullptr && segment.audioTrack != nullptr) {
    (void)segment.audioTrack->insertTimeRange(whole, segment.audio, kCMTimeZero);
  }
}

/// The rate as whole pictures a second, the fraction dropped.
std::int32_t wholeFrameRate(float frameRate) {
  constexpr auto most = static_cast<float>(std::numeric_limits<std::int32_t>::max());  // 2^31, one more than fits
  if (!std::isfinite(frameRate) || frameRate >= most || frameRate < -most) {
    fatalError("VideoRotateUtils: a frame rate must fit 32 bits");
  }
  return static_cast<std::int32_t>(frameRate);
}

std::shared_ptr<AVMutableVideoComposition> drawn(const OneSegment& segment, const CGAffineTransform& transform,
                                                 const CGSize& renderSize) {
  const auto layer = AVMutableVideoCompositionLayerInstruction::make(segment.videoTrack);
  layer->setTransform(transform, kCMTimeZero);
  layer->setOpacity(1.0F, kCMTimeZero);
  const auto instruction = AVMutableVideoCompositionInstruction::make();
  instruction->setTimeRange({kCMTimeZero, segment.asset->duration()});
  instruction->setLayerInstructions({layer});
  const auto videoComposition = AVMutableVideoComposition::make();
  videoComposition->setRenderSize(renderSize);
  videoComposition->setInstructions({instruction});
  videoComposition->setFrameDuration(CMTimeMake(1, wholeFrameRate(segment.frameRate)));
  return videoComposition;
}

/// Turns what is shown by a quarter turn and moves it back into view. Kept: a video with c = −1 turns the other way.
CGAffineTransform quarterTurned(const CGAffineTransform& preferred, const CGSize& displayed) {
  const double width = std::abs(displayed.width);
  const double height = std::abs(displayed.height);
  const double difference = std::abs(width - height);
  const auto turnedAndMoved = [&](double angle, double dx, double dy) {
    return CGAffineTransformTranslate(CGAffineTransformRotate(preferred, angle), dx, dy);
  };
  if (preferred.b == -1.0) return turnedAndMoved(-quarterTurn, -height, difference);
  if (preferred.c == -1.0) return turnedAndMoved(quarterTurn, -difference, -width);
  if (preferred.a == -1.0) return turnedAndMoved(-quarterTurn, -height, difference);
  return turnedAndMoved(-quarterTurn, -displayed.width, 0);
}

void exportOneSegment(const OneSegment& segment, const std::shared_ptr<AVMutableVideoComposition>& videoComposition,
                      VideoRotateUtils::Completion onComplete) {
  const URL url = prepareOutputLocation(FileSystem::shared().outputsURL(), std::nullopt, ".mp4");
  const auto session = AVAssetExportSession::make(segment.composition, AVAssetExportPresetHighestQuality);
  if (session == nullptr) return;  // kept: no completion then
  session->setOutputURL(url);
  session->setOutputFileType(AVFileTypeMPEG4);
  session->setVideoComposition(videoComposition);
  session->exportAsynchronously([session, url, onComplete = std::move(onComplete)] {
    Result<URL, RotateError> result = failure(RotateError::generic);
    if (session->status() == AVAssetExportSessionStatus::completed) result = url;
    DispatchQueue::main().async([onComplete, result] { onComplete(result); });
  });
}

}  // namespace

std::shared_ptr<VideoRotateUtils> VideoRotateUtils::make() {
  return std::shared_ptr<VideoRotateUtils>(new VideoRotateUtils());
}

void VideoRotateUtils::rotateVideo(const URL& url, Completion onComplete) {
  const auto segment = openForOneSegment(url);
  if (!segment) return onComplete(failure(RotateError::generic));
  insertWhole(*segment);

  const CGSize displayed = displayedSize(*segment->video);
  printLine("Dimensions: " + printedNumber(displayed.width) + " x " + printedNumber(displayed.height));
  (void)isPortrait(url);  // kept: the file is opened once more
  const CGAffineTransform transform = quarterTurned(segment->video->preferredTransform(), displayed);
  const CGSize renderSize{std::abs(displayed.height), std::abs(displayed.width)};
  exportOneSegment(*segment, drawn(*segment, transform, renderSize), std::move(onComplete));
}

void VideoRotateUtils::cropVideo(const URL& url, const CGRect& toRect, Completion onComplete) {
  const auto segment = openForOneSegment(url);
  if (!segment) return onComplete(failure(RotateError::generic));

  const CGSize displayed = displayedSize(*segment->video);
  double scale =
      isPortrait(url) ? displayed.width / CGRectGetWidth(toRect) : displayed.height / CGRectGetHeight(toRect);
  insertWhole(*segment);
  scale = std::abs(scale);  // a turned video's sides are signed

  const CGSize renderSize{scale * CGRectGetWidth(toRect), scale * CGRectGetHeight(toRect)};
  const CGAffineTransform transform = getCropTransform(*segment->video, toRect, scale);
  exportOneSegment(*segment, drawn(*segment, transform, renderSize), std::move(onComplete));
}

}  // namespace clipworks
