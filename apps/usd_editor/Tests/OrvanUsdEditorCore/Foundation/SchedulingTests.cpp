#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "Foundation/EventLoop.h"
#include "Foundation/Executors.h"
#include "Foundation/ThreadPool.h"
#include "Support/ManualScheduler.h"

namespace orvan::editor {
namespace {

using namespace std::chrono_literals;
using testing::ManualScheduler;

// Every delay in the flow tests rests on this order: due time first, then posting order, with
// timers posted by a timer firing within the same advance.
TEST(ManualSchedulerTest, RunsTimersByDueTimeThenPostingOrderAndChainsWithinOneAdvance) {
  ManualScheduler scheduler;
  std::vector<std::string> order;
  scheduler.postAfter(30ms, [&] { order.push_back("c30"); });
  scheduler.postAfter(10ms, [&] {
    order.push_back("a10");
    scheduler.postAfter(15ms, [&] { order.push_back("d25"); });
  });
  scheduler.postAfter(10ms, [&] { order.push_back("b10"); });
  scheduler.post([&] { order.push_back("now"); });
  scheduler.advanceBy(9ms);
  EXPECT_EQ(order, (std::vector<std::string>{"now"}));
  scheduler.advanceBy(21ms);
  EXPECT_EQ(order, (std::vector<std::string>{"now", "a10", "b10", "d25", "c30"}));
}

TEST(TaskTest, ASlotDebouncesByReplacingItsTaskAndCancelsItWhenItGoesAway) {
  ManualScheduler scheduler;
  std::vector<int> commits;
  auto debounce = std::make_unique<TaskSlot>();
  // Three triggers 20 ms apart with a 40 ms debounce: only the last one commits, 40 ms after it.
  for (int i = 1; i <= 3; ++i) {
    debounce->replace(scheduler.postAfter(40ms, [&commits, i] { commits.push_back(i); }));
    scheduler.advanceBy(20ms);
  }
  EXPECT_TRUE(commits.empty());
  scheduler.advanceBy(20ms);
  EXPECT_EQ(commits, (std::vector<int>{3}));
  debounce->replace(scheduler.postAfter(1s, [&commits] { commits.push_back(4); }));
  EXPECT_TRUE(debounce->isActive());
  debounce.reset();
  scheduler.advanceBy(2s);
  EXPECT_EQ(commits, (std::vector<int>{3}));
}

TEST(TaskTest, ACancelledTaskNeverReplies) {
  ManualScheduler scheduler;
  std::vector<std::string> events;
  auto post = [&](std::string name, TaskHandle* cancelWhileRunning = nullptr) {
    return postTaskAndReply(
        scheduler.background(), scheduler,
        [&events, name, cancelWhileRunning](std::stop_token token) {
          if (cancelWhileRunning) {
            cancelWhileRunning->cancel();
          }
          events.push_back(name + (token.stop_requested() ? " saw the stop" : " ran"));
          return name;
        },
        [&events](std::string name) { events.push_back(name + " replied"); });
  };
  post("before").cancel();
  // Cancelled while running, as a user would by starting another refresh.
  TaskHandle during;
  during = post("during", &during);
  scheduler.runBackground();
  // The work is done and its reply queued on the main thread when the cancellation comes.
  TaskHandle after = post("after");
  EXPECT_EQ(scheduler.runBackground(ManualScheduler::ThenRunMain::kNo), 1);
  after.cancel();
  post("fresh");
  scheduler.runBackground();
  EXPECT_EQ(events, (std::vector<std::string>{"during saw the stop", "after ran", "fresh ran",
                                              "fresh replied"}));
}

TEST(TaskTest, AWeakLifetimeEndsWithItsToken) {
  auto owner = std::make_unique<LifetimeToken>();
  const WeakLifetime weak = owner->weak();
  EXPECT_TRUE(weak.isAlive());
  owner.reset();
  EXPECT_FALSE(weak.isAlive());
  EXPECT_FALSE(WeakLifetime().isAlive());
}

TEST(EventLoopTest, RunsPostsFromOtherThreadsAndTimersInOrder) {
  EventLoop loop;
  ThreadPool pool(2);
  std::vector<std::string> order;
  std::atomic<int> backgroundRuns = 0;
  loop.postAfter(20ms, [&] { order.push_back("timer"); });
  for (int i = 0; i < 50; ++i) {
    pool.post([&] {
      ++backgroundRuns;
      loop.post([&] {
        EXPECT_TRUE(loop.isMainThread());
        order.push_back("reply");
      });
    });
  }
  ASSERT_TRUE(loop.runUntil([&] { return order.size() == 51; }, 5s));
  EXPECT_EQ(backgroundRuns, 50);
  EXPECT_EQ(std::count(order.begin(), order.end(), "timer"), 1);
}

TEST(EventLoopTest, CancelledTimersDoNotRunQuitEndsRunAndRunUntilGivesUpAtItsTimeout) {
  EventLoop loop;
  bool cancelledRan = false;
  TaskHandle handle = loop.postAfter(5ms, [&] { cancelledRan = true; });
  handle.cancel();
  loop.postAfter(20ms, [&] { loop.quit(); });
  loop.run();
  EXPECT_FALSE(cancelledRan);
  EXPECT_FALSE(loop.runUntil([] { return false; }, 30ms));
}

TEST(ThreadPoolTest, FinishesQueuedWorkBeforeJoining) {
  std::atomic<int> ran = 0;
  {
    ThreadPool pool(2);
    for (int i = 0; i < 200; ++i) {
      pool.post([&] { ++ran; });
    }
  }
  EXPECT_EQ(ran, 200);
}

}  // namespace
}  // namespace orvan::editor
