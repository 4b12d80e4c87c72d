#pragma once

#include <memory>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/composition/AVMutableVideoCompositionInstruction.h>
#include <clipworks/media/geometry/CGSize.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// How the tracks of pictures of an asset are put together to one: at a constant rate, on a canvas of a given size, by
/// instructions that each hold for a range of time. Not thread-safe, as its parts.
class CLIPWORKS_API AVMutableVideoComposition final {
 public:
  /// `AVMutableVideoComposition()`: nothing set, which no export takes.
  [[nodiscard]] static std::shared_ptr<AVMutableVideoComposition> make();

  /// The size of the output in pixels, rounded to whole ones; encoders round it up to even ones by repeating the edge.
  /// Not finite, not positive or over 16,384 a side: the export fails with `AVError::invalidVideoComposition`.
  void setRenderSize(const CGSize& renderSize) { renderSize_ = renderSize; }
  [[nodiscard]] const CGSize& renderSize() const { return renderSize_; }

  /// How long each picture of the output stays. Not a positive time, or less than a thousandth of a second: the export
  /// fails with `AVError::invalidVideoComposition`.
  void setFrameDuration(const CMTime& frameDuration) { frameDuration_ = frameDuration; }
  [[nodiscard]] const CMTime& frameDuration() const { return frameDuration_; }

  /// Where several hold the first one counts, where none does it is black; null ones are passed over.
  void setInstructions(std::vector<std::shared_ptr<AVMutableVideoCompositionInstruction>> instructions) {
    instructions_ = std::move(instructions);
  }
  [[nodiscard]] const std::vector<std::shared_ptr<AVMutableVideoCompositionInstruction>>& instructions() const {
    return instructions_;
  }

  /// The same with instructions and layers of its own, null ones left out.
  [[nodiscard]] std::shared_ptr<AVMutableVideoComposition> copy() const;

 private:
  AVMutableVideoComposition() = default;
  AVMutableVideoComposition(const AVMutableVideoComposition&) = default;

  CGSize renderSize_;
  CMTime frameDuration_;
  std::vector<std::shared_ptr<AVMutableVideoCompositionInstruction>> instructions_;
};

}  // namespace clipworks
