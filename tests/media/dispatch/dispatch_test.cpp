#include <atomic>
#include <cstdlib>

#include <poll.h>
#include <unistd.h>

#include <clipworks/media/dispatch/DispatchGroup.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/dispatch/DispatchSemaphore.h>

#include <tests/media/MediaTesting.h>

namespace clipworks::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

DispatchMainQueue& mainQueue = DispatchQueue::main();

TEST(DispatchGroupTest, NotifiesOnceInOrderWhenTheLastLeaves) {
  const auto group = DispatchGroup::make();
  std::vector<int> order;
  group->enter();
  group->enter();
  group->notify(mainQueue, [&] { order.push_back(1); });
  group->notify(mainQueue, [&] { order.push_back(2); });
  group->leave();
  EXPECT_EQ(mainQueue.drain(), 0U);
  group->leave();
  EXPECT_EQ(mainQueue.drain(), 2U);
  EXPECT_THAT(order, ElementsAre(1, 2));

  group->enter();
  group->leave();
  EXPECT_EQ(mainQueue.drain(), 0U) << "a notification is for one time";
  group->notify(mainQueue, [] {});
  EXPECT_EQ(mainQueue.drain(), 1U) << "an empty group notifies at once";
}

TEST(DispatchGroupTest, VanishesWithItsNotificationsWhileEntered) {
  auto group = DispatchGroup::make();
  const auto token = std::make_shared<int>(0);
  group->enter();
  group->notify(mainQueue, [token] { ++*token; });
  EXPECT_FALSE(group->wait(milliseconds(1)));
  group.reset();
  EXPECT_EQ(token.use_count(), 1) << "the notification is still held";
  EXPECT_EQ(mainQueue.drain(), 0U);
}

TEST(DispatchSemaphoreTest, ExcludesThreadsFromOneAnotherAndLosesNoSignal) {
  const auto gate = DispatchSemaphore::make(1);
  int guarded = 0;  // without another lock
  std::atomic<int> inside{0};
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500 && gate->wait(patience); ++i) {
        EXPECT_EQ(++inside, 1);
        ++guarded;
        --inside;
        gate->signal();
      }
    });
  }
  threads.clear();
  EXPECT_EQ(guarded, 2000) << "a wait ran out of time: a signal was lost";
}

bool isReadable(int descriptor) {
  pollfd asked{descriptor, POLLIN, 0};
  return poll(&asked, 1, 0) == 1;
}

TEST(DispatchMainQueueTest, RunsItemsInOrderUntilItIsStopped) {
  std::vector<int> order;
  std::vector<int> expected;
  for (int i = 0; i < 100; ++i) expected.push_back(i);
  std::jthread other([&] {
    for (const int i : expected) mainQueue.async([&order, i] { order.push_back(i); });
    mainQueue.async([&] { mainQueue.stop(); });
    mainQueue.async([&] { order.push_back(1000); });
  });
  mainQueue.run();
  EXPECT_EQ(order, expected) << "the item behind the stop waits";
  EXPECT_TRUE(mainQueue.runOne(std::chrono::nanoseconds::max()));
  EXPECT_EQ(order.back(), 1000);
  EXPECT_FALSE(mainQueue.runOne(milliseconds(1)));

  mainQueue.stop();
  mainQueue.run();  // a stop that comes too early is not lost
}

TEST(DispatchMainQueueTest, TheDescriptorIsReadableAsLongAsItemsWait) {
  mainQueue.async([] {});  // before anyone asks for the descriptor
  const int descriptor = mainQueue.fileDescriptor();
  EXPECT_TRUE(isReadable(descriptor));
  mainQueue.async([] { mainQueue.async([] {}); });
  EXPECT_EQ(mainQueue.drain(), 2U) << "what an item adds is for the next time";
  EXPECT_TRUE(isReadable(descriptor));
  EXPECT_EQ(mainQueue.drain(), 1U);
  EXPECT_FALSE(isReadable(descriptor));
  EXPECT_EQ(mainQueue.drain(), 0U);
}

TEST(DispatchMainQueueTest, TheHostsExecutorGetsTheWaitingItemsAndAllLaterOnes) {
  std::vector<int> order;
  std::vector<std::function<void()>> given;
  const auto token = std::make_shared<int>(0);
  mainQueue.async([&order, token] { order.push_back(1); });
  mainQueue.setExecutor([&](std::function<void()> work) { given.push_back(std::move(work)); });
  mainQueue.async([&] { order.push_back(2); });
  EXPECT_FALSE(isReadable(mainQueue.fileDescriptor()));
  EXPECT_EQ(mainQueue.drain(), 0U);
  ASSERT_EQ(given.size(), 2U);
  given[0]();
  EXPECT_EQ(token.use_count(), 1) << "an item is destroyed right after it ran, whoever still holds its wrapper";
  given[1]();
  EXPECT_THAT(order, ElementsAre(1, 2));

  mainQueue.setExecutor([](const std::function<void()>& work) { work(); });
  mainQueue.async([&] { mainQueue.async([&] { order.push_back(3); }); });
  EXPECT_EQ(order.back(), 3) << "run at once, with what the item adds";

  mainQueue.setExecutor(nullptr);
  mainQueue.async([&] { order.push_back(4); });
  EXPECT_EQ(mainQueue.drain(), 1U);
  EXPECT_EQ(order.back(), 4);
}

