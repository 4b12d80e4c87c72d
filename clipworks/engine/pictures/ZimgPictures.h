#pragma once

#include <optional>

#include <zimg++.hpp>

#include <clipworks/engine/Handles.h>

/// What the resampler zimg has to know of a picture.
namespace clipworks::engine {

/// Bytes to which zimg wants rows and buffers aligned.
inline constexpr std::uintptr_t zimgAlignment = 64;

/// The "J" formats say their range by their name; here the range is a field.
[[nodiscard]] AVPixelFormat withoutRange(int format);

/// Whether rows and planes lie as zimg wants them.
[[nodiscard]] bool isAlignedForZimg(const AVFrame& frame);

/// Nothing for pixels that are not planar YUV of 8 to 16 bits.
[[nodiscard]] std::optional<zimgxx::zimage_format> describeForZimg(AVPixelFormat format, int width, int height, bool fullRange,
                                                                   AVChromaLocation location);

/// The planes of two pictures as the resampler takes them.
[[nodiscard]] zimgxx::zimage_buffer_const readByZimg(const AVFrame& frame);
[[nodiscard]] zimgxx::zimage_buffer writtenByZimg(const AVFrame& frame);

}  // namespace clipworks::engine
