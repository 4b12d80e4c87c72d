#include <clipworks/foundation/OutputLocation.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;

TEST(OutputLocation, IsTheNameAsGivenWithTheExtension) {
  const TemporaryDirectory directory;
  const URL in(directory.path());
  EXPECT_EQ(prepareOutputLocation(in, "holiday", ".mp4").path(), directory.file("holiday.mp4"));
  EXPECT_EQ(prepareOutputLocation(in, "holiday.mp4", ".mp4").path(), directory.file("holiday.mp4.mp4"));
  EXPECT_EQ(prepareOutputLocation(in, "", ".mp4").path(), directory.file(".mp4")) << "an empty name is a name";
}

TEST(OutputLocation, HasANewNameWhenNoneIsGiven) {
  const TemporaryDirectory directory;
  const auto fresh = [&] {
    return prepareOutputLocation(URL(directory.path()), std::nullopt, ".mp4").lastPathComponent();
  };
  const std::string one = fresh();
  EXPECT_THAT(one, testing::MatchesRegex("[0-9A-F]+-[0-9A-F]+-4[0-9A-F]+-[0-9A-F]+-[0-9A-F]+\\.mp4"));
  EXPECT_EQ(one.size(), 36U + 4);
  EXPECT_NE(one, fresh());
}

TEST(OutputLocation, IsClearedOfTheOldFileAndNothingElse) {
  const TemporaryDirectory directory;
  std::ofstream(directory.file("a.mp4")) << "old";
  std::ofstream(directory.file("a")) << "another";
  fs::create_directory(directory.file("b.mp4"));
  (void)prepareOutputLocation(URL(directory.path()), "a", ".mp4");
  (void)prepareOutputLocation(URL(directory.path()), "b", ".mp4");
  EXPECT_FALSE(fs::exists(directory.file("a.mp4")));
  EXPECT_TRUE(fs::exists(directory.file("a")));
  EXPECT_TRUE(fs::exists(directory.file("b.mp4"))) << "directories are left alone";
}

}  // namespace
}  // namespace clipworks::test
