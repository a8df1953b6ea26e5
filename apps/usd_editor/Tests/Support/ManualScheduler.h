#pragma once

#include <deque>
#include <mutex>
#include <thread>

#include "Foundation/Executors.h"
#include "Foundation/TimerQueue.h"

namespace orvan::editor::testing {

// Main and background executor for tests, on virtual time. Nothing runs until the test says so:
// `runUntilIdle` runs everything due now, `advanceBy` moves the clock and fires exactly the
// timers that come due, in order of due time and then of posting. Background work (posted to
// `background()`) waits for `runBackground`, or runs at once after `setRunBackgroundInline(true)`.
class ManualScheduler final : public MainExecutor {
 public:
  ManualScheduler();

  void post(Closure closure) override;
  TaskHandle postAfter(Duration delay, Closure closure) override;
  TimePoint now() const override;
  bool isMainThread() const override { return std::this_thread::get_id() == mainThread_; }

  BackgroundExecutor& background() { return background_; }

  // Runs main-thread closures due at the current virtual time, including those they post.
  // Returns how many ran.
  int runUntilIdle();
  // Moves virtual time forward by `delay`, running each timer at its own due time, then what is
  // due at the new time. Returns how many ran.
  int advanceBy(Duration delay);
  // Runs queued background work (and what it queues), then, unless told otherwise, the
  // main-thread closures it posted. Returns how many background closures ran.
  enum class ThenRunMain { kYes, kNo };
  int runBackground(ThenRunMain thenRunMain = ThenRunMain::kYes);
  void setRunBackgroundInline(bool inlineBackground);
  // Runs background and main-thread work, back and forth, until neither has anything due at the
  // current virtual time: a whole chain of work and replies. Returns how many closures ran.
  int runUntilQuiet();

  std::size_t pendingBackgroundCount() const;
  bool hasPendingMainWork() const;

 private:
  class Background final : public BackgroundExecutor {
   public:
    explicit Background(ManualScheduler& owner) : owner_(owner) {}
    void post(Closure closure) override;

   private:
    ManualScheduler& owner_;
  };

  bool runOneDue(TimePoint at);

  std::thread::id mainThread_;
  mutable std::mutex mutex_;
  TimerQueue timers_;
  TimePoint now_;
  std::deque<Closure> backgroundQueue_;
  bool inlineBackground_ = false;
  Background background_{*this};
};

}  // namespace orvan::editor::testing
