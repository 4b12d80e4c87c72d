#pragma once

namespace clipworks {

/// What narration fails with; the cause is printed.
enum class NarrationError { generic };

}  // namespace clipworks
