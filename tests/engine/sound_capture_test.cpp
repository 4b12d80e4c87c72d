// The machine's sources: a real sound server without hardware, and ALSA without one.

#include <clipworks/engine/capture/SoundCapture.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <future>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/capture/SoundRecording.h>

#include <tests/support/PrivateSoundServer.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using engine::CaptureClock;
using engine::ErrorKind;
using engine::Expected;
using engine::SoundRecording;

constexpr engine::PcmFormat format{};
constexpr std::chrono::seconds patience{30};
// A sample may be this far from the moment that it belongs to. The feeder and the server are threads of a machine that
// may be busy; on an idle one it is a millisecond.
constexpr double mostMilliseconds = 30;

class Server : public testing::Test {
 protected:
  void SetUp() override {
    if (!server_.isRunning()) GTEST_SKIP() << server_.whyNot();
    server_.enter();
  }

  /// Records until `count` bursts more were given to the server.
  Expected<void> recordBursts(SoundRecording& recording, std::size_t count) {
    std::promise<Expected<void>> ended;
    EXPECT_TRUE(recording.start(start_ = CaptureClock::now(),
                                [&](const Expected<void>& outcome) { ended.set_value(outcome); }));
    EXPECT_TRUE(server_.waitForBursts(count));
    recording.stop(stop_ = CaptureClock::now() + std::chrono::milliseconds(20));
    auto outcome = ended.get_future();
    if (outcome.wait_for(patience) == std::future_status::ready) return outcome.get();
    return engine::failed(ErrorKind::internal, "the recording does not end");
  }

  /// By how many milliseconds each burst that begins in `samples` lies too late, when they begin at `begin`; sorted.
  [[nodiscard]] std::vector<double> placementErrors(const std::vector<std::int16_t>& samples,
                                                    CaptureClock::time_point begin) const {
    std::vector<double> errors;
    const auto bursts = server_.bursts();
    for (const auto onset : onsetsIn(samples, format.sampleRate)) {
      if (onset == 0) continue;  // it had begun before
      const auto burst = static_cast<std::size_t>(samples[static_cast<std::size_t>(onset)] - server_.levelOf(0));
      const std::chrono::duration<double> truth = bursts.at(burst) - begin;
      errors.push_back((static_cast<double>(onset) / format.sampleRate - truth.count()) * 1000);
    }
    std::sort(errors.begin(), errors.end());
    return errors;
  }

  PrivateSoundServer server_;
  TemporaryDirectory directory_;
  CaptureClock::time_point start_;
  CaptureClock::time_point stop_;
};

TEST_F(Server, PlacesSoundAtTheMomentOfTheStart) {
  auto recording = SoundRecording::prepare(directory_.file("piece.m4a"), format);
  ASSERT_TRUE(recording) << recording.error().sentence;
  const Expected<void> outcome = recordBursts(**recording, 5);
  ASSERT_TRUE(outcome) << outcome.error().sentence;

  const auto samples = recordedSamples(directory_.file("piece.m4a"));
  const double wanted = std::chrono::duration<double>(stop_ - start_).count() * format.sampleRate;
  EXPECT_NEAR(static_cast<double>(samples.size()), wanted, 1);
  const auto errors = placementErrors(samples, start_);
  ASSERT_GE(errors.size(), 4U);
  const double middle = errors[errors.size() / 2];
  std::cout << "placement error: " << middle << " ms (" << errors.front() << " to " << errors.back() << ")\n";
  EXPECT_NEAR(middle, 0, mostMilliseconds);
}

TEST_F(Server, TellsWhenSoundSoundedThatIsReadMuchLater) {
  auto capture = engine::openSoundCapture(format);
  ASSERT_TRUE(capture) << capture.error().sentence;
  ASSERT_TRUE(server_.waitForBursts(1));
  ASSERT_TRUE((*capture)->start());
  ASSERT_TRUE(server_.waitForBursts(2));  // nothing is read meanwhile: half a second of latency, and more
  std::vector<std::int16_t> samples;
  std::optional<CaptureClock::time_point> begin;
  const auto end = CaptureClock::now() + patience;
  while (samples.size() < format.sampleRate && CaptureClock::now() < end) {
    const auto sound = (*capture)->read(std::chrono::milliseconds(100));
    ASSERT_TRUE(sound) << sound.error().sentence;
    if (!begin && !sound->samples.empty()) begin = sound->begin;
    for (std::size_t i = 0; i < sound->samples.size(); i += 2) samples.push_back(sound->samples[i]);
  }
  const auto errors = placementErrors(samples, *begin);
  ASSERT_FALSE(errors.empty());
  std::cout << "read late: " << errors.front() << " ms off\n";
  EXPECT_NEAR(errors.front(), 0, mostMilliseconds);
}

/// ALSA's configuration for this process.
class Alsa : public testing::Test {
 protected:
  void configure(const std::string& configuration) {
    std::ofstream(directory_.file("asound.conf")) << configuration;
    ::setenv("ALSA_CONFIG_PATH", directory_.file("asound.conf").c_str(), 1);
    ::setenv("PULSE_SERVER", "unix:/nowhere/native", 1);
  }

  TemporaryDirectory directory_;
};

TEST_F(Alsa, ServesWhereNoServerAnswers) {
  std::vector<std::int16_t> samples;
  for (int i = 0; i < 44'100; ++i) samples.insert(samples.end(), 2, static_cast<std::int16_t>(i % 30'000 + 1));
  std::ofstream(directory_.file("input.raw"), std::ios::binary)
      .write(reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(samples.size() * 2));
  configure("pcm.null { type null }\npcm.!default { type file slave.pcm null file /dev/null infile \"" +
            directory_.file("input.raw").string() + "\" format raw }\n");
  auto capture = engine::openSoundCapture(format);
  ASSERT_TRUE(capture) << capture.error().sentence;
  ASSERT_TRUE((*capture)->start());
  std::vector<std::int16_t> got;
  const auto end = CaptureClock::now() + patience;
  while (got.size() < samples.size() && CaptureClock::now() < end) {
    const auto sound = (*capture)->read(std::chrono::milliseconds(100));
    ASSERT_TRUE(sound) << sound.error().sentence;
    got.insert(got.end(), sound->samples.begin(), sound->samples.end());
  }
  got.resize(samples.size());
  EXPECT_EQ(got, samples);
}

}  // namespace
}  // namespace clipworks::test
