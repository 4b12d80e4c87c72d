// Parts of the program that no run of it can bring into these situations.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>

#include <app/Awaited.h>
#include <app/ProgressLine.h>

namespace clipworks::app {
namespace {

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

TEST(ProgressLine, TellsTheTimeLeft) {
  using std::chrono::seconds;
  EXPECT_EQ(progressLine(0, seconds(0)), "[..............................]   0 %");
  EXPECT_EQ(progressLine(0.5, seconds(12)), "[###############...............]  50 %  0:12 left");
  EXPECT_EQ(progressLine(0.1, seconds(1000)), "[###...........................]  10 %  2:30:00 left");
  EXPECT_EQ(progressLine(1, seconds(12)), "[##############################] 100 %");
}

}  // namespace
}  // namespace clipworks::app
