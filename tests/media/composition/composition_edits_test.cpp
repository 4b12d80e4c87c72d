#include <clipworks/media/composition/AVMutableComposition.h>

#include <limits>

#include "FakeTrack.h"

namespace clipworks::test {
namespace {

using testing::ElementsAreArray;

const auto kA = plainTrack("A", {10, 1});
const auto kB = plainTrack("B", {10, 1});
const auto kEdited = std::make_shared<FakeTrack>(
    "E", std::vector{gapAt(SegmentGap::empty, seconds(0, 1)), mediaAt(seconds(4, 8), seconds(1, 3)),
                     gapAt(SegmentGap::hold, seconds(3, 4))});
constexpr CMTime kInfinite = kCMTimePositiveInfinity;

/// A 0..4 at 0..4, B 0..6 at 4..10.
const Edit kFill = [](Track& track) {
  insert(kA, seconds(0, 4), {0, 1})(track);
  insert(kB, seconds(0, 6), {4, 1})(track);
};
const Edit kTenSeconds = insert(kA, seconds(0, 10), {0, 1});

// Beside what random edits show: what is padded, joined, dropped, rounded and refused.
TEST(Edits, LeaveTheseSegments) {
  const auto shortClip = plainTrack("A", {44'100, 44'100});
  const CMTimeRange shortLoop(kCMTimeZero, {1134, 1000});
  struct {
    const char* name;
    std::vector<Edit> edits;
    std::vector<std::string> expected;
  } const cases[] = {
      {"loops of a track that is shorter than its asset keep their beat by padding",
       {insert(shortClip, shortLoop, {0, 1000}), insert(shortClip, shortLoop, {1134, 1000})},
       {"A 0..1 at 0..1", "hold at 1..567/500", "A 0..1 at 567/500..1067/500", "hold at 1067/500..567/250"}},
      {"an infinite range ends with its source",
       {insert(kA, {{4, 1}, kInfinite}, {0, 1}), insert(kA, {{11, 1}, kInfinite}, {20, 1})},
       {"A 4..10 at 0..6"}},
      {"a source with edits and gaps is one segment",
       {insert(kEdited, seconds(0, 5), {0, 1})},
       {"E 0..4 at 0..4", "hold at 4..5"}},
      {"an insertion between segments splits none",
       {insert(kA, seconds(0, 1), {0, 1}), insert(kA, seconds(4, 5), {1, 1}), insert(kB, seconds(0, 2), {1000, 1000})},
       {"A 0..1 at 0..1", "B 0..2 at 1..3", "A 4..5 at 3..4"}},
      {"a split gap keeps its kind on both sides",
       {insert(kA, seconds(10, 12), {0, 1}), insert(kB, seconds(0, 1), {1, 1})},
       {"hold at 0..1", "B 0..1 at 1..2", "hold at 2..3"}},
      {"an empty range inserts nothing, not even past the end", {insert(kA, seconds(3, 3), {5, 1})}, {}},
      {"gaps that are invalid, infinite, negative or empty change nothing",
       {insert(kA, seconds(0, 4), {0, 1}), insertEmpty(CMTimeRange()), insertEmpty({{1, 1}, kInfinite}),
        insertEmpty(seconds(-1, 3)), insertEmpty(seconds(3, 1)), insertEmpty(seconds(9, 9))},
       {"A 0..4 at 0..4"}},
      {"what lies outside the track is not removed",
       {kFill, remove(seconds(-3, 1)), remove(seconds(8, 100)), remove(seconds(50, 60))},
       {"A 1..4 at 0..3", "B 0..5 at 3..8"}},
      {"an infinite range removes the rest", {kFill, remove({{2, 1}, kInfinite})}, {"A 0..2 at 0..2"}},
      {"invalid and negative ranges remove nothing",
       {kFill, remove(CMTimeRange()), remove(seconds(5, 3)), remove({{1, 1}, kCMTimeIndefinite})},
       {"A 0..4 at 0..4", "B 0..6 at 4..10"}},
      {"segments too short for any time scale are dropped",
       {insert(kA, seconds(0, 1), {0, 1}), insert(kB, seconds(1, 2), {1, 1}), insert(kA, seconds(2, 3), {2, 1}),
        scale(seconds(0, 3), {1, kCMTimeMaxTimescale})},
       {"B 1..2 at ~0..~1/2147483647"}},
      {"scaled back, the rate is exactly normal again",
       {insert(kA, seconds(0, 7), {0, 1}), scale(seconds(0, 7), {3, 1}), scale(seconds(0, 3), {7, 1}),
        insertEmpty(fromTo({1, 30}, {31, 30}))},
       {"A 0..1/30 at 0..1/30", "empty at 1/30..31/30", "A 1/30..7 at 31/30..8"}},
      {"a range past the end takes its share of the length, a half rounded away from zero",
       {kTenSeconds, scale(seconds(9, 13), {6, 1})},
       {"A 0..9 at 0..9", "A 9..10 at 9..~11"}},
      {"a range from before zero takes its share too",
       {kTenSeconds, scale(seconds(-2, 2), {800, 100})},
       {"A 0..2 at 0..4", "A 2..10 at 4..12"}},
      {"ranges and lengths that are invalid, infinite, negative, empty, outside or too long scale nothing",
       {kFill, scale(CMTimeRange(), {1, 1}), scale(seconds(4, 2), {1, 1}), scale(seconds(2, 4), {-1, 1}),
        scale(seconds(2, 4), kCMTimeInvalid), scale(seconds(2, 4), kInfinite), scale({{2, 1}, kInfinite}, {1, 1}),
        scale(seconds(10, 12), {1, 1}), scale(seconds(2, 4), {std::int64_t{1} << 31, 1})},
       {"A 0..4 at 0..4", "B 0..6 at 4..10"}},
  };
  for (const auto& [name, edits, expected] : cases) {
    SCOPED_TRACE(name);
    const auto track = edited(edits);
    EXPECT_THAT(lines(track->compositionSegments()), ElementsAreArray(expected));
    CMTime end = kCMTimeZero;
    for (const auto& segment : track->compositionSegments()) {
      EXPECT_EQ(segment.target.start, end);
      end = segment.target.end();
    }
    EXPECT_EQ(track->timeRange(), CMTimeRange(kCMTimeZero, end));
  }
}

TEST(FailedInsertion, SaysWhyAndChangesNothing) {
  constexpr auto badTime = AVError::invalidTimeRange;
  constexpr auto badSource = AVError::invalidSourceMedia;
  constexpr CMTime one{1, 1};
  const CMTimeRange range = seconds(0, 1);
  const auto sound = std::make_shared<FakeTrack>("S", std::vector{mediaAt(range, range)}, AVMediaTypeAudio);
  const auto endless =
      std::make_shared<FakeTrack>("I", std::vector{gapAt(SegmentGap::empty, {kCMTimeZero, kInfinite})});
  struct {
    AVError expected;
    CMTimeRange range;
    CMTime at = one;
    std::shared_ptr<const AVAssetTrack> of = kA;
  } const cases[] = {
      {badTime, CMTimeRange()},
      {badTime, seconds(-1, 1)},
      {badTime, seconds(3, 2)},
      {badTime, {one, kCMTimeIndefinite}},
      {badTime, {kInfinite, one}},
      {badTime, range, kCMTimeInvalid},
      {badTime, range, {-1, 600}},
      {badTime, range, {1, 0, CMTime::valid, 0}},
      {badTime, range, {1, 1, CMTime::valid, 1}},
      {badTime, range, {std::numeric_limits<std::int64_t>::max(), 1}},
      {badTime, range, {std::int64_t{1} << 31, 1}},
      {badSource, range, one, nullptr},
      {badSource, range, one, sound},
      {badSource, range, one, endless},
  };
  for (const auto& [expected, wrongRange, at, of] : cases) {
    SCOPED_TRACE(text(wrongRange) + " at " + text(at));
    const auto track = edited({kFill});
    const auto result = track->insertTimeRange(wrongRange, of, at);
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(result.error().code(), static_cast<int>(expected));
    EXPECT_THAT(result.error().localizedDescription(), testing::HasSubstr("track 7"));
    EXPECT_THAT(lines(track->compositionSegments()), ElementsAreArray({"A 0..4 at 0..4", "B 0..6 at 4..10"}));
  }
}

TEST(FailedInsertion, TracksDoNotDrawFromThemselves) {
  const auto inner = edited({kFill});
  const auto middle = edited({insert(inner, seconds(0, 1), {0, 1})});
  const auto outer = edited({insert(middle, seconds(0, 1), {0, 1})});
  for (const auto& source : {inner, middle, outer}) {
    EXPECT_FALSE(inner->insertTimeRange(seconds(0, 1), source, kCMTimeZero).has_value());
  }
  EXPECT_TRUE(outer->insertTimeRange(seconds(0, 1), inner, kCMTimeZero).has_value());
}

TEST(Composition, NumbersItsTracks) {
  const auto composition = AVMutableComposition::make();
  const auto add = [&](CMPersistentTrackID preferred) {
    const auto track = composition->addMutableTrack(AVMediaTypeVideo, preferred);
    return track ? track->trackID() : -1;
  };
  constexpr auto most = std::numeric_limits<CMPersistentTrackID>::max();
  EXPECT_THAT((std::vector{add(2), add(kCMPersistentTrackID_Invalid), add(2), add(most), add(most), add(-1)}),
              testing::ElementsAre(2, 1, 3, most, 4, -1));
  EXPECT_EQ(composition->tracks().size(), 5U);
}

TEST(Composition, LastsAsLongAsItsLongestTrack) {
  const auto composition = AVMutableComposition::make();
  const auto first = composition->addMutableTrack(AVMediaTypeVideo, 0);
  const auto second = composition->addMutableTrack(AVMediaTypeVideo, 0);
  EXPECT_EQ(text(composition->duration()), "0");
  ASSERT_TRUE(first->insertTimeRange(seconds(0, 2), kA, {1, 1}));
  ASSERT_TRUE(second->insertTimeRange(seconds(8, 11), kA, {1, 2}));
  EXPECT_EQ(text(composition->duration()), "7/2") << "padding counts";
  EXPECT_EQ(text(first->timeRange()), "0..3") << "no track is lengthened to another's length";
}

TEST(CompositionTrack, TakesItsFiguresFromTheFirstMediaAndItsTransformFromNone) {
  Track track(AVMediaTypeVideo, 5);
  EXPECT_EQ(track.codecName(), "");
  EXPECT_EQ(track.naturalTimeScale(), 0);
  const auto inner = edited({insert(kA, seconds(0, 2), {1, 1})});
  ASSERT_TRUE(track.insertTimeRange(seconds(1, 2), inner, {3, 1}));
  EXPECT_EQ(track.codecName(), "h264");
  EXPECT_EQ(track.naturalSize(), (CGSize{1920, 1080}));
  EXPECT_EQ(track.naturalTimeScale(), 15'360);
  EXPECT_EQ(track.preferredTransform(), CGAffineTransformIdentity);
  EXPECT_EQ(track.media(), nullptr);
}

}  // namespace
}  // namespace clipworks::test
