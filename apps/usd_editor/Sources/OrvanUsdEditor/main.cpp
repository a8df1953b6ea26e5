#include <csignal>

#include <QApplication>

#include "OrvanUsdEditorUI/MainWindow.h"

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  QApplication app(argc, argv);
  orvan::ui::MainWindow window;
  window.show();
  return app.exec();
}
