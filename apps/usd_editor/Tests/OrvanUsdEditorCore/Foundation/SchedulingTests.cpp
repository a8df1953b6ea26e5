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

TEST(ManualSchedulerTest, RunsTimersByDueTimeThenPostingOrder) {
  ManualScheduler scheduler;
  std::vector<std::string> order;
  scheduler.postAfter(30ms, [&] { order.push_back("c30"); });
  scheduler.postAfter(10ms, [&] { order.push_back("a10"); });
  scheduler.postAfter(10ms, [&] { order.push_back("b10"); });
  scheduler.post([&] { order.push_back("now"); });

  EXPECT_EQ(scheduler.runUntilIdle(), 1);
  EXPECT_EQ(order, (std::vector<std::string>{"now"}));

  scheduler.advanceBy(9ms);
  EXPECT_EQ(order.size(), 1u) << "nothing is due before 10 ms";
  scheduler.advanceBy(1ms);
  EXPECT_EQ(order, (std::vector<std::string>{"now", "a10", "b10"}));
  scheduler.advanceBy(100ms);
  EXPECT_EQ(order.back(), "c30");
}

TEST(ManualSchedulerTest, TimersSeeTheirOwnDueTimeAndChainedTimersFireWithinTheSameAdvance) {
  ManualScheduler scheduler;
  const TimePoint start = scheduler.now();
  std::vector<Duration> firedAt;
  scheduler.postAfter(40ms, [&] {
    firedAt.push_back(scheduler.now() - start);
    scheduler.postAfter(40ms, [&] { firedAt.push_back(scheduler.now() - start); });
  });
  scheduler.advanceBy(100ms);
  EXPECT_EQ(firedAt, (std::vector<Duration>{40ms, 80ms}));
  EXPECT_EQ(scheduler.now() - start, 100ms);
}

TEST(ManualSchedulerTest, BackgroundWorkWaitsUntilRunOnDemandOrRunsInline) {
  ManualScheduler scheduler;
  int ran = 0;
  scheduler.background().post([&] { ++ran; });
  EXPECT_EQ(ran, 0);
  EXPECT_EQ(scheduler.pendingBackgroundCount(), 1u);
  EXPECT_EQ(scheduler.runBackground(), 1);
  EXPECT_EQ(ran, 1);

  scheduler.setRunBackgroundInline(true);
  scheduler.background().post([&] { ++ran; });
  EXPECT_EQ(ran, 2);
}

TEST(TaskTest, CancelledDelayedTaskNeverRuns) {
  ManualScheduler scheduler;
  bool ran = false;
  TaskHandle handle = scheduler.postAfter(3s, [&] { ran = true; });
  handle.cancel();
  scheduler.advanceBy(10s);
  EXPECT_FALSE(ran);
  EXPECT_FALSE(scheduler.hasPendingMainWork());
}

TEST(TaskTest, ReplacingTheSlotCancelsTheOldTaskAndDebounces) {
  ManualScheduler scheduler;
  TaskSlot debounce;
  std::vector<int> commits;
  // Three triggers 20 ms apart with a 40 ms debounce: only the last one commits, 40 ms after it.
  for (int i = 1; i <= 3; ++i) {
    debounce.replace(scheduler.postAfter(40ms, [&commits, i] { commits.push_back(i); }));
    scheduler.advanceBy(20ms);
  }
  EXPECT_TRUE(commits.empty());
  scheduler.advanceBy(20ms);
  EXPECT_EQ(commits, (std::vector<int>{3}));
}

TEST(TaskTest, SlotCancelsItsTaskWhenItGoesAway) {
  ManualScheduler scheduler;
  bool ran = false;
  {
    TaskSlot slot;
    slot.replace(scheduler.postAfter(1s, [&] { ran = true; }));
    EXPECT_TRUE(slot.isActive());
  }
  scheduler.advanceBy(2s);
  EXPECT_FALSE(ran);
}

TEST(TaskTest, ReplyOfCancelledBackgroundWorkNeverRuns) {
  ManualScheduler scheduler;
  std::vector<std::string> replies;
  TaskSlot slot;
  slot.replace(postTaskAndReply(
      scheduler.background(), scheduler, [](std::stop_token) { return std::string("stale"); },
      [&](std::string value) { replies.push_back(value); }));
  // The stale work finishes in the background and its reply is queued on the main thread; a new
  // request replaces it before the main thread gets there.
  EXPECT_EQ(scheduler.runBackground(ManualScheduler::ThenRunMain::kNo), 1);
  EXPECT_TRUE(scheduler.hasPendingMainWork());
  slot.replace(postTaskAndReply(
      scheduler.background(), scheduler, [](std::stop_token) { return std::string("fresh"); },
      [&](std::string value) { replies.push_back(value); }));
  scheduler.runBackground();
  EXPECT_EQ(replies, (std::vector<std::string>{"fresh"}));
}

TEST(TaskTest, ReplyAfterOwnerDiedIsDroppedByWeakLifetime) {
  ManualScheduler scheduler;
  int applied = 0;
  auto owner = std::make_unique<LifetimeToken>();
  WeakLifetime weak = owner->weak();
  ASSERT_TRUE(weak.isAlive());
  postTaskAndReply(
      scheduler.background(), scheduler, [](std::stop_token) { return 1; },
      [&applied, weak](int value) {
        if (weak.isAlive()) applied += value;
      });
  owner.reset();
  scheduler.runBackground();
  EXPECT_EQ(applied, 0);
}

TEST(TaskTest, BackgroundWorkSeesCancellationThroughItsStopToken) {
  ManualScheduler scheduler;
  bool sawStop = false;
  TaskHandle handle;
  handle = postTaskAndReply(
      scheduler.background(), scheduler,
      [&](std::stop_token token) {
        handle.cancel();  // cancelled while running, as a user would by starting another refresh
        sawStop = token.stop_requested();
        return 0;
      },
      [](int) { FAIL() << "a cancelled task's reply ran"; });
  scheduler.runBackground();
  EXPECT_TRUE(sawStop);
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

TEST(EventLoopTest, CancelledTimerDoesNotRunAndQuitEndsRun) {
  EventLoop loop;
  bool cancelledRan = false;
  TaskHandle handle = loop.postAfter(5ms, [&] { cancelledRan = true; });
  handle.cancel();
  loop.postAfter(20ms, [&] { loop.quit(); });
  loop.run();
  EXPECT_FALSE(cancelledRan);
}

TEST(EventLoopTest, RunUntilGivesUpAtItsTimeout) {
  EventLoop loop;
  EXPECT_FALSE(loop.runUntil([] { return false; }, 30ms));
}

TEST(ThreadPoolTest, FinishesQueuedWorkBeforeJoining) {
  std::atomic<int> ran = 0;
  {
    ThreadPool pool(2);
    for (int i = 0; i < 200; ++i) pool.post([&] { ++ran; });
  }
  EXPECT_EQ(ran, 200);
}

}  // namespace
}  // namespace orvan::editor
