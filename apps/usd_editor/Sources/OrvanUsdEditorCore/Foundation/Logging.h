#pragma once

#include <string>
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

// The end of a long text for a log line or a detail view: a helper's last words are what explain
// its failure, and a flooding helper must not flood the log. Cut at a character boundary, with
// "…" in front when something was cut.
std::string textTail(std::string_view text, std::size_t maxBytes = 2048);

}  // namespace orvan::editor
