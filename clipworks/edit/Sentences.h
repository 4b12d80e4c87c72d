#pragma once

#include <cstdio>
#include <string>

#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// A number with as many digits as it needs, six at most: "2.5".
[[nodiscard]] inline std::string shortNumber(double number) {
  char text[32];
  (void)std::snprintf(text, sizeof text, "%g", number);
  return text;
}

/// An instant for people: "2.500".
[[nodiscard]] inline std::string shownSeconds(const CMTime& time) {
  char text[64];
  (void)std::snprintf(text, sizeof text, "%.3f", time.seconds());
  return text;
}

/// A number of pixels for people.
[[nodiscard]] inline std::string wholeNumber(double number) {
  char text[32];
  (void)std::snprintf(text, sizeof text, "%.0f", number);
  return text;
}

// More is a mistake, and would be hours of work before it is seen as one.
inline constexpr double mostHours = 1000;

}  // namespace clipworks
