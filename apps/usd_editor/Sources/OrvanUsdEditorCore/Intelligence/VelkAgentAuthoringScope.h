#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::editor {

// Where an agent request acts: the server, the credential and the exact project, workspace and
// scene the user is looking at, with the selection and the active layer at the moment of the
// submit. The editor builds one for each submit, so a run keeps acting on the scope it started in
// even when the user moves on.
struct VelkAgentAuthoringScope {
  std::string serverURL;
  std::string authToken;
  std::string profileId;
  std::string clientId;
  std::string projectId;
  std::string workspaceId;
  std::string scenePath;
  std::string activeLayerId;
  std::vector<std::string> selectedPaths;
  std::uint64_t baseRevision = 0;
  std::string cameraContext;

  bool operator==(const VelkAgentAuthoringScope&) const = default;
};

// The scene as the server's agent tools name it: the scene path without its leading "/Scenes/"
// or "Scenes/" (only one of them, once).
std::string agentSceneIdentifier(std::string_view scenePath);

}  // namespace orvan::editor
