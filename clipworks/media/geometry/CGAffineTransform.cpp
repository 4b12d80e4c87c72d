#include <clipworks/media/geometry/CGAffineTransform.h>

#include <cmath>

#include <clipworks/media/base/PrintedText.h>

namespace clipworks {

CGPoint CGPointApplyAffineTransform(const CGPoint& point, const CGAffineTransform& t) {
  return {t.a * point.x + t.c * point.y + t.tx, t.b * point.x + t.d * point.y + t.ty};
}

CGSize CGSizeApplyAffineTransform(const CGSize& size, const CGAffineTransform& t) {
  return {t.a * size.width + t.c * size.height, t.b * size.width + t.d * size.height};
}

CGAffineTransform CGAffineTransformScale(const CGAffineTransform& t, double sx, double sy) {
  return {t.a * sx, t.b * sx, t.c * sy, t.d * sy, t.tx, t.ty};
}

CGAffineTransform CGAffineTransformTranslate(const CGAffineTransform& t, double dx, double dy) {
  return {t.a, t.b, t.c, t.d, t.a * dx + t.c * dy + t.tx, t.b * dx + t.d * dy + t.ty};
}

CGAffineTransform CGAffineTransformRotate(const CGAffineTransform& t, double angle) {
  const double cosine = std::cos(angle);
  const double sine = std::sin(angle);
  return {cosine * t.a + sine * t.c,
          cosine * t.b + sine * t.d,
          cosine * t.c - sine * t.a,
          cosine * t.d - sine * t.b,
          t.tx,
          t.ty};
}

CGAffineTransform CGAffineTransformConcat(const CGAffineTransform& t1, const CGAffineTransform& t2) {
  return {t1.a * t2.a + t1.b * t2.c, t1.a * t2.b + t1.b * t2.d,           t1.c * t2.a + t1.d * t2.c,
          t1.c * t2.b + t1.d * t2.d, t1.tx * t2.a + t1.ty * t2.c + t2.tx, t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}

std::string printedText(const CGAffineTransform& t) {
  return "CGAffineTransform(a: " + printedNumber(t.a) + ", b: " + printedNumber(t.b) + ", c: " + printedNumber(t.c) +
         ", d: " + printedNumber(t.d) + ", tx: " + printedNumber(t.tx) + ", ty: " + printedNumber(t.ty) + ")";
}

}  // namespace clipworks
