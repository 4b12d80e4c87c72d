#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/media/base/NSError.h>

namespace clipworks {

/// The platform's error for a failure of the engine: its domain and code, the same sentence, and the system's own error
/// below it where there was one.
[[nodiscard]] NSError errorFromEngine(const engine::Error& error);

}  // namespace clipworks
