#pragma once

#include <memory>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/composition/AVMutableAudioMixInputParameters.h>

namespace clipworks {

/// How loud the tracks of sound of an asset are when they are added up. Tracks that it does not name keep their level;
/// of several parameters for one track the first ones hold. Not thread-safe, as its parameters.
class CLIPWORKS_API AVMutableAudioMix final {
 public:
  /// `AVMutableAudioMix()`: names no track.
  [[nodiscard]] static std::shared_ptr<AVMutableAudioMix> make();
  AVMutableAudioMix(const AVMutableAudioMix&) = delete;
  AVMutableAudioMix& operator=(const AVMutableAudioMix&) = delete;

  /// `setInputParameters:`. One for each track; null ones are passed over.
  void setInputParameters(std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>> inputParameters);
  [[nodiscard]] const std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>>& inputParameters() const;

 private:
  AVMutableAudioMix() = default;
  std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>> inputParameters_;
};

}  // namespace clipworks
