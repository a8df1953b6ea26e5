// Hosted projects and workspaces: which project a launch opens when it did not say, the catalogue
// of workspaces, and the place the project's own data reports.
#include <algorithm>
#include <chrono>

#include <spdlog/spdlog.h>

#include "Launch/HostedProjectLaunchScope.h"
#include "Launch/UserDefaultsKeys.h"
#include "Platform/PreferencesStore.h"
#include "ProjectsAndWorkspaces/ProjectNavigator.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
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
  if (!answer.ok())
    return answer.error();
  if (answer->statusCode < 200 || answer->statusCode > 299) {
    return RequestFailure(
        httpError(answer->statusCode, "HTTP " + std::to_string(answer->statusCode)));
  }
  Result<Record> decoded = decodeJson<Record>(answer->body);
  if (!decoded.ok())
    return RequestFailure(decoded.error());
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
    if (auto* asked = first([&](const HostedProject& p) { return p.stableId == projectId; }))
      return asked;
  }
  if (auto* current = first([&](const HostedProject& p) { return p.isCurrent && hasScene(p); }))
    return current;
  return first(hasScene);
}

ProjectWorkspaceSummary workspaceSummary(const std::string& id) {
  ProjectWorkspaceSummary summary;
  summary.id = id;
  summary.name = id == kMainWorkspace ? "Main" : id;
  return summary;
}

}  // namespace

ProjectNavigator::ProjectNavigator(Context context, WorkspacePresentationSnapshot initial)
    : workspaces(initial.workspaces),
      workspacePresentation(std::move(initial)),
      context_(context) {}

void ProjectNavigator::fetchHostedProjectsResponse(
    std::optional<Duration> timeout, bool publishConnectionIssue,
    std::function<void(RequestResult<HostedProjectsResponse>)> done) {
  const std::optional<std::string> url = context_.server.projectServerAPIURL("/api/projects");
  if (!url) {
    done(RequestFailure(httpError(0, "Invalid project server URL")));
    return;
  }
  hostedProjectsTask_.replace(
      context_.server.authorizedData(*url, timeout, publishConnectionIssue,
                                     [done = std::move(done)](RequestResult<HttpResponse> answer) {
                                       done(decodeAnswer<HostedProjectsResponse>(answer));
                                     }));
}

void ProjectNavigator::applyHostedProjectsResponse(const HostedProjectsResponse& response,
                                                   bool adoptingServerCurrentScope) {
  hostedProjects.clear();
  for (const HostedProjectSummary& summary : response.projects)
    hostedProjects.push_back(hostedProject(summary));
  hostedProjectsLoading = false;
  hostedProjectsError.clear();
  if (!adoptingServerCurrentScope)
    return;
  const auto current = std::find_if(hostedProjects.begin(), hostedProjects.end(),
                                    [](const HostedProject& project) { return project.isCurrent; });
  if (current == hostedProjects.end())
    return;
  context_.scope.current.update([&](SharedClientScope& scope) {
    scope.projectRoot = current->path;
    scope.scene = hostedScenePath(current->scenePath, current->path);
    scope.project = current->stableId;
  });
}

void ProjectNavigator::refreshHostedProjects() {
  if (isBlank(context_.scope.projectServerURL()))
    return;
  hostedProjectsLoading = true;
  const WeakLifetime weak = lifetime_.weak();
  fetchHostedProjectsResponse(std::nullopt, true,
                              [this, weak](RequestResult<HostedProjectsResponse> result) {
                                if (!weak.isAlive())
                                  return;
                                if (!result.ok()) {
                                  if (result.error().isCancellation())
                                    return;
                                  hostedProjectsLoading = false;
                                  hostedProjectsError = velkConnectionIssue(result.error()).message;
                                  return;
                                }
                                applyHostedProjectsResponse(*result, false);
                              });
}

void ProjectNavigator::openProject() {
  // The project browser lists the catalogue; it is fetched fresh each time it opens.
  showProjectBrowser.set(true);
  refreshHostedProjects();
}

void ProjectNavigator::markStartupResolvedWithoutProject() {
  StartupState& startup = context_.startup;
  startup.connectionIssue.set(std::nullopt);
  startup.initialProjectResolved.set(true);
  startup.initialProjectResponsive = false;
  startup.initialProjectError.clear();
  startup.initialProjectNeedsSignIn = false;
  openProject();
}

void ProjectNavigator::resolveCurrentHostedProjectBeforeStartup(
    std::uint64_t generation, std::function<void(HostedProjectResolution)> done) {
  const std::string expectedToken = context_.server.velkSessionToken;
  const WeakLifetime weak = lifetime_.weak();
  fetchHostedProjectsResponse(
      kStartupProjectsTimeout, false,
      [this, weak, generation, expectedToken,
       done = std::move(done)](RequestResult<HostedProjectsResponse> result) {
        if (!weak.isAlive())
          return;
        if (generation != context_.startup.initialProjectResolutionGeneration) {
          return done(HostedProjectResolution::stale);
        }
        if (!result.ok())
          return handleHostedProjectsFailure(result.error(), expectedToken, done);
        applyHostedProjectsResponse(*result, false);
        const HostedProject* chosen =
            chooseStartupProject(hostedProjects, context_.scope.projectId());
        if (!chosen) {
          markStartupResolvedWithoutProject();
          return done(HostedProjectResolution::none);
        }
        const HostedProject project = *chosen;
        hooks.projectChosen();
        context_.scope.current.update([&](SharedClientScope& scope) {
          scope.projectRoot = project.path;
          scope.scene = hostedScenePath(project.scenePath, project.path);
          scope.workspace = std::string(kMainWorkspace);
          scope.project = project.stableId;
        });
        workspaceCatalogLoading = true;
        workspaceCatalogError.clear();
        for (HostedProject& listed : hostedProjects)
          listed.isCurrent = listed.stableId == project.stableId;
        context_.server.addresses.remoteStageURL
            .clear();  // the stage address follows the chosen project
        context_.server.configureRuntimeForProjectServerIfNeeded();
        context_.startup.initialProjectNeedsSignIn = false;
        done(HostedProjectResolution::chosen);
      });
}

