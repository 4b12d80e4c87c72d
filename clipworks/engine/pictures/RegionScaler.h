#pragma once

#include <memory>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/MediaFile.h>

namespace clipworks::engine {

/// Brings a part of a picture, whose edges may lie between pixels, to a size and pixel format of its own: by moving the
/// view where nothing has to change, otherwise by one precise resampling (averaging where it makes smaller) with
/// error-diffused rounding. Colours keep their meaning. One thread at a time.
class RegionScaler {
 public:
  RegionScaler();
  RegionScaler(RegionScaler&&) noexcept;
  RegionScaler& operator=(RegionScaler&&) noexcept;
  ~RegionScaler();

  /// Pixels are planar YUV of 8 to 16 bits, and a size that is not a multiple of its chroma subsampling is only for
  /// results that need no resampling; fails with `unsupported` for others.
  [[nodiscard]] Expected<Frame> scale(const Frame& picture, const Region& part, int width, int height, AVPixelFormat format);

 private:
  struct Graph;
  Expected<void> prepare(const AVFrame& from, const AVFrame& to, const Region& part);

  std::unique_ptr<Graph> graph_;
};

}  // namespace clipworks::engine
