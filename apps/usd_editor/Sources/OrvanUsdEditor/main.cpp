#include <csignal>
#include <cstdio>
#include <optional>
#include <string>

#include <QApplication>

#include "Foundation/Logging.h"
#include "OrvanUsdEditorUI/EditorTheme.h"
#include "OrvanUsdEditorUI/MainWindow.h"
#include "OrvanUsdEditorUI/QtMainExecutor.h"
#include "OrvanUsdEditorUI/WindowCapture.h"

namespace {

// `--screenshot FILE` is a tool option of the executable, not part of the editor's configuration:
// it renders the window, writes a PNG once the window has settled, and exits.
std::optional<QString> screenshotPath(int argc, char** argv) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::string(argv[i]) == "--screenshot") return QString::fromLocal8Bit(argv[i + 1]);
  }
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  // Writing to a helper that died must fail with an error, not end the editor.
  std::signal(SIGPIPE, SIG_IGN);
  orvan::editor::initializeLogging("OrvanUsdEditor");

  QApplication application(argc, argv);
  QApplication::setApplicationName("OrvanUsdEditor");
  orvan::ui::applyEditorTheme(application);
  orvan::ui::QtMainExecutor mainExecutor;

  orvan::ui::MainWindow window;
  window.setStatusText("Ready");
  window.show();

  if (const auto path = screenshotPath(argc, argv)) {
    orvan::ui::WindowCaptureOptions options;
    options.path = *path;
    orvan::ui::captureWindowWhenSettled(window, options, [](int exitCode, const QString& reason) {
      if (exitCode != 0) {
        std::fprintf(stderr, "OrvanUsdEditor: screenshot failed: %s\n", qPrintable(reason));
      }
      QApplication::exit(exitCode);
    });
  }
  return application.exec();
}
