#pragma once

#include <string>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/geometry/CGPoint.h>
#include <clipworks/media/geometry/CGSize.h>

/// Affine transforms of the plane, in plain double arithmetic: what a rotation by the double nearest π/2 leaves of the
/// cosine (about 6.1e-17) is kept. "First" below means: applied to the point first.
namespace clipworks {

/// Maps (x, y) to (a·x + c·y + tx, b·x + d·y + ty). A value; the default is the identity.
struct CGAffineTransform {
  double a = 1;
  double b = 0;
  double c = 0;
  double d = 1;
  double tx = 0;
  double ty = 0;

  friend constexpr bool operator==(const CGAffineTransform&, const CGAffineTransform&) = default;
};

/// The transform that changes nothing.
inline constexpr CGAffineTransform CGAffineTransformIdentity{1, 0, 0, 1, 0, 0};

/// (a·x + c·y + tx, b·x + d·y + ty).
[[nodiscard]] CLIPWORKS_API CGPoint CGPointApplyAffineTransform(const CGPoint& point, const CGAffineTransform& t);

/// (a·width + c·height, b·width + d·height): the translation does not count, and results may be negative.
[[nodiscard]] CLIPWORKS_API CGSize CGSizeApplyAffineTransform(const CGSize& size, const CGAffineTransform& t);

/// Scales first, then applies `t`: {a·sx, b·sx, c·sy, d·sy, tx, ty}.
[[nodiscard]] CLIPWORKS_API CGAffineTransform CGAffineTransformScale(const CGAffineTransform& t, double sx, double sy);

/// Shifts first, then applies `t`: {a, b, c, d, a·dx + c·dy + tx, b·dx + d·dy + ty}.
[[nodiscard]] CLIPWORKS_API CGAffineTransform CGAffineTransformTranslate(const CGAffineTransform& t, double dx,
                                                                         double dy);

/// Rotates by `angle` radians first, then applies `t`:
/// {cos·a + sin·c, cos·b + sin·d, cos·c − sin·a, cos·d − sin·b, tx, ty}.
[[nodiscard]] CLIPWORKS_API CGAffineTransform CGAffineTransformRotate(const CGAffineTransform& t, double angle);

/// Applies `t1` first, then `t2`.
[[nodiscard]] CLIPWORKS_API CGAffineTransform CGAffineTransformConcat(const CGAffineTransform& t1,
                                                                      const CGAffineTransform& t2);

/// `CGAffineTransform(a: <a>, b: <b>, c: <c>, d: <d>, tx: <tx>, ty: <ty>)`, with the numbers of `printedNumber`.
[[nodiscard]] CLIPWORKS_API std::string printedText(const CGAffineTransform& t);

}  // namespace clipworks
