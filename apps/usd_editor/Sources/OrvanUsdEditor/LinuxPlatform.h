#pragma once

#include <string>

#include <QDesktopServices>
#include <QString>
#include <QUrl>

#include "App/OrvanUsdEditorApp.h"
#include "Foundation/ThreadPool.h"
#include "Platform/CurlHttpClient.h"
#include "Platform/LoggingSoftwareUpdater.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PosixSharedSurfaceLookup.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "QtMainExecutor.h"

namespace orvan::app {

// The real adapters the editor runs on, built here and nowhere else: the widget library receives
// them as ports. Declaration order is destruction order reversed: the thread pool goes first
// (finishing the work it holds), while the launcher and stores that work uses still exist, and
// the main executor it replies to outlives it.
struct LinuxPlatform {
  ui::QtMainExecutor main;
  editor::PosixProcessLauncher processes;
  editor::PosixSharedSurfaceLookup surfaces;
  editor::CurlHttpClient http{main};
  editor::JsonFilePreferencesStore preferences{editor::JsonFilePreferencesStore::defaultFile()};
  editor::SystemSecretStore secrets;
  editor::LoggingSoftwareUpdater updater;  // created without starting
  editor::ThreadPool background;

  ui::OrvanUsdEditorAppPorts ports() {
    return {main,
            background,
            preferences,
            secrets,
            processes,
            http,
            updater,
            [](const std::string& url) {
              return QDesktopServices::openUrl(QUrl(QString::fromStdString(url)));
            },
            &surfaces};
  }
};

}  // namespace orvan::app
