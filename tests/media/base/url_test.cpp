#include <clipworks/media/base/URL.h>

#include <cstdlib>
#include <string>

#include <sys/statvfs.h>

#include <gtest/gtest.h>

namespace clipworks {
namespace {

struct NameCase {
  const char* sentence;
  const char* path;
  const char* lastComponent;
  const char* extension;
};

std::ostream& operator<<(std::ostream& out, const NameCase& c) { return out << c.sentence; }

class URLNameTest : public testing::TestWithParam<NameCase> {};

TEST_P(URLNameTest, TellsTheLastComponentAndItsExtension) {
  const URL url(GetParam().path);
  EXPECT_EQ(url.path(), GetParam().path);
  EXPECT_EQ(url.lastPathComponent(), GetParam().lastComponent);
  EXPECT_EQ(url.pathExtension(), GetParam().extension);
}

INSTANTIATE_TEST_SUITE_P(Names, URLNameTest,
                         testing::Values(NameCase{"a plain name", "/videos/clip.mp4", "clip.mp4", "mp4"},
                                         NameCase{"several dots", "a/b.c/clip.old.MOV", "clip.old.MOV", "MOV"},
                                         NameCase{"no dot but in a folder", "/b.c/clip", "clip", ""},
                                         NameCase{"a hidden name", "/b/.hidden", ".hidden", ""},
                                         NameCase{"a dot at the end", "clip.", "clip.", ""},
                                         NameCase{"slashes at the end", "/videos/out.d//", "out.d", "d"},
                                         NameCase{"the root", "/", "/", ""}, NameCase{"nothing", "", "", ""}));

TEST(URLTest, AppendsANameBelowThePathWhateverTheSlashes) {
  EXPECT_EQ(URL("/out").appendingPathComponent("a.mp4"), URL("/out/a.mp4"));
  EXPECT_EQ(URL("/out/").appendingPathComponent("a.mp4"), URL("/out/a.mp4"));
  EXPECT_EQ(URL("/out").appendingPathComponent("/etc/passwd"), URL("/out/etc/passwd"));
  EXPECT_EQ(URL("/").appendingPathComponent("/a"), URL("/a"));
  EXPECT_EQ(URL().appendingPathComponent("a"), URL("a"));
}

TEST(URLTest, ReadsTheFreeSpaceOfItsFileSystem) {
  struct statvfs system {};
  ASSERT_EQ(statvfs("/tmp", &system), 0);
  const auto capacity = URL("/tmp").volumeAvailableCapacityForImportantUsage();
  ASSERT_TRUE(capacity.has_value());
  const auto expected = static_cast<double>(system.f_bavail) * static_cast<double>(system.f_frsize);
  EXPECT_NEAR(static_cast<double>(*capacity), expected, 1e9) << "others may write meanwhile, but not that much";
  EXPECT_FALSE(URL("/no/such/folder").volumeAvailableCapacityForImportantUsage().has_value());
}

TEST(URLTest, TakesTheHomeDirectoryFromTheEnvironmentElseFromTheAccount) {
  const char* value = std::getenv("HOME");
  const std::string former = value != nullptr ? value : "";
  setenv("HOME", "/somewhere", 1);
  EXPECT_EQ(NSHomeDirectory(), "/somewhere");
  setenv("HOME", "", 1);
  EXPECT_TRUE(NSHomeDirectory().is_absolute()) << NSHomeDirectory();
  value != nullptr ? setenv("HOME", former.c_str(), 1) : unsetenv("HOME");
}

}  // namespace
}  // namespace clipworks
