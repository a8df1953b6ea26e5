#include "Support/ManualScheduler.h"

#include <algorithm>

namespace orvan::editor::testing {

// Virtual time starts at an arbitrary, recognisable point rather than the clock's epoch, so that
// code subtracting durations from "now" never underflows.
ManualScheduler::ManualScheduler()
    : mainThread_(std::this_thread::get_id()), now_(TimePoint(std::chrono::hours(1000))) {}

void ManualScheduler::post(Closure closure) {
  postAfter(Duration::zero(), std::move(closure));
}

TaskHandle ManualScheduler::postAfter(Duration delay, Closure closure) {
  TaskHandle handle = TaskHandle::make();
  std::lock_guard lock(mutex_);
  timers_.push(now_ + std::max(delay, Duration::zero()), handle.token(), std::move(closure));
  return handle;
}

TimePoint ManualScheduler::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

bool ManualScheduler::runOneDue(TimePoint at) {
  Closure next;
  {
    std::lock_guard lock(mutex_);
    auto due = timers_.popDue(at);
    if (!due)
      return false;
    next = std::move(*due);
  }
  next();
  return true;
}

int ManualScheduler::runUntilIdle() {
  int ran = 0;
  while (runOneDue(now()))
    ++ran;
  return ran;
}

int ManualScheduler::advanceBy(Duration delay) {
  const TimePoint target = now() + delay;
  int ran = 0;
  for (;;) {
    std::optional<TimePoint> due;
    {
      std::lock_guard lock(mutex_);
      due = timers_.nextDue();
      if (!due || *due > target)
        break;
      now_ = std::max(now_, *due);
    }
    ran += runUntilIdle();
  }
  {
    std::lock_guard lock(mutex_);
    now_ = target;
  }
  return ran + runUntilIdle();
}

int ManualScheduler::runBackground(ThenRunMain thenRunMain) {
  int ran = 0;
  for (;;) {
    Closure next;
    {
      std::lock_guard lock(mutex_);
      if (backgroundQueue_.empty())
        break;
      next = std::move(backgroundQueue_.front());
      backgroundQueue_.pop_front();
    }
    next();
    ++ran;
  }
  if (thenRunMain == ThenRunMain::kYes)
    runUntilIdle();
  return ran;
}

int ManualScheduler::runUntilQuiet() {
  int ran = 0;
  for (;;) {
    const int step = runBackground(ThenRunMain::kNo) + runUntilIdle();
    if (step == 0)
      return ran;
    ran += step;
  }
}

void ManualScheduler::setRunBackgroundInline(bool inlineBackground) {
  inlineBackground_ = inlineBackground;
  if (inlineBackground_)
    runBackground();
}

std::size_t ManualScheduler::pendingBackgroundCount() const {
  std::lock_guard lock(mutex_);
  return backgroundQueue_.size();
}

bool ManualScheduler::hasPendingMainWork() const {
  std::lock_guard lock(mutex_);
  return !const_cast<TimerQueue&>(timers_).empty();
}

void ManualScheduler::Background::post(Closure closure) {
  if (owner_.inlineBackground_) {
    closure();
    return;
  }
  std::lock_guard lock(owner_.mutex_);
  owner_.backgroundQueue_.push_back(std::move(closure));
}

}  // namespace orvan::editor::testing
