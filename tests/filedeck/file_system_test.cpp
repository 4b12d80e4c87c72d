#include <clipworks/filedeck/FileSystem.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;

using Environment = std::map<std::string, std::string>;

/// Ends the process: well when these are the directories.
[[noreturn]] void look(const Environment& environment, const std::string& outputs, const std::string& temp) {
  for (const char* name : {"XDG_DATA_HOME", "XDG_CACHE_HOME"}) unsetenv(name);
  for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
  const auto& files = FileSystem::shared();
  std::cerr << files.outputsURL().path() << ' ' << files.tempURL().path() << '\n';
  std::exit(files.outputsURL().path() == outputs && files.tempURL().path() == temp ? 0 : 1);
}

// In a child: the variables count at the first use in a process.
TEST(FileSystemDeathTest, TakesItsDirectoriesFromTheEnvironmentAndMakesThem) {
  const TemporaryDirectory root;
  const std::string data = root.file("data");
  const std::string cache = root.file("cache");
  const std::string home = root.file("home");
  const std::string outputs = home + "/.local/share/clipworks/outputs";
  const std::string temp = home + "/.cache/clipworks/temp";
  const std::vector<std::tuple<Environment, std::string, std::string>> cases{
      {{}, outputs, temp},
      {{{"XDG_DATA_HOME", ""}, {"XDG_CACHE_HOME", "./cache"}}, outputs, temp},  // empty or relative: as if unset
      {{{"XDG_DATA_HOME", data}, {"XDG_CACHE_HOME", cache}}, data + "/clipworks/outputs", cache + "/clipworks/temp"},
  };
  for (auto [environment, wantedOutputs, wantedTemp] : cases) {
    fs::remove_all(home);
    environment["HOME"] = home;
    EXPECT_EXIT(look(environment, wantedOutputs, wantedTemp), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(fs::is_directory(wantedOutputs) && fs::is_directory(wantedTemp)) << wantedOutputs;
  }
}

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
