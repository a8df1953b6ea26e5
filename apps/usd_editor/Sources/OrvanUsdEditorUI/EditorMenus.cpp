#include "EditorMenus.h"

#include <QAction>
#include <QActionGroup>
#include <QMenu>
#include <QMenuBar>

#include "Application/EditorModel.h"
#include "MainWindow.h"

namespace orvan::ui {

namespace {

void queueHistory(editor::EditorModel& model, editor::HistoryOperationKind kind) {
  model.operations.queue(editor::AtomicOperation{editor::HistoryAtomicOperation{kind}});
  model.operations.submitNextOperation();
}

void raiseFrame(editor::EditorModel& model, editor::ViewportFrameTarget target) {
  model.session.viewport.update([target](editor::ViewportControlsState& state) {
    state.controls.frameTarget = target;
    ++state.controls.frameSerial;
  });
}

}  // namespace

EditorMenus::EditorMenus(editor::EditorModel& model, MainWindow& window)
    : QObject(&window), model_(model), window_(window) {
  QMenuBar* bar = window_.menuBar();
  buildEditMenu(*bar->addMenu("Edit"));
  buildViewMenu(*bar->addMenu("View"));
  buildViewportMenu(*bar->addMenu("Viewport"));
  followViewportControls();
  applyPaneVisibility();
}

EditorMenus::~EditorMenus() = default;

QAction* EditorMenus::action(const QString& title) const {
  for (QAction* each : actions_) {
    if (each->text() == title)
      return each;
  }
  return nullptr;
}

QAction* EditorMenus::addPreferenceToggle(QMenu& menu, const QString& title,
                                          editor::Observable<bool>& store) {
  QAction* toggle = menu.addAction(title);
  toggle->setCheckable(true);
  toggle->setChecked(store.get());
  // `triggered` comes from the user only, so following the store never writes it back.
  connect(toggle, &QAction::triggered, this, [&store](bool checked) { store.set(checked); });
  subscriptions_.push_back(store.subscribe([toggle](bool value) { toggle->setChecked(value); }));
  actions_.push_back(toggle);
  return toggle;
}

void EditorMenus::buildEditMenu(QMenu& menu) {
  QAction* undo = menu.addAction(
      "Undo", this, [this] { queueHistory(model_, editor::HistoryOperationKind::undo); });
  undo->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
  QAction* redo = menu.addAction(
      "Redo", this, [this] { queueHistory(model_, editor::HistoryOperationKind::redo); });
  redo->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
  menu.addSeparator();
  QAction* duplicate = menu.addAction("Duplicate", this, [this] {
    const std::string primary = model_.session.sceneSelection.get().primaryPath;
    // The primary path stands for the whole selection it belongs to.
    if (!primary.empty())
      model_.structure.duplicatePrim(primary);
  });
  duplicate->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_D));
  delete_ = menu.addAction("Delete", this, [this] { model_.structure.deleteSelectedPrims(); });
  // With the command modifier, as every item here: a plain Delete stays with the hierarchy and
  // with the fields that edit text.
  delete_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Delete));
  actions_.insert(actions_.end(), {undo, redo, duplicate, delete_});
  auto update = [this](const auto&) { updateDeleteEnabled(); };
  subscriptions_.push_back(model_.session.sceneSelection.subscribe(update));
  subscriptions_.push_back(model_.stage.subscribe(update));
  updateDeleteEnabled();
}

void EditorMenus::buildViewMenu(QMenu& menu) {
  editor::ViewPreferences& preferences = model_.viewPreferences;
  QAction* focus = addPreferenceToggle(menu, "Full 3D View", preferences.viewportFocusMode);
  focus->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_F));
  menu.addSeparator();
  paneToggles_ = {addPreferenceToggle(menu, "Show Hierarchy", preferences.showHierarchyPane),
                  addPreferenceToggle(menu, "Show Inspector", preferences.showInspectorPane),
                  addPreferenceToggle(menu, "Show Project", preferences.showProjectPane)};
  auto panes = [this](bool) { applyPaneVisibility(); };
  for (editor::Observable<bool>* store :
       {&preferences.viewportFocusMode, &preferences.showHierarchyPane,
        &preferences.showInspectorPane, &preferences.showProjectPane, &preferences.showLayerPane}) {
    subscriptions_.push_back(store->subscribe(panes));
  }

  QMenu* organization = menu.addMenu("Project Asset Organization");
  organization_ = new QActionGroup(this);
  const auto addOrganization = [&](const QString& title,
                                   editor::ProjectAssetBrowserOrganization value) {
    QAction* item = organization->addAction(title);
    item->setCheckable(true);
    item->setData(static_cast<int>(value));
    organization_->addAction(item);
    connect(item, &QAction::triggered, this,
            [&preferences, value] { preferences.projectAssetBrowserOrganization.set(value); });
    actions_.push_back(item);
  };
  addOrganization("Type and Class", editor::ProjectAssetBrowserOrganization::typeAndClass);
  addOrganization("Folders", editor::ProjectAssetBrowserOrganization::folders);
  auto checkOrganization = [this](editor::ProjectAssetBrowserOrganization value) {
    for (QAction* item : organization_->actions())
      item->setChecked(item->data().toInt() == static_cast<int>(value));
  };
  checkOrganization(preferences.projectAssetBrowserOrganization.get());
  subscriptions_.push_back(
      preferences.projectAssetBrowserOrganization.subscribe(checkOrganization));

  menu.addSeparator();
  addPreferenceToggle(menu, "Show Grid", preferences.showViewportGrid);
  addPreferenceToggle(menu, "Show Rigid Body Shapes", preferences.showRigidBodyShapes);
  menu.addSeparator();
  QAction* refresh = menu.addAction("Refresh", this, [this] {
    model_.stageRefresher.refresh(editor::StageRefreshOptions{.preserveQueue = true});
  });
  refresh->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
  actions_.push_back(refresh);
}

