#include <limits>
#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeTrack.h"

namespace clipworks::test {
namespace {

using testing::ElementsAreArray;

const auto kA = plainTrack("A", {10, 1});
const auto kB = plainTrack("B", {10, 1});
const auto kNothing = std::make_shared<FakeTrack>("N", std::vector<AVAssetTrackSegment>());
const auto kEdited = std::make_shared<FakeTrack>(
    "E", std::vector{gapAt(SegmentGap::empty, seconds(0, 1)), mediaAt(seconds(4, 8), seconds(1, 3)),
                     gapAt(SegmentGap::hold, seconds(3, 4))});
constexpr CMTime kInfinite = kCMTimePositiveInfinity;

struct EditCase {
  const char* name;
  std::vector<Edit> edits;
  std::vector<std::string> expected;
  friend void PrintTo(const EditCase& c, std::ostream* out) { *out << c.name; }
};

class Edits : public testing::TestWithParam<EditCase> {};

TEST_P(Edits, LeaveTheseSegments) {
  const auto track = edited(GetParam().edits);
  EXPECT_THAT(lines(track->compositionSegments()), ElementsAreArray(GetParam().expected));
  CMTime end = kCMTimeZero;
  for (const auto& segment : track->compositionSegments()) {
    EXPECT_EQ(segment.target.start, end);
    end = segment.target.end();
  }
  EXPECT_EQ(track->timeRange(), CMTimeRange(kCMTimeZero, end));
}

std::vector<EditCase> insertions() {
  const auto clip = plainTrack("A", {225'000, 90'000});
  const CMTimeRange loop(kCMTimeZero, {1500, 600});
  const auto shortClip = plainTrack("A", {44'100, 44'100});
  const CMTimeRange shortLoop(kCMTimeZero, {1134, 1000});
  return {
      {"loops follow one another",
       {insert(clip, loop, {0, 600}), insert(clip, loop, {1500, 600}), insert(clip, loop, {3000, 600})},
       {"A 0..5/2 at 0..5/2", "A 0..5/2 at 5/2..5", "A 0..5/2 at 5..15/2"}},
      {"loops of a track that is shorter than its asset keep their beat by padding",
       {insert(shortClip, shortLoop, {0, 1000}), insert(shortClip, shortLoop, {1134, 1000})},
       {"A 0..1 at 0..1", "hold at 1..567/500", "A 0..1 at 567/500..1067/500", "hold at 1067/500..567/250"}},
      {"a range past the end of its source is padding alone", {insert(kA, seconds(12, 14), {0, 1})}, {"hold at 0..2"}},
      {"an empty source is padding alone",
       {insert(kNothing, seconds(0, 2), {1, 1})},
       {"empty at 0..1", "hold at 1..3"}},
      {"an infinite range ends with its source",
       {insert(kA, {{4, 1}, kInfinite}, {0, 1}), insert(kA, {{11, 1}, kInfinite}, {20, 1})},
       {"A 4..10 at 0..6"}},
      {"a source with edits and gaps is one segment",
       {insert(kEdited, seconds(0, 5), {0, 1})},
       {"E 0..4 at 0..4", "hold at 4..5"}},
      {"an insertion past the end fills up with black",
       {insert(kA, seconds(0, 1), {0, 1}), insert(kB, seconds(0, 1), {3, 1})},
       {"A 0..1 at 0..1", "empty at 1..3", "B 0..1 at 3..4"}},
      {"an insertion within a segment splits it, padding included",
       {insert(kA, seconds(0, 10), {0, 1}), insert(kB, seconds(9, 12), {5, 2})},
       {"A 0..5/2 at 0..5/2", "B 9..10 at 5/2..7/2", "hold at 7/2..11/2", "A 5/2..10 at 11/2..13"}},
      {"an insertion between segments splits none",
       {insert(kA, seconds(0, 1), {0, 1}), insert(kA, seconds(4, 5), {1, 1}), insert(kB, seconds(0, 2), {1000, 1000}),
        insert(kB, seconds(8, 9), {0, 1})},
       {"B 8..9 at 0..1", "A 0..1 at 1..2", "B 0..2 at 2..4", "A 4..5 at 4..5"}},
      {"a split gap keeps its kind on both sides",
       {insert(kA, seconds(10, 12), {0, 1}), insert(kB, seconds(0, 1), {1, 1})},
       {"hold at 0..1", "B 0..1 at 1..2", "hold at 2..3"}},
      {"an empty range inserts nothing, not even past the end", {insert(kA, seconds(3, 3), {5, 1})}, {}},
      {"a gap opens within a segment",
       {insert(kA, seconds(0, 4), {0, 1}), insertEmpty(seconds(1, 3))},
       {"A 0..1 at 0..1", "empty at 1..3", "A 1..4 at 3..6"}},
      {"gaps that are invalid, infinite, negative or empty change nothing",
       {insert(kA, seconds(0, 4), {0, 1}), insertEmpty(CMTimeRange()), insertEmpty({{1, 1}, kInfinite}),
        insertEmpty(seconds(-1, 3)), insertEmpty(seconds(3, 1)), insertEmpty(seconds(9, 9))},
       {"A 0..4 at 0..4"}},
  };
}

INSTANTIATE_TEST_SUITE_P(Insertions, Edits, testing::ValuesIn(insertions()));

/// A 0..4 at 0..4, B 0..6 at 4..10.
const Edit kFill = [](Track& track) {
  insert(kA, seconds(0, 4), {0, 1})(track);
  insert(kB, seconds(0, 6), {4, 1})(track);
};
const Edit kTenSeconds = insert(kA, seconds(0, 10), {0, 1});

std::vector<EditCase> removals() {
  return {
      {"within a segment", {kFill, remove(seconds(5, 7))}, {"A 0..4 at 0..4", "B 0..1 at 4..5", "B 3..6 at 5..8"}},
      {"across segments", {kFill, remove(fromTo({7, 2}, {9, 2}))}, {"A 0..7/2 at 0..7/2", "B 1/2..6 at 7/2..9"}},
      {"what lies outside the track does not count",
       {kFill, remove(seconds(-3, 1)), remove(seconds(8, 100)), remove(seconds(50, 60))},
       {"A 1..4 at 0..3", "B 0..5 at 3..8"}},
      {"an infinite range takes the rest", {kFill, remove({{2, 1}, kInfinite})}, {"A 0..2 at 0..2"}},
      {"invalid and negative ranges change nothing",
       {kFill, remove(CMTimeRange()), remove(seconds(5, 3)), remove({kCMTimeNegativeInfinity, kInfinite}),
        remove({{1, 1}, kCMTimeIndefinite})},
       {"A 0..4 at 0..4", "B 0..6 at 4..10"}},
  };
}

INSTANTIATE_TEST_SUITE_P(Removals, Edits, testing::ValuesIn(removals()));

std::vector<EditCase> scalings() {
  return {
      {"a stretch at half speed",
       {kTenSeconds, scale(seconds(2, 4), {4, 1})},
       {"A 0..2 at 0..2", "A 2..4 at 2..6", "A 4..10 at 6..12"}},
      {"a stretch at four times the speed",
       {kTenSeconds, scale(fromTo({1200, 600}, {2400, 600}), {300, 600})},
       {"A 0..2 at 0..2", "A 2..4 at 2..5/2", "A 4..10 at 5/2..17/2"}},
      {"several segments and a gap keep their shares",
       {kFill, insertEmpty(seconds(4, 5)), scale(seconds(2, 8), {9, 1})},
       {"A 0..2 at 0..2", "A 2..4 at 2..5", "empty at 5..13/2", "B 0..3 at 13/2..11", "B 3..6 at 11..14"}},
      {"shares that need thirds are exact",
       {insert(kA, seconds(0, 1), {0, 1}), insert(kB, seconds(1, 2), {1, 1}), insert(kA, seconds(2, 3), {2, 1}),
        scale(seconds(0, 3), {100, 100})},
       {"A 0..1 at 0..1/3", "B 1..2 at 1/3..2/3", "A 2..3 at 2/3..1"}},
      {"segments too short for any time scale are dropped",
       {insert(kA, seconds(0, 1), {0, 1}), insert(kB, seconds(1, 2), {1, 1}), insert(kA, seconds(2, 3), {2, 1}),
        scale(seconds(0, 3), {1, kCMTimeMaxTimescale})},
       {"B 1..2 at ~0..~1/2147483647"}},
      {"scaled back, the rate is exactly normal again",
       {insert(kA, seconds(0, 7), {0, 1}), scale(seconds(0, 7), {3, 1}), scale(seconds(0, 3), {7, 1}),
        insertEmpty(fromTo({1, 30}, {31, 30}))},
       {"A 0..1/30 at 0..1/30", "empty at 1/30..31/30", "A 1/30..7 at 31/30..8"}},
      {"a re-timed segment is split by its rate, and again",
       {insert(kA, seconds(0, 9), {0, 1}), scale(seconds(0, 9), {6, 1}), scale(seconds(1, 2), {2, 1}),
        remove(fromTo({3, 2}, {4, 1}))},
       {"A 0..3/2 at 0..1", "A 3/2..15/8 at 1..3/2", "A 9/2..9 at 3/2..9/2"}},
      {"a range past the end takes its share of the length, a half rounded away from zero",
       {kTenSeconds, scale(seconds(9, 13), {6, 1})},
       {"A 0..9 at 0..9", "A 9..10 at 9..~11"}},
      {"a range from before zero takes its share too",
       {kTenSeconds, scale(seconds(-2, 2), {800, 100})},
       {"A 0..2 at 0..4", "A 2..10 at 4..12"}},
      {"a length of zero removes the range",
       {kFill, scale(seconds(3, 5), kCMTimeZero)},
       {"A 0..3 at 0..3", "B 1..6 at 3..8"}},
      {"ranges and lengths that are invalid, infinite, negative, empty, outside or too long change nothing",
       {kFill, scale(CMTimeRange(), {1, 1}), scale(seconds(4, 2), {1, 1}), scale(seconds(2, 4), {-1, 1}),
        scale(seconds(2, 4), kCMTimeInvalid), scale(seconds(2, 4), kInfinite), scale({{2, 1}, kInfinite}, {1, 1}),
        scale(seconds(3, 3), {1, 1}), scale(seconds(10, 12), {1, 1}), scale(seconds(-5, 0), {1, 1}),
        scale(seconds(2, 4), {std::int64_t{1} << 31, 1})},
       {"A 0..4 at 0..4", "B 0..6 at 4..10"}},
  };
}

INSTANTIATE_TEST_SUITE_P(Scalings, Edits, testing::ValuesIn(scalings()));

struct FailureCase {
  const char* name;
  AVError expected;
  std::shared_ptr<const AVAssetTrack> of;
  CMTimeRange range;
  CMTime at;
  friend void PrintTo(const FailureCase& c, std::ostream* out) { *out << c.name; }
};

class FailedInsertion : public testing::TestWithParam<FailureCase> {};

TEST_P(FailedInsertion, SaysWhyAndChangesNothing) {
  const auto track = edited({kFill});
  const auto result = track->insertTimeRange(GetParam().range, GetParam().of, GetParam().at);
  ASSERT_FALSE(result.has_value());
  EXPECT_EQ(result.error().domain(), AVFoundationErrorDomain);
  EXPECT_EQ(result.error().code(), static_cast<int>(GetParam().expected));
  EXPECT_THAT(result.error().localizedDescription(), testing::HasSubstr("track 7"));
  EXPECT_THAT(lines(track->compositionSegments()), ElementsAreArray({"A 0..4 at 0..4", "B 0..6 at 4..10"}));
}

std::vector<FailureCase> failures() {
  constexpr auto badTime = AVError::invalidTimeRange;
  constexpr auto badSource = AVError::invalidSourceMedia;
  const CMTimeRange range = seconds(0, 1);
  constexpr CMTime one{1, 1};
  const auto sound = std::make_shared<FakeTrack>("S", std::vector{mediaAt(range, range)}, AVMediaTypeAudio);
  const auto endless =
      std::make_shared<FakeTrack>("I", std::vector{gapAt(SegmentGap::empty, {kCMTimeZero, kInfinite})});
  return {
      {"an invalid range", badTime, kA, CMTimeRange(), one},
      {"a negative start", badTime, kA, seconds(-1, 1), one},
      {"a negative length", badTime, kA, seconds(3, 2), one},
      {"an indefinite length", badTime, kA, {one, kCMTimeIndefinite}, one},
      {"an infinite start", badTime, kA, {kInfinite, one}, one},
      {"at no time", badTime, kA, range, kCMTimeInvalid},
      {"at a negative time", badTime, kA, range, {-1, 600}},
      {"at an infinite time", badTime, kA, range, kInfinite},
      {"at a time without a scale", badTime, kA, range, {1, 0, CMTime::valid, 0}},
      {"in another epoch", badTime, kA, range, {1, 1, CMTime::valid, 1}},
      {"later than any timeline", badTime, kA, range, {std::numeric_limits<std::int64_t>::max(), 1}},
      {"up to past the end of any timeline", badTime, kA, range, {std::int64_t{1} << 31, 1}},
      {"no track", badSource, nullptr, range, one},
      {"sound among pictures", badSource, sound, range, one},
      {"a source without an end", badSource, endless, range, one},
  };
}

INSTANTIATE_TEST_SUITE_P(Arguments, FailedInsertion, testing::ValuesIn(failures()));

TEST(FailedInsertion, TracksDoNotDrawFromThemselves) {
  const auto inner = edited({kFill});
  const auto middle = edited({insert(inner, seconds(0, 1), {0, 1})});
  const auto outer = edited({insert(middle, seconds(0, 1), {0, 1})});
  for (const auto& source : {inner, middle, outer}) {
    EXPECT_FALSE(inner->insertTimeRange(seconds(0, 1), source, kCMTimeZero).has_value());
  }
  EXPECT_TRUE(outer->insertTimeRange(seconds(0, 1), inner, kCMTimeZero).has_value());
}

}  // namespace
}  // namespace clipworks::test
