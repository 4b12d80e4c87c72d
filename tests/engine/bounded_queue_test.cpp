#include <clipworks/engine/pipeline/BoundedQueue.h>

#include <atomic>
#include <future>
#include <thread>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

TEST(BoundedQueue, PassesEverythingOnInOrderThroughLittleRoom) {
  BoundedQueue<std::unique_ptr<int>> queue(3);
  constexpr int count = 20'000;
  std::atomic<int> pushed = 0;
  int popped = 0;
  std::jthread producer([&] {
    for (; pushed < count; ++pushed) ASSERT_TRUE(queue.push(std::make_unique<int>(pushed)));
    queue.finish();
  });
  while (auto item = must(queue.pop())) {
    ASSERT_EQ(**item, popped++);
    // One more may be counted than fits: it is taken between our pop and this look.
    ASSERT_LE(pushed.load(), popped + 3 + 1);
  }
  EXPECT_EQ(popped, count);
}

TEST(BoundedQueue, TellsAFailureAfterTheItemsBeforeItAsOftenAsAsked) {
  BoundedQueue<int> queue(4);
  ASSERT_TRUE(queue.push(1));
  queue.fail({ErrorKind::damaged, "the rest is missing", 5});
  EXPECT_EQ(*queue.pop(), 1);
  for (int again = 0; again < 2; ++again) {
    const Error end = queue.pop().error();
    EXPECT_EQ(std::pair(end.kind, end.sentence), std::pair(ErrorKind::damaged, std::string("the rest is missing")));
  }
}

TEST(BoundedQueue, ReleasesBothSidesAndItsItemsWhenAbandoned) {
  const auto item = std::make_shared<int>(1);
  BoundedQueue<std::shared_ptr<int>> full(1);
  BoundedQueue<int> empty(1);
  ASSERT_TRUE(full.push(item));
  auto push = std::async(std::launch::async, [&] { return full.push(nullptr); });
  auto pop = std::async(std::launch::async, [&] { return empty.pop(); });
  full.abandon();
  empty.abandon();
  constexpr std::chrono::seconds deadline{20};
  ASSERT_EQ(push.wait_for(deadline), std::future_status::ready) << "the producer still waits";
  ASSERT_EQ(pop.wait_for(deadline), std::future_status::ready) << "the consumer still waits";
  EXPECT_FALSE(push.get());
  EXPECT_EQ(pop.get().error().kind, ErrorKind::cancelled);
  EXPECT_FALSE(full.push(nullptr)) << "nothing is taken afterwards";
  EXPECT_EQ(item.use_count(), 1);
}

}  // namespace
}  // namespace clipworks::engine
