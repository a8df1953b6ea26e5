#pragma once

#include <QString>

#include <chrono>
#include <functional>

class QWidget;

namespace orvan::ui {

// Writes a PNG of `window` once it has settled: `isSettled` holds (polled on the event loop) and
// the window has painted, or `timeout` passed. Calls `done(exitCode, reason)` on the main thread:
// 0 and an empty reason on success.
struct WindowCaptureOptions {
  QString path;
  std::function<bool()> isSettled = [] { return true; };
  // Runs once when the window has settled (or timed out), before the settle delay lets it paint.
  std::function<void()> beforeCapture = [] {};
  std::chrono::milliseconds settleDelay{400};
  std::chrono::milliseconds timeout{30000};
};

void captureWindowWhenSettled(QWidget& window, WindowCaptureOptions options,
                              std::function<void(int exitCode, QString reason)> done);

// Writes the PNG now. Returns an empty string or the reason it could not.
QString writeWindowPng(QWidget& window, const QString& path);

}  // namespace orvan::ui
