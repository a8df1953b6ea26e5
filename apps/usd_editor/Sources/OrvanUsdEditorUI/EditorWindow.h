#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Foundation/Observable.h"
#include "MainWindow.h"

class QMessageBox;

namespace orvan::editor {
class EditorModel;
class ProcessLauncher;
class SharedSurfaceLookup;
struct SignInCallbackConfirmation;
}  // namespace orvan::editor

namespace orvan::ui {

class ConnectionBanner;
class EditorMenus;
class HierarchyPane;
class InspectorPane;
class LayerPane;
class ProjectPane;
class RuntimeViewport;
class StartupSheet;

// The editor window over a model: reads its stores (title, status, stage, selection, connection
// issue) and calls its operations. Its first showing starts the editor's start-up.
class EditorWindow final : public MainWindow {
  Q_OBJECT
 public:
  explicit EditorWindow(editor::EditorModel& model, QWidget* parent = nullptr);
  ~EditorWindow() override;

  HierarchyPane& hierarchy() const { return *hierarchy_; }
  InspectorPane& inspector() const { return *inspector_; }
  ProjectPane& project() const { return *project_; }
  LayerPane& layers() const { return *layers_; }
  StartupSheet& startupSheet() const { return *startupSheet_; }
  ConnectionBanner& connectionBanner() const { return *banner_; }
  EditorMenus& menus() const { return *menus_; }
  QString statusText() const;
  // The open question about a sign-in link, if any.
  QMessageBox* signInQuestion() const { return signInQuestion_; }

  // Puts the runtime viewport in the centre; its processes start once the window shows.
  void showRuntimeViewport(editor::ProcessLauncher& launcher,
                           editor::SharedSurfaceLookup& surfaces);
  RuntimeViewport* runtimeViewport() const { return runtimeViewport_.get(); }

  // For a screenshot of a loaded scene: selects the first root prim when nothing is selected, and
  // opens the tree a level deeper than a normal start.
  void presentForScreenshot();

 protected:
  void showEvent(QShowEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  void updateTitle();
  void updateStartupPresentation();
  // The account button: who is signed in, and Sign In or Log Out. Hidden for a local scene.
  void updateAccount();
  void performConnectionAction(int action);
  // A sign-in link that answers no sign-in of this window's: the user decides whether it applies.
  void askAboutSignInCallback(const std::optional<editor::SignInCallbackConfirmation>& held);

  editor::EditorModel& model_;
  HierarchyPane* hierarchy_ = nullptr;
  InspectorPane* inspector_ = nullptr;
  ProjectPane* project_ = nullptr;
  LayerPane* layers_ = nullptr;
  StartupSheet* startupSheet_ = nullptr;
  ConnectionBanner* banner_ = nullptr;
  EditorMenus* menus_ = nullptr;
  QMessageBox* signInQuestion_ = nullptr;
  bool startedInitialRefresh_ = false;
  std::vector<editor::Subscription> subscriptions_;
  // Before the widgets it shows in go, it shuts the viewport's processes down.
  std::unique_ptr<RuntimeViewport> runtimeViewport_;
};

}  // namespace orvan::ui
