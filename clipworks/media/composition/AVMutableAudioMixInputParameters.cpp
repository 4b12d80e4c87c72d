#include <clipworks/media/composition/AVMutableAudioMixInputParameters.h>

namespace clipworks {

std::shared_ptr<AVMutableAudioMixInputParameters> AVMutableAudioMixInputParameters::make(
    const std::shared_ptr<const AVAssetTrack>& track) {
  std::shared_ptr<AVMutableAudioMixInputParameters> parameters(new AVMutableAudioMixInputParameters());
  if (track != nullptr) parameters->trackID_ = track->trackID();
  return parameters;
}

void AVMutableAudioMixInputParameters::setVolume(float volume, const CMTime& at) {
  volume_ = volume;
  volumeTime_ = at;
}

}  // namespace clipworks
