#pragma once

#include <clipworks/media/dispatch/DispatchQueue.h>

namespace clipworks {

/// The serial queue on which the session and the recorders answer. Not for what takes long.
[[nodiscard]] const DispatchQueue& audioQueue();

}  // namespace clipworks
