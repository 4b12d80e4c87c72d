#include <clipworks/media/time/CMTimeRange.h>

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

TEST(CMTimeRangeTest, IsHalfOpen) {
  const CMTimeRange range = between(2, 4);
  EXPECT_EQ(range.end(), CMTime(4, 1));
  EXPECT_TRUE(range.containsTime(CMTime(2, 1)));
  EXPECT_TRUE(range.containsTime(CMTime(3'999'999, 1'000'000)));
  EXPECT_FALSE(range.containsTime(CMTime(4, 1)));
  EXPECT_FALSE(range.containsTime(kCMTimeInvalid));
  EXPECT_FALSE(between(2, 2).containsTime(CMTime(2, 1)));
  EXPECT_FALSE(inEpochOne.containsTime(CMTime(2, 1))) << "that time is in another epoch";
}

TEST(CMTimeRangeTest, TellsInvalidEmptyAndIndefiniteApart) {
  EXPECT_FALSE(kCMTimeRangeInvalid.isValid());
  EXPECT_FALSE(between(4, 2).isValid()) << "its end comes first";
  EXPECT_FALSE(CMTimeRange(kCMTimeZero, kCMTimeInvalid).isValid());
  EXPECT_FALSE(CMTimeRange(kCMTimeZero, CMTimeMakeWithEpoch(1, 1, 1)).isValid()) << "a length is in epoch 0";
  EXPECT_FALSE(kCMTimeRangeInvalid.isEmpty());
  EXPECT_TRUE(kCMTimeRangeZero.isEmpty());
  EXPECT_TRUE(CMTimeRange(CMTime(1, 1), kCMTimeIndefinite).isIndefinite());
  EXPECT_FALSE(endless.isIndefinite());
  EXPECT_TRUE(CMTimeRange::fromTo(CMTimeMakeWithEpoch(1, 1, 7), CMTimeMakeWithEpoch(3, 1, 7)).isValid());
}

}  // namespace
}  // namespace clipworks
