#include <numeric>
#include <random>

#include <clipworks/media/time/CMTimeRange.h>
#include <clipworks/media/time/ExactTime.h>

#include <tests/media/MediaTesting.h>

namespace clipworks {

std::ostream& operator<<(std::ostream& out, const CMTime& time) {
  return out << time.value << '/' << time.timescale << " flags " << time.flags << " epoch " << time.epoch;
}

std::ostream& operator<<(std::ostream& out, const CMTimeRange& range) {
  return out << '[' << range.start.seconds() << " s, for " << range.duration.seconds() << " s]";
}

namespace {

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
constexpr std::int32_t finest = kCMTimeMaxTimescale;
constexpr CMTime positive = kCMTimePositiveInfinity;
constexpr CMTime negative = kCMTimeNegativeInfinity;

CMTime rounded(std::int64_t value, std::int32_t timescale, std::int64_t epoch = 0) {
  return {value, timescale, CMTime::valid | CMTime::hasBeenRounded, epoch};
}

CMTime inEpoch(std::int64_t epoch, std::int64_t value = 1) { return CMTimeMakeWithEpoch(value, 1, epoch); }

using enum CMTimeRoundingMethod;
using testing::Each;
using testing::ElementsAre;

TEST(CMTimeTest, GivesTheExpectedValueScaleFlagsAndEpoch) {
  const std::tuple<const char*, CMTime, CMTime> cases[] = {
      // From seconds.
      {"an exact value", {2.5, 600}, {1500, 600}},
      {"a decimal fraction that reads back is not rounded", {0.07, 100}, {7, 100}},
      {"a half goes up", {2.5, 1}, rounded(3, 1)},
      {"a negative half goes down", {-2.5, 1}, rounded(-3, 1)},
      {"the scale is halved until the value fits", {0x1p61, 8}, {std::int64_t{1} << 62, 2}},
      {"too large at scale 1", {0x1p63, 600}, positive},
      {"infinity", {-std::numeric_limits<double>::infinity(), 600}, negative},
      {"not a number", {std::nan(""), 600}, kCMTimeInvalid},
      // Sums.
      {"the lowest common multiple", CMTime(1, 600) + CMTime(1, 44'100), {149, 88'200}},
      {"the largest common scale is still exact", CMTime(1, finest) + CMTime(1, 1), {1LL + finest, finest}},
      {"a common scale past 31 bits is cut to the finest one", CMTime(1, 90'001) + CMTime(1, 90'002),
       rounded(47'721, finest)},
      {"nothing lost at the finest scale is not rounded",
       CMTime(90'001, 90'001) + CMTime(90'002, 90'002),
       {2LL * finest, finest}},
      {"overflow halves the scale", CMTime(most, 4) + CMTime(1, 4), {std::int64_t{1} << 62, 2}},
      {"overflow halves the scale and rounds", CMTime(most, 4) + CMTime(2, 4), rounded((std::int64_t{1} << 62) + 1, 2)},
      {"negative overflow at scale 1", CMTime(least, 1) - CMTime(1, 1), negative},
      {"subtracting the least value", CMTime(-1, 1) - CMTime(least, 1), {most, 1}},
      {"infinity wins over numbers", CMTime(1, 1) - positive, negative},
      {"opposite infinities", positive + negative, kCMTimeInvalid},
      {"infinity wins over indefinite", kCMTimeIndefinite + negative, negative},
      {"an invalid operand", kCMTimeInvalid + positive, kCMTimeInvalid},
      {"a scale of 0", CMTime(1, 0, CMTime::valid, 0) + CMTime(1, 1), kCMTimeInvalid},
      {"a length added to a time in an epoch", inEpoch(0) + inEpoch(3), inEpoch(3, 2)},
      {"the distance within an epoch is a length", inEpoch(3, 5) - inEpoch(3), inEpoch(0, 4)},
      {"times in different epochs", inEpoch(2) - inEpoch(3), kCMTimeInvalid},
      // Products.
      {"overflow", CMTimeMultiply({most, 1'000}, 500), rounded(most / 2 + 1, 1)},
      {"a ratio at the time's own scale", CMTimeMultiplyByRatio({10, 600}, 1, 2), {5, 600}},
      {"a ratio at another scale", CMTimeMultiplyByRatio({1 << 30, 1 << 30}, 1, 7), {1, 7}},
      {"a ratio that no scale can hold", CMTimeMultiplyByRatio({1, 65'537}, 1, 65'539), rounded(0, finest)},
      {"a divisor of 0", CMTimeMultiplyByRatio({6, 1}, 1, 0), kCMTimeInvalid},
      {"the extremes of a ratio", CMTimeMultiplyByRatio({least, finest}, INT32_MIN, -finest),
       rounded(-(most >> 1), finest / 2)},
      {"a ratio that overflows", CMTimeMultiplyByRatio({least, 1}, INT32_MIN, 1), positive},
      {"a float that a doubled scale holds", CMTimeMultiplyByFloat64({1, 600}, 0.25), {1, 2'400}},
      {"a float that is rounded", CMTimeMultiplyByFloat64({600, 600}, 1.0 / 3), rounded(25'600, 76'800)},
      {"a float that overflows", CMTimeMultiplyByFloat64({most, 2}, 2.5), positive},
      {"zero times infinity", CMTimeMultiplyByFloat64(kCMTimeZero, HUGE_VAL), kCMTimeInvalid},
      {"infinity times a negative", CMTimeMultiply(positive, -2), negative},
      {"the absolute value", CMTimeAbsoluteValue({-3, 7}), {3, 7}},
      {"the maximum with an invalid time", CMTimeMaximum(positive, kCMTimeInvalid), kCMTimeInvalid},
      {"of equivalent times the first", CMTimeMinimum({2, 4}, {1, 2}), {2, 4}},
      // Conversions.
      {"half away from zero", CMTime(-5, 2).convertScale(1, roundHalfAwayFromZero), rounded(-3, 1)},
      {"towards zero", CMTime(-5, 2).convertScale(1, roundTowardZero), rounded(-2, 1)},
      {"away from zero", CMTime(9, 4).convertScale(1, roundAwayFromZero), rounded(3, 1)},
      {"towards +inf", CMTime(-5, 2).convertScale(1, roundTowardPositiveInfinity), rounded(-2, 1)},
      {"towards -inf", CMTime(-5, 2).convertScale(1, roundTowardNegativeInfinity), rounded(-3, 1)},
      {"quick, coarser", CMTime(599, 600).convertScale(100, quickTime), rounded(99, 100)},
      {"quick, finer", CMTime(1, 3).convertScale(100, quickTime), rounded(34, 100)},
      {"the epoch stays", inEpoch(4, 3).convertScale(2, quickTime), CMTimeMakeWithEpoch(6, 2, 4)},
      {"too large", CMTime(least, 1).convertScale(2, quickTime), negative},
  };
  for (const auto& [sentence, result, expected] : cases) {
    EXPECT_TRUE(result.isIdenticalTo(expected)) << sentence << ": is " << result << ", expected " << expected;
  }
}

TEST(CMTimeTest, OrdersAllKindsOfTimes) {
  const std::vector<CMTime> ascending{
      kCMTimeInvalid,     negative,       inEpoch(-1, 9),     {least, 1},     {-1, 3},           kCMTimeZero,
      {most - 1, finest}, {most, finest}, {most, finest - 1}, inEpoch(1, -9), kCMTimeIndefinite, positive};
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_TRUE((ascending[i] <=> ascending[j]) == (i <=> j)) << ascending[i] << " and " << ascending[j];
    }
  }
  EXPECT_EQ(CMTime(1, 2), rounded(300, 600)) << "the same instant";
  EXPECT_FALSE(CMTime(1, 2).isIdenticalTo(CMTime(300, 600)));
  EXPECT_EQ(CMTime(5, -1), kCMTimeInvalid) << "all invalid times are equivalent";
}

TEST(CMTimeTest, SumsOfAnyScalesAreExactOrOffByAtMostHalfATick) {
  std::mt19937_64 random(3);
  const std::vector<std::int32_t> scales{1, 24, 1'000, 1'001, 30'000, 44'100, 48'000, 90'000, 1'000'003, finest};
  const auto any = [&] {
    const auto value = static_cast<std::int64_t>(random() >> 33U) - (std::int64_t{1} << 30);  // no overflow
    return CMTime(value, scales[random() % scales.size()]);
  };
  for (int i = 0; i < 20'000; ++i) {
    const CMTime a = any();
    const CMTime b = any();
    const CMTime sum = a + b;
    ASSERT_TRUE(sum.isIdenticalTo(b + a) && sum.isIdenticalTo(a - (-b))) << a << " + " << b;
    const std::int64_t multiple = std::lcm<std::int64_t>(a.timescale, b.timescale);
    ASSERT_EQ(sum.timescale, std::min<std::int64_t>(multiple, finest)) << a << " + " << b;
    ASSERT_TRUE(multiple > finest || !sum.wasRounded()) << a << " + " << b;
    const auto inTicks = [&](const CMTime& t) {
      return static_cast<long double>(t.value) * sum.timescale / t.timescale;
    };
    const auto off = static_cast<double>(inTicks(a) + inTicks(b) - inTicks(sum));
    ASSERT_NEAR(off, 0, multiple > finest ? 0.75 : 0.25) << a << " + " << b << " (half a tick, and long double's loss)";
  }
}

TEST(CMTimeTest, TellsSeconds) {
  EXPECT_EQ(CMTime(1, 3).seconds(), 1.0 / 3);
  EXPECT_EQ(negative.seconds(), -HUGE_VAL);
  EXPECT_TRUE(std::isnan(kCMTimeIndefinite.seconds()));
  EXPECT_TRUE(std::isnan(CMTime(1, 0).seconds()));
}

/// From one count of seconds to another, at different scales.
CMTimeRange between(int from, int to) { return CMTimeRange::fromTo(CMTime(from * 3, 3), CMTime(to * 600, 600)); }

const CMTimeRange endless{CMTime(5, 1), kCMTimePositiveInfinity};
const CMTimeRange inEpochOne{CMTimeMakeWithEpoch(0, 1, 1), CMTime(5, 1)};

TEST(CMTimeRangeTest, PairsMeetAndJoinAsExpected) {
  const std::tuple<const char*, CMTimeRange, CMTimeRange, bool, CMTimeRange, CMTimeRange> cases[] = {
      {"overlapping", between(0, 4), between(2, 6), false, between(2, 4), between(0, 6)},
      {"one in the other, equal ends", between(0, 4), between(2, 4), true, between(2, 4), between(0, 4)},
      {"touching", between(0, 2), between(2, 4), false, kCMTimeRangeZero, between(0, 4)},
      {"apart", between(0, 1), between(3, 4), false, kCMTimeRangeZero, between(0, 4)},
      {"an empty one at the end", between(0, 4), between(4, 4), true, kCMTimeRangeZero, between(0, 4)},
      {"an endless one", between(0, 8), endless, false, between(5, 8), {kCMTimeZero, kCMTimePositiveInfinity}},
      {"an invalid one", between(0, 8), {}, false, kCMTimeRangeInvalid, kCMTimeRangeInvalid},
      {"other epochs", between(0, 8), inEpochOne, false, kCMTimeRangeZero, kCMTimeRangeInvalid},
  };
  for (const auto& [sentence, a, b, aContainsB, both, hull] : cases) {
    EXPECT_EQ(a.containsTimeRange(b), aContainsB) << sentence;
    EXPECT_THAT((std::vector{a.intersection(b), b.intersection(a)}), Each(both)) << sentence;
    EXPECT_THAT((std::vector{a.unionWith(b), b.unionWith(a)}), Each(hull)) << sentence;
  }
}

TEST(CMTimeRangeTest, IsHalfOpenAndTellsInvalidEmptyAndIndefiniteApart) {
  EXPECT_TRUE(between(2, 4).containsTime(CMTime(2, 1)) && !between(2, 4).containsTime(CMTime(4, 1)));
  EXPECT_FALSE(between(2, 4).containsTime(kCMTimeInvalid));
  EXPECT_FALSE(inEpochOne.containsTime(CMTime(2, 1))) << "that time is in another epoch";
  EXPECT_FALSE(between(4, 2).isValid()) << "its end comes first";
  EXPECT_FALSE(CMTimeRange(kCMTimeZero, CMTimeMakeWithEpoch(1, 1, 1)).isValid()) << "a length is in epoch 0";
  EXPECT_TRUE(kCMTimeRangeZero.isEmpty() && !kCMTimeRangeInvalid.isEmpty());
  EXPECT_TRUE(CMTimeRange(CMTime(1, 1), kCMTimeIndefinite).isIndefinite() && !endless.isIndefinite());
}

TEST(ExactTimeTest, MultipliesAndDividesWithoutOverflow) {
  EXPECT_THAT((std::vector{mulDiv(most, most, most), mulDiv(least, least, least)}), ElementsAre(most, least));
  EXPECT_THAT((std::vector{mulDiv(most, 2, 1), mulDiv(most, -2, 1)}), ElementsAre(most, least)) << "does not fit";
  EXPECT_THAT((std::vector{mulDiv(5, -1, 0), mulDiv(0, 1, 0)}), ElementsAre(least, 0));
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
  EXPECT_THAT((std::vector{ticks(CMTime(1, 3), 48'000), ticks(CMTime(1, 1'000), 44'100)}), ElementsAre(16'000, 44));
  EXPECT_EQ(ticks(CMTime(-1, 1'000), 44'100, roundTowardNegativeInfinity), -45);
  EXPECT_EQ(ticks(CMTime(1, 600), 90'001, quickTime), 151) << "150.0017, to a finer scale";
  EXPECT_THAT((std::vector{ticks(CMTime(most, 1), 600), ticks(negative, 600)}), ElementsAre(most, least));
  EXPECT_THAT((std::vector{ticks(kCMTimeInvalid, 600), ticks(CMTime(1, 1), 0)}), ElementsAre(0, 0));
}

TEST(ExactTimeTest, FindsTheCommonTimeScaleUpToALimit) {
  EXPECT_THAT((std::vector{commonTimescale(600, 44'100), commonTimescale(600, 44'100, 88'200)}), Each(88'200));
  EXPECT_THAT((std::vector{commonTimescale(600, 44'100, 88'199), commonTimescale(90'001, 90'002)}), Each(0));
  EXPECT_EQ(commonTimescale(0, 600), 0);
}

}  // namespace
}  // namespace clipworks
