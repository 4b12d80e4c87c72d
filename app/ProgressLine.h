#pragma once

#include <chrono>
#include <string>

namespace clipworks::app {

/// The text of a progress bar: `[########............]  40 %  0:12 left`. `value` from 0 to 1 after `elapsed`; the time
/// left is told once there is something to reckon with.
[[nodiscard]] std::string progressLine(double value, std::chrono::milliseconds elapsed);

}  // namespace clipworks::app
