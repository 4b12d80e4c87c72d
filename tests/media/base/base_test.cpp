
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <clipworks/media/base/Data.h>
#include <clipworks/media/base/PrintedLines.h>
#include <clipworks/media/base/PrintedText.h>

#include <tests/media/MediaTesting.h>
#include <tests/support/SmallFileSystem.h>

namespace clipworks::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

TEST(NSErrorTest, DescribesTheWholeChainOnOneLineEvenWhenTheOriginalIsGone) {
  NSError error;
  {
    const NSError cause = makePosixError(ENOSPC, "writing /out/a.mp4");
    error = makeError(AVError::exportFailed, "the export stopped\nat 3 s", cause);
  }
  EXPECT_EQ(error.localizedDescription(), "the export stopped at 3 s");
  EXPECT_EQ(error.underlyingError()->domain(), NSPOSIXErrorDomain);
  EXPECT_EQ(error.description(),
            "Error Domain=AVFoundationErrorDomain Code=-11820 \"the export stopped at 3 s\", caused by: "
            "Error Domain=NSPOSIXErrorDomain Code=28 \"writing /out/a.mp4: No space left on device\"");
}

TEST(URLTest, TellsTheLastComponentAndItsExtensionAndAppendsBelow) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"a/b.c/clip.old.MOV", {"clip.old.MOV", "MOV", "a/b.c/clip.old.MOV/x"}},
      {"/b.c/clip", {"clip", "", "/b.c/clip/x"}},
      {"/b/.hidden", {".hidden", "", "/b/.hidden/x"}},
      {"clip.", {"clip.", "", "clip./x"}},
      {"/videos/out.d//", {"out.d", "d", "/videos/out.d//x"}},
      {"/", {"/", "", "/x"}},
      {"", {"", "", "x"}},
  };
  for (const auto& [path, parts] : cases) {
    const URL url(path);
    EXPECT_THAT(parts,
                ElementsAre(url.lastPathComponent(), url.pathExtension(), url.appendingPathComponent("x").path()));
  }
  EXPECT_EQ(URL("/out").appendingPathComponent("/etc/passwd"), URL("/out/etc/passwd"));
}

TEST(URLTest, ReadsTheFreeSpaceOfItsFileSystemAndTheHomeDirectory) {
  struct statvfs system {};
  ASSERT_EQ(statvfs("/tmp", &system), 0);
  const auto expected = static_cast<double>(system.f_bavail) * static_cast<double>(system.f_frsize);
  const auto capacity = URL("/tmp").volumeAvailableCapacityForImportantUsage();
  EXPECT_NEAR(static_cast<double>(capacity.value()), expected, 1e9) << "others may write meanwhile, but not that much";
  EXPECT_FALSE(URL("/no/such/folder").volumeAvailableCapacityForImportantUsage().has_value());
  setenv("HOME", "", 1);
  EXPECT_TRUE(NSHomeDirectory().is_absolute()) << NSHomeDirectory();
}

Data dataOf(const std::string& text) { return Data(std::vector<std::uint8_t>(text.begin(), text.end())); }

TEST(DataWrite, ReplacesWhatWasThereOrSaysWhatFailedAndLeavesNothing) {
  const TemporaryDirectory directory;
  const fs::path path = directory.file("still");
  for (const std::string text : {"the first, longer content", "second", ""}) {
    ASSERT_EQ(failureOf(dataOf(text).write(URL(path))), "");
    EXPECT_EQ(fileBytes(path), text);
  }
  fs::create_directory(directory.file("taken"));
  EXPECT_THAT(failureOf(dataOf("x").write(URL(directory.file("missing") / "still"))),
              StartsWith("Error Domain=NSPOSIXErrorDomain Code=2 "));  // ENOENT
  EXPECT_THAT(failureOf(dataOf("x").write(URL(directory.file("taken")))),
              StartsWith("Error Domain=NSPOSIXErrorDomain Code=21 "));  // EISDIR
  EXPECT_THAT(filesIn(directory.path()), testing::UnorderedElementsAre("still", "taken"));
}

TEST(DataWrite, AFullFileSystemKeepsTheOldFile) {
  const SmallFileSystem small(64);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  const fs::path path = small.path() / "still";
  ASSERT_TRUE(dataOf("old").write(URL(path)));
  EXPECT_THAT(failureOf(dataOf(std::string(1 << 20, 'x')).write(URL(path))),
              StartsWith("Error Domain=NSPOSIXErrorDomain Code=28 "));  // ENOSPC
  EXPECT_EQ(fileBytes(path), "old");
  EXPECT_THAT(filesIn(small.path()), ElementsAre("still"));
}

