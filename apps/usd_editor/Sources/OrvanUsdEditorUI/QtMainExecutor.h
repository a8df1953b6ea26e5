#pragma once

#include <QObject>

#include "Foundation/Executors.h"

namespace orvan::ui {

// The editor's main executor: closures run on the Qt event loop of the thread that created it.
// Posting is safe from any thread; a delayed closure whose handle was cancelled never runs.
class QtMainExecutor final : public editor::MainExecutor {
 public:
  QtMainExecutor();
  ~QtMainExecutor() override;

  void post(editor::Closure closure) override;
  editor::TaskHandle postAfter(editor::Duration delay, editor::Closure closure) override;
  editor::TimePoint now() const override { return editor::Clock::now(); }
  bool isMainThread() const override;

 private:
  void startTimer(editor::Duration delay, std::stop_token token, editor::Closure closure);

  // Owns the timers and queued calls: they die with the executor instead of firing into it.
  QObject* context_;
};

}  // namespace orvan::ui
