#include <cerrno>
#include <cstdlib>
#include <set>
#include <string>

#include <sys/statvfs.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/URL.h>
#include <clipworks/media/base/UUID.h>

namespace clipworks {
namespace {

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
  EXPECT_EQ(seen.size(), 1000U);
  EXPECT_THAT(seen, testing::Each(
                        testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")));
}

TEST(URLTest, TellsTheLastComponentAndItsExtensionAndAppendsBelow) {
  struct {
    const char* path;
    const char* lastComponent;
    const char* extension;
    const char* appended;
  } const cases[] = {
      {"a/b.c/clip.old.MOV", "clip.old.MOV", "MOV", "a/b.c/clip.old.MOV/x"},
      {"/b.c/clip", "clip", "", "/b.c/clip/x"},
      {"/b/.hidden", ".hidden", "", "/b/.hidden/x"},
      {"clip.", "clip.", "", "clip./x"},
      {"/videos/out.d//", "out.d", "d", "/videos/out.d/x"},
      {"/", "/", "", "/x"},
      {"", "", "", "x"},
  };
  for (const auto& [path, lastComponent, extension, appended] : cases) {
    const URL url(path);
    EXPECT_EQ(url.lastPathComponent(), lastComponent) << path;
    EXPECT_EQ(url.pathExtension(), extension) << path;
    EXPECT_EQ(url.appendingPathComponent("x"), URL(appended)) << path;
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

}  // namespace
}  // namespace clipworks