TEST(DataWrite, OfSeveralThreadsToOneNameLeavesOneWholeFile) {
  const TemporaryDirectory directory;
  const fs::path path = directory.file("still");
  std::vector<std::jthread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([&path, letter] {
      for (int i = 0; i < 50; ++i) EXPECT_TRUE(dataOf(std::string(5000, letter)).write(URL(path)));
    });
  }
  threads.clear();
  const std::string content = fileBytes(path);
  EXPECT_EQ(content, std::string(5000, content.front()));
  EXPECT_THAT(filesIn(directory.path()), ElementsAre("still"));
}

TEST(PrintedLinesTest, WritesWholeLinesToStandardOutputBehindWhatTheCLibraryHolds) {
  testing::internal::CaptureStdout();
  std::fputs("before\n", stdout);
  printLine("one\ntwo\r\nthree");
  std::fputs("after\n", stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "before\none two  three\nafter\n");
}

TEST(PrintedLinesTest, FinishesALineThatAFullPipeTakesInPieces) {
  const TemporaryDirectory directory;
  const auto file = directory.file("received");
  FILE* const pipe = popen(("cat > " + file.string()).c_str(), "w");
  fcntl(fileno(pipe), F_SETFL, O_NONBLOCK);
  const int former = dup(STDOUT_FILENO);
  std::fflush(stdout);
  dup2(fileno(pipe), STDOUT_FILENO);
  const std::string line(1 << 20, 'x');
  printLine(line);
  dup2(former, STDOUT_FILENO);
  close(former);
  pclose(pipe);
  EXPECT_TRUE(fileBytes(file) == line + "\n") << "received " << fs::file_size(file) << " bytes";
}

TEST(PrintedLinesTest, TheSinkGetsEveryLineOneAtATimeUntilItIsTakenAway) {
  std::vector<std::string> lines;  // without a lock of its own: the sink is called by one thread at a time
  setPrintedLineSink([&](std::string_view line) { lines.emplace_back(line); });
  std::vector<std::jthread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([letter] {
      for (int i = 0; i < 200; ++i) printLine(std::string(500, letter));
    });
  }
  threads.clear();
  setPrintedLineSink([](std::string_view) { throw std::runtime_error("full"); });
  printLine("lost, and harms nobody");
  setPrintedLineSink(nullptr);
  EXPECT_EQ(lines.size(), 800U);
  for (const std::string& line : lines) ASSERT_EQ(line, std::string(500, line.front()));

  testing::internal::CaptureStdout();
  printLine("back");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "back\n");
}

TEST(PrintedNumberTest, HasTheExpectedForm) {
  using Limits = std::numeric_limits<double>;
  const double numbers[] = {-0.0,    1920, M_PI_2, 1e-4,          3e-5,      0x1p53 - 1,
                            -0x1p53, 1e16, 5e-324, Limits::max(), -HUGE_VAL, std::copysign(Limits::quiet_NaN(), -1.0)};
  std::string printed;
  for (const double number : numbers) printed += printedNumber(number) + ' ';
  EXPECT_EQ(printed,
            "-0.0 1920.0 1.5707963267948966 0.0001 3e-05 9007199254740991.0 -9.007199254740992e+15 1e+16 5e-324 "
            "1.7976931348623157e+308 -inf nan ");
  // Single precision has its own digits and limit.
  EXPECT_EQ(printedNumber(0.1F), "0.1");
  EXPECT_EQ(printedNumber(16'777'215.0F), "16777215.0");
  EXPECT_EQ(printedNumber(16'777'216.0F), "1.6777216e+07");
}

TEST(PrintedOptionalTest, PrintsTheDescriptionOrNil) {
  EXPECT_EQ(printedOptional(std::optional<NSError>()), "nil");
  EXPECT_EQ(printedOptional(std::optional<NSError>(NSError("D", 4, "two\nlines"))),
            "Optional(Error Domain=D Code=4 \"two lines\")");
  EXPECT_EQ(printedOptional(std::optional<std::string>("text")), "Optional(text)");
}

}  // namespace
}  // namespace clipworks::test
