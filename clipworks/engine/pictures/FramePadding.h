#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/FramePool.h>

namespace clipworks::engine {

/// `frame` enlarged to `width` × `height` (no smaller than it is) by repeating its last column and row.
[[nodiscard]] Expected<Frame> padFrame(const Frame& frame, int width, int height);

/// A black frame in the given colour range.
[[nodiscard]] Expected<Frame> blackFrame(int width, int height, AVPixelFormat format, bool fullRange);

}  // namespace clipworks::engine
