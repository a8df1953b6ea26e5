#include "Launch/EditorScope.h"

#include "orvan/wire/Text.h"

namespace orvan::editor {

std::string EditorScope::transportWorkspace() const {
  return currentWorkspace().empty() ? "main" : currentWorkspace();
}

std::string EditorScope::hostedScenePath(std::string_view scene) const {
  return editor::hostedScenePath(scene, projectPath());
}

SharedClientScope EditorScope::sharedScope() const {
  SharedClientScope scope = get();
  scope.scene = hostedScenePath(scope.scene);
  scope.workspace = transportWorkspace();
  return scope;
}

bool EditorScope::hasProjectServerContext() const {
  return !isBlank(projectId()) || !isBlank(projectPath()) || !isBlank(scenePath());
}

SharedClientScope launchScope(const EditorConfiguration& configuration,
                              const std::optional<HostedProjectLaunchScope>& stored) {
  EditorConfiguration merged = configuration;
  applyRememberedLaunchScope(merged, stored);
  return SharedClientScope{.server = merged.projectServerURL,
                           .project = merged.projectId,
                           .projectRoot = merged.projectPath,
                           .scene = merged.scenePath,
                           .workspace = merged.workspace.empty() ? "main" : merged.workspace,
                           .activeLayer = {}};
}

}  // namespace orvan::editor
