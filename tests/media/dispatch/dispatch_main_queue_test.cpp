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

using std::chrono::seconds;

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
  EXPECT_TRUE(queue.runOne(seconds(10)));
  EXPECT_EQ(order.back(), 1000);

  queue.stop();
  queue.run();  // a stop that comes too early is not lost
}

TEST(DispatchMainQueueTest, RunOneWaitsForAnItemUntilItsDeadline) {
  DispatchMainQueue& queue = DispatchQueue::main();
  EXPECT_FALSE(queue.runOne(seconds(0)));
  EXPECT_FALSE(queue.runOne(std::chrono::steady_clock::now() + std::chrono::milliseconds(1)));
  int ran = 0;
  std::jthread other([&] { queue.async([&] { ++ran; }); });
  EXPECT_TRUE(queue.runOne(std::chrono::nanoseconds::max()));
  EXPECT_EQ(ran, 1);
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

  queue.setExecutor(nullptr);
  queue.async([&] { order.push_back(3); });
  EXPECT_EQ(queue.drain(), 1U);
  EXPECT_EQ(order.back(), 3);
}

TEST(DispatchMainQueueTest, AnExecutorMayRunItemsAtOnceEvenThoseThatAddMore) {
  DispatchMainQueue& queue = DispatchQueue::main();
  queue.setExecutor([](const std::function<void()>& work) { work(); });
  bool innerRan = false;
  queue.async([&] { queue.async([&] { innerRan = true; }); });
  queue.setExecutor(nullptr);
  EXPECT_TRUE(innerRan);
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
