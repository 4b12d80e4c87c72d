#pragma once

#include <clipworks/media/geometry/CGPoint.h>
#include <clipworks/media/geometry/CGSize.h>

namespace clipworks {

/// A rectangle: its corner nearest the origin and its size, in pixels.
struct CGRect {
  CGPoint origin;
  CGSize size;

  constexpr CGRect() = default;
  /// From a corner and a size.
  constexpr CGRect(const CGPoint& origin_, const CGSize& size_) : origin(origin_), size(size_) {}
  /// From the corner's and the size's numbers.
  constexpr CGRect(double x, double y, double width, double height) : origin{x, y}, size{width, height} {}

  friend constexpr bool operator==(const CGRect&, const CGRect&) = default;
};

/// The width, never negative, whatever sign is stored.
[[nodiscard]] constexpr double CGRectGetWidth(const CGRect& rect) {
  return rect.size.width < 0 ? -rect.size.width : rect.size.width;
}
/// The height, never negative, whatever sign is stored.
[[nodiscard]] constexpr double CGRectGetHeight(const CGRect& rect) {
  return rect.size.height < 0 ? -rect.size.height : rect.size.height;
}

}  // namespace clipworks
