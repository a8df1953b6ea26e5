#include "OrvanUsdEditorUI/MainWindow.h"

namespace orvan::ui {

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) { setWindowTitle("OrvanUsdEditor"); }

}  // namespace orvan::ui
