#include <clipworks/media/base/PrintedLines.h>

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace clipworks {
namespace {

/// Prints 200 long lines of one character on each of four threads.
void printFromFourThreads() {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const std::string line(500, static_cast<char>('a' + t));
      for (int i = 0; i < 200; ++i) printLine(line);
    });
  }
}

void expectWholeLines(const std::vector<std::string>& lines) {
  EXPECT_EQ(lines.size(), 800U);
  for (const std::string& line : lines) {
    ASSERT_EQ(line.size(), 500U);
    ASSERT_EQ(line.find_first_not_of(line.front()), std::string::npos) << line;
  }
}

std::vector<std::string> splitLines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(PrintedLinesTest, WritesWholeLinesToStandardOutputBehindWhatTheCLibraryHolds) {
  testing::internal::CaptureStdout();
  std::fputs("before\n", stdout);
  printLine("one\ntwo\r\nthree");
  std::fputs("after\n", stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "before\none two  three\nafter\n");
}

TEST(PrintedLinesTest, LinesOfSeveralThreadsNeverMix) {
  testing::internal::CaptureStdout();
  printFromFourThreads();
  expectWholeLines(splitLines(testing::internal::GetCapturedStdout()));
}

TEST(PrintedLinesTest, FinishesALineThatAFullPipeTakesInPieces) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  const int former = dup(STDOUT_FILENO);
  std::fflush(stdout);
  dup2(ends[1], STDOUT_FILENO);
  const std::string line(1 << 20, 'x');
  std::string received;
  std::jthread reader([&] {
    char buffer[4096];
    while (received.size() < line.size() + 1) {
      const ssize_t count = read(ends[0], buffer, sizeof buffer);
      if (count <= 0) break;
      received.append(buffer, static_cast<std::size_t>(count));
    }
  });
  printLine(line);
  dup2(former, STDOUT_FILENO);
  close(ends[1]);
  close(former);
  reader.join();
  close(ends[0]);
  EXPECT_TRUE(received == line + "\n") << "received " << received.size() << " characters";
}

TEST(PrintedLinesTest, TheSinkGetsEveryLineOneAtATimeUntilItIsTakenAway) {
  std::vector<std::string> lines;  // without a lock of its own: the sink is called by one thread at a time
  setPrintedLineSink([&](std::string_view line) { lines.emplace_back(line); });
  printFromFourThreads();
  setPrintedLineSink([](std::string_view) { throw std::runtime_error("full"); });
  printLine("lost, and harms nobody");
  setPrintedLineSink(nullptr);
  expectWholeLines(lines);

  testing::internal::CaptureStdout();
  printLine("back");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "back\n");
}

TEST(FatalErrorDeathTest, NamesTheBrokenRuleAndAborts) {
  EXPECT_EXIT(fatalError("a loop count may not be negative"), testing::KilledBySignal(SIGABRT),
              "a loop count may not be negative");
}

}  // namespace
}  // namespace clipworks
