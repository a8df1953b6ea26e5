#include "Launch/EditorTiming.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <spdlog/spdlog.h>

#include "Foundation/Logging.h"

namespace orvan::editor {

EditorTiming EditorTiming::fromEnvironment() {
  EditorTiming timing;
  timing.projectTimingEnabled = isDiagnosticFlagEnabled("ORVAN_PROJECT_SWITCH_TIMING");
  if (const char* target = std::getenv("ORVAN_PROFILE_OPEN_PROJECT_AFTER_START")) {
    timing.projectSwitchProfileTarget = target;
  }
  timing.timingLogsEnabled = isDiagnosticFlagEnabled("ORVAN_GIZMO_TIMING");
  return timing;
}

void EditorTiming::projectTiming(TimePoint now, std::string_view text) const {
  if (!projectTimingEnabled)
    return;
  std::string line = "Velk project timing";
  if (projectSwitchTimingStartedAt) {
    char since[48];
    std::snprintf(since, sizeof since, " t=%.3fs",
                  std::chrono::duration<double>(now - *projectSwitchTimingStartedAt).count());
    line += since;
  }
  spdlog::info("{}: {}", line, text);
}

}  // namespace orvan::editor
