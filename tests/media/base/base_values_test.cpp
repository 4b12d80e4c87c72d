#include <cerrno>
#include <cstdlib>
#include <set>
#include <thread>

#include <sys/statvfs.h>

#include <clipworks/media/base/Data.h>
#include <clipworks/media/base/UUID.h>

#include <tests/media/MediaTesting.h>
#include <tests/support/SmallFileSystem.h>

namespace clipworks::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::StartsWith;

TEST(NSErrorTest, DescribesTheWholeChainOnOneLineEvenWhenTheOriginalIsGone) {
  NSError error;
  {
    const NSError cause = makePosixError(ENOSPC, "writing /out/a.mp4");
    error = makeError(AVError::exportFailed, "the export stopped\nat 3 s", cause);
  }
  EXPECT_EQ(error.localizedDescription(), "the export stopped at 3 s");
  EXPECT_EQ(error.description(),
            "Error Domain=AVFoundationErrorDomain Code=-11820 \"the export stopped at 3 s\", caused by: "
            "Error Domain=NSPOSIXErrorDomain Code=28 \"writing /out/a.mp4: No space left on device\"");
}

TEST(UUIDTest, AreRandomOnesOfVersionFourInUppercaseAndAllDifferent) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(UUID::make().uuidString());
  constexpr const char* form = "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}";
  EXPECT_THAT(seen, AllOf(testing::SizeIs(1000), testing::Each(testing::MatchesRegex(form))));
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
    EXPECT_EQ(contentOf(path), text);
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
  EXPECT_EQ(contentOf(path), "old");
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
  const std::string content = contentOf(path);
  EXPECT_EQ(content, std::string(5000, content.front()));
  EXPECT_THAT(filesIn(directory.path()), ElementsAre("still"));
}

}  // namespace
}  // namespace clipworks::test
