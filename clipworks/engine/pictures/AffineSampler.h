#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/AffineMap.h>

namespace clipworks::engine {

/// A picture and where it has pixels.
struct SampledPicture {
  Frame picture;
  Frame coverage;  ///< grey, of the same size: 255 where a pixel's centre lies on the source, else 0
};

/// `source`, planar YUV of 8 to 16 bits, under `map` (one that can be turned back) on a canvas of `width` × `height`
/// pixels: each sample is interpolated between sixteen of the source's by Catmull-Rom splines (Keys' cubic convolution
/// with a = −1/2), edges repeated. For maps that do not make the picture smaller.
[[nodiscard]] Expected<SampledPicture> sampleAffine(const Frame& source, const AffineMap& map, int width, int height);

}  // namespace clipworks::engine
