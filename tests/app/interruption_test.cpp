// Ending the program in the middle of its work.

#include <csignal>
#include <cstring>
#include <string>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/BarCodeClip.h>

namespace clipworks::test {
namespace {

constexpr std::chrono::seconds deadline{60};
// Reached after the encoder has written, long before its end.
constexpr const char* underWay = R"("value":0.1)";

Arguments slowLoop(const std::filesystem::path& outputs) {
  return clipworksCommand({"--json", "--outputs", outputs, "--codec", "hevc", "loop", slowClip(), "--count", "3"});
}

/// Of a picture that lies far behind the only access point.
Arguments slowFrame(const std::filesystem::path& outputs) {
  const BarCodeClip clip({.width = 1280, .height = 720, .frames = 300, .gop = 300, .audioCodec = ""});
  return clipworksCommand({"--json", "--outputs", outputs, "frame", clip.path(), "--at=#299", "--format", "png"});
}

TEST(EndingSignal, LeavesNothingAndSaysSo) {
  const struct {
    int signal;
    const char* moment;
    Arguments (*command)(const std::filesystem::path&);
  } cases[] = {{SIGINT, underWay, slowLoop},
               {SIGTERM, "progress", slowLoop},
               {SIGHUP, "progress", slowLoop},
               {SIGINT, "progress", slowFrame}};
  for (const auto& [signal, moment, command] : cases) {
    SCOPED_TRACE(strsignal(signal));
    const TemporaryDirectory outputs;
    RunningProgram program(command(outputs.path()), {.deadline = deadline});
    ASSERT_TRUE(program.waitForText(moment)) << program.wait();
    program.send(signal);
    const auto result = program.wait();
    EXPECT_EQ(result.exitCode, 130) << result;
    EXPECT_EQ(result.standardError, "clipworks: interrupted\n");
    EXPECT_EQ(eventsOf(result).back(), (nlohmann::json{{"event", "error"}, {"message", "interrupted"}})) << result;
    EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
  }
}

TEST(EndingSignal, EndsAtOnceWhenItComesTwice) {
  const TemporaryDirectory outputs;
  RunningProgram program(slowLoop(outputs.path()), {.deadline = deadline});
  ASSERT_TRUE(program.waitForText("progress")) << program.wait();
  program.send(SIGINT);
  program.send(SIGTERM);
  EXPECT_EQ(program.wait().exitCode, 130);
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
