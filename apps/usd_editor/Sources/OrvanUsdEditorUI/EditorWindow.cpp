#include "EditorWindow.h"

#include <QLabel>
#include <QMenu>
#include <QToolButton>
#include <QPushButton>
#include <QStatusBar>

#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "Application/StartupPresentation.h"
#include "orvan/wire/Text.h"
#include "ConnectionBanner.h"
#include "Hierarchy/HierarchyPane.h"
#include "Hierarchy/HierarchyTreeModel.h"
#include "Inspector/InspectorPane.h"
#include "Project/ProjectPane.h"
#include "StartupSheet.h"

namespace orvan::ui {

namespace {

constexpr char kLocalTitleSuffix[] = " \u2014 Local";

}  // namespace

EditorWindow::EditorWindow(editor::EditorModel& model, QWidget* parent)
    : MainWindow(parent), model_(model) {
  hierarchy_ = new HierarchyPane(model_);
  setPaneContent(hierarchyPane(), hierarchy_);
  inspector_ = new InspectorPane(model_);
  setPaneContent(inspectorPane(), inspector_);
  project_ = new ProjectPane(model_);
  setPaneContent(projectPane(), project_);

  banner_ = new ConnectionBanner;
  setBanner(banner_);
  connect(banner_, &ConnectionBanner::dismissRequested, this,
          [this] { model_.dismissConnectionIssue(); });
  connect(banner_, &ConnectionBanner::retryRequested, this, [this] {
    performConnectionAction(static_cast<int>(editor::VelkConnectionAction::retry));
  });

  startupSheet_ = new StartupSheet(this);
  connect(startupSheet_, &StartupSheet::primaryActionTriggered, this,
          [this](int action) { performConnectionAction(action); });
  connect(startupSheet_, &StartupSheet::secondaryActionTriggered, this,
          [this](int action) { performConnectionAction(action); });

  subscriptions_.push_back(model_.status.subscribe([this](const std::string& status) {
    setStatusText(QString::fromStdString(status));
    // The label, the sheet and the account follow the project's and the session's progress,
    // which are reported here.
    updateTitle();
    updateStartupPresentation();
    updateAccount();
  }));
  subscriptions_.push_back(model_.stage.subscribe([this](const auto&) { updateTitle(); }));
  subscriptions_.push_back(
      model_.connectionIssue.subscribe([this](const auto&) { updateStartupPresentation(); }));
  subscriptions_.push_back(
      model_.initialProjectResolved.subscribe([this](bool) { updateStartupPresentation(); }));

  setStatusText(QString::fromStdString(model_.status.get()));
  updateTitle();
  updateStartupPresentation();
  updateAccount();
}

void EditorWindow::updateAccount() {
  QToolButton* button = accountButton();
  const bool hosted = !editor::isBlank(model_.configuration.projectServerURL);
  setAccountButtonVisible(hosted);
  if (!hosted) return;
  button->setText(QString::fromStdString(model_.velkAccountLabel()));
  QMenu* menu = button->menu();
  menu->clear();
  if (model_.isVelkSignedIn()) {
    menu->addAction("Log Out", this, [this] { model_.signOutOfVelk(); });
  } else {
    menu->addAction("Sign In", this, [this] { model_.signInToVelk(); });
  }
}

EditorWindow::~EditorWindow() = default;

QString EditorWindow::statusText() const {
  const auto* label = statusBar()->findChild<QLabel*>();
  return label ? label->text() : QString();
}

void EditorWindow::updateTitle() {
  const QString label = QString::fromStdString(model_.projectLabel());
  const bool local = model_.configuration.localMode;
  setWindowTitle(local ? label + QString::fromUtf8(kLocalTitleSuffix) : label);
  setProjectLabel(label, local);
}

void EditorWindow::updateStartupPresentation() {
  const auto& issue = model_.connectionIssue.get();
  if (model_.isStartupBlocking()) {
    startupSheet_->setContent(editor::startupSheetContent(issue, model_.initialProjectError,
                                                          model_.configuration.projectServerURL));
    startupSheet_->coverParent();
    startupSheet_->show();
    banner_->hide();  // the sheet says it already
    return;
  }
  startupSheet_->hide();
  if (issue)
    banner_->setIssue(*issue);
  banner_->setVisible(issue.has_value());
}

void EditorWindow::showEvent(QShowEvent* event) {
  MainWindow::showEvent(event);
  if (startedInitialRefresh_)
    return;
  startedInitialRefresh_ = true;
  model_.startInitialRefresh();
  model_.startToolWatcher();
  // Whether the sheet shows is known only once start-up has begun.
  updateStartupPresentation();
  updateTitle();
}

void EditorWindow::resizeEvent(QResizeEvent* event) {
  MainWindow::resizeEvent(event);
  if (startupSheet_->isVisible())
    startupSheet_->coverParent();
}

void EditorWindow::performConnectionAction(int action) {
  model_.performConnectionAction(static_cast<editor::VelkConnectionAction>(action));
  updateStartupPresentation();
}

void EditorWindow::presentForScreenshot() {
  const auto& roots = model_.currentStage().rootPrims;
  if (model_.session.sceneSelection.get().paths.empty() && !roots.empty()) {
    model_.selectPrims(roots.front().path, {roots.front().path});
  }
  hierarchy_->expandToDepth(1);
}

}  // namespace orvan::ui
