#include "Foundation/EventLoop.h"

#include <algorithm>

namespace orvan::editor {

EventLoop::EventLoop() : mainThread_(std::this_thread::get_id()) {}

void EventLoop::post(Closure closure) {
  postAfter(Duration::zero(), std::move(closure));
}

TaskHandle EventLoop::postAfter(Duration delay, Closure closure) {
  TaskHandle handle = TaskHandle::make();
  {
    std::lock_guard lock(mutex_);
    timers_.push(now() + std::max(delay, Duration::zero()), handle.token(), std::move(closure));
  }
  wake_.notify_all();
  return handle;
}

void EventLoop::quit() {
  {
    std::lock_guard lock(mutex_);
    quitRequested_ = true;
  }
  wake_.notify_all();
}

void EventLoop::run() {
  while (runOnce(TimePoint::max())) {
  }
}

bool EventLoop::runUntil(const std::function<bool()>& done, Duration timeout) {
  const TimePoint deadline = now() + timeout;
  while (!done()) {
    if (now() >= deadline)
      return false;
    if (!runOnce(deadline))
      return done();
  }
  return true;
}

// Runs one due closure, or waits until one is due, `deadline` passes or `quit` is called.
// Returns false once quit was requested.
bool EventLoop::runOnce(TimePoint deadline) {
  Closure next;
  {
    std::unique_lock lock(mutex_);
    for (;;) {
      if (quitRequested_) {
        quitRequested_ = false;
        return false;
      }
      if (auto due = timers_.popDue(now())) {
        next = std::move(*due);
        break;
      }
      const TimePoint wakeAt = std::min(timers_.nextDue().value_or(TimePoint::max()), deadline);
      if (wakeAt <= now() && wakeAt == deadline)
        return true;
      if (wakeAt == TimePoint::max()) {
        wake_.wait(lock);
      } else {
        wake_.wait_until(lock, wakeAt);
      }
      if (now() >= deadline)
        return true;
    }
  }
  next();
  return true;
}

}  // namespace orvan::editor
