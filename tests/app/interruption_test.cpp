// Ending the program in the middle of its work.

#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include <nlohmann/json.hpp>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

constexpr std::chrono::seconds deadline{60};
// Reached after the encoder has written, long before its end.
constexpr const char* underWay = R"("value":0.1)";

Arguments slowLoop(const std::filesystem::path& outputs) {
  return clipworksCommand({"--json", "--outputs", outputs, "--codec", "hevc", "loop", slowClip(), "--count", "3"});
}

struct EndingCase {
  std::string name;
  int signal;
  /// What the program has printed by then.
  std::string moment;

  friend std::ostream& operator<<(std::ostream& out, const EndingCase& ending) { return out << ending.name; }
};

class EndingSignal : public testing::TestWithParam<EndingCase> {};

TEST_P(EndingSignal, LeavesNothingAndSaysSo) {
  const TemporaryDirectory outputs;
  RunningProgram program(slowLoop(outputs.path()), {.deadline = deadline});
  ASSERT_TRUE(program.waitForText(GetParam().moment)) << program.wait();
  program.send(GetParam().signal);
  const auto result = program.wait();
  EXPECT_EQ(result.exitCode, 130) << result;
  EXPECT_EQ(result.standardError, "clipworks: interrupted\n");
  EXPECT_EQ(eventsOf(result).back(), (nlohmann::json{{"event", "error"}, {"message", "interrupted"}})) << result;
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Signals, EndingSignal,
                         testing::Values(EndingCase{"SIGINT_in_the_middle", SIGINT, underWay},
                                         EndingCase{"SIGINT_at_the_start", SIGINT, "progress"},
                                         EndingCase{"SIGTERM_at_the_start", SIGTERM, "progress"},
                                         EndingCase{"SIGHUP_at_the_start", SIGHUP, "progress"}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST(Interruption, SecondSignalEndsTheSameWay) {
  const TemporaryDirectory outputs;
  RunningProgram program(slowLoop(outputs.path()), {.deadline = deadline});
  ASSERT_TRUE(program.waitForText("progress")) << program.wait();
  program.send(SIGINT);
  program.send(SIGTERM);
  const auto result = program.wait();
  EXPECT_EQ(result.exitCode, 130) << result;
}

TEST(Kill, LeavesNoFileThatCouldBeTakenForAResult) {
  const TemporaryDirectory outputs;
  RunningProgram program(slowLoop(outputs.path()), {.deadline = deadline});
  ASSERT_TRUE(program.waitForText(underWay)) << program.wait();
  program.send(SIGKILL);
  EXPECT_EQ(program.wait().signal, SIGKILL);
  for (const auto& name : namesIn(outputs.path())) EXPECT_EQ(name.front(), '.') << name;

  // What the killed run left does not disturb the next one.
  const auto next = runClipworks({"--outputs", outputs.path(), "loop", slowClip(), "--count", "2"});
  EXPECT_EQ(next.exitCode, 0) << next;
}

}  // namespace
}  // namespace clipworks::test
