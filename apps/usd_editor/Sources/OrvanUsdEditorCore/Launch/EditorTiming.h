#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Foundation/Executors.h"

namespace orvan::editor {

// Diagnostic switches read once at launch from the environment, and the project timing log.
struct EditorTiming {
  bool timingLogsEnabled = false;
  bool projectTimingEnabled = false;
  std::string projectSwitchProfileTarget;
  std::optional<TimePoint> projectSwitchTimingStartedAt;

  // The switches as the environment sets them.
  static EditorTiming fromEnvironment();
  // A line of the project timing log, when that log is on; `now` dates it.
  void projectTiming(TimePoint now, std::string_view text) const;
};

}  // namespace orvan::editor
