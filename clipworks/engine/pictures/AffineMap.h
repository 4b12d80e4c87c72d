#pragma once

namespace clipworks::engine {

/// Maps a point (x, y) of one picture to (a·x + c·y + tx, b·x + d·y + ty) of another. Points are counted in pixels from
/// the outer corner at the top left; the centre of the first pixel is (0.5, 0.5).
struct AffineMap {
  double a = 1;
  double b = 0;
  double c = 0;
  double d = 1;
  double tx = 0;
  double ty = 0;

  friend constexpr bool operator==(const AffineMap&, const AffineMap&) = default;
};

}  // namespace clipworks::engine
