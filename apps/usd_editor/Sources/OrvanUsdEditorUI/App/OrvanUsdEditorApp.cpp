#include "OrvanUsdEditorUI/App/OrvanUsdEditorApp.h"

#include <csignal>
#include <cstdio>
#include <optional>

#include <QApplication>
#include <QDesktopServices>
#include <QUrl>

#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "Application/SoftwareUpdater.h"
#include "Foundation/Logging.h"
#include "Foundation/Text.h"
#include "Foundation/ThreadPool.h"
#include "OrvanUsdEditorUI/App/SingleInstance.h"
#include "OrvanUsdEditorUI/EditorTheme.h"
#include "OrvanUsdEditorUI/EditorWindow.h"
#include "OrvanUsdEditorUI/QtMainExecutor.h"
#include "OrvanUsdEditorUI/WindowCapture.h"
#include "Platform/CurlHttpClient.h"
#include "Platform/LoggingSoftwareUpdater.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"

namespace orvan::ui {

namespace {

std::vector<std::string> urlsAmong(const std::vector<std::string>& arguments) {
  std::vector<std::string> urls;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (isEditorUrl(arguments[i]))
      urls.push_back(arguments[i]);
  }
  return urls;
}

// A local stage is settled once its first load ended either way. A hosted one has nothing more
// to wait for in this build once start-up has begun.
bool readyForScreenshot(const editor::EditorModel& model) {
  if (!editor::trimWhitespaceAndNewlines(model.configuration.remoteStageURL).empty())
    return true;
  return model.refreshGeneration > 0 && !model.stageRefreshInFlight;
}

// The real adapters. Declaration order is destruction order reversed: the thread pool goes first
// (finishing the work it holds), while the launcher and stores that work uses still exist, and
// the main executor it replies to outlives it.
struct LinuxPlatform {
  QtMainExecutor main;
  editor::PosixProcessLauncher processes;
  editor::CurlHttpClient http{main};
  editor::JsonFilePreferencesStore preferences{editor::JsonFilePreferencesStore::defaultFile()};
  editor::SystemSecretStore secrets;
  editor::LoggingSoftwareUpdater updater;  // created without starting
  editor::ThreadPool background;

  OrvanUsdEditorAppPorts ports() {
    return {main, background, preferences, secrets, processes, http, updater, [](const std::string& url) {
              return QDesktopServices::openUrl(QUrl(QString::fromStdString(url)));
            }};
  }
};

}  // namespace

OrvanUsdEditorApp::OrvanUsdEditorApp(editor::EditorConfiguration configuration,
                                     OrvanUsdEditorAppPorts ports,
                                     std::vector<std::string> launchUrls,
                                     QString instanceServerName)
    : updater_(ports.updater), main_(ports.main) {
  // The link handler comes before the model, so that a link that launched the editor, or one
  // forwarded while the model is still being built, is kept.
  for (std::string& url : launchUrls)
    incomingUrls_.push(std::move(url), "the launch arguments");
  if (!instanceServerName.isEmpty()) {
    urlServer_ = std::make_unique<UrlForwardingServer>(instanceServerName, [this](QString url) {
      incomingUrls_.push(url.toStdString(), "a later launch");
    });
    if (urlServer_->listen() != UrlForwardingServer::ListenResult::listening) {
      spdlog::info("another editor receives the links of later launches");
      urlServer_.reset();
    }
  }
  editor::EditorModelPorts modelPorts{ports.main,      ports.background, ports.preferences,
                                      ports.secrets,   ports.processes,  ports.http};
  modelPorts.openURL = ports.openURL;
  model_ = std::make_unique<editor::EditorModel>(std::move(configuration), std::move(modelPorts));
  window_ = std::make_unique<EditorWindow>(*model_);
}

OrvanUsdEditorApp::~OrvanUsdEditorApp() {
  updaterStart_.cancel();
  window_.reset();  // the window reads the model to the end
}

bool OrvanUsdEditorApp::receivesForwardedUrls() const {
  return urlServer_ != nullptr;
}

void OrvanUsdEditorApp::show() {
  window_->show();
  // Links are handled once the editor has started, so that a sign-in callback's refresh is the
  // one that counts.
  incomingUrls_.route([this](const std::string& url) { model_->handleIncomingURL(url); });
  if (!updater_.isStarted() && !updaterStart_.isActive()) {
    updaterStart_.replace(editor::scheduleSoftwareUpdaterStart(main_, updater_));
  }
}

int runOrvanUsdEditorApp(int argc, char** argv) {
  // Writing to a helper that died must fail with an error, not end the editor.
  std::signal(SIGPIPE, SIG_IGN);
  editor::initializeLogging("OrvanUsdEditor");

  // The editor's own arguments, read before Qt takes out the options that are its own.
  const std::vector<std::string> arguments(argv, argv + argc);
  editor::EditorConfiguration configuration = editor::EditorConfiguration::fromArguments(arguments);
  for (const std::string& option :
       editor::EditorConfiguration::unknownOptions(arguments, {kScreenshotOption})) {
    spdlog::warn("OrvanUsdEditor: unknown option '{}' ignored", option);
  }
  // `--screenshot FILE` is a tool option of the executable, not part of the editor's
  // configuration: it renders the window, writes a PNG once the stage has loaded or failed, and
  // exits.
  const std::optional<ScreenshotRequest> screenshot = screenshotRequest(arguments);
  if (screenshot && !screenshot->problem.isEmpty()) {
    std::fprintf(stderr, "OrvanUsdEditor: screenshot failed: %s\n",
                 qPrintable(screenshot->problem));
    return 2;
  }

  QApplication application(argc, argv);
  QApplication::setApplicationName("OrvanUsdEditor");

  // One editor per user receives links: a later launch with links hands them over and ends.
  std::vector<std::string> launchUrls = urlsAmong(arguments);
  const QString instanceName = editorInstanceServerName();
  if (!launchUrls.empty()) {
    std::size_t forwarded = 0;
    while (forwarded < launchUrls.size() &&
           forwardUrlToRunningEditor(instanceName, QString::fromStdString(launchUrls[forwarded]))) {
      ++forwarded;
    }
    if (forwarded == launchUrls.size()) {
      spdlog::info("handed {} link(s) to the running editor", forwarded);
      return 0;
    }
    // Nobody took the rest: this launch becomes the editor and keeps them.
    launchUrls.erase(launchUrls.begin(), launchUrls.begin() + static_cast<long>(forwarded));
  }

  applyEditorTheme(application);
  LinuxPlatform platform;
  OrvanUsdEditorApp app(std::move(configuration), platform.ports(), launchUrls, instanceName);
  app.show();

  if (screenshot) {
    WindowCaptureOptions options;
    options.path = screenshot->path;
    options.isSettled = [&app] { return readyForScreenshot(app.model()); };
    options.beforeCapture = [&app] { app.window().presentForScreenshot(); };
    captureWindowWhenSettled(app.window(), options, [](int exitCode, const QString& reason) {
      if (exitCode != 0) {
        std::fprintf(stderr, "OrvanUsdEditor: screenshot failed: %s\n", qPrintable(reason));
      }
      QApplication::exit(exitCode);
    });
  }
  return application.exec();
}

}  // namespace orvan::ui
