#include <clipworks/media/time/ExactTime.h>

#include <cstdint>
#include <limits>
#include <random>

#include <gtest/gtest.h>

namespace clipworks {
namespace {

using enum CMTimeRoundingMethod;
constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();

TEST(ExactTimeTest, MultipliesAndDividesWithoutOverflow) {
  EXPECT_EQ(mulDiv(most, most, most), most);
  EXPECT_EQ(mulDiv(least, least, least), least);
  EXPECT_EQ(mulDiv(most, 2, 1), most) << "too large";
  EXPECT_EQ(mulDiv(most, -2, 1), least) << "too small";
  EXPECT_EQ(mulDiv(5, -1, 0), least);
  EXPECT_EQ(mulDiv(0, 1, 0), 0);
  EXPECT_EQ(mulDiv(7, 1, -2), -4) << "half away from zero";
}

TEST(ExactTimeTest, RoundingMethodsAgreeWithTheirDefinitions) {
  std::mt19937_64 random(5);
  const auto any = [&] { return static_cast<std::int64_t>(random() % 2001) - 1000; };
  for (int i = 0; i < 50'000; ++i) {
    const std::int64_t a = any();
    const std::int64_t b = any();
    const std::int64_t c = any() | 1;
    const std::int64_t p = c < 0 ? -a * b : a * b;
    const std::int64_t q = c < 0 ? -c : c;
    const std::int64_t below = p >= 0 ? p / q : -((-p + q - 1) / q);
    const std::int64_t above = below * q == p ? below : below + 1;
    ASSERT_EQ(mulDiv(a, b, c, roundTowardNegativeInfinity), below) << a << '*' << b << '/' << c;
    ASSERT_EQ(mulDiv(a, b, c, roundTowardPositiveInfinity), above) << a << '*' << b << '/' << c;
    ASSERT_EQ(mulDiv(a, b, c, roundTowardZero), p >= 0 ? below : above) << a << '*' << b << '/' << c;
    ASSERT_EQ(mulDiv(a, b, c, roundAwayFromZero), p >= 0 ? above : below) << a << '*' << b << '/' << c;
    const std::int64_t twiceFromBelow = 2 * (p - below * q);
    const bool goesUp = p >= 0 ? twiceFromBelow >= q : twiceFromBelow > q;
    ASSERT_EQ(mulDiv(a, b, c, roundHalfAwayFromZero), goesUp ? above : below) << a << '*' << b << '/' << c;
  }
}

TEST(ExactTimeTest, CountsTicksOfAnyTime) {
  EXPECT_EQ(ticks(CMTime(1, 3), 48'000), 16'000);
  EXPECT_EQ(ticks(CMTime(1, 1'000), 44'100), 44) << "44.1";
  EXPECT_EQ(ticks(CMTime(-1, 1'000), 44'100, roundTowardNegativeInfinity), -45);
  EXPECT_EQ(ticks(CMTime(1, 600), 90'001, quickTime), 151) << "150.0017, to a finer scale";
  EXPECT_EQ(ticks(CMTime(most, 1), 600), most);
  EXPECT_EQ(ticks(kCMTimeNegativeInfinity, 600), least);
  EXPECT_EQ(ticks(kCMTimeInvalid, 600), 0);
  EXPECT_EQ(ticks(CMTime(1, 1), 0), 0);
}

TEST(ExactTimeTest, FindsTheCommonTimeScaleUpToALimit) {
  EXPECT_EQ(commonTimescale(600, 44'100), 88'200);
  EXPECT_EQ(commonTimescale(600, 44'100, 88'199), 0);
  EXPECT_EQ(commonTimescale(kCMTimeMaxTimescale, 1), kCMTimeMaxTimescale);
  EXPECT_EQ(commonTimescale(90'001, 90'002), 0);
  EXPECT_EQ(commonTimescale(0, 600), 0);
}

}  // namespace
}  // namespace clipworks
