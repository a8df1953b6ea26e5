#include "WindowCapture.h"

#include <QDir>
#include <QFileInfo>
#include <QImageWriter>
#include <QPixmap>
#include <QTimer>
#include <QWidget>

#include <memory>

namespace orvan::ui {

std::optional<ScreenshotRequest> screenshotRequest(const std::vector<std::string>& arguments) {
  std::optional<ScreenshotRequest> request;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i] != kScreenshotOption)
      continue;
    // The next argument is the file, unless there is none or it is another option.
    const bool hasFile =
        i + 1 < arguments.size() && !arguments[i + 1].empty() && !arguments[i + 1].starts_with("-");
    request = hasFile ? ScreenshotRequest{QString::fromStdString(arguments[i + 1]), {}}
                      : ScreenshotRequest{{}, QStringLiteral("--screenshot needs a file name")};
  }
  return request;
}

QString writeWindowPng(QWidget& window, const QString& path) {
  const QFileInfo info(path);
  if (!QDir().mkpath(info.absolutePath())) {
    return QStringLiteral("cannot create the folder %1").arg(info.absolutePath());
  }
  const QPixmap pixmap = window.grab();
  if (pixmap.isNull())
    return QStringLiteral("the window could not be rendered");
  QImageWriter writer(path, "png");
  if (!writer.write(pixmap.toImage())) {
    return QStringLiteral("cannot write %1: %2").arg(path, writer.errorString());
  }
  return {};
}

namespace {

QString notSettledReason(const WindowCaptureOptions& options) {
  return QStringLiteral("the window did not settle within %1 ms; %2 shows it as it was")
      .arg(options.timeout.count())
      .arg(options.path);
}

}  // namespace

void captureWindowWhenSettled(QWidget& window, WindowCaptureOptions options,
                              std::function<void(int exitCode, QString reason)> done) {
  // Poll the settle condition; once it holds, give the window one settle delay to paint.
  auto poll = std::make_shared<QTimer>();
  poll->setInterval(50);
  const auto deadline = std::chrono::steady_clock::now() + options.timeout;
  QObject::connect(
      poll.get(), &QTimer::timeout, &window, [&window, poll, options, deadline, done]() mutable {
        const bool timedOut = std::chrono::steady_clock::now() >= deadline;
        if (!timedOut && !options.isSettled())
          return;
        poll->stop();
        if (options.beforeCapture)
          options.beforeCapture();
        QTimer::singleShot(options.settleDelay, &window, [&window, options, done, timedOut] {
          const QString reason = writeWindowPng(window, options.path);
          if (!reason.isEmpty())
            return done(1, reason);
          if (timedOut)
            return done(1, notSettledReason(options));
          done(0, {});
        });
      });
  poll->start();
}

}  // namespace orvan::ui
