#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>
#include <type_traits>
#include <utility>

#include "Foundation/Task.h"

namespace orvan::editor {

using Clock = std::chrono::steady_clock;
using Duration = Clock::duration;
using TimePoint = Clock::time_point;

// The one thread that owns all state. `post` and `postAfter` may be called from any thread; the
// closures run on the main thread. A delayed closure whose handle was cancelled never runs.
class MainExecutor {
 public:
  virtual ~MainExecutor() = default;
  virtual void post(Closure closure) = 0;
  virtual TaskHandle postAfter(Duration delay, Closure closure) = 0;
  virtual TimePoint now() const = 0;
  virtual bool isMainThread() const = 0;
};

// Where work that must not block the main thread runs.
class BackgroundExecutor {
 public:
  virtual ~BackgroundExecutor() = default;
  virtual void post(Closure closure) = 0;
};

// Runs `work(stopToken)` on the background executor and `reply(result)` on the main executor,
// unless the returned handle was cancelled before the reply ran. The work receives copies; the
// reply decides on the main thread whether the result still counts (generation checks).
template <class Work, class Reply>
TaskHandle postTaskAndReply(BackgroundExecutor& background, MainExecutor& main, Work work,
                            Reply reply) {
  TaskHandle handle = TaskHandle::make();
  std::stop_token token = handle.token();
  background.post([&main, token, work = std::move(work), reply = std::move(reply)]() mutable {
    if (token.stop_requested())
      return;
    using R = std::invoke_result_t<Work&, std::stop_token>;
    if constexpr (std::is_void_v<R>) {
      work(token);
      main.post([token, reply = std::move(reply)]() mutable {
        if (!token.stop_requested())
          reply();
      });
    } else {
      auto result = std::make_shared<R>(work(token));
      main.post([token, result, reply = std::move(reply)]() mutable {
        if (!token.stop_requested())
          reply(std::move(*result));
      });
    }
  });
  return handle;
}

// Debug-only assertion that the caller runs on the main thread.
void assertMainThread(const MainExecutor& executor, const char* where);

#ifdef NDEBUG
#define ORVAN_ASSERT_MAIN_THREAD(executor) ((void)0)
#else
#define ORVAN_ASSERT_MAIN_THREAD(executor) ::orvan::editor::assertMainThread((executor), __func__)
#endif

}  // namespace orvan::editor
