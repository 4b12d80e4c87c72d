#include <clipworks/reverse/VideoReverseConverter.h>

#include <utility>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/OutputLocation.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/composition/AVMutableComposition.h>
#include <clipworks/media/dispatch/DispatchGroup.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/reverse/PictureReversal.h>
#include <clipworks/reverse/SoundReversal.h>

namespace clipworks {
namespace {

using Outcome = Result<URL, VideoReverseConverter::ConversionError>;

auto failed() { return failure(VideoReverseConverter::ConversionError::generic); }

/// What the halves leave for the notification; the group orders their accesses.
struct HalfResults {
  std::optional<URL> video;
  std::optional<URL> audio;
};

/// Stores a half's result, nothing for a failure, and leaves the group.
VideoReverseConverter::Completion storing(std::shared_ptr<HalfResults> results, std::optional<URL> HalfResults::*result,
                                          std::shared_ptr<DispatchGroup> group) {
  return [results = std::move(results), result, group = std::move(group)](const Outcome& outcome) {
    if (outcome) (*results).*result = *outcome;
    group->leave();
  };
}

/// Puts the whole of a track at the start of a composition's track, where there is one.
void insertWhole(const std::shared_ptr<AVMutableCompositionTrack>& into, const std::shared_ptr<AVAssetTrack>& track,
                 const CMTime& length) {
  // Kept: a failed insertion is ignored, and the export goes on with what was inserted.
  if (into != nullptr) (void)into->insertTimeRange({kCMTimeZero, length}, track, kCMTimeZero);
}

}  // namespace

std::shared_ptr<VideoReverseConverter> VideoReverseConverter::make(URL videoURL) {
  return std::shared_ptr<VideoReverseConverter>(new VideoReverseConverter(std::move(videoURL)));
}

std::weak_ptr<VideoReverseDelegate> VideoReverseConverter::delegate() const {
  const std::lock_guard lock(mutex_);
  return delegate_;
}

void VideoReverseConverter::setDelegate(std::weak_ptr<VideoReverseDelegate> delegate) {
  const std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

void VideoReverseConverter::reverse(std::optional<std::string> fileName, Completion onComplete) {
  const auto group = DispatchGroup::make();
  const auto results = std::make_shared<HalfResults>();
  group->enter();
  reverseAudioOnly(storing(results, &HalfResults::audio, group));
  group->enter();
  reverseVideoOnly(storing(results, &HalfResults::video, group));

  group->notify(
      DispatchQueue::global(DispatchQoS::userInitiated),
      [weakSelf = weak_from_this(), results, fileName = std::move(fileName), onComplete = std::move(onComplete)] {
        if (!results->video) return onComplete(failed());
        if (!results->audio) return onComplete(failed());
        const auto self = weakSelf.lock();
        if (self == nullptr) return;  // kept: no completion then
        self->mergeVideoAndAudio(fileName, *results->video, *results->audio, onComplete);
      });
}

void VideoReverseConverter::reverseVideoOnly(Completion onComplete) {
  printLine("Starting video reversing");
  DispatchQueue::global(DispatchQoS::userInitiated)
      .async([weakSelf = weak_from_this(), onComplete = std::move(onComplete)] {
        const auto self = weakSelf.lock();
        if (self == nullptr) return;  // kept: no completion then
        reversePictures(self, onComplete);
      });
}

void VideoReverseConverter::reverseAudioOnly(Completion onComplete) {
  DispatchQueue::global(DispatchQoS::userInitiated)
      .async([weakSelf = weak_from_this(), onComplete = std::move(onComplete)] {
        printLine("Start reverse audio!");
        const auto self = weakSelf.lock();
        if (self == nullptr) return;  // kept: no completion then
        reverseSound(self->videoURL(), onComplete);
      });
}

void VideoReverseConverter::mergeVideoAndAudio(const std::optional<std::string>& fileName, const URL& videoURL,
                                               const URL& audioURL, Completion onComplete) {
  const auto composition = AVMutableComposition::make();
  const auto videoAsset = AVAsset::make(videoURL);
  const auto audioAsset = AVAsset::make(audioURL);
  const auto videoTracks = videoAsset->tracks(AVMediaTypeVideo);
  const auto audioTracks = audioAsset->tracks(AVMediaTypeAudio);
  if (videoTracks.empty() || audioTracks.empty()) return onComplete(failed());

  const auto videoTrack = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  const auto audioTrack = composition->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  insertWhole(videoTrack, videoTracks.front(), videoAsset->duration());
  insertWhole(audioTrack, audioTracks.front(), audioAsset->duration());
  if (videoTrack != nullptr) videoTrack->setPreferredTransform(videoTracks.front()->preferredTransform());

  const auto session = AVAssetExportSession::make(composition, AVAssetExportPresetHighestQuality);
  const URL outputURL = prepareOutputLocation(FileSystem::shared().tempURL(), fileName, ".mp4");
  if (session == nullptr) return;  // kept: no completion then, and the halves stay
  session->setOutputFileType(AVFileTypeMPEG4);
  session->setOutputURL(outputURL);
  session->setShouldOptimizeForNetworkUse(true);
  session->exportAsynchronously([session, videoURL, audioURL, onComplete = std::move(onComplete)] {
    FileSystem::shared().deleteFile(videoURL);
    FileSystem::shared().deleteFile(audioURL);
    if (session->error()) return onComplete(failed());
    if (const auto made = session->outputURL()) onComplete(*made);
  });
}

}  // namespace clipworks
