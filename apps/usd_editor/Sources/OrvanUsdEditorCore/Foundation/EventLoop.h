#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "Foundation/Executors.h"
#include "Foundation/TimerQueue.h"

namespace orvan::editor {

// A headless main executor on real time, for tools and integration tests. The thread that
// constructs it is its main thread; `run` and `runUntil` drive it there.
class EventLoop final : public MainExecutor {
 public:
  EventLoop();

  void post(Closure closure) override;
  TaskHandle postAfter(Duration delay, Closure closure) override;
  TimePoint now() const override { return Clock::now(); }
  bool isMainThread() const override { return std::this_thread::get_id() == mainThread_; }

  // Runs closures until `quit` is called.
  void run();
  void quit();
  // Runs closures until `done()` holds or `timeout` passes; returns whether `done()` held.
  bool runUntil(const std::function<bool()>& done, Duration timeout);

 private:
  bool runOnce(TimePoint deadline);

  std::thread::id mainThread_;
  std::mutex mutex_;
  std::condition_variable wake_;
  TimerQueue timers_;
  bool quitRequested_ = false;
};

}  // namespace orvan::editor
