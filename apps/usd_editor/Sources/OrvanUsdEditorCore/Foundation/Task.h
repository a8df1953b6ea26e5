#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>

namespace orvan::editor {

using Closure = std::function<void()>;

// A handle on posted work. Cancelling it requests a stop on the work's stop token: a task that has
// not started yet never runs, and a running one sees `stop_requested()` and ends without a word.
// Copies share the same task; an empty handle refers to nothing.
class TaskHandle {
 public:
  TaskHandle() = default;
  explicit TaskHandle(std::stop_source source) : source_(std::move(source)) {}

  static TaskHandle make() { return TaskHandle(std::stop_source()); }

  void cancel() {
    if (source_)
      source_->request_stop();
  }
  bool isCancelled() const { return source_ && source_->stop_requested(); }
  bool isEmpty() const { return !source_.has_value(); }
  std::stop_token token() const { return source_ ? source_->get_token() : std::stop_token(); }

 private:
  std::optional<std::stop_source> source_;
};

// A task held in one optional field: replacing it cancels the old one, and so does the slot's
// end. This is how timers, debounces and in-flight requests are kept on the model.
class TaskSlot {
 public:
  TaskSlot() = default;
  TaskSlot(const TaskSlot&) = delete;
  TaskSlot& operator=(const TaskSlot&) = delete;
  ~TaskSlot() { cancel(); }

  void replace(TaskHandle handle) {
    cancel();
    current_ = std::move(handle);
  }
  void cancel() {
    current_.cancel();
    current_ = TaskHandle();
  }
  // Forgets the task without cancelling it (it finished and cleared its own slot).
  void clear() { current_ = TaskHandle(); }
  bool isActive() const { return !current_.isEmpty() && !current_.isCancelled(); }
  const TaskHandle& handle() const { return current_; }

 private:
  TaskHandle current_;
};

// The model's lifetime token. Callbacks capture a `WeakLifetime` and drop their result when the
// owner is gone ("hold the model weakly"). Checked on the main thread, where the owner dies.
class WeakLifetime {
 public:
  WeakLifetime() = default;
  explicit WeakLifetime(std::weak_ptr<const void> alive) : alive_(std::move(alive)) {}
  bool isAlive() const { return !alive_.expired(); }

 private:
  std::weak_ptr<const void> alive_;
};

class LifetimeToken {
 public:
  LifetimeToken() : alive_(std::make_shared<int>(0)) {}
  LifetimeToken(const LifetimeToken&) = delete;
  LifetimeToken& operator=(const LifetimeToken&) = delete;
  WeakLifetime weak() const { return WeakLifetime(alive_); }

 private:
  std::shared_ptr<const void> alive_;
};

}  // namespace orvan::editor
