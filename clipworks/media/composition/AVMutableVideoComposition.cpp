#include <clipworks/media/composition/AVMutableVideoComposition.h>

namespace clipworks {

std::shared_ptr<AVMutableVideoCompositionInstruction> AVMutableVideoCompositionInstruction::make() {
  return std::shared_ptr<AVMutableVideoCompositionInstruction>(new AVMutableVideoCompositionInstruction());
}

std::shared_ptr<AVMutableVideoComposition> AVMutableVideoComposition::make() {
  return std::shared_ptr<AVMutableVideoComposition>(new AVMutableVideoComposition());
}

std::shared_ptr<AVMutableVideoComposition> AVMutableVideoComposition::copy() const {
  std::shared_ptr<AVMutableVideoComposition> copied(new AVMutableVideoComposition(*this));
  copied->instructions_.clear();
  for (const auto& instruction : instructions_) {
    if (instruction == nullptr) continue;
    std::shared_ptr<AVMutableVideoCompositionInstruction> own(new AVMutableVideoCompositionInstruction(*instruction));
    own->layerInstructions_.clear();
    for (const auto& layer : instruction->layerInstructions()) {
      if (layer != nullptr) own->layerInstructions_.emplace_back(new AVMutableVideoCompositionLayerInstruction(*layer));
    }
    copied->instructions_.push_back(std::move(own));
  }
  return copied;
}

}  // namespace clipworks
