// Recording from a real sound server without hardware, and without any.

#include <csignal>

#include <clipworks/media/asset/AVAsset.h>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/PrivateSoundServer.h>
#include <tests/support/RecordedSound.h>

namespace clipworks::test {
namespace {

using testing::HasSubstr;

constexpr int sampleRate = 44'100;

class Record : public testing::Test {
 protected:
  void SetUp() override {
    if (!server_.isRunning()) GTEST_SKIP() << server_.whyNot();
  }

  [[nodiscard]] ProgramOptions options() const { return {.environment = server_.environment()}; }
  [[nodiscard]] Arguments command(const Arguments& arguments) const {
    return clipworksCommand(outputs_.path(), arguments);
  }

  /// The one file in the outputs directory; there is nothing else.
  [[nodiscard]] fs::path theFile() const {
    const auto names = namesIn(outputs_.path());
    EXPECT_EQ(names.size(), 1U);
    return names.empty() ? fs::path() : outputs_.file(*names.begin());
  }

  /// Until the program has opened the microphone and half a second has been stored.
  void waitForSound() {
    for (int i = 0; i < 20; ++i) {
      ASSERT_TRUE(server_.waitForBursts(1));
      const auto names = namesIn(outputs_.path());
      if (!names.empty() && !AVAsset::make(URL(outputs_.file(*names.begin())))->tracks().empty()) return;
    }
    FAIL() << "nothing is recorded";
  }

  PrivateSoundServer server_;
  TemporaryDirectory outputs_;
};

TEST_F(Record, ForATimeTellsTheFileAndTheArgumentForNarrate) {
  const auto result = runProgram(command({"record", "--at", "1.5", "--for", "1.2"}), options());
  ASSERT_EQ(result.exitCode, 0) << result;
  const auto file = theFile();
  EXPECT_EQ(result.standardOutput, file.string() + "\n");
  EXPECT_EQ(result.standardError, "--piece " + file.string() + "@1.5\n");
  const auto samples = recordedSamples(file);
  EXPECT_NEAR(static_cast<double>(samples.size()) / sampleRate, 1.2, 0.1);
  EXPECT_FALSE(onsetsIn(samples, sampleRate).empty());

  const Made narrated({"narrate", BarCodeClip({.frames = 120}).path(), "--piece", file.string() + "@1.5"});
}

TEST_F(Record, EndsAtEnter) {
  auto withInput = options();
  withInput.nextInput = [&, enter = std::string("\n")]() mutable {
    EXPECT_TRUE(server_.waitForBursts(2));
    return std::exchange(enter, "");
  };
  const auto result = runProgram(command({"record", "--at", "0"}), withInput);
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_FALSE(recordedSamples(theFile()).empty());
}

TEST_F(Record, EndsAtCtrlCAndKeepsTheRecording) {
  RunningProgram program(command({"record", "--at", "0", "--json"}), options());
  waitForSound();
  program.send(SIGINT);
  const auto result = program.wait();
  EXPECT_EQ(result.exitCode, 0) << result;
  const auto done = eventsOf(result, "done");
  ASSERT_EQ(done.size(), 1U) << result;
  EXPECT_EQ(done.front().at("outputs").at(0), theFile().string());
  EXPECT_GT(recordedSamples(theFile()).size(), 20'000U);
}

TEST_F(Record, SaysWhyItEndedWhenTheServerGoes) {
  RunningProgram program(command({"record", "--at", "0"}), options());
  waitForSound();
  server_.kill();
  const auto result = program.wait();
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_THAT(result.standardError, HasSubstr("the recording failed: the microphone went away"));
  EXPECT_THAT(result.standardError, HasSubstr("the sound until then is in " + theFile().string()));
}

}  // namespace
}  // namespace clipworks::test
