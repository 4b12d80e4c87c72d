#include <clipworks/media/dispatch/DispatchGroup.h>

#include <chrono>
#include <memory>
#include <vector>

#include <clipworks/media/dispatch/DispatchQueue.h>
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

TEST(DispatchGroupTest, JoinsTwoHalvesOnTheGlobalQueue) {
  const auto group = DispatchGroup::make();
  int first = 0;
  int second = 0;
  int sum = 0;
  const auto outer = DispatchGroup::make();
  outer->enter();
  group->enter();
  DispatchQueue::global().async([&, group] {
    first = 40;
    group->leave();
  });
  group->enter();
  DispatchQueue::global().async([&, group] {
    second = 2;
    group->leave();
  });
  group->notify(DispatchQueue::global(DispatchQoS::userInitiated), [&] {
    sum = first + second;
    outer->leave();
  });
  ASSERT_TRUE(outer->wait(seconds(60))) << "the group did not notify";
  EXPECT_EQ(sum, 42);
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
}

}  // namespace
}  // namespace clipworks
