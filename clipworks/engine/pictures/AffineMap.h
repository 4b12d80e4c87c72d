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

/// The map back, where there is one: the determinant is not zero.
[[nodiscard]] constexpr AffineMap inverseOf(const AffineMap& m) {
  const double determinant = m.a * m.d - m.b * m.c;
  return {m.d / determinant,
          -m.b / determinant,
          -m.c / determinant,
          m.a / determinant,
          (m.c * m.ty - m.d * m.tx) / determinant,
          (m.b * m.tx - m.a * m.ty) / determinant};
}

}  // namespace clipworks::engine
