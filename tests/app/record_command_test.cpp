// Recording from a real sound server without hardware, and without any.

#include <cmath>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <clipworks/media/asset/AVAsset.h>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/PrivateSoundServer.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr int sampleRate = 44'100;

class Record : public testing::Test {
 protected:
  void SetUp() override {
    if (!server_.isRunning()) GTEST_SKIP() << server_.whyNot();
  }

  [[nodiscard]] ProgramOptions options() const { return {.environment = server_.environment()}; }
  [[nodiscard]] Arguments command(const Arguments& arguments) const {
    Arguments all{"--outputs", outputs_.path(), "record"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return clipworksCommand(all);
  }

  /// The one file in the outputs directory; there is nothing else.
  [[nodiscard]] fs::path theFile() const {
    const auto names = namesIn(outputs_.path());
    EXPECT_EQ(names.size(), 1U);
    return names.empty() ? fs::path() : outputs_.file(*names.begin());
  }

  /// Until the program has opened the microphone and half a second has been stored.
  void waitForSound(RunningProgram&) {
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
  const auto result = runProgram(command({"--at", "1.5", "--for", "1.2"}), options());
  ASSERT_EQ(result.exitCode, 0) << result;
  const auto file = theFile();
  EXPECT_EQ(result.standardOutput, file.string() + "\n");
  EXPECT_EQ(result.standardError, "--piece " + file.string() + "@1.5\n");
  const auto samples = recordedSamples(file);
  EXPECT_NEAR(static_cast<double>(samples.size()) / sampleRate, 1.2, 0.1);
  EXPECT_FALSE(onsetsIn(samples, sampleRate).empty());

  const BarCodeClip clip({.frames = 120});
  const TemporaryDirectory narrated;
  const auto mixed =
      runClipworks({"--outputs", narrated.path(), "narrate", clip.path(), "--piece", file.string() + "@1.5"});
  EXPECT_EQ(mixed.exitCode, 0) << mixed;
}

TEST_F(Record, EndsAtEnter) {
  bool isAsked = false;
  auto withInput = options();
  withInput.nextInput = [&]() -> std::string {
    if (isAsked) return "";
    isAsked = true;
    EXPECT_TRUE(server_.waitForBursts(2));
    return "\n";
  };
  const auto result = runProgram(command({"--at", "0"}), withInput);
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_FALSE(recordedSamples(theFile()).empty());
}

TEST_F(Record, EndsAtCtrlCAndKeepsTheRecording) {
  RunningProgram program(command({"--at", "0", "--json"}), options());
  waitForSound(program);
  program.send(SIGINT);
  const auto result = program.wait();
  EXPECT_EQ(result.exitCode, 0) << result;
  const auto done = eventsOf(result, "done");
  ASSERT_EQ(done.size(), 1U) << result;
  EXPECT_EQ(done.front().at("outputs").at(0), theFile().string());
  EXPECT_GT(recordedSamples(theFile()).size(), 20'000U);
}

TEST_F(Record, LosesAtMostASecondWhenItIsKilled) {
  const auto started = PrivateSoundServer::Clock::now();
  RunningProgram program(command({"--at", "0"}), options());
  waitForSound(program);
  ASSERT_TRUE(server_.waitForBursts(3));
  program.send(SIGKILL);
  const std::chrono::duration<double> most = PrivateSoundServer::Clock::now() - started;
  EXPECT_EQ(program.wait().signal, SIGKILL);
  const double kept = AVAsset::make(URL(theFile()))->duration().seconds();
  std::cout << "kept " << kept << " s of the " << most.count() << " s that the program ran\n";
  EXPECT_GT(kept, most.count() - 1.2) << "a second, and what the program took to start";
  EXPECT_EQ(recordedSamples(theFile()).size(), static_cast<std::size_t>(std::lround(kept * sampleRate)));
}

TEST_F(Record, SaysWhyItEndedWhenTheServerGoes) {
  RunningProgram program(command({"--at", "0"}), options());
  waitForSound(program);
  server_.kill();
  const auto result = program.wait();
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_THAT(result.standardError, HasSubstr("the recording failed: the microphone went away"));
  EXPECT_THAT(result.standardError, HasSubstr("the sound until then is in " + theFile().string()));
}

TEST(RecordWithoutSound, SaysThatThereIsNoMicrophone) {
  const TemporaryDirectory outputs;
  const auto result = runClipworks({"--outputs", outputs.path(), "record", "--at", "0", "--for", "1"},
                                   {.environment = PrivateSoundServer::noSoundEnvironment()});
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_THAT(result.standardError,
              MatchesRegex("clipworks: nothing can be recorded: no microphone can be opened: [^\n]+\n"));
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

struct WrongCase {
  std::string name;
  Arguments arguments;
  std::string sentence;
  int exitCode = 2;

  friend std::ostream& operator<<(std::ostream& out, const WrongCase& c) { return out << c.name; }
};

class WrongUse : public testing::TestWithParam<WrongCase> {};

TEST_P(WrongUse, IsRefusedInOneSentence) {
  const auto result = runClipworks(GetParam().arguments, {.environment = PrivateSoundServer::noSoundEnvironment()});
  EXPECT_EQ(result.exitCode, GetParam().exitCode) << result;
  EXPECT_THAT(result.standardError, HasSubstr(GetParam().sentence));
  EXPECT_EQ(result.standardOutput, "");
}

INSTANTIATE_TEST_SUITE_P(
    Record, WrongUse,
    testing::Values(WrongCase{"a_negative_start", {"record", "--at", "-1"}, "--at takes seconds"},
                    WrongCase{"a_start_that_is_no_number", {"record", "--at", "nan"}, "--at takes seconds"},
                    WrongCase{"no_length", {"record", "--at", "0", "--for", "0"}, "--for takes seconds"},
                    WrongCase{"no_outputs_directory",
                              {"--outputs", "/nowhere", "record", "--at", "0"},
                              "the outputs directory /nowhere does not exist",
                              1}),
    [](const auto& testCase) { return testCase.param.name; });

}  // namespace
}  // namespace clipworks::test
