#pragma once

#include <QApplication>
#include <QElapsedTimer>
#include <QThread>

namespace orvan::ui::testing {

// One QApplication for the whole test executable, on the offscreen platform unless the caller
// chose another one.
QApplication& testApplication();

// Runs the Qt event loop until `done()` holds or `timeoutMs` passes. Returns whether it held.
template <class Predicate>
bool processEventsUntil(Predicate done, int timeoutMs) {
  QElapsedTimer timer;
  timer.start();
  while (!done()) {
    if (timer.elapsed() > timeoutMs)
      return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    QThread::msleep(1);
  }
  return true;
}

}  // namespace orvan::ui::testing
