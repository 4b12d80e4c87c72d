// The machine's sources: a real sound server without hardware, and ALSA without one.

#include <clipworks/engine/capture/SoundCapture.h>

#include <future>

#include <clipworks/engine/capture/SoundRecording.h>

#include <tests/engine/EngineTesting.h>
#include <tests/support/PrivateSoundServer.h>
#include <tests/support/RecordedSound.h>

namespace clipworks::engine {
namespace {

using Samples = std::vector<std::int16_t>;

constexpr PcmFormat format{};
constexpr std::chrono::seconds patience{30};

/// Reads `count` samples or more of both channels, or what comes in time; tells when they begin.
CaptureClock::time_point readSamples(SoundCapture& capture, std::size_t count, Samples& samples) {
  CaptureClock::time_point begin{};
  const auto end = CaptureClock::now() + patience;
  while (samples.size() < count && CaptureClock::now() < end) {
    const auto sound = must(capture.read(std::chrono::milliseconds(100)));
    if (samples.empty()) begin = sound.begin;
    samples.insert(samples.end(), sound.samples.begin(), sound.samples.end());
  }
  return begin;
}

class Server : public testing::Test {
 protected:
  void SetUp() override {
    if (!server_.isRunning()) GTEST_SKIP() << server_.whyNot();
    server_.enter();
  }

  /// Bursts that begin in `samples` are heard when they were given to the server, when the samples begin at `begin`.
  void expectBurstsInPlace(const Samples& samples, CaptureClock::time_point begin, std::size_t least) const {
    std::vector<double> errors;  // milliseconds
    const auto bursts = server_.bursts();
    for (const auto onset : test::onsetsIn(samples, format.sampleRate)) {
      if (onset == 0) continue;  // it had begun before
      const auto burst = static_cast<std::size_t>(samples[static_cast<std::size_t>(onset)] - server_.levelOf(0));
      const std::chrono::duration<double> truth = bursts.at(burst) - begin;
      errors.push_back((static_cast<double>(onset) / format.sampleRate - truth.count()) * 1000);
    }
    ASSERT_GE(errors.size(), least);
    std::ranges::sort(errors);
    // The feeder and the server are threads of a machine that may be busy; on an idle one it is a millisecond.
    EXPECT_NEAR(errors[least == 1 ? 0 : errors.size() / 2], 0, 30) << testing::PrintToString(errors);
  }

  test::PrivateSoundServer server_;
  test::TemporaryDirectory directory_;
};

TEST_F(Server, PlacesSoundAtTheMomentOfTheStart) {
  const auto file = directory_.file("piece.m4a");
  const auto recording = must(SoundRecording::prepare(file, format));
  std::promise<Expected<void>> ended;
  const auto start = CaptureClock::now();
  must(recording->start(start, [&](const Expected<void>& outcome) { ended.set_value(outcome); }));
  EXPECT_TRUE(server_.waitForBursts(5));
  const auto stop = CaptureClock::now() + std::chrono::milliseconds(20);
  recording->stop(stop);
  auto outcome = ended.get_future();
  ASSERT_EQ(outcome.wait_for(patience), std::future_status::ready) << "the recording does not end";
  must(outcome.get());

  const auto samples = test::recordedSamples(file);
  const double wanted = std::chrono::duration<double>(stop - start).count() * format.sampleRate;
  EXPECT_NEAR(static_cast<double>(samples.size()), wanted, 1);
  expectBurstsInPlace(samples, start, 4);
}

TEST_F(Server, TellsWhenSoundSoundedThatIsReadMuchLater) {
  const auto capture = must(openSoundCapture(format));
  ASSERT_TRUE(server_.waitForBursts(1));
  must(capture->start());
  ASSERT_TRUE(server_.waitForBursts(2));  // nothing is read meanwhile: half a second of latency, and more
  Samples both;
  const auto begin = readSamples(*capture, 2 * std::size_t{format.sampleRate}, both);
  Samples left;
  for (std::size_t i = 0; i < both.size(); i += 2) left.push_back(both[i]);
  expectBurstsInPlace(left, begin, 1);
}

TEST(Alsa, ServesWhereNoServerAnswers) {
  const test::TemporaryDirectory directory;
  Samples samples;
  for (int i = 0; i < 44'100; ++i) samples.insert(samples.end(), 2, static_cast<std::int16_t>(i % 30'000 + 1));
  const std::string bytes(reinterpret_cast<const char*>(samples.data()), samples.size() * 2);
  const auto input = writeTo(directory.file("input.raw"), bytes).string();
  const auto configuration =
      writeTo(directory.file("asound.conf"),
              "pcm.null { type null }\npcm.!default { type file slave.pcm null file /dev/null infile \"" + input +
                  "\" format raw }\n");
  ::setenv("ALSA_CONFIG_PATH", configuration.c_str(), 1);
  ::setenv("PULSE_SERVER", "unix:/nowhere/native", 1);
  const auto capture = must(openSoundCapture(format));
  must(capture->start());
  Samples got;
  readSamples(*capture, samples.size(), got);
  got.resize(samples.size());
  EXPECT_EQ(got, samples);
}

}  // namespace
}  // namespace clipworks::engine
