#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Foundation/Observable.h"
#include "Viewport/RuntimeViewportHostView.h"

class QWidget;

namespace orvan::editor {
class EditorModel;
class PreparedStage;
class ProcessLauncher;
class SharedSurfaceLookup;
}  // namespace orvan::editor

namespace orvan::ui {

class RuntimeViewportContainerView;
class ViewportToolStrip;

// What the host is told about the model, without the callbacks and the instance roots: the
// place, whether the viewport may run, the view controls, the selection and the previews.
editor::RuntimeViewportState runtimeViewportState(const editor::EditorModel& model);
// The words over an empty viewport: why nothing shows yet.
QString viewportReasonText(const editor::EditorModel& model, bool connected);

// The viewport of the window: owns the host of the viewport's processes for as long as the window
// lives, shows its frames in a RuntimeViewportContainerView and tells it the model's state on
// every change of the stores it mirrors. What comes back goes to the model: a selection made in
// the viewport selects in the hierarchy too, and gizmo drags become transform commits.
class RuntimeViewport final : public QObject {
  Q_OBJECT
 public:
  RuntimeViewport(editor::EditorModel& model, editor::ProcessLauncher& launcher,
                  editor::SharedSurfaceLookup& surfaces, QWidget* viewParent,
                  editor::RuntimeViewportHostOptions options = {});
  ~RuntimeViewport() override;

  RuntimeViewportContainerView& view() const { return *view_; }
  ViewportToolStrip& toolStrip() const { return *toolStrip_; }
  editor::RuntimeViewportHostView& host() { return *host_; }
  const editor::RuntimeViewportHostView& host() const { return *host_; }

  // Closes the viewport's processes; the window is closing.
  void shutdown();

 private:
  // One update per turn of the event loop, however many stores changed in it.
  void scheduleUpdate();
  void updateHost();
  void updateReason();
  void connectInput();
  // A W, E or R that picks the gizmo instead of going to the runtime; its release goes too.
  bool takeToolKey(bool down, const std::string& characters, unsigned modifiers);

  editor::EditorModel& model_;
  RuntimeViewportContainerView* view_ = nullptr;
  ViewportToolStrip* toolStrip_ = nullptr;
  // A button is down in the view: letters then fly the camera.
  bool pointerHeld_ = false;
  std::set<std::string> toolKeysDown_;
  std::unique_ptr<editor::RuntimeViewportHostView> host_;
  bool updateScheduled_ = false;
  bool shutDown_ = false;
  std::vector<editor::Subscription> subscriptions_;
  std::shared_ptr<const editor::PreparedStage> instancedPathsStage_;
  std::vector<std::string> instancedPrimPaths_;
};

}  // namespace orvan::ui
