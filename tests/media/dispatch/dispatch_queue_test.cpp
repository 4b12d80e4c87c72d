#include <clipworks/media/dispatch/DispatchQueue.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

#include <clipworks/media/dispatch/DispatchGroup.h>
#include <clipworks/media/dispatch/DispatchSemaphore.h>
#include <gtest/gtest.h>

namespace clipworks {
namespace {

using std::chrono::seconds;

/// Tells the test that something has happened; waits have a deadline.
class Event {
 public:
  void happen() { semaphore_->signal(); }
  [[nodiscard]] bool waitFor() { return semaphore_->wait(seconds(60)); }

 private:
  std::shared_ptr<DispatchSemaphore> semaphore_ = DispatchSemaphore::make(0);
};

TEST(GlobalQueueTest, BlockedItemsKeepNoOtherFromRunning) {
  const auto semaphore = DispatchSemaphore::make(0);
  std::promise<void> promise;
  const std::shared_future<void> opened = promise.get_future().share();
  const auto group = DispatchGroup::make();
  for (int i = 0; i < 1000; ++i) {
    group->enter();
    DispatchQueue::global().async([=] {
      i % 5 == 0 ? opened.wait() : semaphore->wait();
      group->leave();
    });
  }
  Event later;
  DispatchQueue::global(DispatchQoS::userInitiated).async([&] { later.happen(); });
  EXPECT_TRUE(later.waitFor()) << "an item behind 1,000 blocked ones did not run";
  EXPECT_FALSE(group->wait(seconds(0))) << "the others are still blocked";
  promise.set_value();
  for (int i = 0; i < 800; ++i) semaphore->signal();
  EXPECT_TRUE(group->wait(seconds(60))) << "not all blocked items went on";
}

TEST(GlobalQueueTest, BusyItemsShareFewThreads) {
  const auto group = DispatchGroup::make();
  std::atomic<int> running{0};
  std::atomic<int> mostRunning{0};
  for (int i = 0; i < 5000; ++i) {
    group->enter();
    DispatchQueue::global().async([&, group] {
      const int now = ++running;
      int before = mostRunning;
      while (before < now && !mostRunning.compare_exchange_weak(before, now)) {
      }
      for (volatile int n = 0; n < 1000;) n = n + 1;
      --running;
      group->leave();
    });
  }
  ASSERT_TRUE(group->wait(seconds(60)));
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
  auto ran = ranOn.get_future();
  Event released;
  DispatchQueue::global().async([probe, &ranOn, &released] {
    EXPECT_TRUE(released.waitFor());
    ranOn.set_value(std::this_thread::get_id());
  });
  probe.reset();  // from now on only the item holds it
  released.happen();
  ASSERT_EQ(destroyedOn.wait_for(seconds(60)), std::future_status::ready) << "the item is still held";
  EXPECT_EQ(destroyedOn.get(), ran.get()) << "destroyed on another thread";
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

/// A child process that hangs is ended by an alarm, and so by the wrong signal.
constexpr unsigned childDeadline = 60;

TEST(GlobalQueueDeathTest, TheEndOfTheProcessWaitsForNoItem) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
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

TEST(GlobalQueueDeathTest, AnExceptionThatEscapesAnItemEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        alarm(childDeadline);
        DispatchQueue::global().async([] { throw std::runtime_error("lost"); });
        DispatchSemaphore::make(0)->wait();
      },
      testing::KilledBySignal(SIGABRT), "no exception may escape.*lost");
}

}  // namespace
}  // namespace clipworks
