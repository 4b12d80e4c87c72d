#include <clipworks/media/composition/AVMutableVideoCompositionLayerInstruction.h>

#include <algorithm>

namespace clipworks {
namespace {

template <class Value>
using Steps = std::vector<std::pair<CMTime, Value>>;

template <class Value>
void setStep(Steps<Value>& steps, const Value& value, const CMTime& at) {
  const auto place = std::lower_bound(steps.begin(), steps.end(), at,
                                      [](const auto& step, const CMTime& time) { return step.first < time; });
  if (place != steps.end() && place->first == at) {
    place->second = value;
  } else {
    steps.insert(place, {at, value});
  }
}

template <class Value>
Value stepAt(const Steps<Value>& steps, const CMTime& t, const Value& otherwise) {
  if (steps.empty()) return otherwise;
  const auto after = std::upper_bound(steps.begin(), steps.end(), t,
                                      [](const CMTime& time, const auto& step) { return time < step.first; });
  return after == steps.begin() ? steps.front().second : std::prev(after)->second;
}

}  // namespace

std::shared_ptr<AVMutableVideoCompositionLayerInstruction> AVMutableVideoCompositionLayerInstruction::make(
    const std::shared_ptr<const AVAssetTrack>& assetTrack) {
  std::shared_ptr<AVMutableVideoCompositionLayerInstruction> instruction(
      new AVMutableVideoCompositionLayerInstruction());
  if (assetTrack != nullptr) instruction->trackID_ = assetTrack->trackID();
  return instruction;
}

void AVMutableVideoCompositionLayerInstruction::setTransform(const CGAffineTransform& transform, const CMTime& at) {
  setStep(transforms_, transform, at);
}

void AVMutableVideoCompositionLayerInstruction::setOpacity(float opacity, const CMTime& at) {
  setStep(opacities_, opacity, at);
}

CGAffineTransform AVMutableVideoCompositionLayerInstruction::transform(const CMTime& t) const {
  return stepAt(transforms_, t, CGAffineTransformIdentity);
}

float AVMutableVideoCompositionLayerInstruction::opacity(const CMTime& t) const { return stepAt(opacities_, t, 1.0F); }

}  // namespace clipworks
