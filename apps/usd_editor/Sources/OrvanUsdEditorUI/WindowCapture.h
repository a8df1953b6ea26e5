#pragma once

#include <QString>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class QWidget;

namespace orvan::ui {

// Writes a PNG of `window` once it has settled: `isSettled` holds (polled on the event loop) and
// the window has painted, or `timeout` passed. Calls `done(exitCode, reason)` on the main thread:
// 0 and an empty reason on success. A window that never settled is still written, as it was, but
// counts as a failure (1) with the time-out as its reason.
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

// `--screenshot FILE`, a tool option of the executable: the file to write, or why the option
// cannot be followed (no file after it).
struct ScreenshotRequest {
  QString path;
  QString problem;
};
inline constexpr std::string_view kScreenshotOption = "--screenshot";
// Nothing when the arguments hold no `--screenshot`; the last one counts.
std::optional<ScreenshotRequest> screenshotRequest(const std::vector<std::string>& arguments);

// Writes the PNG now. Returns an empty string or the reason it could not.
QString writeWindowPng(QWidget& window, const QString& path);

}  // namespace orvan::ui
