#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// A frame of the given size and format with buffers that fit every vector unit, contents undefined. The memory comes
/// from what earlier frames of that kind on the calling thread gave back, since fresh pages cost more than most of what
/// is done with a picture. Frames may be given back on any thread, also after the one that made them has ended.
[[nodiscard]] Expected<Frame> allocateFrame(int width, int height, AVPixelFormat format);

}  // namespace clipworks::engine