void ProjectNavigator::handleHostedProjectsFailure(
    const RequestFailure& failure, const std::string& expectedToken,
    const std::function<void(HostedProjectResolution)>& done) {
  if (failure.isCancellation())
    return done(HostedProjectResolution::stale);
  const VelkConnectionIssue issue = velkConnectionIssue(failure);
  switch (issue.primaryAction) {
    case VelkConnectionAction::login:
      context_.account.requireVelkSignIn(expectedToken);
      return done(HostedProjectResolution::failed);
    case VelkConnectionAction::chooseProject:
      markStartupResolvedWithoutProject();
      return done(HostedProjectResolution::none);
    case VelkConnectionAction::none:
    case VelkConnectionAction::retry:
    case VelkConnectionAction::requestAccess:
      context_.stageRefresher.handleConnectionFailure(failure, "Project load failed");
      return done(HostedProjectResolution::failed);
  }
}

// ---- Workspaces

void ProjectNavigator::setWorkspaceState(std::string current,
                                         std::vector<ProjectWorkspaceSummary> list,
                                         bool publishPresentation) {
  workspaces = std::move(list);
  context_.scope.current.update(
      [&](SharedClientScope& scope) { scope.workspace = std::move(current); });
  if (publishPresentation)
    workspacePresentation.set({context_.scope.currentWorkspace(), workspaces});
  rememberHostedProjectLaunchScope();
}

void ProjectNavigator::refreshWorkspaceCatalog() {
  if (!context_.server.isHosted()) {
    const std::string current = context_.scope.transportWorkspace();
    setWorkspaceState(current, {workspaceSummary(current)}, true);
    workspaceCatalogLoading = false;
    workspaceCatalogError.clear();
    return;
  }
  if (!context_.scope.hasProjectServerContext()) {
    workspaceCatalogLoading = false;
    workspaceCatalogError = "No project is open.";
    return;
  }
  const std::optional<std::string> url = context_.server.projectServerAPIURL("/api/workspaces");
  if (!url) {
    workspaceCatalogLoading = false;
    workspaceCatalogError = "Invalid project server URL";
    return;
  }
  const std::uint64_t generation = ++workspaceCatalogRefreshGeneration;
  const SharedClientScope asked = context_.scope.sharedScope();
  workspaceCatalogLoading = true;
  workspaceCatalogError.clear();
  const WeakLifetime weak = lifetime_.weak();
  workspaceCatalogTask_.replace(context_.server.authorizedData(
      *url, std::nullopt, false,
      [this, weak, generation, asked](RequestResult<HttpResponse> answer) {
        if (!weak.isAlive() || generation != workspaceCatalogRefreshGeneration)
          return;
        workspaceCatalogTask_.clear();
        auto result = decodeAnswer<ProjectWorkspaceCatalogResponse>(answer);
        if (!result.ok()) {
          if (result.error().isCancellation())
            return;
          workspaceCatalogLoading = false;
          workspaceCatalogError = velkConnectionIssue(result.error()).message;
          return;
        }
        // An answer for a place the user has left since is of no use.
        if (asked != context_.scope.sharedScope())
          return;
        std::vector<ProjectWorkspaceSummary> list =
            result->workspaces.value_or(std::vector<ProjectWorkspaceSummary>{});
        const std::string current = context_.scope.transportWorkspace();
        const bool listed = std::any_of(
            list.begin(), list.end(),
            [&](const ProjectWorkspaceSummary& summary) { return summary.id == current; });
        if (!listed)
          list.push_back(workspaceSummary(current));
        setWorkspaceState(current, std::move(list), true);
        workspaceCatalogLoading = false;
        workspaceCatalogError.clear();
      }));
}

void ProjectNavigator::applyProjectWorkspaceState(const ProjectResponse& project) {
  if (project.id && !project.id->empty()) {
    context_.scope.current.update([&](SharedClientScope& scope) { scope.project = *project.id; });
  }
  context_.server.projectSceneRef = project.sceneRef.value_or("");
  projectMainScene = project.mainScene.value_or("");
  const std::string current = project.workspace && !project.workspace->empty()
                                  ? *project.workspace
                                  : std::string(kMainWorkspace);
  setWorkspaceState(current, project.workspaces.value_or(std::vector<ProjectWorkspaceSummary>{}),
                    true);
  workspaceCatalogLoading = false;
  workspaceCatalogError.clear();
}

void ProjectNavigator::rememberHostedProjectLaunchScope() {
  const EditorScope& scope = context_.scope;
  const std::string scene = scope.hostedScenePath(scope.scenePath());
  if (isBlank(scope.projectServerURL()) || isBlank(scope.projectId()) || isBlank(scene))
    return;
  PreferencesStore& preferences = context_.preferences;
  HostedProjectLaunchScopes scopes;
  if (const auto data = preferences.data(defaults::kHostedLaunchScopes)) {
    if (auto stored = decodeJson<HostedProjectLaunchScopes>(*data); stored.ok())
      scopes = std::move(*stored);
  }
  scopes[launchScopeServerKey(scope.projectServerURL())] = HostedProjectLaunchScope{
      scope.projectId(), scope.projectPath(), scene, scope.transportWorkspace()};
  (void)preferences.setData(defaults::kHostedLaunchScopes, encodeJson(scopes));
}

}  // namespace orvan::editor
