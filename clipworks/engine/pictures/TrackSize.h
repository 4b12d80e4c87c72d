#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/PictureResampler.h>

namespace clipworks::engine {

/// Brings the pictures of a track whose format changes on the way to one size: as large as fits, their aspect kept, in
/// the middle, black beside. One thread at a time.
class TrackSize {
 public:
  /// Of `width` × `height` pixels whose own aspect is `pixelAspect`; 0 stands for square.
  TrackSize(int width, int height, AVRational pixelAspect)
      : width_(width),
        height_(height),
        pixelAspect_(pixelAspect.num > 0 && pixelAspect.den > 0 ? pixelAspect : AVRational{1, 1}) {}

  /// The picture itself where it has the size; else a new one with its properties. Planar YUV only.
  [[nodiscard]] Expected<Frame> fit(const Frame& picture);

 private:
  Expected<Frame> scaled(const Frame& picture);

  int width_;
  int height_;
  AVRational pixelAspect_;
  PictureResampler resampler_{ResamplingFilter::lanczos};
};

}  // namespace clipworks::engine
