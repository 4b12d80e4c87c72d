#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/PictureResampler.h>

namespace clipworks::engine {

/// Brings pictures to one size and pixel format: exact copies where nothing changes, otherwise one precise resampling
/// with error-diffused rounding. Colours keep their meaning; only depth, chroma layout and size change.
/// One thread at a time.
class PictureConverter {
 public:
  /// Whether `scale` may change the size: without it, smaller pictures are padded to `width` × `height`.
  enum class Fit { pad, scale };

  PictureConverter(int width, int height, AVPixelFormat format, Fit fit)
      : width_(width), height_(height), format_(format), fit_(fit) {}

  /// Shares the input's buffers where nothing has to change. Fails with `unsupported` for kinds of pixels that phones
  /// and cameras do not record.
  [[nodiscard]] Expected<Frame> convert(const Frame& picture);

 private:
  int width_;
  int height_;
  AVPixelFormat format_;
  Fit fit_;
  PictureResampler resampler_;
};

}  // namespace clipworks::engine
