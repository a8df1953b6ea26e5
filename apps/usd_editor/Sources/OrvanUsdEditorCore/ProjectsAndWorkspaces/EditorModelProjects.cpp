// Hosted projects and workspaces: which project a launch opens when it did not say, the catalogue
// of workspaces, and the place the project's own data reports.
#include <algorithm>
#include <chrono>

#include <spdlog/spdlog.h>

#include "Application/EditorModel.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/records/WorkspaceRecords.h"

namespace orvan::editor {

namespace {

constexpr auto kStartupProjectsTimeout = std::chrono::seconds(8);
constexpr std::string_view kMainWorkspace = "main";

// Kept out of line: inlined into the callbacks, GCC 12 mistakes the answer's variant for
// uninitialised.
template <class Record>
[[gnu::noinline]] RequestResult<Record> decodeAnswer(const RequestResult<HttpResponse>& answer) {
  if (!answer.ok()) return answer.error();
  if (answer->statusCode < 200 || answer->statusCode > 299) {
    return RequestFailure(httpError(answer->statusCode, "HTTP " + std::to_string(answer->statusCode)));
  }
  Result<Record> decoded = decodeJson<Record>(answer->body);
  if (!decoded.ok()) return RequestFailure(decoded.error());
  return std::move(*decoded);
}

const HostedProject* chooseStartupProject(const std::vector<HostedProject>& projects,
                                          const std::string& projectId) {
  auto first = [&](auto predicate) -> const HostedProject* {
    const auto found = std::find_if(projects.begin(), projects.end(), predicate);
    return found == projects.end() ? nullptr : &*found;
  };
  auto hasScene = [](const HostedProject& project) { return !isBlank(project.scenePath); };
  if (!projectId.empty()) {
    if (auto* asked = first([&](const HostedProject& p) { return p.stableId == projectId; })) return asked;
  }
  if (auto* current = first([&](const HostedProject& p) { return p.isCurrent && hasScene(p); })) return current;
  return first(hasScene);
}

ProjectWorkspaceSummary workspaceSummary(const std::string& id) {
  ProjectWorkspaceSummary summary;
  summary.id = id;
  summary.name = id == kMainWorkspace ? "Main" : id;
  return summary;
}

}  // namespace

SharedClientScope EditorModel::currentSharedScope() const {
  return SharedClientScope{configuration.projectServerURL, projectId.get(), configuration.projectPath,
                           hostedScenePath(configuration.scenePath), transportWorkspace(),
                           activeLayerIdentifier};
}

void EditorModel::fetchHostedProjectsResponse(
    std::optional<Duration> timeout, bool publishConnectionIssue,
    std::function<void(RequestResult<HostedProjectsResponse>)> done) {
  const std::optional<std::string> url = projectServerAPIURL("/api/projects");
  if (!url) {
    done(RequestFailure(httpError(0, "Invalid project server URL")));
    return;
  }
  hostedProjectsTask_.replace(authorizedData(
      *url, timeout, publishConnectionIssue, [done = std::move(done)](RequestResult<HttpResponse> answer) {
        done(decodeAnswer<HostedProjectsResponse>(answer));
      }));
}

void EditorModel::applyHostedProjectsResponse(const HostedProjectsResponse& response,
                                              bool adoptingServerCurrentScope) {
  hostedProjects.clear();
  for (const HostedProjectSummary& summary : response.projects) hostedProjects.push_back(hostedProject(summary));
  hostedProjectsLoading = false;
  hostedProjectsError.clear();
  if (!adoptingServerCurrentScope) return;
  const auto current = std::find_if(hostedProjects.begin(), hostedProjects.end(),
                                    [](const HostedProject& project) { return project.isCurrent; });
  if (current == hostedProjects.end()) return;
  configuration.projectPath = current->path;
  configuration.scenePath = editor::hostedScenePath(current->scenePath, current->path);
  projectId.set(current->stableId);
}

void EditorModel::refreshHostedProjects() {
  if (isBlank(configuration.projectServerURL)) return;
  hostedProjectsLoading = true;
  const WeakLifetime weak = lifetime_.weak();
  fetchHostedProjectsResponse(std::nullopt, true, [this, weak](RequestResult<HostedProjectsResponse> result) {
    if (!weak.isAlive()) return;
    if (!result.ok()) {
      if (result.error().isCancellation()) return;
      hostedProjectsLoading = false;
      hostedProjectsError = velkConnectionIssue(result.error()).message;
      return;
    }
    applyHostedProjectsResponse(*result, false);
  });
}

void EditorModel::openProject() {
  // The project browser lists the catalogue; it is fetched fresh each time it opens.
  showProjectBrowser.set(true);
  refreshHostedProjects();
}

void EditorModel::markStartupResolvedWithoutProject() {
  connectionIssue.set(std::nullopt);
  initialProjectResolved.set(true);
  initialProjectResponsive = false;
  initialProjectError.clear();
  initialProjectNeedsSignIn = false;
  openProject();
}

void EditorModel::resolveCurrentHostedProjectBeforeStartup(
    std::uint64_t generation, std::function<void(HostedProjectResolution)> done) {
  const std::string expectedToken = velkSessionToken;
  const WeakLifetime weak = lifetime_.weak();
  fetchHostedProjectsResponse(
      kStartupProjectsTimeout, false,
      [this, weak, generation, expectedToken, done = std::move(done)](RequestResult<HostedProjectsResponse> result) {
        if (!weak.isAlive()) return;
        if (generation != initialProjectResolutionGeneration) return done(HostedProjectResolution::stale);
        if (!result.ok()) return handleHostedProjectsFailure(result.error(), expectedToken, done);
        applyHostedProjectsResponse(*result, false);
        const HostedProject* chosen = chooseStartupProject(hostedProjects, projectId.get());
        if (!chosen) {
          markStartupResolvedWithoutProject();
          return done(HostedProjectResolution::none);
        }
        const HostedProject project = *chosen;
        retirePersistentEditClient();
        configuration.projectPath = project.path;
        configuration.scenePath = editor::hostedScenePath(project.scenePath, project.path);
        configuration.workspace = std::string(kMainWorkspace);
        projectId.set(project.stableId);
        workspaceCatalogLoading = true;
        workspaceCatalogError.clear();
        for (HostedProject& listed : hostedProjects) listed.isCurrent = listed.stableId == project.stableId;
        configuration.remoteStageURL.clear();  // the stage address follows the chosen project
        configureRuntimeForProjectServerIfNeeded();
        initialProjectNeedsSignIn = false;
        done(HostedProjectResolution::chosen);
      });
}

void EditorModel::handleHostedProjectsFailure(const RequestFailure& failure, const std::string& expectedToken,
                                              const std::function<void(HostedProjectResolution)>& done) {
  if (failure.isCancellation()) return done(HostedProjectResolution::stale);
  const VelkConnectionIssue issue = velkConnectionIssue(failure);
  switch (issue.primaryAction) {
    case VelkConnectionAction::login:
      requireVelkSignIn(expectedToken);
      return done(HostedProjectResolution::failed);
    case VelkConnectionAction::chooseProject:
      markStartupResolvedWithoutProject();
      return done(HostedProjectResolution::none);
    case VelkConnectionAction::none:
    case VelkConnectionAction::retry:
    case VelkConnectionAction::requestAccess:
      handleConnectionFailure(failure, "Project load failed");
      return done(HostedProjectResolution::failed);
  }
}

// ---- Workspaces

void EditorModel::setWorkspaceState(std::string current, std::vector<ProjectWorkspaceSummary> list,
                                    bool publishPresentation) {
  workspaces = std::move(list);
  currentWorkspace = std::move(current);
  if (publishPresentation) workspacePresentation.set({currentWorkspace, workspaces});
  rememberHostedProjectLaunchScope();
}

void EditorModel::refreshWorkspaceCatalog() {
  const bool local = isBlank(configuration.projectServerURL) && isBlank(configuration.remoteStageURL);
  if (local) {
    const std::string current = currentWorkspace.empty() ? std::string(kMainWorkspace) : currentWorkspace;
    setWorkspaceState(current, {workspaceSummary(current)}, true);
    workspaceCatalogLoading = false;
    workspaceCatalogError.clear();
    return;
  }
  if (!hasProjectServerContext()) {
    workspaceCatalogLoading = false;
    workspaceCatalogError = "No project is open.";
    return;
  }
  const std::optional<std::string> url = projectServerAPIURL("/api/workspaces");
  if (!url) {
    workspaceCatalogLoading = false;
    workspaceCatalogError = "Invalid project server URL";
    return;
  }
  const std::uint64_t generation = ++workspaceCatalogRefreshGeneration;
  const SharedClientScope asked = currentSharedScope();
  workspaceCatalogLoading = true;
  workspaceCatalogError.clear();
  const WeakLifetime weak = lifetime_.weak();
  workspaceCatalogTask_.replace(authorizedData(
      *url, std::nullopt, false, [this, weak, generation, asked](RequestResult<HttpResponse> answer) {
        if (!weak.isAlive() || generation != workspaceCatalogRefreshGeneration) return;
        workspaceCatalogTask_.clear();
        auto result = decodeAnswer<ProjectWorkspaceCatalogResponse>(answer);
        if (!result.ok()) {
          if (result.error().isCancellation()) return;
          workspaceCatalogLoading = false;
          workspaceCatalogError = velkConnectionIssue(result.error()).message;
          return;
        }
        // An answer for a place the user has left since is of no use.
        if (asked != currentSharedScope()) return;
        std::vector<ProjectWorkspaceSummary> list = result->workspaces.value_or(std::vector<ProjectWorkspaceSummary>{});
        const std::string current = transportWorkspace();
        const bool listed = std::any_of(list.begin(), list.end(),
                                        [&](const ProjectWorkspaceSummary& summary) { return summary.id == current; });
        if (!listed) list.push_back(workspaceSummary(current));
        setWorkspaceState(current, std::move(list), true);
        workspaceCatalogLoading = false;
        workspaceCatalogError.clear();
      }));
}

void EditorModel::applyProjectWorkspaceState(const ProjectResponse& project) {
  if (project.id && !project.id->empty()) projectId.set(*project.id);
  projectSceneRef = project.sceneRef.value_or("");
  projectMainScene = project.mainScene.value_or("");
  activeSceneClients = project.activeSceneClients.value_or(decltype(activeSceneClients){});
  activeAgents = project.activeAgents.value_or(std::vector<SceneClientSummary>{});
  workspaceComments = project.workspaceComments.value_or(std::vector<ProjectWorkspaceComment>{});
  if (project.profiles) applyUserProfiles(*project.profiles);
  const std::string current = project.workspace && !project.workspace->empty() ? *project.workspace
                                                                               : std::string(kMainWorkspace);
  setWorkspaceState(current, project.workspaces.value_or(std::vector<ProjectWorkspaceSummary>{}), true);
  workspaceCatalogLoading = false;
  workspaceCatalogError.clear();
}

}  // namespace orvan::editor
