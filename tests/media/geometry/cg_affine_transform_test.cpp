#include <clipworks/media/geometry/CGAffineTransform.h>

#include <cmath>

#include <gtest/gtest.h>

namespace clipworks {

std::ostream& operator<<(std::ostream& out, const CGAffineTransform& t) { return out << printedText(t); }

namespace {

const CGAffineTransform t{2, 3, 5, 7, 11, 13};

TEST(CGAffineTransformTest, TransformsPointsAndSizes) {
  EXPECT_EQ(CGPointApplyAffineTransform({10, 100}, t), (CGPoint{531, 743}));
  EXPECT_EQ(CGSizeApplyAffineTransform({10, 100}, t), (CGSize{520, 730}));
  EXPECT_EQ(CGSizeApplyAffineTransform({1920, 1080}, {0, 1, -1, 0, 1080, 0}), (CGSize{-1080, 1920}));
}

TEST(CGAffineTransformTest, ChangesApplyBeforeTheTransform) {
  EXPECT_EQ(CGAffineTransformScale(t, 10, 100), (CGAffineTransform{20, 30, 500, 700, 11, 13}));
  EXPECT_EQ(CGAffineTransformTranslate(t, 10, 100), (CGAffineTransform{2, 3, 5, 7, 531, 743}));
  const double c = std::cos(0.3);
  const double s = std::sin(0.3);
  EXPECT_EQ(CGAffineTransformRotate(t, 0.3),
            (CGAffineTransform{c * 2 + s * 5, c * 3 + s * 7, c * 5 - s * 2, c * 7 - s * 3, 11, 13}));
}

TEST(CGAffineTransformTest, ConcatenationAppliesTheFirstFirst) {
  const CGAffineTransform second{-1, 4, 6, -2, 9, 8};
  EXPECT_EQ(CGPointApplyAffineTransform({10, 100}, CGAffineTransformConcat(t, second)),
            CGPointApplyAffineTransform(CGPointApplyAffineTransform({10, 100}, t), second));
}

}  // namespace
}  // namespace clipworks
