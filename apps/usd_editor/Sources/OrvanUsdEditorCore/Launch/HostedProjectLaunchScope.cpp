#include "Launch/HostedProjectLaunchScope.h"

#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

// A stored scene, made absolute against the stored project path when it is relative and that
// path is not empty.
std::string storedScenePath(const HostedProjectLaunchScope& stored) {
  if (stored.scenePath.empty())
    return {};
  if (!hasPrefix(stored.scenePath, "/") && !stored.projectPath.empty()) {
    return standardizePath(joinPath(stored.projectPath, stored.scenePath));
  }
  return standardizePath(stored.scenePath);
}

}  // namespace

std::string launchScopeServerKey(std::string_view serverURL) {
  std::string_view key = trimWhitespaceAndNewlines(serverURL);
  while (!key.empty() && key.back() == '/')
    key.remove_suffix(1);
  return lowercased(key);
}

std::string hostedScenePath(std::string_view scene, std::string_view projectPath) {
  const std::string_view trimmedScene = trimWhitespaceAndNewlines(scene);
  if (trimmedScene.empty())
    return {};
  if (hasPrefix(trimmedScene, "/"))
    return standardizePath(trimmedScene);
  if (projectPath.empty())
    return std::string(trimmedScene);
  return standardizePath(joinPath(projectPath, trimmedScene));
}

void applyRememberedLaunchScope(EditorConfiguration& configuration,
                                const std::optional<HostedProjectLaunchScope>& stored) {
  const bool explicitScope = !isBlank(configuration.projectId) ||
                             !isBlank(configuration.projectPath) ||
                             !isBlank(configuration.scenePath);
  if (stored && !explicitScope) {
    configuration.projectId = stored->projectId;
    configuration.projectPath = stored->projectPath;
    configuration.scenePath = storedScenePath(*stored);
    configuration.workspace = stored->workspace.empty() ? "main" : stored->workspace;
  } else if (stored && configuration.projectId == stored->projectId) {
    if (configuration.projectPath.empty())
      configuration.projectPath = stored->projectPath;
    if (configuration.scenePath.empty())
      configuration.scenePath = storedScenePath(*stored);
  }
  if (!isBlank(configuration.projectPath) && !isBlank(configuration.scenePath) &&
      !hasPrefix(configuration.scenePath, "/")) {
    configuration.scenePath =
        standardizePath(joinPath(configuration.projectPath, configuration.scenePath));
  }
}

}  // namespace orvan::editor
