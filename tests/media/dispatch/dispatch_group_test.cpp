#include <clipworks/media/dispatch/DispatchGroup.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/dispatch/DispatchSemaphore.h>
#include <gtest/gtest.h>

namespace clipworks {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(DispatchGroupTest, NotifiesOnceInOrderWhenTheLastLeaves) {
  DispatchMainQueue& queue = DispatchQueue::main();
  const auto group = DispatchGroup::make();
  std::vector<int> order;
  group->enter();
  group->enter();
  group->notify(queue, [&] { order.push_back(1); });
  group->notify(queue, [&] { order.push_back(2); });
  group->leave();
  EXPECT_EQ(queue.drain(), 0U);
  group->leave();
  EXPECT_EQ(queue.drain(), 2U);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));

  group->enter();
  group->leave();
  EXPECT_EQ(queue.drain(), 0U) << "a notification is for one time";
  group->notify(queue, [&] { order.push_back(3); });
  EXPECT_EQ(queue.drain(), 1U) << "an empty group notifies at once";
}

TEST(DispatchGroupTest, VanishesWithItsNotificationsWhileEntered) {
  auto group = DispatchGroup::make();
  const auto token = std::make_shared<int>(0);
  group->enter();
  group->notify(DispatchQueue::main(), [token] { ++*token; });
  EXPECT_FALSE(group->wait(milliseconds(1)));
  group.reset();
  EXPECT_EQ(token.use_count(), 1) << "the notification is still held";
  EXPECT_EQ(DispatchQueue::main().drain(), 0U);
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

TEST(DispatchGroupDeathTest, MayNotBeLeftMoreOftenThanEntered) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const auto group = DispatchGroup::make();
        group->enter();
        group->leave();
        group->leave();
      },
      "left only as often as it was entered");
  EXPECT_DEATH(static_cast<void>(DispatchSemaphore::make(-1)), "cannot start below 0");
}

}  // namespace
}  // namespace clipworks
