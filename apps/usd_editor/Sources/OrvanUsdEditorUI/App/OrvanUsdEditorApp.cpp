#include "App/OrvanUsdEditorApp.h"

#include <utility>

#include <spdlog/spdlog.h>

#include "App/SingleInstance.h"
#include "Application/EditorModel.h"
#include "EditorWindow.h"
#include "Platform/SoftwareUpdater.h"

namespace orvan::ui {

OrvanUsdEditorApp::OrvanUsdEditorApp(editor::EditorConfiguration configuration,
                                     OrvanUsdEditorAppPorts ports,
                                     std::vector<std::string> launchURLs,
                                     QString instanceServerName)
    : updater_(ports.updater), main_(ports.main) {
  // The link handler comes before the model, so that a link that launched the editor, or one
  // forwarded while the model is still being built, is kept.
  for (std::string& url : launchURLs)
    incomingURLs_.push(std::move(url), "the launch arguments");
  if (!instanceServerName.isEmpty()) {
    urlServer_ = std::make_unique<URLForwardingServer>(instanceServerName, [this](QString url) {
      incomingURLs_.push(url.toStdString(), "a later launch");
    });
    if (urlServer_->listen() != URLForwardingServer::ListenResult::listening) {
      spdlog::info("another editor receives the links of later launches");
      urlServer_.reset();
    }
  }
  editor::EditorModelPorts modelPorts{ports.main,    ports.background, ports.preferences,
                                      ports.secrets, ports.processes,  ports.http};
  modelPorts.openURL = ports.openURL;
  model_ = std::make_unique<editor::EditorModel>(std::move(configuration), std::move(modelPorts));
  window_ = std::make_unique<EditorWindow>(*model_);
  if (ports.surfaces)
    window_->showRuntimeViewport(ports.processes, *ports.surfaces);
}

OrvanUsdEditorApp::~OrvanUsdEditorApp() {
  updaterStart_.cancel();
  window_.reset();  // the window reads the model to the end
}

bool OrvanUsdEditorApp::receivesForwardedURLs() const {
  return urlServer_ != nullptr;
}

void OrvanUsdEditorApp::show() {
  window_->show();
  // Links are handled once the editor has started, so that a sign-in callback's refresh is the
  // one that counts.
  incomingURLs_.route([this](const std::string& url) { model_->handleIncomingURL(url); });
  if (!updater_.isStarted() && !updaterStart_.isActive()) {
    updaterStart_.replace(editor::scheduleSoftwareUpdaterStart(main_, updater_));
  }
}

}  // namespace orvan::ui
