#include "WindowCapture.h"

#include <QDir>
#include <QFileInfo>
#include <QImageWriter>
#include <QPixmap>
#include <QTimer>
#include <QWidget>

#include <memory>

namespace orvan::ui {

QString writeWindowPng(QWidget& window, const QString& path) {
  const QFileInfo info(path);
  if (!QDir().mkpath(info.absolutePath())) {
    return QStringLiteral("cannot create the folder %1").arg(info.absolutePath());
  }
  const QPixmap pixmap = window.grab();
  if (pixmap.isNull()) return QStringLiteral("the window could not be rendered");
  QImageWriter writer(path, "png");
  if (!writer.write(pixmap.toImage())) {
    return QStringLiteral("cannot write %1: %2").arg(path, writer.errorString());
  }
  return {};
}

void captureWindowWhenSettled(QWidget& window, WindowCaptureOptions options,
                              std::function<void(int exitCode, QString reason)> done) {
  // Poll the settle condition; once it holds, give the window one settle delay to paint.
  auto poll = std::make_shared<QTimer>();
  poll->setInterval(50);
  const auto deadline = std::chrono::steady_clock::now() + options.timeout;
  QObject::connect(poll.get(), &QTimer::timeout, &window,
                   [&window, poll, options, deadline, done]() mutable {
                     const bool timedOut = std::chrono::steady_clock::now() >= deadline;
                     if (!timedOut && !options.isSettled()) return;
                     poll->stop();
                     if (options.beforeCapture) options.beforeCapture();
                     QTimer::singleShot(options.settleDelay, &window, [&window, options, done] {
                       const QString reason = writeWindowPng(window, options.path);
                       done(reason.isEmpty() ? 0 : 1, reason);
                     });
                   });
  poll->start();
}

}  // namespace orvan::ui
