// The project stream: the project's assets, workspaces and the people and agents around it. It
// follows each stage by a short delay, and only the newest answer is ever applied.
#include <algorithm>
#include <chrono>
#include <filesystem>

#include <spdlog/spdlog.h>

#include "Assets/ProjectAssetList.h"
#include "Foundation/Logging.h"
#include "ServerClient/HostedSceneReference.h"
#include "ServerClient/ProjectDataFeed.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/records/ErrorEnvelope.h"
#include "orvan/wire/records/ProjectAssetKind.h"

namespace orvan::editor {

namespace {

constexpr auto kRequestTimeout = std::chrono::seconds(60);
constexpr auto kIncompleteCatalogPoll = std::chrono::milliseconds(250);
constexpr std::string_view kStoreScheme = "store://";

using ProjectResult = Result<std::shared_ptr<const ProjectResponse>>;

ProjectResult decodeProjectResponse(const std::string& body) {
  Result<ProjectResponse> decoded = decodeJson<ProjectResponse>(body, "project");
  if (!decoded.ok())
    return decoded.error();
  return std::make_shared<const ProjectResponse>(std::move(*decoded));
}

std::string fileName(std::string_view path) {
  const auto slash = path.find_last_of('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

// The one row a project without a known folder has: its scene.
ProjectAssetItem sceneOnlyAsset(const std::string& scenePath) {
  ProjectAssetItem item;
  item.path = scenePath;
  item.name = fileName(scenePath);
  item.kind = projectAssetKind(scenePath);
  return item;
}

bool isStoreLinked(const UsdAsset& asset) {
  return hasPrefix(asset.storeURI, kStoreScheme) || hasPrefix(asset.source, kStoreScheme);
}

// Whether an answer describes the project on screen: a server that names another folder than the
// one open answered for a place the user has left.
bool describesOpenProject(const ProjectResponse& project, std::string_view openProjectPath) {
  if (!project.path || isBlank(*project.path) || isBlank(openProjectPath))
    return true;
  return standardizePath(trimmed(*project.path)) == standardizePath(trimmed(openProjectPath));
}

}  // namespace

void ProjectDataFeed::refreshProjectData(bool forceReload) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const std::uint64_t generation = ++projectDataGeneration;
  if (context_.server.isHosted()) {
    refreshRemoteProjectDataOnce(generation, forceReload);
    return;
  }
  // Local: the project folder on disk, listed off the main thread; no network.
  const std::string root = trimmed(context_.scope.projectPath());
  if (root.empty()) {
    localProjectFileAssets_.clear();
    const std::string scene = trimmed(context_.scope.scenePath());
    if (!scene.empty())
      localProjectFileAssets_.push_back(sceneOnlyAsset(scene));
    publishLocalProjectAssets();
    return;
  }
  const WeakLifetime weak = lifetime_.weak();
  projectDataTask_.replace(postTaskAndReply(
      context_.background, context_.main,
      [root](std::stop_token) { return projectAssetList(std::filesystem::path(root)); },
      [this, weak, generation](std::vector<ProjectAssetItem> rows) {
        if (!weak.isAlive() || generation != projectDataGeneration)
          return;
        projectDataTask_.clear();
        localProjectFileAssets_ = std::move(rows);
        publishLocalProjectAssets();
      }));
}

void ProjectDataFeed::publishLocalProjectAssets() {
  std::vector<ProjectAssetItem> rows = localProjectFileAssets_;
  for (const ProjectAssetItem& stageRow : localStageStoreAssets_) {
    const bool listed = std::any_of(rows.begin(), rows.end(), [&](const ProjectAssetItem& row) {
      return row.path == stageRow.path;
    });
    if (!listed)
      rows.push_back(stageRow);
  }
  projectAssetCatalogLoading = false;
  publishProjectAssets(
      projectAssetsOverlayingPendingCreations(pendingCreatedProjectAssets, std::move(rows)));
}

void ProjectDataFeed::publishProjectAssets(std::vector<ProjectAssetItem> rows) {
  DocumentPublisher& documents = context_.documents;
  if (rows == documents.projectAssets)
    return;
  documents.projectAssets = std::move(rows);
  documents.scheduleClientDocumentRebuild(false, true);
}

void ProjectDataFeed::publishProjectAssetsFromStage(const std::vector<UsdAsset>& assets) {
  if (context_.server.isHosted())
    return;  // the project stream owns the list of a hosted project
  std::vector<ProjectAssetItem> storeRows;
  for (const UsdAsset& asset : assets) {
    if (!isStoreLinked(asset))
      continue;
    ProjectAssetItem row;
    row.path = !asset.path.empty() ? asset.path : asset.source;
    row.name = asset.name;
    row.kind = projectAssetKind(row.path);
    row.assetPath = !asset.storeURI.empty() ? asset.storeURI : asset.source;
    storeRows.push_back(std::move(row));
  }
  context_.server.projectSceneRef = hostedSceneReference("", context_.scope.projectPath(),
                                                         context_.stage.get()->stage().sceneUri);
  if (storeRows == localStageStoreAssets_)
    return;
  localStageStoreAssets_ = std::move(storeRows);
  publishLocalProjectAssets();
}

void ProjectDataFeed::refreshRemoteProjectDataOnce(std::uint64_t generation, bool forceReload) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  ServerSession& server = context_.server;
  if (context_.startup.initialProjectNeedsSignIn || !context_.scope.hasProjectServerContext())
    return;
  const std::optional<std::string> url = !isBlank(context_.scope.projectServerURL())
                                             ? server.projectServerAPIURL("/api/project")
                                             : server.remoteURL("/api/project");
  if (!url)
    return;
  const std::string token = server.velkSessionToken;
  HttpRequest request;
  request.url = *url;
  request.timeout = kRequestTimeout;
  request.maxResponseBytes = kLargeDocumentMaxResponseBytes;
  std::shared_ptr<const ProjectResponse> cached;
  if (!forceReload) {
    if (const CachedProjectResponse* entry = server.projectResponseCache.find(*url)) {
      cached = entry->project;
      request.setHeader("If-None-Match", entry->etag);
    }
  }

