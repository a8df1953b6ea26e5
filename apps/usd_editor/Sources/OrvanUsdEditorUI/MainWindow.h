#pragma once

#include <QMainWindow>

class QAction;
class QLabel;
class QSplitter;
class QToolButton;
class QWidget;

namespace orvan::ui {

// The editor's one window: the hierarchy (and below it the layers) on the left, the inspector on
// the right, the viewport in the middle above the project pane, a toolbar and a status line.
class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);

  void setStatusText(const QString& status);
  void setProjectLabel(const QString& label, bool localMode);

  QWidget* hierarchyPane() const { return hierarchyPane_; }
  QWidget* inspectorPane() const { return inspectorPane_; }
  QWidget* projectPane() const { return projectPane_; }
  QWidget* viewportPane() const { return viewportPane_; }
  // The layer stack, under the hierarchy; shown while its toolbar toggle is on.
  QWidget* layerPane() const { return layerPane_; }
  QAction* layerPaneToggle() const { return layerPaneToggle_; }
  // The account button at the right end of the toolbar; its menu is the owner's to fill.
  QToolButton* accountButton() const { return accountButton_; }
  void setAccountButtonVisible(bool visible);

  // Replaces what a pane shows under its title.
  static void setPaneContent(QWidget* pane, QWidget* content);
  // Puts `banner` above the panes, across the whole width.
  void setBanner(QWidget* banner);
  // Puts `viewport` in the centre, above the project pane, in place of the placeholder.
  void setViewportContent(QWidget* viewport);

 private:
  void buildToolbar();
  void buildPanes();

  QLabel* projectLabel_ = nullptr;
  QLabel* localBadge_ = nullptr;
  QAction* localBadgeAction_ = nullptr;
  QToolButton* accountButton_ = nullptr;
  QAction* accountAction_ = nullptr;
  QLabel* statusLabel_ = nullptr;
  QWidget* central_ = nullptr;
  QSplitter* columns_ = nullptr;
  QSplitter* centerColumn_ = nullptr;
  QSplitter* leftColumn_ = nullptr;
  QWidget* layerPane_ = nullptr;
  QAction* layerPaneToggle_ = nullptr;
  QWidget* hierarchyPane_ = nullptr;
  QWidget* inspectorPane_ = nullptr;
  QWidget* projectPane_ = nullptr;
  QWidget* viewportPane_ = nullptr;
};

// A pane with a title bar over its content.
QWidget* makePane(const QString& title, QWidget* content, QWidget* parent);
// The placeholder a pane shows while it has nothing to show.
QLabel* makeEmptyState(const QString& text, QWidget* parent);

}  // namespace orvan::ui
