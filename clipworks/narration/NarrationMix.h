#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <clipworks/media/base/URL.h>
#include <clipworks/media/composition/AVMutableAudioMixInputParameters.h>
#include <clipworks/media/composition/AVMutableComposition.h>
#include <clipworks/narration/NarrationPiece.h>

namespace clipworks {

/// A video and the pieces laid over it, as it is being put together: each piece has a track of its own, so pieces may
/// overlap; each track of sound has one volume, which holds from the start to the end.
class NarrationMix {
 public:
  /// The video's pictures and its own sound, at `baseVolume`. Nothing when it lacks one of the two.
  [[nodiscard]] static std::optional<NarrationMix> ofVideo(const URL& videoURL, float baseVolume);

  /// Lays a piece over it; one without sound is passed over.
  void add(const NarrationPiece& piece);

  [[nodiscard]] const std::shared_ptr<AVMutableComposition>& composition() const { return composition_; }
  [[nodiscard]] const std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>>& inputParameters() const {
    return inputParameters_;
  }

 private:
  explicit NarrationMix(std::int32_t timescale) : timescale_(timescale) {}
  void addParameters(const std::shared_ptr<AVAssetTrack>& source, const AVMutableCompositionTrack* target,
                     float volume);

  std::int32_t timescale_;  // of the video's duration; pieces are measured in it, too
  std::shared_ptr<AVMutableComposition> composition_ = AVMutableComposition::make();
  std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>> inputParameters_;
};

}  // namespace clipworks