/// Tells the test that something has happened; waits have a deadline.
struct Event {
  void happen() const { semaphore->signal(); }
  [[nodiscard]] bool waitFor() const { return semaphore->wait(patience); }
  std::shared_ptr<DispatchSemaphore> semaphore = DispatchSemaphore::make(0);
};

/// Runs `work(i)` as `count` items, which are all in the group.
void runItems(const std::shared_ptr<DispatchGroup>& group, int count, const std::function<void(int)>& work) {
  for (int i = 0; i < count; ++i) {
    group->enter();
    DispatchQueue::global().async([=] {
      work(i);
      group->leave();
    });
  }
}

TEST(GlobalQueueTest, BlockedItemsKeepNoOtherFromRunning) {
  const auto semaphore = DispatchSemaphore::make(0);
  std::promise<void> promise;
  const std::shared_future<void> opened = promise.get_future().share();
  const auto group = DispatchGroup::make();
  runItems(group, 1000, [=](int i) { i % 5 == 0 ? opened.wait() : semaphore->wait(); });
  Event later;
  DispatchQueue::global(DispatchQoS::userInitiated).async([&] { later.happen(); });
  EXPECT_TRUE(later.waitFor()) << "an item behind 1,000 blocked ones did not run";
  EXPECT_FALSE(group->wait(seconds(0))) << "the others are still blocked";
  promise.set_value();
  for (int i = 0; i < 800; ++i) semaphore->signal();
  EXPECT_TRUE(group->wait(patience)) << "not all blocked items went on";
}

TEST(GlobalQueueTest, BusyItemsShareFewThreads) {
  const auto group = DispatchGroup::make();
  std::atomic<int> running{0};
  std::atomic<int> mostRunning{0};
  runItems(group, 5000, [&](int) {
    const int now = ++running;
    int before = mostRunning;
    while (before < now && !mostRunning.compare_exchange_weak(before, now)) {
    }
    for (volatile int n = 0; n < 1000;) n = n + 1;
    --running;
  });
  ASSERT_TRUE(group->wait(patience));
  EXPECT_LE(mostRunning, static_cast<int>(std::max(4U, std::thread::hardware_concurrency())) + 60)
      << "5,000 short items do not need a thread each";
}

TEST(GlobalQueueTest, DestroysAnItemRightAfterItRanOnItsThread) {
  struct Probe {
    std::promise<std::thread::id> destroyedOn;
    ~Probe() { destroyedOn.set_value(std::this_thread::get_id()); }
  };
  auto probe = std::make_shared<Probe>();
  auto destroyedOn = probe->destroyedOn.get_future();
  std::promise<std::thread::id> ranOn;
  Event released;
  DispatchQueue::global().async([probe, &ranOn, &released] {
    EXPECT_TRUE(released.waitFor());
    ranOn.set_value(std::this_thread::get_id());
  });
  probe.reset();  // from now on only the item holds it
  released.happen();
  ASSERT_EQ(destroyedOn.wait_for(patience), std::future_status::ready) << "the item is still held";
  EXPECT_EQ(destroyedOn.get(), ranOn.get_future().get()) << "destroyed on another thread";
}

TEST(SerialQueueTest, RunsOneItemAtATimeInOrderFromManyThreadsEvenWithoutAHandle) {
  std::vector<int> last(4, -1);
  int count = 0;  // without a lock: the queue is one
  Event done;
  {
    const DispatchQueue queue = DispatchQueue::make("order");
    std::vector<std::jthread> threads;
    for (std::size_t t = 0; t < last.size(); ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < 500; ++i) queue.async([&, t, i] { count += std::exchange(last[t], i) == i - 1 ? 1 : 0; });
      });
    }
    threads.clear();
    queue.async([&] { done.happen(); });
  }
  ASSERT_TRUE(done.waitFor()) << "the serial queue did not get to its last item";
  EXPECT_EQ(count, 2000) << "items out of order";
}

class DispatchDeathTest : public testing::Test {
 protected:
  DispatchDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  /// A child process that hangs is ended by an alarm, and so by the wrong signal.
  static constexpr unsigned childDeadline = 60;
  static void fail() { throw std::runtime_error("disk on fire"); }
};

TEST_F(DispatchDeathTest, WhatIsWrongEndsTheProcess) {
  const auto group = DispatchGroup::make();
  EXPECT_DEATH(group->leave(), "left only as often as it was entered");
  EXPECT_DEATH(static_cast<void>(DispatchSemaphore::make(-1)), "cannot start below 0");
  EXPECT_DEATH(mainQueue.async(nullptr), "need a work item");
  EXPECT_DEATH((mainQueue.async(fail), mainQueue.drain()), "no exception may escape.*disk on fire");
  EXPECT_EXIT(
      {
        alarm(childDeadline);
        DispatchQueue::global().async(fail);
        DispatchSemaphore::make(0)->wait();
      },
      testing::KilledBySignal(SIGABRT), "no exception may escape.*disk on fire");
}

TEST_F(DispatchDeathTest, TheEndOfTheProcessWaitsForNoItem) {
  EXPECT_EXIT(
      {
        alarm(childDeadline);
        const auto semaphore = DispatchSemaphore::make(0);
        const auto started = DispatchSemaphore::make(0);
        for (int i = 0; i < 50; ++i) {
          DispatchQueue::global().async([=] {
            started->signal();
            semaphore->wait();
          });
        }
        DispatchQueue::global().async([=] {
          while (true) started->signal();
        });
        for (int i = 0; i < 60; ++i) started->wait();
        std::exit(7);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace clipworks::test
