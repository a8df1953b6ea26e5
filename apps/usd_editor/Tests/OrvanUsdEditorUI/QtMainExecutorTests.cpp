#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "QtApplicationEnvironment.h"
#include "QtMainExecutor.h"

namespace orvan::ui {
namespace {

using namespace std::chrono_literals;
using testing::processEventsUntil;
using testing::testApplication;

TEST(QtMainExecutorTest, RunsPostsFromWorkerThreadsOnTheMainThread) {
  testApplication();
  QtMainExecutor executor;
  std::atomic<int> ranOnMain = 0;
  std::atomic<int> ranElsewhere = 0;
  std::vector<std::thread> workers;
  for (int i = 0; i < 4; ++i) {
    workers.emplace_back([&] {
      EXPECT_FALSE(executor.isMainThread());
      for (int j = 0; j < 25; ++j) {
        executor.post([&] { (executor.isMainThread() ? ranOnMain : ranElsewhere) += 1; });
      }
    });
  }
  for (auto& worker : workers)
    worker.join();
  EXPECT_TRUE(processEventsUntil([&] { return ranOnMain == 100; }, 5000));
  EXPECT_EQ(ranElsewhere, 0);
}

TEST(QtMainExecutorTest, DelayedClosuresRunInDueOrderAndCancelledOnesNever) {
  testApplication();
  QtMainExecutor executor;
  std::vector<std::string> order;
  executor.postAfter(60ms, [&] { order.push_back("late"); });
  editor::TaskHandle cancelled = executor.postAfter(10ms, [&] { order.push_back("cancelled"); });
  executor.postAfter(20ms, [&] { order.push_back("early"); });
  std::thread([&] { executor.postAfter(30ms, [&] { order.push_back("from-worker"); }); }).join();
  cancelled.cancel();
  EXPECT_TRUE(processEventsUntil([&] { return order.size() == 3; }, 5000));
  processEventsUntil([] { return false; }, 80);
  EXPECT_EQ(order, (std::vector<std::string>{"early", "from-worker", "late"}));
}

TEST(QtMainExecutorTest, PendingClosuresDieWithTheExecutor) {
  testApplication();
  bool ran = false;
  {
    QtMainExecutor executor;
    executor.post([&] { ran = true; });
    executor.postAfter(5ms, [&] { ran = true; });
  }
  processEventsUntil([] { return false; }, 50);
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace orvan::ui
