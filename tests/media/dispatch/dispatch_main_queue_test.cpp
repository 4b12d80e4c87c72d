#include <clipworks/media/dispatch/DispatchMainQueue.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>

#include <clipworks/media/dispatch/DispatchQueue.h>
#include <gtest/gtest.h>

namespace clipworks {
namespace {

bool isReadable(int descriptor) {
  pollfd asked{descriptor, POLLIN, 0};
  return poll(&asked, 1, 0) == 1;
}

TEST(DispatchMainQueueTest, RunsItemsInOrderUntilItIsStopped) {
  DispatchMainQueue& queue = DispatchQueue::main();
  std::vector<int> order;
  std::jthread other([&] {
    for (int i = 0; i < 100; ++i) queue.async([&order, i] { order.push_back(i); });
    queue.async([&] { queue.stop(); });
    queue.async([&] { order.push_back(1000); });
  });
  queue.run();
  ASSERT_EQ(order.size(), 100U) << "the item behind the stop waits";
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
  EXPECT_TRUE(queue.runOne(std::chrono::nanoseconds::max()));
  EXPECT_EQ(order.back(), 1000);
  EXPECT_FALSE(queue.runOne(std::chrono::milliseconds(1)));

  queue.stop();
  queue.run();  // a stop that comes too early is not lost
}

TEST(DispatchMainQueueTest, TheDescriptorIsReadableAsLongAsItemsWait) {
  DispatchMainQueue& queue = DispatchQueue::main();
  queue.async([] {});  // before anyone asks for the descriptor
  const int descriptor = queue.fileDescriptor();
  ASSERT_GE(descriptor, 0);
  EXPECT_TRUE(isReadable(descriptor));
  queue.async([&] { queue.async([] {}); });
  EXPECT_EQ(queue.drain(), 2U) << "what an item adds is for the next time";
  EXPECT_TRUE(isReadable(descriptor));
  EXPECT_EQ(queue.drain(), 1U);
  EXPECT_FALSE(isReadable(descriptor));
  EXPECT_EQ(queue.drain(), 0U);
}

TEST(DispatchMainQueueTest, TheHostsExecutorGetsTheWaitingItemsAndAllLaterOnes) {
  DispatchMainQueue& queue = DispatchQueue::main();
  std::vector<int> order;
  std::vector<std::function<void()>> given;
  const auto token = std::make_shared<int>(0);
  queue.async([&order, token] { order.push_back(1); });
  queue.setExecutor([&](std::function<void()> work) { given.push_back(std::move(work)); });
  queue.async([&] { order.push_back(2); });
  EXPECT_FALSE(isReadable(queue.fileDescriptor()));
  EXPECT_EQ(queue.drain(), 0U);
  ASSERT_EQ(given.size(), 2U);
  given[0]();
  EXPECT_EQ(token.use_count(), 1) << "an item is destroyed right after it ran, whoever still holds its wrapper";
  given[1]();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));

  queue.setExecutor([](const std::function<void()>& work) { work(); });
  queue.async([&] { queue.async([&] { order.push_back(3); }); });
  EXPECT_EQ(order.back(), 3) << "run at once, with what the item adds";

  queue.setExecutor(nullptr);
  queue.async([&] { order.push_back(4); });
  EXPECT_EQ(queue.drain(), 1U);
  EXPECT_EQ(order.back(), 4);
}

TEST(DispatchMainQueueDeathTest, RefusesEmptyItemsAndEscapingExceptions) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(DispatchQueue::main().async(nullptr), "need a work item");
  EXPECT_DEATH(
      {
        DispatchQueue::main().async([] { throw std::runtime_error("disk on fire"); });
        DispatchQueue::main().drain();
      },
      "no exception may escape.*disk on fire");
}

}  // namespace
}  // namespace clipworks
