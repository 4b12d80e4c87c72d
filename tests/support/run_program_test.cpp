#include <csignal>
#include <cstring>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/PrintedLinesCapture.h>
#include <tests/support/RunProgram.h>
#include <tests/support/SmallFileSystem.h>
#include <tests/support/TemporaryDirectory.h>

#include <clipworks/media/base/PrintedLines.h>

namespace clipworks::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(RunProgram, ReportsOutputExitCodeAndEnvironment) {
  const TemporaryDirectory directory;
  const ProgramResult result =
      runProgram({"sh", "-c", "pwd; echo $GREETING; echo oops >&2; exit 3"},
                 {.environment = {"GREETING=hello there"}, .workingDirectory = directory.path()});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_FALSE(result.succeeded());
  EXPECT_EQ(result.standardOutput, std::filesystem::canonical(directory.path()).string() + "\nhello there\n");
  EXPECT_EQ(result.standardError, "oops\n");
}

TEST(RunProgram, FeedsInputWhileItTakesOutput) {
  int blocks = 0;
  const ProgramResult result =
      runProgram({"cat"}, {.nextInput = [&] { return ++blocks <= 20 ? std::string(200'000, 'x') : std::string(); }});
  EXPECT_TRUE(result.succeeded()) << result.standardError;
  EXPECT_EQ(result.standardOutput.size(), 4'000'000U);
}

TEST(RunProgram, AProgramThatReadsNothingIsNotWaitedFor) {
  const ProgramResult result = runProgram({"true"}, {.nextInput = [] { return std::string(1000, 'x'); }});
  EXPECT_TRUE(result.succeeded()) << result;
}

TEST(RunProgram, EndsAtItsDeadlineWithItsChildren) {
  const auto start = std::chrono::steady_clock::now();
  const ProgramResult result =
      runProgram({"sh", "-c", "echo begun; sleep 100 & sleep 100"}, {.deadline = std::chrono::milliseconds(300)});
  EXPECT_TRUE(result.timedOut);
  EXPECT_EQ(result.signal, SIGKILL);
  EXPECT_EQ(result.standardOutput, "begun\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST(RunProgram, AMissingProgramIsSaidSo) {
  const ProgramResult result = runProgram({"no-such-program-here"});
  EXPECT_EQ(result.exitCode, 127);
  EXPECT_THAT(result.standardError, HasSubstr("no-such-program-here"));
}

TEST(RunningProgram, CanBeSignalledOnceItHasPrintedSomething) {
  RunningProgram program({"sh", "-c", "trap 'echo caught; exit 7' TERM; echo ready; while :; do sleep 0.05; done"});
  ASSERT_TRUE(program.waitForText("ready"));
  program.send(SIGTERM);
  const ProgramResult result = program.wait();
  EXPECT_EQ(result.exitCode, 7);
  EXPECT_EQ(result.standardOutput, "ready\ncaught\n");
  RunningProgram silent({"true"});
  EXPECT_FALSE(silent.waitForText("ready")) << "it ended without saying so";
}

TEST(TemporaryDirectory, GoesEvenWhenItsFilesWereWriteProtected) {
  std::filesystem::path path;
  {
    const TemporaryDirectory directory;
    path = directory.path();
    std::filesystem::create_directory(directory.file("locked"));
    std::ofstream(directory.path() / "locked" / "file") << "x";
    std::filesystem::permissions(directory.file("locked"), std::filesystem::perms::owner_read);
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(SmallFileSystem, IsFullAfterItsSize) {
  const SmallFileSystem small(64);
  if (!small.isMounted()) {
    GTEST_SKIP() << small.whyNot();
  }
  std::ofstream file(small.path() / "file", std::ios::binary);
  file << std::string(60'000, 'x') << std::flush;
  EXPECT_TRUE(file.good());
  file << std::string(60'000, 'x') << std::flush;
  EXPECT_FALSE(file.good());
}

TEST(PrintedLinesCapture, TakesTheLinesWhileItLives) {
  const PrintedLinesCapture capture;
  printLine("FAILED: one");
  printLine("two");
  EXPECT_THAT(capture.lines(), ElementsAre("FAILED: one", "two"));
}

}  // namespace
}  // namespace clipworks::test
