#pragma once

#include <optional>
#include <vector>

namespace clipworks::engine {

/// Gains from the source's channels (columns) to the output's (rows). Mono goes to both sides at unity, 5.1 folds down
/// by ITU-R BS.775-3, annex 4: centre and surrounds at -3 dB, no low frequencies. Nothing: the library's own matrix.
[[nodiscard]] std::optional<std::vector<double>> mixingGains(int from, int to);

}  // namespace clipworks::engine
