#include <clipworks/engine/capture/SoundRecording.h>

#include <future>

#include <tests/engine/EngineTesting.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/ScriptedCapture.h>

namespace clipworks::engine {
namespace {

using test::ScriptedCapture;

constexpr PcmFormat format{};

using Samples = std::vector<std::int16_t>;

/// Stretches of so many frames: of silence, or of those of the source from a frame on.
Samples framesOf(const std::vector<std::pair<std::int64_t, std::optional<std::int64_t>>>& stretches) {
  Samples samples;
  for (const auto& [count, first] : stretches)
    for (std::int64_t i = 0; i < count; ++i)
      samples.push_back(first ? ScriptedCapture::codeOf(*first + i) : std::int16_t{0});
  return samples;
}

/// What comes of a source, given the frames that sound when the recording starts and when it is stopped, if it is.
Samples recorded(const std::vector<ScriptedCapture::Step>& steps, std::int64_t start,
                 std::optional<std::int64_t> stop) {
  const test::TemporaryDirectory directory;
  const auto origin = CaptureClock::now();
  const test::ScriptedMicrophone microphone(steps, origin);
  const auto momentOf = [&](std::int64_t frame) { return ScriptedCapture::momentOf(origin, frame, format.sampleRate); };
  const auto recording = must(SoundRecording::prepare(directory.file("piece.m4a"), format));
  std::promise<Expected<void>> ended;
  if (stop) recording->stop(momentOf(*stop));
  must(recording->start(momentOf(start), [&](const Expected<void>& outcome) { ended.set_value(outcome); }));
  auto outcome = ended.get_future();
  EXPECT_EQ(outcome.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "the recording does not end";
  const Expected<void> result = outcome.get();
  EXPECT_EQ(result ? std::nullopt : std::optional(result.error().kind),
            stop ? std::nullopt : std::optional(ErrorKind::deviceLost));
  return test::recordedSamples(directory.file("piece.m4a"));
}

TEST(Recording, PutsEverySampleAtTheMomentAtWhichItSounded) {
  EXPECT_EQ(recorded({{0, 4410}, {4410, 4410}}, 5000, 8000), framesOf({{3000, 5000}})) << "with sound before the start";
  EXPECT_EQ(recorded({{0, 44'100}}, 0, 1000), framesOf({{1000, 0}})) << "with sound after the stop";
  EXPECT_EQ(recorded({{882, 4410}}, 0, 5000), framesOf({{882, {}}, {4118, 882}})) << "of a late source";
  EXPECT_EQ(recorded({{9000, 4410}}, 0, 5000), framesOf({{5000, {}}})) << "of a source that begins after the stop";
  EXPECT_EQ(recorded({{0, 4410}, {4410, 4410, false, 4700}, {8820, 4410, false, 8000}}, 0, 12'000),
            framesOf({{12'000, 0}}))
      << "whatever latency is reported later";
  EXPECT_EQ(recorded({{0, 4410}, {8820, 4410, true}}, 0, 13'000), framesOf({{4410, 0}, {4410, {}}, {4180, 8820}}))
      << "with sound lost";
  EXPECT_EQ(recorded({{0, 4410}, {4410, 4410, true, 4000}}, 0, 8000), framesOf({{8000, 0}}))
      << "with a gap reported backwards";
  EXPECT_EQ(recorded({{0, 4410}, {0, 0, false, {}, true}}, 11, {}), framesOf({{4399, 11}}))
      << "of a source that goes away";
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
