#include <clipworks/engine/capture/SoundRecording.h>

#include <future>

#include <tests/engine/EngineTesting.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/ScriptedCapture.h>

namespace clipworks::engine {
namespace {

using test::ScriptedCapture;

constexpr PcmFormat format{};

/// Frames of silence, or those of the source from `first` on.
struct Stretch {
  std::int64_t frames;
  std::optional<std::int64_t> first{};
};

TEST(Recording, PutsEverySampleAtTheMomentAtWhichItSounded) {
  const struct {
    const char* name;
    std::vector<ScriptedCapture::Step> steps;
    std::int64_t start;  // the frames that sound when the recording starts and when it is stopped
    std::int64_t stop;
    std::vector<Stretch> expected;
    std::optional<ErrorKind> failure{};
  } cases[] = {
      {"sound from before the start is left out", {{0, 4410}, {4410, 4410}}, 5000, 8000, {{3000, 5000}}},
      {"what comes after the stop is left out", {{0, 44'100}}, 0, 1000, {{1000, 0}}},
      {"silence until a late source begins", {{882, 4410}}, 0, 5000, {{882}, {4118, 882}}},
      {"silence when the source begins after the stop", {{9000, 4410}}, 0, 5000, {{5000}}},
      {"later reports of latency move nothing",
       {{0, 4410}, {4410, 4410, false, 4700}, {8820, 4410, false, 8000}},
       0,
       12'000,
       {{12'000, 0}}},
      {"lost sound is silence", {{0, 4410}, {8820, 4410, true}}, 0, 13'000, {{4410, 0}, {4410}, {4180, 8820}}},
      {"a gap reported backwards repeats nothing", {{0, 4410}, {4410, 4410, true, 4000}}, 0, 8000, {{8000, 0}}},
      {"a source that goes away leaves what it gave",
       {{0, 4410}, {0, 0, false, {}, true}},
       11,
       0,
       {{4399, 11}},
       ErrorKind::deviceLost}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const test::TemporaryDirectory directory;
    const auto origin = CaptureClock::now();
    const test::ScriptedMicrophone microphone(c.steps, origin);
    const auto momentOf = [&](std::int64_t frame) {
      return ScriptedCapture::momentOf(origin, frame, format.sampleRate);
    };
    const auto recording = must(SoundRecording::prepare(directory.file("piece.m4a"), format));
    std::promise<Expected<void>> ended;
    if (!c.failure) recording->stop(momentOf(c.stop));
    must(recording->start(momentOf(c.start), [&](const Expected<void>& outcome) { ended.set_value(outcome); }));
    auto outcome = ended.get_future();
    ASSERT_EQ(outcome.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "the recording does not end";
    const Expected<void> result = outcome.get();
    EXPECT_EQ(result ? std::nullopt : std::optional(result.error().kind), c.failure);

    std::vector<std::int16_t> expected;
    for (const auto& [frames, first] : c.expected) {
      for (std::int64_t i = 0; i < frames; ++i)
        expected.push_back(first ? ScriptedCapture::codeOf(*first + i) : std::int16_t{0});
    }
    EXPECT_EQ(test::recordedSamples(directory.file("piece.m4a")), expected);
  }
}

TEST(Recording, LeavesNoFileWhenItNeverStarts) {
  const test::TemporaryDirectory directory;
  const test::ScriptedMicrophone microphone({});
  const auto file = directory.file("piece.m4a");
  auto recording = must(SoundRecording::prepare(file, format));
  EXPECT_TRUE(std::filesystem::exists(file));
  recording.reset();
  EXPECT_FALSE(std::filesystem::exists(file));
}

}  // namespace
}  // namespace clipworks::engine
