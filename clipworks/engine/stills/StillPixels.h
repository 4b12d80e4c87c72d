#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/stills/StillColor.h>

namespace clipworks::engine {

/// Fails with `tooLarge` or `unsupported` for pictures that no still encoder takes: a side over 16,384, or pixels other
/// than planar 8-bit YUV and packed BGRA.
[[nodiscard]] Expected<void> checkStill(const AVFrame& picture);

/// What the pixels of a group get of the chroma that they share.
enum class SharedChroma {
  /// Resampled by its own position: what a picture is looked at with.
  interpolated,
  /// All the same: the way back to YUV, averaging, gives the chroma again.
  repeated,
};

/// The picture as planes of green, blue and red (GBRP), by its own matrix and range: one precise conversion, rounded
/// once, without dither. BGRA is only taken apart.
[[nodiscard]] Expected<Frame> planarRGB(const Frame& picture, SharedChroma chroma);

/// The picture as planar YUV of another layout, matrix or range, converted once without 8-bit RGB in between.
/// Shares the input's pixels where nothing has to change.
[[nodiscard]] Expected<Frame> planarYUV(const Frame& picture, AVPixelFormat format, const YUVMeaning& meaning);

}  // namespace clipworks::engine
