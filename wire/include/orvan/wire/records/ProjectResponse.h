#pragma once

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"
#include "orvan/wire/records/ProjectAssetItem.h"
#include "orvan/wire/records/ProjectRecords.h"
#include "orvan/wire/records/WorkspaceRecords.h"

namespace orvan::editor {

// The project as the server sees it right now: where it is, which scene and workspace are open,
// who is around, and its assets. Only the label and the asset rows are always there; what an
// absent field means is the caller's decision.
struct ProjectResponse {
  std::optional<std::string> id = {};
  std::string label = {};
  std::optional<std::string> path = {};
  std::optional<std::string> scene = {};
  std::optional<std::string> sceneRef = {};
  std::optional<std::string> mainScene = {};
  std::optional<std::string> workspace = {};
  std::optional<std::vector<ProjectWorkspaceSummary>> workspaces = {};
  // Keyed by scene reference.
  std::optional<std::map<std::string, std::vector<SceneClientSummary>>> activeSceneClients = {};
  std::optional<std::vector<SceneClientSummary>> activeAgents = {};
  std::optional<std::vector<UserProfileSummary>> profiles = {};
  std::optional<std::vector<ProjectWorkspaceComment>> workspaceComments = {};
  std::optional<std::string> assetCatalogHeadKey = {};
  std::optional<bool> assetCatalogComplete = {};
  std::vector<ProjectAssetItem> assets = {};

  bool operator==(const ProjectResponse&) const = default;
  static auto jsonFields() {
    using T = ProjectResponse;
    return std::tuple{json::optional("id", &T::id),
                      json::required("label", &T::label),
                      json::optional("path", &T::path),
                      json::optional("scene", &T::scene),
                      json::optional("sceneRef", &T::sceneRef),
                      json::optional("mainScene", &T::mainScene),
                      json::optional("workspace", &T::workspace),
                      json::optional("workspaces", &T::workspaces),
                      json::optional("activeSceneClients", &T::activeSceneClients),
                      json::optional("activeAgents", &T::activeAgents),
                      json::optional("profiles", &T::profiles),
                      json::optional("workspaceComments", &T::workspaceComments),
                      json::optional("assetCatalogHeadKey", &T::assetCatalogHeadKey),
                      json::optional("assetCatalogComplete", &T::assetCatalogComplete),
                      json::required("assets", &T::assets)};
  }
};

}  // namespace orvan::editor
