#pragma once

#include <QMainWindow>

namespace orvan::ui {

class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);
};

}  // namespace orvan::ui
