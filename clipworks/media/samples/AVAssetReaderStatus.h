#pragma once

namespace clipworks {

/// Where a reader stands. `completed` comes when all outputs are read to their end.
enum class AVAssetReaderStatus : int { unknown = 0, reading = 1, completed = 2, failed = 3, cancelled = 4 };

}  // namespace clipworks
