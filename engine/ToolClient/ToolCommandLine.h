#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::engine {

enum class ToolClientMode { kWatch, kPublishPresence };

struct ToolClientCommandLine {
  ToolClientMode mode = ToolClientMode::kPublishPresence;
  std::string address;
  std::string clientId;
  std::string displayName;
  std::string color;
  std::string scene;
  std::string workspace;
  std::string activeLayer;
  std::vector<std::string> selectedPaths;
  // The watcher ends when no byte came for this long (the server's heartbeats stopped).
  std::chrono::milliseconds silence{10000};

  bool operator==(const ToolClientCommandLine&) const = default;
};

struct ToolCommandLineResult {
  std::optional<ToolClientCommandLine> commandLine;
  std::string error;
};

// Parses the arguments after the program name (options in any order):
//   --address ADDR --client-id C --watch --json-lines [--scene S] [--workspace W]
//       [--silence-timeout SECONDS]
//   --address ADDR --client-id C --display-name N --color COL [--scene S] [--workspace W]
//       --json-lines [--active-layer L] [--select PATH]...
ToolCommandLineResult parseToolClientArguments(const std::vector<std::string_view>& arguments);

extern const std::string_view kToolClientUsage;

}  // namespace orvan::engine
