#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QApplication>
#include <QString>

#include <spdlog/spdlog.h>

#include "App/IncomingURLQueue.h"
#include "App/OrvanUsdEditorApp.h"
#include "App/SingleInstance.h"
#include "Application/EditorModel.h"
#include "EditorTheme.h"
#include "EditorWindow.h"
#include "Foundation/Logging.h"
#include "Launch/EditorConfiguration.h"
#include "LinuxPlatform.h"
#include "Viewport/RuntimeViewport.h"
#include "WindowCapture.h"
#include "orvan/wire/Text.h"

namespace orvan::app {
namespace {

std::vector<std::string> urlsAmong(const std::vector<std::string>& arguments) {
  std::vector<std::string> urls;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (ui::isEditorURL(arguments[i]))
      urls.push_back(arguments[i]);
  }
  return urls;
}

// A local stage is settled once its first load ended either way. A hosted one has nothing more
// to wait for in this build once start-up has begun.
bool readyForScreenshot(const editor::EditorModel& model) {
  if (!editor::trimWhitespaceAndNewlines(model.server.addresses.remoteStageURL).empty())
    return true;
  return model.stageRefresher.refreshGeneration > 0 && !model.stageRefresher.stageRefreshInFlight;
}

// How long a screenshot waits for the viewport's first frame once the stage has settled.
constexpr std::chrono::seconds kViewportFrameWait{20};

bool viewportShowedFrame(ui::EditorWindow& window) {
  const ui::RuntimeViewport* viewport = window.runtimeViewport();
  return viewport && viewport->host().displayedFrameCount() > 0;
}

// Hands the launch links to an editor that already runs. What is left is for this launch; empty
// when every link was taken.
std::vector<std::string> linksNobodyTook(std::vector<std::string> launchURLs,
                                         const QString& instanceName) {
  std::size_t forwarded = 0;
  while (
      forwarded < launchURLs.size() &&
      ui::forwardURLToRunningEditor(instanceName, QString::fromStdString(launchURLs[forwarded]))) {
    ++forwarded;
  }
  if (forwarded > 0)
    spdlog::info("handed {} link(s) to the running editor", forwarded);
  launchURLs.erase(launchURLs.begin(), launchURLs.begin() + static_cast<long>(forwarded));
  return launchURLs;
}

int run(int argc, char** argv) {
  // Writing to a helper that died must fail with an error, not end the editor.
  std::signal(SIGPIPE, SIG_IGN);
  editor::initializeLogging("OrvanUsdEditor");

  // The editor's own arguments, read before Qt takes out the options that are its own.
  const std::vector<std::string> arguments(argv, argv + argc);
  editor::EditorConfiguration configuration = editor::EditorConfiguration::fromArguments(arguments);
  for (const std::string& option :
       editor::EditorConfiguration::unknownOptions(arguments, {ui::kScreenshotOption})) {
    spdlog::warn("OrvanUsdEditor: unknown option '{}' ignored", option);
  }
  // `--screenshot FILE` is a tool option of the executable, not part of the editor's
  // configuration: it renders the window, writes a PNG once the stage has loaded or failed, and
  // exits.
  const std::optional<ui::ScreenshotRequest> screenshot = ui::screenshotRequest(arguments);
  if (screenshot && !screenshot->problem.isEmpty()) {
    std::fprintf(stderr, "OrvanUsdEditor: screenshot failed: %s\n",
                 qPrintable(screenshot->problem));
    return 2;
  }

  QApplication application(argc, argv);
  QApplication::setApplicationName("OrvanUsdEditor");

  // One editor per user receives links: a later launch with links hands them over and ends.
  // Links nobody took stay with this launch, which becomes the editor.
  std::vector<std::string> launchURLs = urlsAmong(arguments);
  const QString instanceName = ui::editorInstanceServerName();
  if (!launchURLs.empty()) {
    launchURLs = linksNobodyTook(std::move(launchURLs), instanceName);
    if (launchURLs.empty())
      return 0;
  }

  ui::applyEditorTheme(application);
  LinuxPlatform platform;
  ui::OrvanUsdEditorApp app(std::move(configuration), platform.ports(), launchURLs, instanceName);
  app.show();

  if (screenshot) {
    ui::WindowCaptureOptions options;
    options.path = screenshot->path;
    // The stage first; then the viewport's first frame, for a limited time.
    const auto viewportDeadline = std::chrono::steady_clock::now() + kViewportFrameWait;
    options.isSettled = [&app, viewportDeadline] {
      if (!readyForScreenshot(app.model()))
        return false;
      return viewportShowedFrame(app.window()) ||
             std::chrono::steady_clock::now() >= viewportDeadline;
    };
    options.beforeCapture = [&app] { app.window().presentForScreenshot(); };
    ui::captureWindowWhenSettled(
        app.window(), options, [&app](int exitCode, const QString& reason) {
          if (!viewportShowedFrame(app.window())) {
            std::fprintf(stderr,
                         "OrvanUsdEditor: screenshot: the viewport showed no frame within %lld s\n",
                         static_cast<long long>(kViewportFrameWait.count()));
          }
          if (exitCode != 0) {
            std::fprintf(stderr, "OrvanUsdEditor: screenshot failed: %s\n", qPrintable(reason));
          }
          QApplication::exit(exitCode);
        });
  }
  return application.exec();
}

}  // namespace
}  // namespace orvan::app

// Everything, from ignoring broken pipes to the event loop, happens here: the process builds the
// real platform and hands it to the widgets as ports.
int main(int argc, char** argv) {
  return orvan::app::run(argc, argv);
}
