// Ending the program in the middle of its work.

#include <csignal>

#include <tests/app/ProgramUnderTest.h>

namespace clipworks::test {
namespace {

// Reached after the encoder has written, long before its end.
const std::string underWay = R"("value":0.1)";

Arguments slowLoop() { return {"--json", "--codec", "hevc", "loop", slowClip(), "--count", "3"}; }

TEST(EndingSignal, LeavesNothingAndSaysSo) {
  // The picture lies far behind the only access point.
  const BarCodeClip far({.width = 1280, .height = 720, .frames = 300, .gop = 300, .audioCodec = ""});
  const std::string small = BarCodeClip({.width = 160, .height = 90, .frames = 10}).path();
  const struct {
    int signal;
    std::string moment;
    Arguments words;
    std::string before = "";
  } cases[] = {
      {SIGINT, underWay, slowLoop()},
      {SIGTERM, "progress", slowLoop()},
      {SIGHUP, "progress", slowLoop()},
      {SIGINT, "progress", {"--json", "frame", far.path(), "--at=#299", "--format", "png"}},
      {SIGINT, underWay, {"--json", "reverse", slowClip()}},
      {SIGINT, ", now ", {"--json", "compress", small, slowClip(), "--preset", "1080p"}, "[^\n]*, now [^\n]*\n"}};
  for (const auto& [signal, moment, words, before] : cases) {
    SCOPED_TRACE(testing::PrintToString(words) + " and signal " + std::to_string(signal));
    const TemporaryDirectory outputs;
    RunningProgram program(clipworksCommand(outputs.path(), words));
    ASSERT_TRUE(program.waitForText(moment)) << program.wait();
    program.send(signal);
    const auto result = program.wait();
    EXPECT_EQ(result.exitCode, 130) << result;
    EXPECT_THAT(result.standardError, testing::MatchesRegex(before + "clipworks: interrupted\n"));
    EXPECT_EQ(eventsOf(result).back(), (nlohmann::json{{"event", "error"}, {"message", "interrupted"}})) << result;
    EXPECT_EQ(namesIn(outputs.path()), Names{});
  }
}

TEST(EndingSignal, EndsAtOnceWhenItComesTwice) {
  const TemporaryDirectory outputs;
  RunningProgram program(clipworksCommand(outputs.path(), slowLoop()));
  ASSERT_TRUE(program.waitForText("progress")) << program.wait();
  program.send(SIGINT);
  program.send(SIGTERM);
  EXPECT_EQ(program.wait().exitCode, 130);
}

}  // namespace
}  // namespace clipworks::test
