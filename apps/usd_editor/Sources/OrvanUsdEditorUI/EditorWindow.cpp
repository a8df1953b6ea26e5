#include "EditorWindow.h"

#include <QAction>
#include <QCloseEvent>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QToolButton>

#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "Application/StartupPresentation.h"
#include "ConnectionBanner.h"
#include "EditorMenus.h"
#include "Hierarchy/HierarchyPane.h"
#include "Hierarchy/HierarchyTreeModel.h"
#include "Inspector/InspectorPane.h"
#include "Layers/LayerPane.h"
#include "Project/ProjectPane.h"
#include "StartupSheet.h"
#include "Viewport/RuntimeViewport.h"
#include "Viewport/RuntimeViewportContainerView.h"
#include "orvan/wire/Text.h"

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
  layers_ = new LayerPane(model_);
  setPaneContent(layerPane(), layers_);
  // The layer pane starts hidden each run; its toggle and the preference follow each other.
  layerPaneToggle()->setChecked(model_.viewPreferences.showLayerPane.get());
  connect(layerPaneToggle(), &QAction::toggled, this,
          [this](bool shown) { model_.viewPreferences.showLayerPane.set(shown); });
  subscriptions_.push_back(model_.viewPreferences.showLayerPane.subscribe(
      [this](bool shown) { layerPaneToggle()->setChecked(shown); }));

  menus_ = new EditorMenus(model_, *this);
  // The window's Duplicate answers the same keys wherever the focus is; two owners of one shortcut
  // would leave it to neither.
  hierarchy_->duplicateAction().setShortcut(QKeySequence());

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
  subscriptions_.push_back(model_.startup.connectionIssue.subscribe(
      [this](const auto&) { updateStartupPresentation(); }));
  subscriptions_.push_back(model_.startup.initialProjectResolved.subscribe(
      [this](bool) { updateStartupPresentation(); }));
  subscriptions_.push_back(model_.account.callbackAwaitingConfirmation.subscribe(
      [this](const auto& held) { askAboutSignInCallback(held); }));

  setStatusText(QString::fromStdString(model_.status.get()));
  updateTitle();
  updateStartupPresentation();
  updateAccount();
}

void EditorWindow::updateAccount() {
  QToolButton* button = accountButton();
  const bool hosted = !editor::isBlank(model_.scope.projectServerURL());
  setAccountButtonVisible(hosted);
  if (!hosted)
    return;
  button->setText(QString::fromStdString(model_.account.velkAccountLabel()));
  QMenu* menu = button->menu();
  menu->clear();
  if (model_.account.isVelkSignedIn()) {
    menu->addAction("Log Out", this, [this] { model_.account.signOutOfVelk(); });
  } else {
    menu->addAction("Sign In", this, [this] { model_.account.signInToVelk(); });
  }
}

EditorWindow::~EditorWindow() = default;

QString EditorWindow::statusText() const {
  const auto* label = statusBar()->findChild<QLabel*>();
  return label ? label->text() : QString();
}

void EditorWindow::askAboutSignInCallback(
    const std::optional<editor::SignInCallbackConfirmation>& held) {
  if (signInQuestion_) {
    signInQuestion_->close();
    signInQuestion_->deleteLater();
    signInQuestion_ = nullptr;
  }
  if (!held)
    return;
  auto* question =
      new QMessageBox(QMessageBox::Warning, QString::fromStdString(held->title),
                      QString::fromStdString(held->message), QMessageBox::NoButton, this);
  question->addButton("Apply Sign-In", QMessageBox::AcceptRole);
  question->addButton(QMessageBox::Cancel);
  question->setDefaultButton(QMessageBox::Cancel);
  connect(question, &QMessageBox::finished, this, [this, question](int) {
    if (signInQuestion_ != question)
      return;
    const bool apply = question->buttonRole(question->clickedButton()) == QMessageBox::AcceptRole;
    signInQuestion_ = nullptr;
    question->deleteLater();
    if (apply) {
      model_.account.confirmSignInCallback();
    } else {
      model_.account.declineSignInCallback();
    }
  });
  signInQuestion_ = question;
  question->open();
}

void EditorWindow::updateTitle() {
  const QString label = QString::fromStdString(model_.projectLabel());
  const bool local = model_.configuration.localMode;
  setWindowTitle(local ? label + QString::fromUtf8(kLocalTitleSuffix) : label);
  setProjectLabel(label, local);
}

void EditorWindow::updateStartupPresentation() {
  const auto& issue = model_.startup.connectionIssue.get();
  if (model_.isStartupBlocking()) {
    startupSheet_->setContent(editor::startupSheetContent(issue, model_.startup.initialProjectError,
                                                          model_.scope.projectServerURL()));
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

void EditorWindow::showRuntimeViewport(editor::ProcessLauncher& launcher,
                                       editor::SharedSurfaceLookup& surfaces) {
  runtimeViewport_ = std::make_unique<RuntimeViewport>(model_, launcher, surfaces, this);
  setViewportContent(&runtimeViewport_->view());
}

void EditorWindow::closeEvent(QCloseEvent* event) {
  if (runtimeViewport_)
    runtimeViewport_->shutdown();
  MainWindow::closeEvent(event);
}

void EditorWindow::performConnectionAction(int action) {
  model_.performConnectionAction(static_cast<editor::VelkConnectionAction>(action));
  updateStartupPresentation();
}

void EditorWindow::presentForScreenshot() {
  const auto& roots = model_.currentStage().rootPrims;
  if (model_.session.sceneSelection.get().paths.empty() && !roots.empty()) {
    model_.documents.selectPrims(roots.front().path, {roots.front().path});
  }
  hierarchy_->expandToDepth(1);
}

}  // namespace orvan::ui
