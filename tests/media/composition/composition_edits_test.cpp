#include <clipworks/media/composition/AVMutableComposition.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>

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
  const std::tuple<const char*, std::vector<Edit>, std::vector<std::string>> cases[] = {
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
  constexpr CMTime one{1, 1};
  const CMTimeRange range = seconds(0, 1);
  const auto sound = std::make_shared<FakeTrack>("S", std::vector{mediaAt(range, range)}, AVMediaTypeAudio);
  const auto endless =
      std::make_shared<FakeTrack>("I", std::vector{gapAt(SegmentGap::empty, {kCMTimeZero, kInfinite})});
  std::vector<std::tuple<AVError, CMTimeRange, CMTime, std::shared_ptr<FakeTrack>>> cases;
  for (const CMTimeRange& wrong :
       {CMTimeRange(), seconds(-1, 1), seconds(3, 2), CMTimeRange(one, kCMTimeIndefinite), CMTimeRange(kInfinite, one)})
    cases.emplace_back(AVError::invalidTimeRange, wrong, one, kA);
  for (const CMTime& wrong :
       {kCMTimeInvalid, CMTime(-1, 600), CMTime(1, 0, CMTime::valid, 0), CMTime(1, 1, CMTime::valid, 1),
        CMTime(std::numeric_limits<std::int64_t>::max(), 1), CMTime(std::int64_t{1} << 31, 1)})
    cases.emplace_back(AVError::invalidTimeRange, range, wrong, kA);
  for (const auto& wrong : {std::shared_ptr<FakeTrack>(), sound, endless})
    cases.emplace_back(AVError::invalidSourceMedia, range, one, wrong);
  for (const auto& [code, wrong, at, of] : cases) {
    const auto track = edited({kFill});
    const auto result = track->insertTimeRange(wrong, of, at);
    ASSERT_FALSE(result) << text(wrong) << " at " << text(at);
    EXPECT_EQ(result.error().code(), static_cast<int>(code)) << text(wrong) << " at " << text(at);
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

TEST(CompositionTrack, TakesItsFiguresFromTheFirstMediaAndItsTransformFromNone) {
  Track track(AVMediaTypeVideo, 5);
  const auto figures = [&] { return std::tuple(track.codecName(), track.naturalSize(), track.naturalTimeScale()); };
  EXPECT_EQ(figures(), std::tuple("", CGSize{0, 0}, 0));
  const auto inner = edited({insert(kA, seconds(0, 2), {1, 1})});
  ASSERT_TRUE(track.insertTimeRange(seconds(1, 2), inner, {3, 1}));
  EXPECT_EQ(figures(), std::tuple("h264", CGSize{1920, 1080}, 15'360));
  EXPECT_EQ(track.preferredTransform(), CGAffineTransformIdentity);
}

using Seconds = long double;  // 64 bits of fraction: finer than any time scale of 31 bits over minutes

Seconds toSeconds(const CMTime& t) { return static_cast<Seconds>(t.value) / t.timescale; }

/// What is presented at an instant: an instant of a file's media, or a gap.
struct Shown {
  SegmentGap gap;
  const FakeTrack* file = nullptr;
  Seconds instant = 0;
};

/// What a file's track presents at `t`, by looking at all its segments.
Shown shownByFile(const FakeTrack& track, Seconds t) {
  for (const AVAssetTrackSegment& segment : track.segments()) {
    const Seconds start = toSeconds(segment.target.start);
    const Seconds length = toSeconds(segment.target.duration);
    if (t < start || t >= start + length) continue;
    if (segment.isEmpty()) return {segment.gap};
    const Seconds rate = toSeconds(segment.source.duration) / length;
    return {SegmentGap::none, &track, toSeconds(segment.source.start) + (t - start) * rate};
  }
  return {SegmentGap::hold};
}

/// What is presented at each instant, as functions of functions: no segments, no splitting.
struct Journal {
  std::function<Shown(Seconds)> at = [](Seconds) { return Shown{SegmentGap::empty}; };
  Seconds length = 0;

  /// From `start` on, `before` seconds become `after`, which show `what` from 0 on.
  void replace(Seconds start, Seconds before, Seconds after, const std::function<Shown(Seconds)>& what) {
    at = [=, former = at](Seconds t) {
      if (t < start) return former(t);
      return t < start + after ? what(t - start) : former(t - after + before);
    };
    length = std::max(length, start) + after - before;
  }
  void insert(const CMTimeRange& range, const std::shared_ptr<FakeTrack>& source, const CMTime& start) {
    if (range.duration.value == 0) return;
    replace(toSeconds(start), 0, toSeconds(range.duration),
            [=](Seconds t) { return shownByFile(*source, toSeconds(range.start) + t); });
  }
  void insertEmpty(const CMTimeRange& range) {
    if (range.duration.value == 0) return;
    replace(toSeconds(range.start), 0, toSeconds(range.duration), [](Seconds) { return Shown{SegmentGap::empty}; });
  }
  void scale(const CMTimeRange& range, const CMTime& toLength) {
    const Seconds start = toSeconds(range.start);
    const Seconds whole = toSeconds(range.duration);
    const Seconds clipped = std::min(toSeconds(range.end()), length) - start;
    if (clipped <= 0) return;
    const Seconds count = std::floor(clipped / whole * static_cast<Seconds>(toLength.value) + 0.5L + 1e-12L);
    const Seconds after = clipped == whole ? toSeconds(toLength) : count / toLength.timescale;
    replace(start, clipped, after, [=, former = at](Seconds t) { return former(start + t * clipped / after); });
  }
};

/// Edits in 12 ways, and compares the middle and a quarter of each segment with what the journal says. `tolerance` is
/// of instants, in seconds; segments of less than `shortest` seconds are not looked into.
void expectAsInJournal(std::mt19937_64 random, const std::vector<std::int32_t>& timescales, Seconds tolerance,
                       Seconds shortest) {
  static const std::array sources{
      plainTrack("A", {299, 30}),
      std::make_shared<FakeTrack>("E", std::vector{gapAt(SegmentGap::empty, fromTo({0, 4}, {3, 4})),
                                                   mediaAt(seconds(4, 6), fromTo({3, 4}, {11, 4})),
                                                   mediaAt(seconds(7, 8), fromTo({11, 4}, {19, 4})),
                                                   mediaAt(seconds(9, 12), fromTo({19, 4}, {25, 4})),
                                                   gapAt(SegmentGap::hold, fromTo({25, 4}, {29, 4}))})};
  // The same on every machine: a number of 0 to `most`, and a time of as many seconds at one of the time scales.
  const auto upTo = [&](std::int64_t most) {
    return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(most + 1));
  };
  const auto time = [&](std::int64_t most) {
    const std::int32_t scale = timescales[random() % timescales.size()];
    return CMTime(upTo(most * scale), scale);
  };
  Track track(AVMediaTypeVideo, 1);
  Journal journal;
  bool isRetimed = false;
  for (int i = 0; i < 12; ++i) {
    const CMTime start = time(10);
    const CMTimeRange range(start, time(6));
    const auto kind = upTo(5);
    if (kind == 0) {
      journal.insertEmpty(range);
      track.insertEmptyTimeRange(range);
    } else if (kind == 1) {
      journal.scale(range, kCMTimeZero);
      track.removeTimeRange(range);
    } else if (kind == 2 && range.duration.timescale <= kCMTimeMaxTimescale / 2) {
      // Rates of small numbers, so that exact instants stay exact; half the range may lie past the end.
      const auto half = static_cast<std::int32_t>(1 + upTo(1));
      const CMTime length(range.duration.value * upTo(4), range.duration.timescale * half);
      isRetimed = true;
      journal.scale(range, length);
      track.scaleTimeRange(range, length);
    } else if (kind > 2) {
      const auto& source = sources.at(random() % 2);
      const CMTime at = time(12);
      journal.insert(range, source, at);
      EXPECT_TRUE(track.insertTimeRange(range, source, at).has_value());
    }
  }
  CMTime end = kCMTimeZero;
  for (const MediaSegment& segment : resolveToMedia(track)) {
    ASSERT_EQ(segment.target.start, end) << "a hole or an overlap";
    ASSERT_GT(segment.target.duration, kCMTimeZero);
    end = segment.target.end();
    // Without a re-timing, what comes from a plain file is neither stretched nor shrunk, however times were rounded.
    if (!isRetimed && !segment.isEmpty() && segment.mediaTrack == sources[0]->media()) {
      ASSERT_EQ(text(segment.source.duration), text(segment.target.duration));
    }
    if (toSeconds(segment.target.duration) < shortest) continue;
    for (const Seconds share : {0.25L, 0.5L}) {
      const Seconds t = toSeconds(segment.target.start) + share * toSeconds(segment.target.duration);
      const Shown shown = journal.at(t);
      ASSERT_EQ(segment.gap, shown.gap) << "at " << static_cast<double>(t);
      if (segment.isEmpty()) continue;
      const Seconds instant = toSeconds(segment.source.start) + share * toSeconds(segment.source.duration);
      ASSERT_LE(std::abs(instant - shown.instant), tolerance) << "at " << static_cast<double>(t);
      ASSERT_EQ(segment.mediaTrack, shown.file->media());
    }
  }
  ASSERT_LE(std::abs(toSeconds(end) - journal.length), tolerance);
}

TEST(RandomEdits, ShowWhatANaiveModelShows) {
  for (std::uint64_t seed = 1; seed <= 500 && !testing::Test::HasFatalFailure(); ++seed) {
    SCOPED_TRACE(seed);
    expectAsInJournal(std::mt19937_64(seed), {4, 30, 600, 1000}, 1e-14L, 1e-9L);  // exact
    expectAsInJournal(std::mt19937_64(seed), {44'100, 90'000, 1'000'003, 999'999'937, 2'147'483'647}, 1e-6L, 1e-4L);
  }
}

}  // namespace
}  // namespace clipworks::test
