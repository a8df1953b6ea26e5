#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Assets/PendingCreatedProjectAsset.h"
#include "Assets/ProjectAssetCatalogStore.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorScope.h"
#include "Launch/EditorTiming.h"
#include "Presentation/DocumentPublisher.h"
#include "Presentation/PreparedStage.h"
#include "ServerClient/ServerSession.h"
#include "ServerClient/StartupState.h"
#include "orvan/wire/records/ProjectAssetItem.h"
#include "orvan/wire/records/ProjectResponse.h"

namespace orvan::editor {

// The project stream: the project's assets, workspaces and the people and agents around it. It
// follows each stage by a short delay, and only the newest answer is ever applied. In local mode
// the project is the folder on disk.
class ProjectDataFeed {
 public:
  struct Context {
    MainExecutor& main;
    BackgroundExecutor& background;
    const EditorScope& scope;
    StartupState& startup;
    ServerSession& server;
    Observable<std::string>& status;
    const Observable<std::shared_ptr<const PreparedStage>>& stage;
    // The document shows the asset rows this feed publishes.
    DocumentPublisher& documents;
    const EditorTiming& timing;
  };
  // What the rest of the editor does with the project's data.
  struct Hooks {
    // The project answered: its place, workspaces and profiles are taken.
    std::function<void(const ProjectResponse&)> projectApplied = [](const ProjectResponse&) {};
    // The project could not be read: the workspace catalogue shows why.
    std::function<void(const std::string& message)> projectFailed = [](const std::string&) {};
    // The server refused the session the request was sent with.
    std::function<void(const std::string& expectedSessionToken)> signInRequired =
        [](const std::string&) {};
  };

  explicit ProjectDataFeed(Context context) : context_(context) {}
  ProjectDataFeed(const ProjectDataFeed&) = delete;
  ProjectDataFeed& operator=(const ProjectDataFeed&) = delete;

  Hooks hooks;
  std::uint64_t projectDataGeneration = 0;
  std::uint64_t projectMetadataRefreshGeneration = 0;
  bool projectAssetCatalogLoading = false;
  ProjectAssetCatalogStore projectAssetCatalogStore;
  std::map<std::string, PendingCreatedProjectAsset> pendingCreatedProjectAssets;
  std::map<std::string, std::vector<SceneClientSummary>> activeSceneClients;
  std::vector<SceneClientSummary> activeAgents;
  std::vector<ProjectWorkspaceComment> workspaceComments;

  void refreshProjectData(bool forceReload);
  void refreshRemoteProjectDataOnce(std::uint64_t generation, bool forceReload);
  // Several requests in a short while make one fetch: each replaces the wait of the one before.
  void scheduleProjectMetadataRefresh(Duration delay);
  void applyRemoteProjectResponse(const ProjectResponse& project);
  // In local mode the stage's store-linked assets join the folder's files.
  void publishProjectAssetsFromStage(const std::vector<UsdAsset>& assets);

 private:
  void publishLocalProjectAssets();
  // Shows `rows`; the document follows when they differ from what it shows.
  void publishProjectAssets(std::vector<ProjectAssetItem> rows);

  Context context_;
  LifetimeToken lifetime_;
  TaskSlot projectDataTask_;
  TaskSlot projectMetadataRefreshTask_;
  // The project folder's own files in local mode; the stage's store-linked assets join them.
  std::vector<ProjectAssetItem> localProjectFileAssets_;
  std::vector<ProjectAssetItem> localStageStoreAssets_;
};

}  // namespace orvan::editor
