#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorScope.h"
#include "ProjectsAndWorkspaces/AccountSession.h"
#include "ProjectsAndWorkspaces/HostedProject.h"
#include "ServerClient/ServerSession.h"
#include "ServerClient/StageRefresher.h"
#include "ServerClient/StartupState.h"
#include "orvan/wire/records/HostedProjectRecords.h"
#include "orvan/wire/records/ProjectRecords.h"
#include "orvan/wire/records/ProjectResponse.h"

namespace orvan::editor {

class PreferencesStore;

// What the toolbar shows of the workspaces, published as one value.
struct WorkspacePresentationSnapshot {
  std::string currentWorkspace;
  std::vector<ProjectWorkspaceSummary> workspaces;

  bool operator==(const WorkspacePresentationSnapshot&) const = default;
};

// How the project of a hosted launch without a complete scope was settled.
enum class HostedProjectResolution { chosen, none, stale, failed };

// Hosted projects and workspaces: which project a launch opens when it did not say, the catalogue
// of workspaces, and the place the project's own data reports. Every move writes the scope.
class ProjectNavigator {
 public:
  struct Context {
    MainExecutor& main;
    PreferencesStore& preferences;
    EditorScope& scope;
    StartupState& startup;
    ServerSession& server;
    StageRefresher& stageRefresher;
    AccountSession& account;
  };
  struct Hooks {
    // The start-up resolution chose another project than the one the edit helper was made for.
    std::function<void()> projectChosen = [] {};
  };

  ProjectNavigator(Context context, WorkspacePresentationSnapshot initial);
  ProjectNavigator(const ProjectNavigator&) = delete;
  ProjectNavigator& operator=(const ProjectNavigator&) = delete;

  Hooks hooks;
  std::string projectMainScene;
  std::vector<HostedProject> hostedProjects;
  std::vector<ProjectWorkspaceSummary> workspaces;
  Observable<WorkspacePresentationSnapshot> workspacePresentation;
  bool workspaceCatalogLoading = false;
  std::string workspaceCatalogError;
  std::uint64_t workspaceCatalogRefreshGeneration = 0;
  bool hostedProjectsLoading = false;
  std::string hostedProjectsError;
  // The project browser; its view joins with the project catalogue.
  Observable<bool> showProjectBrowser{false};

  // Settles which project a launch without a complete scope opens: the one asked for, else the
  // server's current one, else the first with a scene; none opens the project browser.
  void resolveCurrentHostedProjectBeforeStartup(std::uint64_t generation,
                                                std::function<void(HostedProjectResolution)> done);
  void fetchHostedProjectsResponse(std::optional<Duration> timeout, bool publishConnectionIssue,
                                   std::function<void(RequestResult<HostedProjectsResponse>)> done);
  void applyHostedProjectsResponse(const HostedProjectsResponse& response,
                                   bool adoptingServerCurrentScope);
  void refreshHostedProjects();
  void openProject();
  // Start-up is over without a project: the browser opens for the user to choose one.
  void markStartupResolvedWithoutProject();
  void refreshWorkspaceCatalog();
  void setWorkspaceState(std::string current, std::vector<ProjectWorkspaceSummary> list,
                         bool publishPresentation);
  // The place and the workspaces as the project's data reports them.
  void applyProjectWorkspaceState(const ProjectResponse& project);
  // Persists the current place for this server.
  void rememberHostedProjectLaunchScope();

 private:
  void handleHostedProjectsFailure(const RequestFailure& failure, const std::string& expectedToken,
                                   const std::function<void(HostedProjectResolution)>& done);

  Context context_;
  LifetimeToken lifetime_;
  TaskSlot workspaceCatalogTask_;
  TaskSlot hostedProjectsTask_;
};

}  // namespace orvan::editor
