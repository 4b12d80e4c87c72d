#include <clipworks/media/base/Data.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/SmallFileSystem.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;

Data dataOf(const std::string& text) { return Data(std::vector<std::uint8_t>(text.begin(), text.end())); }

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::string> namesIn(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) names.push_back(entry.path().filename());
  return names;
}

TEST(DataWrite, ReplacesWhatWasThere) {
  const TemporaryDirectory directory;
  const fs::path path = directory.file("still");
  for (const std::string text : {"the first, longer content", "second", ""}) {
    ASSERT_TRUE(dataOf(text).write(URL(path)));
    EXPECT_EQ(contentOf(path), text);
    EXPECT_THAT(namesIn(directory.path()), testing::ElementsAre("still"));
  }
}

TEST(DataWrite, SaysWhatFailedAndLeavesNothing) {
  const TemporaryDirectory directory;
  const auto missing = dataOf("x").write(URL(directory.file("missing") / "still"));
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().domain(), NSPOSIXErrorDomain);
  EXPECT_EQ(missing.error().code(), ENOENT);

  fs::create_directory(directory.file("still"));
  const auto taken = dataOf("x").write(URL(directory.file("still")));
  ASSERT_FALSE(taken);
  EXPECT_EQ(taken.error().code(), EISDIR) << taken.error().description();
  EXPECT_THAT(namesIn(directory.path()), testing::ElementsAre("still"));
}

TEST(DataWrite, AFullFileSystemKeepsTheOldFile) {
  const SmallFileSystem small(64);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  const fs::path path = small.path() / "still";
  ASSERT_TRUE(dataOf("old").write(URL(path)));
  const auto written = dataOf(std::string(1 << 20, 'x')).write(URL(path));
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().code(), ENOSPC) << written.error().description();
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_THAT(namesIn(small.path()), testing::ElementsAre("still"));
}

TEST(DataWrite, OfSeveralThreadsToOneNameLeavesOneWholeFile) {
  const TemporaryDirectory directory;
  const fs::path path = directory.file("still");
  std::vector<std::thread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([&path, letter] {
      for (int i = 0; i < 50; ++i) EXPECT_TRUE(dataOf(std::string(5000, letter)).write(URL(path)));
    });
  }
  for (auto& thread : threads) thread.join();
  const std::string content = contentOf(path);
  EXPECT_EQ(content, std::string(5000, content.front()));
  EXPECT_THAT(namesIn(directory.path()), testing::ElementsAre("still"));
}

}  // namespace
}  // namespace clipworks::test
