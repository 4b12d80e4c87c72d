#include <clipworks/engine/capture/SoundRecording.h>

#include <future>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tests/support/RecordedSound.h>
#include <tests/support/ScriptedCapture.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using engine::CaptureClock;
using engine::ErrorKind;
using engine::Expected;
using engine::SoundRecording;

constexpr engine::PcmFormat format{};
constexpr std::chrono::seconds patience{30};

/// Frames of silence, or those of the source from `first` on.
struct Stretch {
  std::int64_t frames;
  std::optional<std::int64_t> first{};
};

struct PlacementCase {
  std::string name;
  std::vector<ScriptedCapture::Step> steps;
  /// The frames that sound when the recording starts and when it is stopped.
  std::int64_t start;
  std::int64_t stop;
  std::vector<Stretch> expected;
  std::optional<ErrorKind> failure{};

  friend std::ostream& operator<<(std::ostream& out, const PlacementCase& c) { return out << c.name; }
};

class Placement : public testing::TestWithParam<PlacementCase> {};

TEST_P(Placement, PutsEverySampleAtTheMomentAtWhichItSounded) {
  const TemporaryDirectory directory;
  const auto origin = CaptureClock::now();
  const ScriptedMicrophone microphone(GetParam().steps, origin);
  const auto momentOf = [&](std::int64_t frame) { return ScriptedCapture::momentOf(origin, frame, format.sampleRate); };
  auto recording = SoundRecording::prepare(directory.file("piece.m4a"), format);
  ASSERT_TRUE(recording) << recording.error().sentence;
  std::promise<Expected<void>> ended;
  if (!GetParam().failure) (*recording)->stop(momentOf(GetParam().stop));
  ASSERT_TRUE((*recording)->start(momentOf(GetParam().start), [&](const Expected<void>& outcome) {
    ended.set_value(outcome);
  }));
  auto outcome = ended.get_future();
  ASSERT_EQ(outcome.wait_for(patience), std::future_status::ready) << "the recording does not end";
  const Expected<void> result = outcome.get();
  EXPECT_EQ(result ? std::nullopt : std::optional(result.error().kind), GetParam().failure);

  std::vector<std::int16_t> expected;
  for (const auto& [frames, first] : GetParam().expected) {
    for (std::int64_t i = 0; i < frames; ++i)
      expected.push_back(first ? ScriptedCapture::codeOf(*first + i) : std::int16_t{0});
  }
  EXPECT_EQ(recordedSamples(directory.file("piece.m4a")), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Sources, Placement,
    testing::Values(
        PlacementCase{"sound_from_before_the_start_is_left_out", {{0, 4410}, {4410, 4410}}, 5000, 8000, {{3000, 5000}}},
        PlacementCase{"what_comes_after_the_stop_is_left_out", {{0, 44'100}}, 0, 1000, {{1000, 0}}},
        PlacementCase{"silence_until_a_late_source_begins", {{882, 4410}}, 0, 5000, {{882}, {4118, 882}}},
        PlacementCase{"silence_when_the_source_begins_after_the_stop", {{9000, 4410}}, 0, 5000, {{5000}}},
        PlacementCase{"later_reports_of_latency_move_nothing",
                      {{0, 4410}, {4410, 4410, false, 4700}, {8820, 4410, false, 8000}},
                      0,
                      12'000,
                      {{12'000, 0}}},
        PlacementCase{"sound_that_was_lost_is_silence",
                      {{0, 4410}, {8820, 4410, true}},
                      0,
                      13'000,
                      {{4410, 0}, {4410}, {4180, 8820}}},
        PlacementCase{
            "a_gap_reported_backwards_repeats_nothing", {{0, 4410}, {4410, 4410, true, 4000}}, 0, 8000, {{8000, 0}}},
        PlacementCase{"a_source_that_goes_away_leaves_what_it_gave",
                      {{0, 4410}, {0, 0, false, {}, true}},
                      11,
                      0,
                      {{4399, 11}},
                      ErrorKind::deviceLost}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(Recording, LeavesNoFileWhenItNeverStarts) {
  const TemporaryDirectory directory;
  const ScriptedMicrophone microphone({});
  auto recording = SoundRecording::prepare(directory.file("piece.m4a"), format);
  ASSERT_TRUE(recording);
  EXPECT_TRUE(std::filesystem::exists(directory.file("piece.m4a")));
  recording->reset();
  EXPECT_FALSE(std::filesystem::exists(directory.file("piece.m4a")));
}

}  // namespace
}  // namespace clipworks::test
