#include <clipworks/media/dispatch/DispatchSemaphore.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace clipworks {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(DispatchSemaphoreTest, LetsAsManyThroughAsItCounts) {
  const auto semaphore = DispatchSemaphore::make(2);
  EXPECT_TRUE(semaphore->wait(seconds(0)));
  semaphore->wait();
  EXPECT_FALSE(semaphore->wait(seconds(0)));
  EXPECT_FALSE(semaphore->wait(milliseconds(1)));
  semaphore->signal();
  EXPECT_TRUE(semaphore->wait(seconds(-1))) << "a wait that need not block does not ask for the time";
}

TEST(DispatchSemaphoreTest, ExcludesThreadsFromOneAnotherAndLosesNoSignal) {
  const auto gate = DispatchSemaphore::make(1);
  int guarded = 0;  // without another lock
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 500; ++i) {
          if (!gate->wait(seconds(60))) return;
          if (++inside > 1) overlapped = true;
          ++guarded;
          --inside;
          gate->signal();
        }
      });
    }
  }
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(guarded, 2000) << "a wait ran out of time: a signal was lost";
}

TEST(DispatchSemaphoreDeathTest, CannotStartBelowZero) {
  EXPECT_DEATH(static_cast<void>(DispatchSemaphore::make(-1)), "cannot start below 0");
}

}  // namespace
}  // namespace clipworks
