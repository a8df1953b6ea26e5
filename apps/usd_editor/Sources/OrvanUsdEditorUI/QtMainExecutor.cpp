#include "QtMainExecutor.h"

#include <QMetaObject>
#include <QThread>
#include <QTimer>

#include <chrono>

namespace orvan::ui {

QtMainExecutor::QtMainExecutor() : context_(new QObject()) {}

QtMainExecutor::~QtMainExecutor() {
  delete context_;
}

bool QtMainExecutor::isMainThread() const {
  return QThread::currentThread() == context_->thread();
}

void QtMainExecutor::post(editor::Closure closure) {
  QMetaObject::invokeMethod(context_, std::move(closure), Qt::QueuedConnection);
}

editor::TaskHandle QtMainExecutor::postAfter(editor::Duration delay, editor::Closure closure) {
  editor::TaskHandle handle = editor::TaskHandle::make();
  std::stop_token token = handle.token();
  if (isMainThread()) {
    startTimer(delay, std::move(token), std::move(closure));
  } else {
    // Qt timers belong to the thread that starts them; hop to the main thread first.
    post([this, delay, token, closure = std::move(closure)]() mutable {
      startTimer(delay, token, std::move(closure));
    });
  }
  return handle;
}

void QtMainExecutor::startTimer(editor::Duration delay, std::stop_token token,
                                editor::Closure closure) {
  using std::chrono::ceil;
  using std::chrono::milliseconds;
  const auto ms = std::max<milliseconds::rep>(0, ceil<milliseconds>(delay).count());
  QTimer::singleShot(static_cast<int>(std::min<milliseconds::rep>(ms, INT32_MAX)), Qt::PreciseTimer,
                     context_, [token = std::move(token), closure = std::move(closure)] {
                       if (!token.stop_requested())
                         closure();
                     });
}

}  // namespace orvan::ui