void EditorMenus::buildViewportMenu(QMenu& menu) {
  actions_.push_back(menu.addAction("Frame Selection", this, [this] {
    raiseFrame(model_, editor::ViewportFrameTarget::selection);
  }));
  actions_.push_back(menu.addAction(
      "Frame All", this, [this] { raiseFrame(model_, editor::ViewportFrameTarget::all); }));
  menu.addSeparator();

  const auto addChoice = [&](QActionGroup* group, const QString& title, auto apply) {
    QAction* item = menu.addAction(title);
    item->setCheckable(true);
    group->addAction(item);
    connect(item, &QAction::triggered, this,
            [this, apply] { model_.session.viewport.update(apply); });
    actions_.push_back(item);
  };
  cameraModes_ = new QActionGroup(this);
  addChoice(cameraModes_, "Free Camera", [](editor::ViewportControlsState& state) {
    state.controls.cameraMode = editor::ViewportCameraMode::free;
  });
  addChoice(cameraModes_, "Game Camera", [](editor::ViewportControlsState& state) {
    state.controls.cameraMode = editor::ViewportCameraMode::game;
  });
  menu.addSeparator();
  spaces_ = new QActionGroup(this);
  addChoice(spaces_, "World Transform Space", [](editor::ViewportControlsState& state) {
    state.controls.transformSpace = editor::ViewportTransformSpace::world;
  });
  addChoice(spaces_, "Local Transform Space", [](editor::ViewportControlsState& state) {
    state.controls.transformSpace = editor::ViewportTransformSpace::local;
  });
  subscriptions_.push_back(
      model_.session.viewport.subscribe([this](const auto&) { followViewportControls(); }));
}

void EditorMenus::followViewportControls() {
  const editor::ViewportControls& controls = model_.session.viewport.get().controls;
  const QList<QAction*> modes = cameraModes_->actions();
  modes[0]->setChecked(controls.cameraMode == editor::ViewportCameraMode::free);
  modes[1]->setChecked(controls.cameraMode == editor::ViewportCameraMode::game);
  const QList<QAction*> spaces = spaces_->actions();
  spaces[0]->setChecked(controls.transformSpace == editor::ViewportTransformSpace::world);
  spaces[1]->setChecked(controls.transformSpace == editor::ViewportTransformSpace::local);
}

void EditorMenus::updateDeleteEnabled() {
  delete_->setEnabled(!model_.structure.editableTopLevelSelectedHierarchyPaths().empty());
}

void EditorMenus::applyPaneVisibility() {
  const editor::ViewPreferences& preferences = model_.viewPreferences;
  const bool focus = preferences.viewportFocusMode.get();
  // Full 3D View leaves the viewport alone in the window. The pane toggles keep their docked
  // state meanwhile, so that leaving it brings the former layout back; there are no floating panes
  // for them to act on, so they wait.
  for (QAction* toggle : paneToggles_)
    toggle->setEnabled(!focus);
  const bool hierarchy = preferences.showHierarchyPane.get();
  window_.hierarchyPane()->setVisible(hierarchy);
  window_.hierarchyPane()->parentWidget()->setVisible(
      !focus && (hierarchy || preferences.showLayerPane.get()));
  window_.inspectorPane()->setVisible(!focus && preferences.showInspectorPane.get());
  window_.projectPane()->setVisible(!focus && preferences.showProjectPane.get());
}

}  // namespace orvan::ui
