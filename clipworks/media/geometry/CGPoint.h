#pragma once

#include <string>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// A point in the plane, in pixels; y grows downwards in pictures.
struct CGPoint {
  double x = 0;
  double y = 0;

  friend constexpr bool operator==(const CGPoint&, const CGPoint&) = default;
};

/// `(<x>, <y>)`, with the numbers of `printedNumber`.
[[nodiscard]] CLIPWORKS_API std::string printedText(const CGPoint& point);

}  // namespace clipworks
