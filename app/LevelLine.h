#pragma once

#include <string>

namespace clipworks::app {

/// The text of a level meter: `0:05  [##########..........] -23 dB`. `decibels` of full scale; the bar begins at −60.
[[nodiscard]] std::string levelLine(double seconds, double decibels);

}  // namespace clipworks::app
