#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Launch/EditorConfiguration.h"
#include "orvan/wire/JsonFields.h"

namespace orvan::editor {

// The remembered place per project server: which project, scene and workspace were open.
struct HostedProjectLaunchScope {
  std::string projectId;
  std::string projectPath;
  std::string scenePath;
  std::string workspace;

  bool operator==(const HostedProjectLaunchScope&) const = default;
  static auto jsonFields() {
    using T = HostedProjectLaunchScope;
    return std::tuple{
        json::required("projectId", &T::projectId), json::required("projectPath", &T::projectPath),
        json::required("scenePath", &T::scenePath), json::required("workspace", &T::workspace)};
  }
};

// The remembered scopes of every server, by server key.
using HostedProjectLaunchScopes = std::map<std::string, HostedProjectLaunchScope>;

// Scopes are remembered per server; "HTTPS://Host/" and "https://host" are the same server.
std::string launchScopeServerKey(std::string_view serverURL);

// A scene path as requests name it: trimmed; absolute ones standardised; relative ones joined to
// the project path and standardised, or returned as they are without a project path.
std::string hostedScenePath(std::string_view scene, std::string_view projectPath);

// Applies a remembered scope to a fresh configuration. With no explicit scope on the command
// line the stored one is taken whole; with an explicit scope of the same project only its gaps
// are filled; an explicit scope of another project ignores the stored one. Finally a relative
// scene is made absolute against the project path.
void applyRememberedLaunchScope(EditorConfiguration& configuration,
                                const std::optional<HostedProjectLaunchScope>& stored);

}  // namespace orvan::editor
