#include <clipworks/narration/NarrationMix.h>

#include <clipworks/media/asset/AVAsset.h>

namespace clipworks {

std::optional<NarrationMix> NarrationMix::ofVideo(const URL& videoURL, float baseVolume) {
  const auto asset = AVAsset::make(videoURL);
  const auto videoTracks = asset->tracks(AVMediaTypeVideo);
  if (videoTracks.empty()) return std::nullopt;
  const auto audioTracks = asset->tracks(AVMediaTypeAudio);
  if (audioTracks.empty()) return std::nullopt;

  const CMTime duration = asset->duration();
  const CMTimeRange whole(kCMTimeZero, CMTime(duration.seconds(), duration.timescale));
  NarrationMix mix(duration.timescale);
  const auto video = mix.composition_->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  if (video != nullptr) {
    // Kept: a failed insertion is dropped without a word, here and below.
    (void)video->insertTimeRange(whole, videoTracks.front(), kCMTimeZero);
    video->setPreferredTransform(videoTracks.front()->preferredTransform());
  }
  const auto audio = mix.composition_->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  if (audio != nullptr) (void)audio->insertTimeRange(whole, audioTracks.front(), kCMTimeZero);
  mix.addParameters(audioTracks.front(), audio.get(), baseVolume);
  return mix;
}

void NarrationMix::add(const NarrationPiece& piece) {
  const auto asset = AVAsset::make(piece.audioURL);
  const auto audioTracks = asset->tracks(AVMediaTypeAudio);
  if (audioTracks.empty()) return;

  // In the video's time scale, not in the recording's.
  const CMTime length(asset->duration().seconds(), timescale_);
  const auto track = composition_->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  if (track != nullptr) {
    // Kept: a piece that runs past the end of the video is not cut.
    (void)track->insertTimeRange(CMTimeRange(kCMTimeZero, length), audioTracks.front(), piece.startTime);
  }
  addParameters(audioTracks.front(), track.get(), piece.volume);
}

void NarrationMix::addParameters(const std::shared_ptr<AVAssetTrack>& source, const AVMutableCompositionTrack* target,
                                 float volume) {
  const auto parameters = AVMutableAudioMixInputParameters::make(source);
  parameters->setVolume(volume, kCMTimeZero);
  if (target != nullptr) parameters->setTrackID(target->trackID());
  inputParameters_.push_back(parameters);
}

}  // namespace clipworks
