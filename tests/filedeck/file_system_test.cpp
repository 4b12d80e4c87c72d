#include <clipworks/filedeck/FileSystem.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;

struct Variables {
  std::optional<std::string> data;
  std::optional<std::string> cache;
  std::string outputs;  // what follows from them
  std::string temp;
};

void set(const char* name, const std::optional<std::string>& value) {
  if (value) setenv(name, value->c_str(), 1);
  if (!value) unsetenv(name);
}

/// Ends the process: well when the directories are as wanted.
[[noreturn]] void look(const Variables& variables, const std::string& home) {
  set("HOME", home);
  set("XDG_DATA_HOME", variables.data);
  set("XDG_CACHE_HOME", variables.cache);
  const auto& files = FileSystem::shared();
  std::cerr << files.outputsURL().path() << ' ' << files.tempURL().path() << '\n';
  std::exit(files.outputsURL().path() == variables.outputs && files.tempURL().path() == variables.temp ? 0 : 1);
}

// In a child: the variables count at the first use in a process.
TEST(FileSystemDeathTest, TakesItsDirectoriesFromTheEnvironmentAndMakesThem) {
  const TemporaryDirectory root;
  const std::string base = root.path();
  const std::string home = base + "/home";
  const std::string outputs = home + "/.local/share/clipworks/outputs";
  const std::string temp = home + "/.cache/clipworks/temp";
  const std::vector<Variables> cases{
      {std::nullopt, std::nullopt, outputs, temp},
      {"", "./cache", outputs, temp},  // an empty and a relative variable count for nothing
      {base + "/data", base + "/cache", base + "/data/clipworks/outputs", base + "/cache/clipworks/temp"},
  };
  for (const auto& variables : cases) {
    fs::remove_all(home);
    EXPECT_EXIT(look(variables, home), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(fs::is_directory(variables.outputs) && fs::is_directory(variables.temp)) << variables.outputs;
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
