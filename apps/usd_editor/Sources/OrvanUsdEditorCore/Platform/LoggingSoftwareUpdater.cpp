#include "Platform/LoggingSoftwareUpdater.h"

#include <spdlog/spdlog.h>

namespace orvan::editor {

void LoggingSoftwareUpdater::start() {
  if (started_)
    return;
  started_ = true;
  spdlog::info("updater started; updates come from the system's packages{}{}",
               feedURL_.empty() ? "" : ", feed ", feedURL_);
}

void LoggingSoftwareUpdater::checkForUpdates() {
  if (!started_)
    start();
  spdlog::info("update check requested; install updates with the system's package manager");
}

}  // namespace orvan::editor
