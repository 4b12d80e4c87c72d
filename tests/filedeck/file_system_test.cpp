#include <clipworks/filedeck/FileSystem.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <ostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;

struct Variables {
  const char* sentence;
  const char* dataHome;  // null: unset; "/" in front: below the test's directory
  const char* cacheHome;
  const char* outputs;
  const char* temp;
};
void PrintTo(const Variables& c, std::ostream* out) { *out << c.sentence; }

void set(const char* name, const char* value, const fs::path& root) {
  if (value == nullptr) {
    unsetenv(name);
  } else {
    setenv(name, value[0] == '/' ? (root.string() + value).c_str() : value, 1);
  }
}

class FileSystemDeathTest : public testing::TestWithParam<Variables> {};

// In a child: the variables count at the first use in a process.
TEST_P(FileSystemDeathTest, TakesItsDirectoriesFromTheEnvironmentAndMakesThem) {
  const auto& c = GetParam();
  const TemporaryDirectory root;
  const auto askedInChild = [&] {
    set("HOME", "/home", root.path());
    set("XDG_DATA_HOME", c.dataHome, root.path());
    set("XDG_CACHE_HOME", c.cacheHome, root.path());
    const bool right = FileSystem::shared().outputsURL().path() == root.path().string() + c.outputs &&
                       FileSystem::shared().tempURL().path() == root.path().string() + c.temp;
    std::cerr << FileSystem::shared().outputsURL().path() << ' ' << FileSystem::shared().tempURL().path() << '\n';
    std::exit(right ? 0 : 1);
  };
  EXPECT_EXIT(askedInChild(), testing::ExitedWithCode(0), "");
  EXPECT_TRUE(fs::is_directory(root.path().string() + c.outputs));
  EXPECT_TRUE(fs::is_directory(root.path().string() + c.temp));
}

INSTANTIATE_TEST_SUITE_P(
    Environments, FileSystemDeathTest,
    testing::Values(Variables{"nothing but a home", nullptr, nullptr, "/home/.local/share/clipworks/outputs",
                              "/home/.cache/clipworks/temp"},
                    Variables{"both variables", "/data", "/cache", "/data/clipworks/outputs", "/cache/clipworks/temp"},
                    Variables{"an empty and a relative variable, which count for nothing", "", "./cache",
                              "/home/.local/share/clipworks/outputs", "/home/.cache/clipworks/temp"}));

TEST(FileSystem, MakesTheDirectoriesThatTheHostSetsWhenTheyAreUsed) {
  const TemporaryDirectory root;
  FileSystem& files = FileSystem::shared();
  files.setOutputsURL(URL(root.file("a") / "b"));
  EXPECT_FALSE(fs::exists(root.file("a")));
  EXPECT_EQ(files.outputsURL().path(), root.file("a") / "b");
  EXPECT_TRUE(fs::is_directory(root.file("a") / "b"));
  std::ofstream(root.file("taken")) << "a file";
  files.setTempURL(URL(root.file("taken") / "temp"));
  EXPECT_EQ(files.tempURL().path(), root.file("taken") / "temp") << "it survives that this cannot be made";
}

TEST(FileSystem, DeletesFilesAndLinksButNoDirectoryAndNoTarget) {
  const TemporaryDirectory root;
  std::ofstream(root.file("old.mp4")) << "old";
  fs::create_directory(root.file("directory"));
  fs::create_directory_symlink(root.file("directory"), root.file("link"));
  for (const char* name : {"old.mp4", "old.mp4", "directory", "link", "nowhere/clip.mp4"}) {
    FileSystem::shared().deleteFile(URL(root.file(name)));
  }
  EXPECT_FALSE(fs::exists(root.file("old.mp4")));
  EXPECT_TRUE(fs::is_directory(root.file("directory"))) << "directories are left alone, empty ones too";
  EXPECT_FALSE(fs::exists(fs::symlink_status(root.file("link")))) << "a link is a file, whatever it leads to";
}

}  // namespace
}  // namespace clipworks::test
