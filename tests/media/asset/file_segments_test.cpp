#include <clipworks/media/asset/FileSegments.h>

#include <cstdint>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

namespace clipworks::test {
namespace {

using Edit = engine::MovieBoxes::Edit;

constexpr std::int32_t normal = 1 << 16;
constexpr std::int32_t movie = 600;
constexpr std::int32_t media = 30'000;

CMTime ticks(std::int64_t value) { return {value, media}; }
CMTime movieTicks(std::int64_t value) { return {value, movie}; }

struct Segment {
  CMTimeRange source;
  CMTimeRange target;
  SegmentGap gap = SegmentGap::none;
};

struct EditList {
  const char* sentence;
  std::vector<Edit> edits;
  std::int64_t mediaDuration;
  std::int64_t encoderDelay;
  std::vector<Segment> expected;
};
void PrintTo(const EditList& c, std::ostream* out) { *out << c.sentence; }

class FileSegments : public testing::TestWithParam<EditList> {};

TEST_P(FileSegments, PresentTheMediaAsTheEditsSay) {
  const auto& c = GetParam();
  const auto segments = segmentsFromEdits({c.edits, movie, media, c.mediaDuration, c.encoderDelay});
  ASSERT_EQ(segments.size(), c.expected.size());
  for (std::size_t i = 0; i < segments.size(); ++i) {
    SCOPED_TRACE("segment " + std::to_string(i));
    EXPECT_EQ(segments[i].gap, c.expected[i].gap);
    EXPECT_EQ(segments[i].target, c.expected[i].target)
        << segments[i].target.start.seconds() << " s for " << segments[i].target.duration.seconds() << " s";
    if (segments[i].isEmpty()) continue;
    EXPECT_EQ(segments[i].source, c.expected[i].source)
        << segments[i].source.start.seconds() << " s for " << segments[i].source.duration.seconds() << " s";
  }
}

CMTimeRange fromStart(const CMTime& duration) { return {kCMTimeZero, duration}; }

INSTANTIATE_TEST_SUITE_P(
    Edits, FileSegments,
    testing::Values(EditList{"without edits all of the media plays",
                             {},
                             90'000,
                             0,
                             {{fromStart(ticks(90'000)), fromStart(ticks(90'000))}}},
                    EditList{"without edits the encoder's delay is left out",
                             {},
                             90'000,
                             1500,
                             {{{ticks(1500), ticks(88'500)}, fromStart(ticks(88'500))}}},
                    EditList{"media shorter than the encoder's delay is nothing", {}, 1000, 2112, {}},
                    EditList{"an empty track is nothing", {}, 0, 0, {}},
                    EditList{"a trimmed clip starts and ends inside the media",
                             {{1200, 15'000, normal}},
                             90'000,
                             0,
                             {{{ticks(15'000), ticks(60'000)}, fromStart(movieTicks(1200))}}},
                    EditList{"an empty edit in front holds until the track begins",
                             {{300, -1, normal}, {1800, 0, normal}},
                             90'000,
                             0,
                             {{{}, fromStart(movieTicks(300)), SegmentGap::hold},
                              {fromStart(ticks(90'000)), {movieTicks(300), movieTicks(1800)}}}},
                    EditList{"an empty edit between others is a hole",
                             {{600, 0, normal}, {300, -1, normal}, {600, 30'000, normal}},
                             90'000,
                             0,
                             {{fromStart(ticks(30'000)), fromStart(movieTicks(600))},
                              {{}, {movieTicks(600), movieTicks(300)}, SegmentGap::empty},
                              {{ticks(30'000), ticks(30'000)}, {movieTicks(900), movieTicks(600)}}}},
                    EditList{"rate 0 holds one picture",
                             {{600, 0, normal}, {300, 30'000, 0}},
                             90'000,
                             0,
                             {{fromStart(ticks(30'000)), fromStart(movieTicks(600))},
                              {{ticks(30'000), kCMTimeZero}, {movieTicks(600), movieTicks(300)}}}},
                    EditList{"rate 2 plays twice as much of the media",
                             {{600, 6000, 2 * normal}},
                             90'000,
                             0,
                             {{{ticks(6000), ticks(60'000)}, fromStart(movieTicks(600))}}},
                    EditList{"rate one half plays half as much of the media",
                             {{600, 6000, normal / 2}},
                             90'000,
                             0,
                             {{{ticks(6000), ticks(15'000)}, fromStart(movieTicks(600))}}},
                    EditList{"a negative rate, which nothing plays, holds",
                             {{600, 6000, -normal}},
                             90'000,
                             0,
                             {{{ticks(6000), kCMTimeZero}, fromStart(movieTicks(600))}}},
                    EditList{"an edit without a length reaches to the end of the media",
                             {{0, 30'000, normal}},
                             90'000,
                             0,
                             {{{ticks(30'000), ticks(60'000)}, fromStart(ticks(60'000))}}},
                    EditList{
                        "an edit without a length beyond the media is nothing", {{0, 90'000, normal}}, 90'000, 0, {}},
                    EditList{"an edit after the encoder's delay keeps its length",
                             {{600, 0, normal}},
                             90'000,
                             2112,
                             {{{ticks(2112), ticks(30'000)}, fromStart(movieTicks(600))}}},
                    EditList{"the same stretch may play twice",
                             {{600, 0, normal}, {600, 0, normal}},
                             90'000,
                             0,
                             {{fromStart(ticks(30'000)), fromStart(movieTicks(600))},
                              {fromStart(ticks(30'000)), {movieTicks(600), movieTicks(600)}}}}));

TEST(FileSegments, AreNothingWithoutATimeScale) {
  EXPECT_TRUE(segmentsFromEdits({{}, movie, 0, 90'000, 0}).empty());
  EXPECT_TRUE(segmentsFromEdits({{{600, 0, normal}}, movie, 0, 90'000, 0}).empty());
}

TEST(FileSegments, SurviveTheLongestEdits) {
  const auto segments =
      segmentsFromEdits({{{UINT64_MAX, 0, 32'767 * normal}, {UINT64_MAX, INT64_MAX, normal}}, movie, media, 90'000, 0});
  for (const auto& segment : segments) EXPECT_GE(segment.target.duration.seconds(), 0);
}

}  // namespace
}  // namespace clipworks::test
