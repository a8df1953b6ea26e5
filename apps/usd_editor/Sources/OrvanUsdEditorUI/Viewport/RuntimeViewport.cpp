#include "Viewport/RuntimeViewport.h"

#include <QTimer>
#include <QWidget>

#include "Application/EditorModel.h"
#include "Viewport/RuntimeViewportContainerView.h"
#include "Viewport/ViewportToolStrip.h"
#include "orvan/wire/Text.h"

namespace orvan::ui {

namespace {

std::string cameraModeWord(editor::ViewportCameraMode mode) {
  switch (mode) {
    case editor::ViewportCameraMode::free:
      return "free";
    case editor::ViewportCameraMode::game:
      return "game";
  }
  return "free";
}

std::string toolWord(editor::ViewportTransformTool tool) {
  switch (tool) {
    case editor::ViewportTransformTool::translate:
      return "translate";
    case editor::ViewportTransformTool::rotate:
      return "rotate";
    case editor::ViewportTransformTool::scale:
      return "scale";
  }
  return "translate";
}

std::string spaceWord(editor::ViewportTransformSpace space) {
  switch (space) {
    case editor::ViewportTransformSpace::world:
      return "world";
    case editor::ViewportTransformSpace::local:
      return "local";
  }
  return "world";
}

std::string frameTargetWord(editor::ViewportFrameTarget target) {
  switch (target) {
    case editor::ViewportFrameTarget::selection:
      return "selection";
    case editor::ViewportFrameTarget::all:
      return "all";
  }
  return "selection";
}

std::vector<std::string> instancedPrimPaths(const editor::StageInspection& stage) {
  std::vector<std::string> paths;
  for (const editor::UsdPrimDetail& prim : stage.prims) {
    if (prim.instanceable)
      paths.push_back(prim.path);
  }
  return paths;
}

}  // namespace

editor::RuntimeViewportState runtimeViewportState(const editor::EditorModel& model) {
  editor::RuntimeViewportState state;
  // The launch's paths and endpoints, at the place the editor is now.
  state.configuration = model.configuration;
  state.configuration.scenePath = model.scope.scenePath();
  state.configuration.workspace = model.scope.transportWorkspace();
  state.configuration.projectId = model.scope.projectId();
  state.configuration.address = model.scope.projectServerURL();
  state.projectId = model.scope.projectId();
  state.authToken = model.server.velkSessionToken;
  // While the project opens the viewport stays down; a seamless switch keeps the old picture.
  state.sceneLoading = model.isStartupBlocking() || model.scope.projectConnectionInFlight;
  state.preserveLastFrameDuringLoading = model.scope.seamlessWorkspaceTransitionInFlight;
  state.gridVisible = model.viewPreferences.showViewportGrid.get();
  state.rigidBodyShapes = model.viewPreferences.showRigidBodyShapes.get();

  const editor::ViewportControls& controls = model.session.viewport.get().controls;
  state.cameraMode = cameraModeWord(controls.cameraMode);
  state.transformTool = toolWord(controls.transformTool);
  state.transformSpace = spaceWord(controls.transformSpace);
  state.frameSerial = controls.frameSerial;
  state.frameTarget = frameTargetWord(controls.frameTarget);
  state.propertyPreviewSerial = controls.propertyPreviewSerial;
  for (const editor::EditorViewportPropertyPreview& preview : controls.propertyPreviews) {
    state.propertyPreviews.push_back({preview.entityPath, preview.componentType,
                                      preview.propertyName, preview.value, preview.clear});
  }
  // One selection for the hierarchy and the viewport.
  state.selectedPaths = model.session.sceneSelection.get().paths;
  return state;
}

QString viewportReasonText(const editor::EditorModel& model, bool connected) {
  if (connected)
    return {};
  if (model.isStartupBlocking())
    return QStringLiteral("Viewport waits for the project");
  if (editor::isBlank(model.scope.scenePath()))
    return QStringLiteral("No scene open");
  return QStringLiteral("Viewport starting\u2026");
}

RuntimeViewport::RuntimeViewport(editor::EditorModel& model, editor::ProcessLauncher& launcher,
                                 editor::SharedSurfaceLookup& surfaces, QWidget* viewParent,
                                 editor::RuntimeViewportHostOptions options)
    : QObject(viewParent), model_(model) {
  view_ = new RuntimeViewportContainerView(viewParent);
  toolStrip_ = new ViewportToolStrip(model_, view_);
  toolStrip_->move(8, 8);
  toolStrip_->raise();
  host_ = std::make_unique<editor::RuntimeViewportHostView>(model_.mainExecutor(), launcher,
                                                            surfaces, std::move(options));
  connectInput();
  auto update = [this](const auto&) { scheduleUpdate(); };
  subscriptions_.push_back(model_.session.viewport.subscribe(update));
  subscriptions_.push_back(model_.session.sceneSelection.subscribe(update));
  subscriptions_.push_back(model_.stage.subscribe(update));
  // The place, the session and the start-up move with the status line's steps.
  subscriptions_.push_back(model_.status.subscribe(update));
  subscriptions_.push_back(model_.startup.initialProjectResolved.subscribe(update));
  subscriptions_.push_back(model_.viewPreferences.showViewportGrid.subscribe(update));
  subscriptions_.push_back(model_.viewPreferences.showRigidBodyShapes.subscribe(update));
  updateHost();
  host_->attach(view_);
  updateReason();
}

RuntimeViewport::~RuntimeViewport() {
  shutdown();
  host_->attach(nullptr);
}

void RuntimeViewport::shutdown() {
  if (shutDown_)
    return;
  shutDown_ = true;
  subscriptions_.clear();
  host_->shutdown();
}

void RuntimeViewport::connectInput() {
  ViewportInputHandlers& input = view_->input;
  input.pointer = [this](editor::PointerPhase phase, double x, double y, int button,
                         unsigned modifiers) {
    if (phase == editor::PointerPhase::down)
      pointerHeld_ = true;
    else if (phase == editor::PointerPhase::up)
      pointerHeld_ = false;
    host_->sendPointer(phase, x, y, button, modifiers);
  };
  input.key = [this](bool down, std::uint16_t keyCode, std::string characters, unsigned modifiers) {
    if (takeToolKey(down, characters, modifiers))
      return;
    host_->sendKey(down, keyCode, std::move(characters), modifiers);
  };
  input.cameraGesture = [this](const std::string& kind, double dx, double dy) {
    // Only a free camera takes gestures; a game camera leaves them to the panes around.
    if (model_.session.viewport.get().controls.cameraMode != editor::ViewportCameraMode::free)
      return false;
    host_->sendCameraGesture(kind, dx, dy);
    return true;
  };
  input.sizeChanged = [this] { host_->viewSizeChanged(); };
  input.windowChanged = [this] {
    if (!shutDown_)
      host_->viewDidMoveToWindow();
  };
}

bool RuntimeViewport::takeToolKey(bool down, const std::string& characters, unsigned modifiers) {
  if (!down)
    return toolKeysDown_.erase(characters) > 0;
  const std::optional<editor::ViewportTransformTool> tool = transformToolForKey(
      characters, modifiers, model_.session.viewport.get().controls.cameraMode, pointerHeld_);
  if (!tool)
    return false;
  toolKeysDown_.insert(characters);
  model_.session.viewport.update(
      [&](editor::ViewportControlsState& state) { state.controls.transformTool = *tool; });
  return true;
}

void RuntimeViewport::scheduleUpdate() {
  if (updateScheduled_ || shutDown_)
    return;
  updateScheduled_ = true;
  QTimer::singleShot(0, this, [this] {
    updateScheduled_ = false;
    updateHost();
  });
}

void RuntimeViewport::updateHost() {
  if (shutDown_)
    return;
  editor::RuntimeViewportState state = runtimeViewportState(model_);
  // The instance roots change with the stage only; a large stage is not walked on every update.
  if (const auto stage = model_.stage.get(); stage != instancedPathsStage_) {
    instancedPathsStage_ = stage;
    instancedPrimPaths_ = instancedPrimPaths(stage->stage());
  }
  state.instancedPrimPaths = instancedPrimPaths_;
  state.onConnectionChanged = [this](bool) { updateReason(); };
  state.onSelection = [this](std::vector<std::string> paths) {
    if (paths.empty()) {
      model_.documents.clearSceneSelection();
      return;
    }
    std::string primary = paths.front();
    model_.documents.selectPrims(std::move(primary), std::move(paths));
  };
  state.onTransformCommit = [this](editor::ViewportTransformCommit commit) {
    model_.viewportGizmo.handleViewportTransformCommit(
        commit.entityPath, commit.propertyName, commit.values, commit.final,
        commit.duplicateRequested, commit.previewSessionId);
  };
  host_->updateHost(std::move(state));
  updateReason();
}

void RuntimeViewport::updateReason() {
  const bool showing = host_->isConnected() || host_->displayedFrameCount() > 0;
  view_->setReasonText(viewportReasonText(model_, showing));
}

}  // namespace orvan::ui
