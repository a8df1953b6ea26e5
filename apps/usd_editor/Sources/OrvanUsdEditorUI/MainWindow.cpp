#include "MainWindow.h"

#include <QLabel>
#include <QMenu>
#include <QSplitter>
#include <QStatusBar>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include "PaneLayout.h"

namespace orvan::ui {

QLabel* makeEmptyState(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setObjectName("EmptyState");
  label->setAlignment(Qt::AlignCenter);
  label->setWordWrap(true);
  return label;
}

QWidget* makePane(const QString& title, QWidget* content, QWidget* parent) {
  auto* pane = new QWidget(parent);
  auto* layout = new QVBoxLayout(pane);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  auto* titleLabel = new QLabel(title, pane);
  titleLabel->setObjectName("PaneTitle");
  layout->addWidget(titleLabel);
  content->setParent(pane);
  layout->addWidget(content, 1);
  return pane;
}

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) {
  setWindowTitle("OrvanUsdEditor");
  buildToolbar();
  buildPanes();
  statusLabel_ = new QLabel(this);
  statusBar()->addWidget(statusLabel_, 1);
  resize(1440, 900);
}

void MainWindow::buildToolbar() {
  auto* toolbar = addToolBar("Editor");
  toolbar->setMovable(false);
  toolbar->setFloatable(false);
  projectLabel_ = new QLabel("OrvanUsdEditor", toolbar);
  projectLabel_->setObjectName("ProjectLabel");
  toolbar->addWidget(projectLabel_);
  localBadge_ = new QLabel("LOCAL", toolbar);
  localBadge_->setObjectName("LocalBadge");
  localBadgeAction_ = toolbar->addWidget(localBadge_);
  localBadgeAction_->setVisible(false);
  layerPaneToggle_ = toolbar->addAction("Layers");
  layerPaneToggle_->setObjectName("LayerPaneToggle");
  layerPaneToggle_->setCheckable(true);
  connect(layerPaneToggle_, &QAction::toggled, this,
          [this](bool shown) { layerPane_->setVisible(shown); });
  auto* spacer = new QWidget(toolbar);
  spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  toolbar->addWidget(spacer);
  accountButton_ = new QToolButton(toolbar);
  accountButton_->setObjectName("AccountButton");
  accountButton_->setPopupMode(QToolButton::InstantPopup);
  accountButton_->setMenu(new QMenu(accountButton_));
  accountAction_ = toolbar->addWidget(accountButton_);
}

void MainWindow::buildPanes() {
  central_ = new QWidget(this);
  auto* centralLayout = new QVBoxLayout(central_);
  centralLayout->setContentsMargins(0, 0, 0, 0);
  centralLayout->setSpacing(0);
  columns_ = new QSplitter(Qt::Horizontal, central_);
  columns_->setChildrenCollapsible(false);
  columns_->setHandleWidth(1);

  leftColumn_ = new QSplitter(Qt::Vertical, columns_);
  leftColumn_->setChildrenCollapsible(false);
  leftColumn_->setHandleWidth(1);
  hierarchyPane_ = makePane("Hierarchy", makeEmptyState("No stage loaded", nullptr), leftColumn_);
  hierarchyPane_->setMinimumWidth(PaneSizes::kMinHierarchyWidth);
  layerPane_ = makePane("Layers", makeEmptyState("No layers", nullptr), leftColumn_);
  layerPane_->setMinimumHeight(PaneSizes::kMinLayerPaneHeight);
  layerPane_->setVisible(false);
  leftColumn_->setStretchFactor(0, 1);
  leftColumn_->setStretchFactor(1, 0);
  leftColumn_->setSizes({900 - PaneSizes::kLayerPaneHeight, PaneSizes::kLayerPaneHeight});

  centerColumn_ = new QSplitter(Qt::Vertical, columns_);
  centerColumn_->setChildrenCollapsible(false);
  centerColumn_->setHandleWidth(1);
  viewportPane_ = makeEmptyState("Viewport", centerColumn_);
  viewportPane_->setAutoFillBackground(true);
  viewportPane_->setStyleSheet("background: #17181b;");
  viewportPane_->setMinimumWidth(PaneSizes::kMinViewportWidth);
  projectPane_ = makePane("Project", makeEmptyState("No project assets", nullptr), centerColumn_);
  projectPane_->setMinimumHeight(PaneSizes::kMinProjectHeight);

  inspectorPane_ = makePane("Inspector", makeEmptyState("Nothing selected", nullptr), columns_);
  inspectorPane_->setMinimumWidth(PaneSizes::kMinInspectorWidth);

  columns_->addWidget(leftColumn_);
  columns_->addWidget(centerColumn_);
  columns_->addWidget(inspectorPane_);
  columns_->setStretchFactor(0, 0);
  columns_->setStretchFactor(1, 1);
  columns_->setStretchFactor(2, 0);
  columns_->setSizes({PaneSizes::kHierarchyWidth,
                      1440 - PaneSizes::kHierarchyWidth - PaneSizes::kInspectorWidth,
                      PaneSizes::kInspectorWidth});
  centerColumn_->setStretchFactor(0, 1);
  centerColumn_->setStretchFactor(1, 0);
  centerColumn_->setSizes({900 - PaneSizes::kProjectHeight, PaneSizes::kProjectHeight});
  centralLayout->addWidget(columns_, 1);
  setCentralWidget(central_);
}

void MainWindow::setPaneContent(QWidget* pane, QWidget* content) {
  auto* layout = static_cast<QVBoxLayout*>(pane->layout());
  // Item 0 is the title; item 1 the content.
  if (QLayoutItem* old = layout->takeAt(1)) {
    delete old->widget();
    delete old;
  }
  content->setParent(pane);
  layout->addWidget(content, 1);
}

void MainWindow::setBanner(QWidget* banner) {
  auto* layout = static_cast<QVBoxLayout*>(central_->layout());
  banner->setParent(central_);
  layout->insertWidget(0, banner);
}

void MainWindow::setViewportContent(QWidget* viewport) {
  QWidget* old = centerColumn_->replaceWidget(centerColumn_->indexOf(viewportPane_), viewport);
  viewport->setMinimumWidth(PaneSizes::kMinViewportWidth);
  viewportPane_ = viewport;
  delete old;
}

void MainWindow::setAccountButtonVisible(bool visible) {
  accountAction_->setVisible(visible);
}

void MainWindow::setStatusText(const QString& status) {
  statusLabel_->setText(status);
}

void MainWindow::setProjectLabel(const QString& label, bool localMode) {
  projectLabel_->setText(label);
  localBadgeAction_->setVisible(localMode);
}

}  // namespace orvan::ui
