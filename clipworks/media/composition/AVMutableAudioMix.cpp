#include <clipworks/media/composition/AVMutableAudioMix.h>

#include <utility>

namespace clipworks {

std::shared_ptr<AVMutableAudioMix> AVMutableAudioMix::make() {
  return std::shared_ptr<AVMutableAudioMix>(new AVMutableAudioMix());
}

void AVMutableAudioMix::setInputParameters(
    std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>> inputParameters) {
  inputParameters_ = std::move(inputParameters);
}

const std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>>& AVMutableAudioMix::inputParameters() const {
  return inputParameters_;
}

}  // namespace clipworks
