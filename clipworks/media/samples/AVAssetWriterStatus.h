#pragma once

namespace clipworks {

/// Where a writer stands.
enum class AVAssetWriterStatus : int { unknown = 0, writing = 1, completed = 2, failed = 3, cancelled = 4 };

}  // namespace clipworks
