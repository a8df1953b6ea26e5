#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "App/IncomingURLQueue.h"
#include "Foundation/Task.h"
#include "Launch/EditorConfiguration.h"

namespace orvan::editor {
class BackgroundExecutor;
class EditorModel;
class HttpClient;
class MainExecutor;
class PreferencesStore;
class ProcessLauncher;
class SecretStore;
class SharedSurfaceLookup;
class SoftwareUpdater;
}  // namespace orvan::editor

namespace orvan::ui {

class EditorWindow;
class URLForwardingServer;

// What the application runs on. The process's main builds the real adapters and passes them;
// tests pass fakes. The widget library itself constructs no adapter.
struct OrvanUsdEditorAppPorts {
  editor::MainExecutor& main;
  editor::BackgroundExecutor& background;
  editor::PreferencesStore& preferences;
  editor::SecretStore& secrets;
  editor::ProcessLauncher& processes;
  editor::HttpClient& http;
  editor::SoftwareUpdater& updater;
  // Opens an address in the user's browser (the sign-in page).
  std::function<bool(const std::string&)> openURL = {};
  // Where the viewport's frames are found; none: the window has no runtime viewport.
  editor::SharedSurfaceLookup* surfaces = nullptr;
};

// The application value: the links that arrived, the single-instance link server, the model, the
// updater and the one window, brought up in that order.
class OrvanUsdEditorApp {
 public:
  // `launchURLs` are the links among the launch arguments; `instanceServerName` the local socket
  // later launches forward their links to (empty: no forwarding).
  OrvanUsdEditorApp(editor::EditorConfiguration configuration, OrvanUsdEditorAppPorts ports,
                    std::vector<std::string> launchURLs, QString instanceServerName);
  ~OrvanUsdEditorApp();

  // Shows the window (whose first showing starts the editor), then hands the kept links to the
  // model and schedules the updater's start.
  void show();

  editor::EditorModel& model() { return *model_; }
  EditorWindow& window() { return *window_; }
  IncomingURLQueue& incomingURLs() { return incomingURLs_; }
  bool receivesForwardedURLs() const;

 private:
  IncomingURLQueue incomingURLs_;
  std::unique_ptr<URLForwardingServer> urlServer_;
  std::unique_ptr<editor::EditorModel> model_;
  editor::SoftwareUpdater& updater_;
  editor::TaskSlot updaterStart_;
  std::unique_ptr<EditorWindow> window_;
  editor::MainExecutor& main_;
};

}  // namespace orvan::ui
