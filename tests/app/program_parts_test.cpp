// What runs show on a terminal alone.

#include <gtest/gtest.h>

#include <app/ProgressLine.h>

namespace clipworks::app {
namespace {

TEST(ProgressLine, TellsTheTimeLeft) {
  using std::chrono::seconds;
  EXPECT_EQ(progressLine(0, seconds(0)), "[..............................]   0 %");
  EXPECT_EQ(progressLine(0.5, seconds(12)), "[###############...............]  50 %  0:12 left");
  EXPECT_EQ(progressLine(0.1, seconds(1000)), "[###...........................]  10 %  2:30:00 left");
  EXPECT_EQ(progressLine(1, seconds(12)), "[##############################] 100 %");
}

}  // namespace
}  // namespace clipworks::app
