#include <clipworks/media/time/CMTime.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace clipworks {

std::ostream& operator<<(std::ostream& out, const CMTime& time) {
  return out << time.value << '/' << time.timescale << " flags " << time.flags << " epoch " << time.epoch;
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

/// An operation's result, to be compared in value, scale, flags and epoch.
struct ResultCase {
  const char* sentence;
  CMTime result;
  CMTime expected;
};

std::ostream& operator<<(std::ostream& out, const ResultCase& c) { return out << c.sentence; }

class CMTimeResultTest : public testing::TestWithParam<ResultCase> {};

TEST_P(CMTimeResultTest, IsAsExpected) {
  EXPECT_TRUE(GetParam().result.isIdenticalTo(GetParam().expected))
      << "is " << GetParam().result << ", expected " << GetParam().expected;
}

INSTANTIATE_TEST_SUITE_P(
    FromSeconds, CMTimeResultTest,
    testing::Values(ResultCase{"an exact value", {2.5, 600}, {1500, 600}},
                    ResultCase{"a decimal fraction that reads back is not rounded", {0.07, 100}, {7, 100}},
                    ResultCase{"a half goes up", {2.5, 1}, rounded(3, 1)},
                    ResultCase{"a negative half goes down", {-2.5, 1}, rounded(-3, 1)},
                    ResultCase{"the scale is halved until the value fits", {0x1p61, 8}, {std::int64_t{1} << 62, 2}},
                    ResultCase{"too large at scale 1", {0x1p63, 600}, positive},
                    ResultCase{"infinity", {-std::numeric_limits<double>::infinity(), 600}, negative},
                    ResultCase{"not a number", {std::nan(""), 600}, kCMTimeInvalid}));

INSTANTIATE_TEST_SUITE_P(
    Sums, CMTimeResultTest,
    testing::Values(
        ResultCase{"the lowest common multiple", CMTime(1, 600) + CMTime(1, 44'100), {149, 88'200}},
        ResultCase{"the largest common scale is still exact", CMTime(1, finest) + CMTime(1, 1), {1LL + finest, finest}},
        ResultCase{"a common scale past 31 bits is cut to the finest one", CMTime(1, 90'001) + CMTime(1, 90'002),
                   rounded(47'721, finest)},
        ResultCase{"nothing lost at the finest scale is not rounded",
                   CMTime(90'001, 90'001) + CMTime(90'002, 90'002),
                   {2LL * finest, finest}},
        ResultCase{"overflow halves the scale", CMTime(most, 4) + CMTime(1, 4), {std::int64_t{1} << 62, 2}},
        ResultCase{"overflow halves the scale and rounds", CMTime(most, 4) + CMTime(2, 4),
                   rounded((std::int64_t{1} << 62) + 1, 2)},
        ResultCase{"negative overflow at scale 1", CMTime(least, 1) - CMTime(1, 1), negative},
        ResultCase{"subtracting the least value", CMTime(-1, 1) - CMTime(least, 1), {most, 1}},
        ResultCase{"infinity wins over numbers", CMTime(1, 1) - positive, negative},
        ResultCase{"opposite infinities", positive + negative, kCMTimeInvalid},
        ResultCase{"infinity wins over indefinite", kCMTimeIndefinite + negative, negative},
        ResultCase{"an invalid operand", kCMTimeInvalid + positive, kCMTimeInvalid},
        ResultCase{"a scale of 0", CMTime(1, 0, CMTime::valid, 0) + CMTime(1, 1), kCMTimeInvalid},
        ResultCase{"a length added to a time in an epoch", inEpoch(0) + inEpoch(3), inEpoch(3, 2)},
        ResultCase{"the distance within an epoch is a length", inEpoch(3, 5) - inEpoch(3), inEpoch(0, 4)},
        ResultCase{"times in different epochs", inEpoch(2) - inEpoch(3), kCMTimeInvalid}));

INSTANTIATE_TEST_SUITE_P(
    Products, CMTimeResultTest,
    testing::Values(
        ResultCase{"overflow", CMTimeMultiply({most, 1'000}, 500), rounded(most / 2 + 1, 1)},
        ResultCase{"a ratio at the time's own scale", CMTimeMultiplyByRatio({10, 600}, 1, 2), {5, 600}},
        ResultCase{"a ratio at another scale", CMTimeMultiplyByRatio({1 << 30, 1 << 30}, 1, 7), {1, 7}},
        ResultCase{"a ratio that no scale can hold", CMTimeMultiplyByRatio({1, 65'537}, 1, 65'539), rounded(0, finest)},
        ResultCase{"a divisor of 0", CMTimeMultiplyByRatio({6, 1}, 1, 0), kCMTimeInvalid},
        ResultCase{"the extremes of a ratio", CMTimeMultiplyByRatio({least, finest}, INT32_MIN, -finest),
                   rounded(-(most >> 1), finest / 2)},
        ResultCase{"a ratio that overflows", CMTimeMultiplyByRatio({least, 1}, INT32_MIN, 1), positive},
        ResultCase{"a float that a doubled scale holds", CMTimeMultiplyByFloat64({1, 600}, 0.25), {1, 2'400}},
        ResultCase{"a float that is rounded", CMTimeMultiplyByFloat64({600, 600}, 1.0 / 3), rounded(25'600, 76'800)},
        ResultCase{"a float that overflows", CMTimeMultiplyByFloat64({most, 2}, 2.5), positive},
        ResultCase{"zero times infinity", CMTimeMultiplyByFloat64(kCMTimeZero, HUGE_VAL), kCMTimeInvalid},
        ResultCase{"infinity times a negative", CMTimeMultiply(positive, -2), negative},
        ResultCase{"the absolute value", CMTimeAbsoluteValue({-3, 7}), {3, 7}},
        ResultCase{"the maximum with an invalid time", CMTimeMaximum(positive, kCMTimeInvalid), kCMTimeInvalid},
        ResultCase{"of equivalent times the first", CMTimeMinimum({2, 4}, {1, 2}), {2, 4}}));

using enum CMTimeRoundingMethod;
INSTANTIATE_TEST_SUITE_P(
    Conversions, CMTimeResultTest,
    testing::Values(
        ResultCase{"half away from zero", CMTime(-5, 2).convertScale(1, roundHalfAwayFromZero), rounded(-3, 1)},
        ResultCase{"towards zero", CMTime(-5, 2).convertScale(1, roundTowardZero), rounded(-2, 1)},
        ResultCase{"away from zero", CMTime(9, 4).convertScale(1, roundAwayFromZero), rounded(3, 1)},
        ResultCase{"towards +inf", CMTime(-5, 2).convertScale(1, roundTowardPositiveInfinity), rounded(-2, 1)},
        ResultCase{"towards -inf", CMTime(-5, 2).convertScale(1, roundTowardNegativeInfinity), rounded(-3, 1)},
        ResultCase{"quick, coarser", CMTime(599, 600).convertScale(100, quickTime), rounded(99, 100)},
        ResultCase{"quick, finer", CMTime(1, 3).convertScale(100, quickTime), rounded(34, 100)},
        ResultCase{"the epoch stays", inEpoch(4, 3).convertScale(2, quickTime), CMTimeMakeWithEpoch(6, 2, 4)},
        ResultCase{"too large", CMTime(least, 1).convertScale(2, quickTime), negative}));

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
    ASSERT_EQ(sum, b + a);
    ASSERT_EQ(sum, a - (-b));
    const std::int64_t multiple = std::lcm<std::int64_t>(a.timescale, b.timescale);
    ASSERT_EQ(sum.timescale, std::min<std::int64_t>(multiple, finest)) << a << " + " << b;
    if (multiple <= finest) {
      ASSERT_FALSE(sum.wasRounded()) << a << " + " << b;
      ASSERT_EQ(sum - b, a) << a << " + " << b;
      ASSERT_EQ(sum - a, b) << a << " + " << b;
    } else {
      const long double exact =
          static_cast<long double>(a.value) / a.timescale + static_cast<long double>(b.value) / b.timescale;
      ASSERT_NEAR(static_cast<double>(exact * finest - static_cast<long double>(sum.value)), 0, 0.75)
          << a << " + " << b << " (half a tick, and what long double loses)";
    }
  }
}

TEST(CMTimeTest, TellsSeconds) {
  EXPECT_EQ(CMTime(1, 3).seconds(), 1.0 / 3);
  EXPECT_EQ(negative.seconds(), -HUGE_VAL);
  EXPECT_TRUE(std::isnan(kCMTimeIndefinite.seconds()));
  EXPECT_TRUE(std::isnan(CMTime(1, 0).seconds()));
}

}  // namespace
}  // namespace clipworks
