#include <clipworks/media/composition/SegmentMapping.h>

#include <chrono>
#include <limits>

#include "FakeTrack.h"

namespace clipworks::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using Lines = std::vector<std::string>;

TEST(Map, IsExactBothWaysAtAMultipleOfTheTargetsScale) {
  constexpr std::int64_t year = 31'536'000;
  const std::tuple<AVAssetTrackSegment, CMTime, CMTime> cases[] = {
      {mediaAt(seconds(2, 5), seconds(10, 13)), {2500, 1000}, {10'500, 1000}},
      {mediaAt(seconds(2, 5), seconds(10, 17)), {5, 1}, {17, 1}},
      {mediaAt(seconds(0, 3), seconds(0, 1)), {1, 1}, {1, 3}},
      {mediaAt({{0, 1}, {44'100, 44'100}}, {{0, 600}, {1200, 600}}), {1, 44'100}, {4, 88'200}},
      {mediaAt(seconds(2, 5), seconds(1, 7)), {1, 1}, {-1, 1}},
      // Fine counts of years, and a common multiple that is too large.
      {mediaAt({kCMTimeZero, {year * 1'000'000'007, 1'000'000'007}}, {{year, 1}, {year * 2, 1}}),
       {year * 1'000'000'007 - 1, 1'000'000'007},
       {year * 3 * 1'000'000'007 - 2, 1'000'000'007}},
      {mediaAt(seconds(0, 3), {{0, 1 << 30}, {1 << 30, 1 << 30}}), {1, 1}, {1, 3}},
  };
  for (const auto& [segment, source, target] : cases) {
    const CMTime there = mapToTarget(segment, source);
    EXPECT_TRUE(there.isIdenticalTo(target)) << text(there) << " instead of " << text(target);
    EXPECT_EQ(text(mapToSource(segment, there)), text(source));
  }
}

TEST(Map, RoundsHalfAwayFromZeroToTheFinestMultipleOfTheTargetsScale) {
  // 31 · 2^26 is the finest multiple of 2^26 that fits 31 bits.
  constexpr std::int32_t scale = 1 << 26;
  const auto map = [](std::int64_t length, std::int64_t onto, std::int64_t t) {
    const CMTime result = mapToTarget(mediaAt(seconds(0, length), {kCMTimeZero, {onto, scale}}), CMTime(t, 1));
    EXPECT_TRUE(result.timescale == 31 * scale && result.wasRounded());
    return result.value;
  };
  // 31 · (2^26 + 1) / 1,000,003 = 2080.37, 31 / 62 is a half.
  EXPECT_THAT((std::vector{map(1'000'003, scale + 1, 1), map(1'000'003, scale + 1, -1)}), ElementsAre(2080, -2080));
  EXPECT_THAT((std::vector{map(62, 1, 1), map(62, 1, -1), map(62, 1, 61)}), ElementsAre(1, -1, 31));
}

TEST(Map, IsInvalidWhereItIsNotDefined) {
  const AVAssetTrackSegment sound = mediaAt(seconds(0, 1), seconds(0, 1));
  const std::pair<AVAssetTrackSegment, CMTime> cases[] = {
      {mediaAt(seconds(1, 1), seconds(0, 1)), {0, 1}},    // a held picture
      {mediaAt(seconds(0, 1), seconds(1, 1)), {0, 1}},    // never shown
      {gapAt(SegmentGap::empty, seconds(0, 1)), {0, 1}},  // a gap
      {mediaAt(seconds(1, 0), seconds(0, 1)), {0, 1}},    // runs backwards
      {sound, kCMTimeInvalid},
      {sound, kCMTimePositiveInfinity},
      {sound, CMTime(std::numeric_limits<std::int64_t>::min(), 1)},
  };
  for (const auto& [segment, t] : cases) {
    EXPECT_EQ(text(mapToTarget(segment, t)) + text(mapToSource(segment, t)), "invalidinvalid")
        << lines(std::vector{segment})[0] << ", " << text(t);
  }
  const AVAssetTrackSegment slow = mediaAt({kCMTimeZero, {1, 2'000'000'000}}, {kCMTimeZero, {2'000'000'000, 1}});
  EXPECT_EQ(text(mapToTarget(slow, CMTime(2'000'000'000, 1))), "+inf");
  EXPECT_EQ(text(mapToTarget(slow, CMTime(-2'000'000'000, 1))), "-inf");
}

const auto kPlainTrack = plainTrack("A", {10, 1});
/// Half a second of nothing, two edits (the second at double speed), a held picture, black.
const auto kEditedTrack = std::make_shared<FakeTrack>(
    "E",
    std::vector{gapAt(SegmentGap::hold, fromTo({0, 2}, {1, 2})), mediaAt(seconds(10, 12), fromTo({1, 2}, {5, 2})),
                mediaAt(seconds(20, 24), fromTo({5, 2}, {9, 2})), mediaAt(seconds(30, 30), fromTo({9, 2}, {11, 2})),
                gapAt(SegmentGap::empty, fromTo({11, 2}, {13, 2}))});
const auto kCutTrack = std::make_shared<FakeTrack>(
    "C", std::vector{mediaAt(seconds(5, 6), seconds(0, 1)), mediaAt(seconds(6, 8), seconds(1, 3)),
                     mediaAt(seconds(8, 9), seconds(3, 5)), mediaAt(seconds(9, 10), seconds(5, 7)),
                     mediaAt(seconds(9, 10), seconds(7, 8))});

TEST(Resolve, ReachesTheMedia) {
  // empty 0..1, A 2..10 at 1..5, hold 5..7
  const auto nested = edited({insert(kPlainTrack, seconds(2, 12), {1, 1}), scale(seconds(1, 9), {4, 1})});
  const auto shortened = edited({insert(kPlainTrack, seconds(0, 10), {0, 1})});
  const auto late = std::make_shared<FakeTrack>("L", std::vector{mediaAt(seconds(0, 1), seconds(2, 3))});
  const std::tuple<const char*, std::vector<Edit>, Lines> cases[] = {
      {"a track that begins late is padded before and after, or has nothing but padding",
       {insert(late, seconds(0, 5), {0, 1}), insertEmpty(seconds(5, 6)), insert(late, seconds(0, 1), {6, 1})},
       {"hold at 0..2", "L 0..1 at 2..3", "hold at 3..5", "empty at 5..6", "hold at 6..7"}},
      {"the source's own gaps, edits and held picture show, re-timed, and the padding after them",
       {insert(kEditedTrack, seconds(1, 7), {3, 1}), scale(seconds(3, 9), {12, 1})},
       {"empty at 0..3", "E 21/2..12 at 3..6", "E 20..24 at 6..10", "E 30..30 at 10..12", "empty at 12..14",
        "hold at 14..15"}},
      {"edits that continue one another at one rate are joined, repeats are not",
       {insert(kCutTrack, seconds(0, 8), {0, 1})},
       {"C 5..8 at 0..3", "C 8..10 at 3..7", "C 9..10 at 7..8"}},
      {"a split heals, a loop does not",
       {insert(kPlainTrack, seconds(0, 4), {0, 1}), insert(kPlainTrack, seconds(4, 10), {4, 1}),
        insert(kPlainTrack, seconds(0, 10), {10, 1})},
       {"A 0..10 at 0..10", "A 0..10 at 10..20"}},
      {"gaps of one kind are joined, others are not",
       {insert(kPlainTrack, seconds(9, 12), {0, 1}), insert(kPlainTrack, seconds(11, 12), {3, 1}),
        insertEmpty(seconds(5, 6))},
       {"A 9..10 at 0..1", "hold at 1..4", "empty at 4..6"}},
      {"nested compositions are looked through, their gaps keep their kinds",
       {insert(nested, seconds(0, 8), {0, 1}), scale(seconds(0, 8), {4, 1})},
       {"empty at 0..1/2", "A 2..10 at 1/2..5/2", "hold at 5/2..4"}},
      {"what a nested composition lost after its insertion is padding",
       {insert(shortened, seconds(2, 8), {0, 1}), [=](Track&) { remove(seconds(3, 10))(*shortened); }},
       {"A 2..3 at 0..1", "hold at 1..6"}},
  };
  for (const auto& [name, edits, expected] : cases) {
    EXPECT_THAT(lines(resolveToMedia(*edited(edits))), ElementsAreArray(expected)) << name;
  }
}

TEST(Resolve, GoesThroughDeepNestingAndSharedTracks) {
  std::shared_ptr<const AVAssetTrack> inner = plainTrack("A", {2, 1});
  for (int depth = 0; depth < 2000; ++depth) {
    inner = edited({insert(inner, seconds(0, 1), {0, 1}), insert(inner, seconds(1, 2), {1, 1})});
  }
  EXPECT_THAT(lines(resolveToMedia(*inner)), ElementsAreArray({"A 0..2 at 0..2"}));
}

TEST(Resolve, TakesAHundredThousandLoopsInOneGo) {
  constexpr int loops = 100'000;
  const auto source = plainTrack("A", {44'100 * 3 - 1, 44'100});
  const CMTime length(1800, 600);
  const auto start = std::chrono::steady_clock::now();
  const auto track = edited({});
  for (int i = 0; i < loops; ++i) {
    insert(source, {kCMTimeZero, length}, CMTime(length.seconds() * i, length.timescale))(*track);
  }
  const auto nested = edited({insert(track, {kCMTimeZero, kCMTimePositiveInfinity}, kCMTimeZero)});
  const std::vector<MediaSegment> segments = resolveToMedia(*nested);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;

  EXPECT_LT(taken.count(), 10) << "seconds; work that grows with the square of the loops takes minutes";
  ASSERT_EQ(segments.size(), 2U * loops);
  EXPECT_EQ(lines(segments).back(), "hold at 13229999999/44100..300000");
  EXPECT_EQ(text(segments[segments.size() - 2].target.start), "299997");
}

}  // namespace
}  // namespace clipworks::test
