#pragma once

#include <string_view>

#include <spdlog/spdlog.h>

namespace orvan::editor {

// Sends the default logger to the system log (identity `identity`) and to standard error.
// Called once by each executable's main; before it, spdlog's own default (stderr) applies.
void initializeLogging(std::string_view identity);

// Whether a diagnostics switch such as ORVAN_GIZMO_TIMING is on: it is off when unset, empty,
// "0" or "false" in any letter case, and on for anything else.
bool isDiagnosticFlagEnabled(std::string_view variableName);
bool isDiagnosticFlagValueEnabled(const char* value);

}  // namespace orvan::editor