  const WeakLifetime weak = lifetime_.weak();
  auto fail = [this, weak, generation, token](const RequestFailure& failure) {
    if (!weak.isAlive() || generation != projectDataGeneration || failure.isCancellation())
      return;
    projectDataTask_.clear();
    if (isUnauthorizedError(failure)) {
      hooks.signInRequired(token);
      return;
    }
    const VelkConnectionIssue issue = velkConnectionIssue(failure);
    spdlog::warn(
        "Velk editor project refresh failure code={} domain={} nativeCode={} diagnostic={}",
        issue.code, failure.error.domain, failure.error.code, textTail(issue.diagnostic));
    context_.startup.registerConnectionIssue(issue);
    context_.status.set("Project refresh failed: " + issue.message);
    projectAssetCatalogLoading = false;
    hooks.projectFailed(issue.message);
  };
  auto apply = [this, weak, generation](std::shared_ptr<const ProjectResponse> project) {
    if (!weak.isAlive() || generation != projectDataGeneration)
      return;
    projectDataTask_.clear();
    applyRemoteProjectResponse(*project);
  };

  projectDataTask_.replace(server.authorizedData(
      std::move(request), false,
      [this, weak, generation, url = *url, cached, fail,
       apply](RequestResult<HttpResponse> answer) {
        if (!weak.isAlive() || generation != projectDataGeneration)
          return;
        if (!answer.ok())
          return fail(answer.error());
        const int statusCode = answer->statusCode;
        if (statusCode == 304) {
          spdlog::info("project metadata cache hit generation={}", generation);
          if (!cached)
            return fail(httpError(304, "Project cache returned no response body"));
          return apply(cached);
        }
        if (statusCode < 200 || statusCode > 299) {
          const auto body = decodeJson<VelkErrorBody>(answer->body);
          context_.timing.projectTiming(
              context_.main.now(),
              "GET /api/project -> HTTP " + std::to_string(statusCode) +
                  " code=" + (body.ok() ? body->code.value_or("") : std::string()) + " url=" + url);
          return fail(httpError(statusCode, "HTTP " + std::to_string(statusCode)));
        }
        const std::string etag = answer->header("ETag").value_or("");
        // A project of many assets is decoded off the main thread.
        projectDataTask_.replace(postTaskAndReply(
            context_.background, context_.main,
            [body = std::move(answer.value().body)](std::stop_token) {
              return decodeProjectResponse(body);
            },
            [this, weak, generation, url, etag, fail, apply](ProjectResult decoded) {
              if (!weak.isAlive() || generation != projectDataGeneration)
                return;
              if (!decoded.ok())
                return fail(decoded.error());
              if (!etag.empty())
                context_.server.projectResponseCache.remember(url, {*decoded, etag, 0});
              apply(std::move(*decoded));
            }));
      }));
}

void ProjectDataFeed::scheduleProjectMetadataRefresh(Duration delay) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  if (!context_.server.isHosted()) {
    refreshProjectData(false);
    return;
  }
  if (context_.scope.seamlessWorkspaceTransitionInFlight)
    return;
  const std::uint64_t generation = ++projectMetadataRefreshGeneration;
  const WeakLifetime weak = lifetime_.weak();
  // Several requests in a short while make one fetch: each replaces the wait of the one before.
  projectMetadataRefreshTask_.replace(context_.main.postAfter(delay, [this, weak, generation] {
    if (!weak.isAlive() || generation != projectMetadataRefreshGeneration)
      return;
    projectMetadataRefreshTask_.clear();
    refreshRemoteProjectDataOnce(++projectDataGeneration, false);
  }));
}

void ProjectDataFeed::applyRemoteProjectResponse(const ProjectResponse& project) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  if (!describesOpenProject(project, context_.scope.projectPath())) {
    spdlog::info("project data for {} ignored: {} is open", project.path.value_or(""),
                 context_.scope.projectPath());
    return;
  }
  const bool complete = project.assetCatalogComplete.value_or(true);
  const std::string scopeKey = (project.id ? *project.id : context_.scope.projectId()) + "\n" +
                               context_.scope.transportWorkspace();
  ProjectAssetCatalogReconciliation reconciled = projectAssetCatalogStore.reconcile(
      scopeKey, project.assetCatalogHeadKey.value_or(""), project.assets, complete);
  // Created assets that the server now lists are no longer pending.
  std::erase_if(pendingCreatedProjectAssets, [&](const auto& entry) {
    return std::any_of(
        reconciled.assets.begin(), reconciled.assets.end(), [&](const ProjectAssetItem& row) {
          return projectAssetAuthoritativelyConfirmsPendingCreation(entry.second.asset, row);
        });
  });
  publishProjectAssets(projectAssetsOverlayingPendingCreations(pendingCreatedProjectAssets,
                                                               std::move(reconciled.assets)));
  projectAssetCatalogLoading = !complete;
  activeSceneClients = project.activeSceneClients.value_or(decltype(activeSceneClients){});
  activeAgents = project.activeAgents.value_or(std::vector<SceneClientSummary>{});
  workspaceComments = project.workspaceComments.value_or(std::vector<ProjectWorkspaceComment>{});
  hooks.projectApplied(project);
  // The server is still putting its catalogue together: ask again shortly until it is whole.
  if (!complete)
    scheduleProjectMetadataRefresh(kIncompleteCatalogPoll);
}

}  // namespace orvan::editor
