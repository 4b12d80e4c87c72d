#include <clipworks/engine/pipeline/BoundedQueue.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace clipworks::test {
namespace {

using engine::BoundedQueue;
using engine::ErrorKind;

constexpr std::chrono::seconds deadline{20};

TEST(BoundedQueue, PassesEverythingOnInOrderThroughLittleRoom) {
  BoundedQueue<std::unique_ptr<int>> queue(3);
  constexpr int count = 20'000;
  std::atomic<int> pushed = 0;
  int popped = 0;
  std::jthread producer([&] {
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(queue.push(std::make_unique<int>(i)));
      ++pushed;
    }
    queue.finish();
  });
  for (;;) {
    auto item = queue.pop();
    ASSERT_TRUE(item);
    if (!*item) break;
    ASSERT_EQ(***item, popped);
    ++popped;
    // One more may be counted than fits: it is taken between our pop and this look.
    ASSERT_LE(pushed.load(), popped + 3 + 1);
  }
  EXPECT_EQ(popped, count);
}

TEST(BoundedQueue, TellsAFailureAfterTheItemsBeforeIt) {
  BoundedQueue<int> queue(4);
  ASSERT_TRUE(queue.push(1));
  ASSERT_TRUE(queue.push(2));
  queue.fail({ErrorKind::damaged, "the rest is missing", 5});
  EXPECT_EQ(*queue.pop(), 1);
  EXPECT_EQ(*queue.pop(), 2);
  for (int again = 0; again < 2; ++again) {
    const auto end = queue.pop();
    ASSERT_FALSE(end);
    EXPECT_EQ(end.error().kind, ErrorKind::damaged);
    EXPECT_EQ(end.error().sentence, "the rest is missing");
    EXPECT_EQ(end.error().posixCode, 5);
  }
}

TEST(BoundedQueue, EndsAsOftenAsAsked) {
  BoundedQueue<int> queue(1);
  queue.finish();
  EXPECT_EQ(*queue.pop(), std::nullopt);
  EXPECT_EQ(*queue.pop(), std::nullopt);
}

TEST(BoundedQueue, ReleasesAWaitingProducerWhenAbandoned) {
  BoundedQueue<int> queue(1);
  ASSERT_TRUE(queue.push(1));
  auto second = std::async(std::launch::async, [&] { return queue.push(2); });
  queue.abandon();
  ASSERT_EQ(second.wait_for(deadline), std::future_status::ready) << "the producer still waits";
  EXPECT_FALSE(second.get());
  EXPECT_FALSE(queue.push(3)) << "and nothing is taken afterwards";
}

TEST(BoundedQueue, ReleasesAWaitingConsumerWhenAbandoned) {
  BoundedQueue<int> queue(1);
  auto first = std::async(std::launch::async, [&] { return queue.pop(); });
  queue.abandon();
  ASSERT_EQ(first.wait_for(deadline), std::future_status::ready) << "the consumer still waits";
  const auto popped = first.get();
  ASSERT_FALSE(popped);
  EXPECT_EQ(popped.error().kind, ErrorKind::cancelled);
}

TEST(BoundedQueue, DropsWhatIsUnderWayWhenAbandoned) {
  const auto item = std::make_shared<int>(1);
  BoundedQueue<std::shared_ptr<int>> queue(2);
  ASSERT_TRUE(queue.push(item));
  queue.abandon();
  EXPECT_EQ(item.use_count(), 1);
  ASSERT_FALSE(queue.pop());
}

}  // namespace
}  // namespace clipworks::test
