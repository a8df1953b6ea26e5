#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Foundation/Observable.h"
#include "Launch/EditorConfiguration.h"
#include "Launch/HostedProjectLaunchScope.h"
#include "Launch/SharedClientScope.h"

namespace orvan::editor {

// Where the editor is: server, project, project folder, scene, workspace and active layer, held as
// one observable value. Every reader takes the place from here; a move to another place is one
// change. The launch configuration only says where the editor started.
class EditorScope {
 public:
  explicit EditorScope(SharedClientScope initial) : current(std::move(initial)) {}
  EditorScope(const EditorScope&) = delete;
  EditorScope& operator=(const EditorScope&) = delete;

  Observable<SharedClientScope> current;
  // A move to another project or workspace that is under way.
  bool projectConnectionInFlight = false;
  bool seamlessWorkspaceTransitionInFlight = false;
  std::string projectTransitionMessage;

  const SharedClientScope& get() const { return current.get(); }
  const std::string& projectServerURL() const { return get().server; }
  const std::string& projectId() const { return get().project; }
  const std::string& projectPath() const { return get().projectRoot; }
  const std::string& scenePath() const { return get().scene; }
  const std::string& currentWorkspace() const { return get().workspace; }
  const std::string& activeLayerIdentifier() const { return get().activeLayer; }

  // The workspace every request names: "main" when none is set.
  std::string transportWorkspace() const;
  // `scene` as requests name it, against the open project's folder.
  std::string hostedScenePath(std::string_view scene) const;
  // The place as the client core compares places: the scene as requests name it, and the
  // workspace that requests name.
  SharedClientScope sharedScope() const;
  // Whether a project, a folder or a scene is named at all.
  bool hasProjectServerContext() const;
};

// The first place of a launch: what the arguments said, merged with the place remembered for
// their server, and the workspace "main" when none was named.
SharedClientScope launchScope(const EditorConfiguration& configuration,
                              const std::optional<HostedProjectLaunchScope>& stored);

}  // namespace orvan::editor
