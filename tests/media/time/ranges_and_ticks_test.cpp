#include <clipworks/media/time/CMTimeRange.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include <clipworks/media/time/ExactTime.h>

#include <gtest/gtest.h>

namespace clipworks {

std::ostream& operator<<(std::ostream& out, const CMTimeRange& range) {
  return out << '[' << range.start.seconds() << " s, for " << range.duration.seconds() << " s]";
}

namespace {

/// From one count of seconds to another, at different scales.
CMTimeRange between(int from, int to) { return CMTimeRange::fromTo(CMTime(from * 3, 3), CMTime(to * 600, 600)); }

struct PairCase {
  const char* sentence;
  CMTimeRange a;
  CMTimeRange b;
  bool aContainsB;
  CMTimeRange intersection;
  CMTimeRange hull;
};

std::ostream& operator<<(std::ostream& out, const PairCase& c) { return out << c.sentence; }

class CMTimeRangePairTest : public testing::TestWithParam<PairCase> {};

TEST_P(CMTimeRangePairTest, MeetAndJoinAsExpected) {
  const PairCase& c = GetParam();
  EXPECT_EQ(c.a.containsTimeRange(c.b), c.aContainsB);
  EXPECT_EQ(c.a.intersection(c.b), c.intersection);
  EXPECT_EQ(c.b.intersection(c.a), c.intersection);
  EXPECT_EQ(c.a.unionWith(c.b), c.hull);
  EXPECT_EQ(c.b.unionWith(c.a), c.hull);
}

const CMTimeRange endless{CMTime(5, 1), kCMTimePositiveInfinity};
const CMTimeRange inEpochOne{CMTimeMakeWithEpoch(0, 1, 1), CMTime(5, 1)};

INSTANTIATE_TEST_SUITE_P(
    Pairs, CMTimeRangePairTest,
    testing::Values(
        PairCase{"overlapping", between(0, 4), between(2, 6), false, between(2, 4), between(0, 6)},
        PairCase{"one in the other, equal ends", between(0, 4), between(2, 4), true, between(2, 4), between(0, 4)},
        PairCase{"touching", between(0, 2), between(2, 4), false, kCMTimeRangeZero, between(0, 4)},
        PairCase{"apart", between(0, 1), between(3, 4), false, kCMTimeRangeZero, between(0, 4)},
        PairCase{"an empty one at the end", between(0, 4), between(4, 4), true, kCMTimeRangeZero, between(0, 4)},
        PairCase{
            "an endless one", between(0, 8), endless, false, between(5, 8), {kCMTimeZero, kCMTimePositiveInfinity}},
        PairCase{"an invalid one", between(0, 8), {}, false, kCMTimeRangeInvalid, kCMTimeRangeInvalid},
        PairCase{"other epochs", between(0, 8), inEpochOne, false, kCMTimeRangeZero, kCMTimeRangeInvalid}));

TEST(CMTimeRangeTest, IsHalfOpenAndTellsInvalidEmptyAndIndefiniteApart) {
  EXPECT_TRUE(between(2, 4).containsTime(CMTime(2, 1)));
  EXPECT_FALSE(between(2, 4).containsTime(CMTime(4, 1)));
  EXPECT_FALSE(between(2, 4).containsTime(kCMTimeInvalid));
  EXPECT_FALSE(inEpochOne.containsTime(CMTime(2, 1))) << "that time is in another epoch";
  EXPECT_FALSE(between(4, 2).isValid()) << "its end comes first";
  EXPECT_FALSE(CMTimeRange(kCMTimeZero, CMTimeMakeWithEpoch(1, 1, 1)).isValid()) << "a length is in epoch 0";
  EXPECT_FALSE(kCMTimeRangeInvalid.isEmpty());
  EXPECT_TRUE(kCMTimeRangeZero.isEmpty());
  EXPECT_TRUE(CMTimeRange(CMTime(1, 1), kCMTimeIndefinite).isIndefinite());
  EXPECT_FALSE(endless.isIndefinite());
}

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
  for (const int value : {-7, -6, -5, -4, -3, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7}) {
    const double exact = value / 4.0;  // halves and quarters: rounding is exact
    EXPECT_EQ(mulDiv(value, 3, 12, roundTowardNegativeInfinity), std::floor(exact)) << exact;
    EXPECT_EQ(mulDiv(value, -3, -12, roundTowardPositiveInfinity), std::ceil(exact)) << exact;
    EXPECT_EQ(mulDiv(-value, 3, -12, roundTowardZero), std::trunc(exact)) << exact;
    EXPECT_EQ(mulDiv(value, 3, 12, roundAwayFromZero), std::copysign(std::ceil(std::abs(exact)), exact)) << exact;
    EXPECT_EQ(mulDiv(-value, -3, 12, roundHalfAwayFromZero), std::round(exact)) << exact;
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
  EXPECT_EQ(commonTimescale(90'001, 90'002), 0);
  EXPECT_EQ(commonTimescale(0, 600), 0);
}

}  // namespace
}  // namespace clipworks
