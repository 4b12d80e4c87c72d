// Parts of the program that no run of it can bring into these situations.

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include <app/Awaited.h>
#include <app/PrivateDirectories.h>
#include <app/ProgressLine.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::app {
namespace {

using test::TemporaryDirectory;

TEST(AwaitedCompletion, SeesThatItWillNeverCome) {
  const Awaited<int> awaited;
  auto closure = Awaited<int>(awaited).closure();
  auto copy = closure;
  closure = nullptr;
  EXPECT_FALSE(awaited.isOver()) << "a copy is still there";
  std::thread([copy = std::move(copy)] {}).join();
  EXPECT_TRUE(DispatchQueue::main().runOne(std::chrono::seconds(10))) << "the main queue was not woken";
  EXPECT_TRUE(awaited.isOver());
  EXPECT_EQ(awaited.value(), std::nullopt);
}

TEST(MovingIntoPlace, ReplacesOldResultsButNeverAnInput) {
  const TemporaryDirectory directory;
  std::ofstream(directory.file("a.mp4")) << "old";
  std::filesystem::create_symlink("a.mp4", directory.file("link.mp4"));
  Options options;
  options.outputs = directory.path();
  {
    const auto directories = PrivateDirectories::make(options);
    ASSERT_TRUE(directories) << directories.error().sentence;
    const auto made = (*directories)->outputs() / "a.mp4";
    std::ofstream(made) << "new";
    const auto refused = (*directories)->moveIntoPlace(made, {directory.file("link.mp4")});
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().sentence.find("is the input itself"), std::string::npos) << refused.error().sentence;
    EXPECT_EQ(std::filesystem::file_size(directory.file("a.mp4")), 3U);
    ASSERT_TRUE((*directories)->moveIntoPlace(made, {}));
  }
  std::string content;
  std::ifstream(directory.file("a.mp4")) >> content;
  EXPECT_EQ(content, "new");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 2) << "something is left";
}

TEST(PrivateDirectories, GoWithTheirRunOrTheNextOneButNeverWhileItLives) {
  const TemporaryDirectory directory;
  Options options;
  options.outputs = directory.path();
  const auto orphan = directory.file(".clipworks-killed");
  std::filesystem::create_directories(orphan / "outputs");
  std::ofstream(orphan / "outputs" / "half.mp4") << "half";
  std::filesystem::create_directory(directory.file(".clipworks-of-others"));

  const auto first = PrivateDirectories::make(options);
  ASSERT_TRUE(first) << first.error().sentence;
  EXPECT_FALSE(std::filesystem::exists(orphan)) << "what a killed run left is still there";
  EXPECT_TRUE(std::filesystem::exists(directory.file(".clipworks-of-others")));
  ASSERT_TRUE(PrivateDirectories::make(options));
  EXPECT_TRUE(std::filesystem::exists((*first)->outputs())) << "a run removed what belongs to another";
}

TEST(ProgressLine, TellsTheTimeLeft) {
  using std::chrono::seconds;
  EXPECT_EQ(progressLine(0, seconds(0)), "[..............................]   0 %");
  EXPECT_EQ(progressLine(0.5, seconds(12)), "[###############...............]  50 %  0:12 left");
  EXPECT_EQ(progressLine(0.1, seconds(1000)), "[###...........................]  10 %  2:30:00 left");
  EXPECT_EQ(progressLine(1, seconds(12)), "[##############################] 100 %");
}

}  // namespace
}  // namespace clipworks::app
