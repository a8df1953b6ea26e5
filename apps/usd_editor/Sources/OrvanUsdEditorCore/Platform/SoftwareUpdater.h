#pragma once

#include <chrono>

#include "Foundation/Executors.h"
#include "Foundation/Task.h"

namespace orvan::editor {

// The editor's updater: created without starting, started once a little after the window is up
// (so that a check never competes with the first stage load), and asked to check on demand.
class SoftwareUpdater {
 public:
  virtual ~SoftwareUpdater() = default;
  // Starts the updater. Calls after the first do nothing.
  virtual void start() = 0;
  virtual bool isStarted() const = 0;
  // "Check for Updates..." from the menu.
  virtual void checkForUpdates() = 0;
};

inline constexpr std::chrono::seconds kSoftwareUpdaterStartDelay{3};

// Starts `updater` after `kSoftwareUpdaterStartDelay` on the main thread. Cancelling the returned
// handle before then means the updater is never started by it.
inline TaskHandle scheduleSoftwareUpdaterStart(MainExecutor& main, SoftwareUpdater& updater) {
  return main.postAfter(kSoftwareUpdaterStartDelay, [&updater] { updater.start(); });
}

}  // namespace orvan::editor
