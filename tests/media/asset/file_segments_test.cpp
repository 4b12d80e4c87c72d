#include <clipworks/media/asset/FileSegments.h>

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tests/media/composition/FakeTrack.h>

namespace clipworks::test {
namespace {

using MovieEdit = engine::MovieBoxes::Edit;
using Lines = std::vector<std::string>;

constexpr std::int32_t normal = 1 << 16;
constexpr std::int32_t movie = 600;
constexpr std::int32_t media = 30'000;

TEST(FileSegments, PresentTheMediaAsTheEditsSay) {
  struct {
    const char* sentence;
    std::vector<MovieEdit> edits;
    std::int64_t mediaDuration;
    std::int64_t encoderDelay;
    Lines expected;
  } const cases[] = {
      {"without edits all of the media plays", {}, 90'000, 0, {"media 0..3 at 0..3"}},
      {"without edits the encoder's delay is left out", {}, 90'000, 1500, {"media 1/20..3 at 0..59/20"}},
      {"media shorter than the encoder's delay is nothing", {}, 1000, 2112, {}},
      {"a trimmed clip starts and ends inside the media",
       {{1200, 15'000, normal}},
       90'000,
       0,
       {"media 1/2..5/2 at 0..2"}},
      {"an empty edit in front holds until the track begins",
       {{300, -1, normal}, {1800, 0, normal}},
       90'000,
       0,
       {"hold at 0..1/2", "media 0..3 at 1/2..7/2"}},
      {"an empty edit between others is a hole",
       {{600, 0, normal}, {300, -1, normal}, {600, 30'000, normal}},
       90'000,
       0,
       {"media 0..1 at 0..1", "empty at 1..3/2", "media 1..2 at 3/2..5/2"}},
      {"rate 0 holds one picture", {{300, 30'000, 0}}, 90'000, 0, {"media 1..1 at 0..1/2"}},
      {"rate 2 plays twice as much of the media", {{600, 6000, 2 * normal}}, 90'000, 0, {"media 1/5..11/5 at 0..1"}},
      {"a negative rate, which nothing plays, holds", {{600, 6000, -normal}}, 90'000, 0, {"media 1/5..1/5 at 0..1"}},
      {"an edit without a length reaches to the end", {{0, 30'000, normal}}, 90'000, 0, {"media 1..3 at 0..2"}},
      {"an edit without a length beyond the media is nothing", {{0, 90'000, normal}}, 90'000, 0, {}},
      {"an edit after the encoder's delay keeps its length",
       {{600, 0, normal}},
       90'000,
       3000,
       {"media 1/10..11/10 at 0..1"}},
      {"the same stretch may play twice",
       {{600, 0, normal}, {600, 0, normal}},
       90'000,
       0,
       {"media 0..1 at 0..1", "media 0..1 at 1..2"}},
  };
  for (const auto& [sentence, edits, mediaDuration, encoderDelay, expected] : cases) {
    EXPECT_EQ(lines(segmentsFromEdits({edits, movie, media, mediaDuration, encoderDelay})), expected) << sentence;
  }
}

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
