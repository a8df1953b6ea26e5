#include "Application/EditorModel.h"

#include <cstdio>

#include <spdlog/spdlog.h>

#include "Application/StartupPresentation.h"
#include "Launch/HostedProjectLaunchScope.h"
#include "Launch/UserDefaultsKeys.h"
#include "Platform/PreferencesStore.h"
#include "Platform/ProcessLauncher.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor {

namespace {

std::string lowerCaseUuid(const RandomBytes& random) {
  unsigned char bytes[16];
  random(bytes, sizeof bytes);
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  char text[37];
  std::snprintf(text, sizeof text,
                "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", bytes[0],
                bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8],
                bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
  return text;
}

// Two default editors never share a client identity; a given `--client-id` stays as it is.
EditorConfiguration withUniqueClientId(EditorConfiguration configuration,
                                       const RandomBytes& random) {
  if (configuration.clientId == "native-editor" || configuration.clientId.empty()) {
    configuration.clientId = "native-editor-" + lowerCaseUuid(random);
  }
  return configuration;
}

// The place remembered for the launch's server, if any.
std::optional<HostedProjectLaunchScope> storedLaunchScope(PreferencesStore& preferences,
                                                          const std::string& serverURL) {
  const auto data = preferences.data(defaults::kHostedLaunchScopes);
  if (!data)
    return std::nullopt;
  const auto scopes = decodeJson<HostedProjectLaunchScopes>(*data);
  if (!scopes.ok())
    return std::nullopt;
  const auto found = scopes->find(launchScopeServerKey(serverURL));
  if (found == scopes->end())
    return std::nullopt;
  return found->second;
}

AgentPromptController::Ports agentPromptPorts(const EditorModelPorts& ports) {
  ProcessLauncher& launcher = ports.processes;
  return {.main = ports.main,
          .background = ports.background,
          .preferences = ports.preferences,
          .processLauncher = launcher,
          .http = ports.http,
          .homeDirectory = ports.homeDirectory,
          .isExecutableFile =
              [&launcher](const std::string& path) { return launcher.isExecutableFile(path); },
          .executableSearchPath = ports.executableSearchPath,
          .agentWorkingDirectory = {},
          // Opening another workspace joins with workspace switching; until then the result
          // says where the change landed.
          .openWorkspace =
              [](const std::string& workspaceId, const std::string& editorURL) {
                spdlog::info(
                    "agent result workspace={} url={} (workspace switching is not available in "
                    "this build)",
                    workspaceId, editorURL);
              }};
}

}  // namespace

// Construction, in order: the view preferences; the remembered place merged with the launch
// arguments; who this editor is; a unique client id; the session of this server and the launch
// revision; the diagnostics switches; a first document of the empty stage; the edit helper.
EditorModel::EditorModel(EditorConfiguration launchConfiguration, EditorModelPorts ports)
    : ports_(std::move(ports)),
      launchClientId_(launchConfiguration.clientId),
      ownHelperExchanges_(ports_.helperExchanges ? nullptr : std::make_unique<ThreadPool>(1)),
      helperExchanges_(ports_.helperExchanges ? *ports_.helperExchanges : *ownHelperExchanges_),
      configuration(withUniqueClientId(std::move(launchConfiguration), ports_.randomBytes)),
      scope(launchScope(configuration,
                        storedLaunchScope(ports_.preferences, configuration.projectServerURL))),
      timing(EditorTiming::fromEnvironment()),
      session(agentPromptPorts(ports_)),
      viewPreferences(ports_.preferences),
      identity({ports_.main, ports_.preferences, ports_.randomBytes, ports_.accountFullName,
                launchClientId_}),
      server({ports_.main, ports_.http, configuration, scope, startup, identity.userId}),
      documents(
          {ports_.main, ports_.background, stage, session, clientDocument, presentation, timing}),
      projectData({ports_.main, ports_.background, scope, startup, server, status, stage, documents,
                   timing}),
      stageRefresher({ports_.main, ports_.background, ports_.processes, configuration, scope,
                      startup, server, projectData, documents, stage, revision, status, timing}),
      account({ports_.main, ports_.secrets, ports_.openURL, configuration, scope, startup, server,
               stageRefresher, projectData, documents, status}),
      projects({ports_.main, ports_.preferences, scope, startup, server, stageRefresher, account},
               WorkspacePresentationSnapshot{scope.transportWorkspace(), {}}),
      editClients({ports_.main, helperExchanges_, ports_.processes, configuration, scope, server,
                   identity.userName}),
      overlay({ports_.main, ports_.background, stage, scope, documents, stageRefresher, timing}),
      operations({ports_.main, helperExchanges_, ports_.processes, configuration, scope, server,
                  identity.userName, stage, stageRefresher, documents, overlay, editClients,
                  revision, status, timing}),
      structure({ports_.main, helperExchanges_, stage, session, documents, overlay, operations,
                 editClients, stageRefresher, revision, status, timing}),
      propertyDrafts({ports_.main, stage, session, documents, operations, status}),
      components({stage, session, documents, operations, stageRefresher, propertyDrafts, overlay,
                  scope, status}),
      layers({ports_.preferences, scope, stage, operations, editClients, stageRefresher, status}),
      viewportGizmo({ports_.main, helperExchanges_, stage, scope, documents, overlay, operations,
                     structure, propertyDrafts, editClients, stageRefresher, revision, status,
                     timing}) {
  connectParts();
  account.loadSessionToken();
  revision.set(configuration.revision);
  documents.publishInitialDocument();
  editClients.prewarmPersistentEditClient();
}

EditorModel::~EditorModel() = default;

// The parts tell each other what happened through these few hooks; everything else they reach
// through the stores and parts below them.
void EditorModel::connectParts() {
  identity.hooks.identityChanged = [this] {
    editClients.retirePersistentEditClient();
    stopToolWatcher();
    startToolWatcher();
  };
  projectData.hooks.projectApplied = [this](const ProjectResponse& project) {
    if (project.profiles)
      identity.applyUserProfiles(*project.profiles);
    projects.applyProjectWorkspaceState(project);
  };
  projectData.hooks.projectFailed = [this](const std::string& message) {
    projects.workspaceCatalogLoading = false;
    projects.workspaceCatalogError = message;
  };
  projectData.hooks.signInRequired = [this](const std::string& token) {
    account.requireVelkSignIn(token);
  };
  stageRefresher.hooks.signInRequired = [this] { account.requireVelkSignIn(); };
  account.hooks.signedIn = [this] {
    projects.refreshHostedProjects();
    startInitialRefresh();
  };
  account.hooks.signedOut = [this] { projects.hostedProjects.clear(); };
  account.hooks.sessionEnded = [this] {
    projects.workspaceCatalogLoading = false;
    projects.workspaceCatalogError = "Sign in to load workspaces.";
  };
  account.hooks.userColorChosen = [this](const std::string& color) {
    identity.applyAccountColor(color);
  };
  account.hooks.userIdentified = [this](std::optional<std::string> name,
                                        std::optional<std::string> id,
                                        std::optional<std::string> color, bool syncRemote) {
    identity.setUserIdentity(std::move(name), std::move(id), std::move(color), syncRemote);
  };
  projects.hooks.projectChosen = [this] { editClients.retirePersistentEditClient(); };
  stageRefresher.hooks.presentStage = [this](std::shared_ptr<const PreparedStage> prepared,
                                             std::optional<std::uint64_t> incomingRevision) {
    overlay.applyOptimisticStructuralOverlay(std::move(prepared), incomingRevision);
  };
  stageRefresher.hooks.queuedWorkDiscarded = [this] {
    operations.discardQueuedWork();
    propertyDrafts.discardDeferredCommits();
  };
  stageRefresher.hooks.stageApplied = [this](bool preserveDrafts) {
    propertyDrafts.stageApplied(preserveDrafts);
    layers.stageApplied();
  };
  stageRefresher.hooks.refreshApplied = [this] { operations.submitNextOperation(); };
  operations.hooks.otherPendingAuthoringChanges = [this] {
    return propertyDrafts.hasDeferredCommits() || viewportGizmo.hasScheduledCommit() ||
           !viewportGizmo.pendingViewportGizmoOperations.empty();
  };
  // The gizmo's route and the queue take turns: each waits while the other has the helper.
  operations.hooks.viewportGizmoCommitInFlight = [this] {
    return viewportGizmo.viewportGizmoCommitInFlight;
  };
  operations.hooks.drained = [this] {
    if (!viewportGizmo.pendingViewportGizmoOperations.empty())
      viewportGizmo.flushViewportGizmoCommitIfReady();
  };
  operations.hooks.applyAcceptedOperation = [this](const AtomicOperation& operation) {
    propertyDrafts.operationAccepted(operation);
    layers.operationAccepted(operation);
  };
  propertyDrafts.applyLocalComponentOperations =
      [this](std::span<const ComponentAtomicOperation> operations) {
        components.applyAcceptedComponentOperations(operations);
      };
  operations.hooks.rollBackOperation = [this](const AtomicOperation& operation) {
    layers.rollBackOperation(operation);
  };
  operations.hooks.pendingAddedLayerActivation = [this] {
    return layers.pendingAddedLayerActivationPreviousIdentifiers.has_value();
  };
  operations.hooks.refused = [this](const AtomicOperation& operation) {
    propertyDrafts.operationRefused(operation);
  };
}

// ---- Start-up

bool EditorModel::hasCompleteHostedLaunchScope() const {
  if (!SharedScopeSwitchCoordinator::hasRenderScope(scope.sharedScope()))
    return false;
  if (isBlank(scope.projectServerURL()))
    return true;
  if (isBlank(scope.projectId()))
    return true;
  if (!isBlank(scope.projectPath()))
    return true;
  return hasPrefix(scope.scenePath(), "/");
}

bool EditorModel::isStartupBlocking() const {
  if (isBlank(server.addresses.remoteStageURL))
    return false;
  return !startup.initialProjectResolved.get();
}

std::string EditorModel::projectLabel() const {
  return editor::projectLabel(
      {.projectConnectionInFlight = scope.projectConnectionInFlight,
       .seamlessWorkspaceTransitionInFlight = scope.seamlessWorkspaceTransitionInFlight,
       .projectTransitionMessage = scope.projectTransitionMessage,
       .stageSceneUri = currentStage().sceneUri,
       .remoteStageURL = server.addresses.remoteStageURL,
       .scenePath = scope.scenePath()});
}

std::string EditorModel::projectLoadingMessage() const {
  return editor::projectLoadingMessage(
      {.seamlessWorkspaceTransitionInFlight = scope.seamlessWorkspaceTransitionInFlight,
       .projectConnectionInFlight = scope.projectConnectionInFlight,
       .stageRefreshInFlight = stageRefresher.stageRefreshInFlight,
       .projectTransitionMessage = scope.projectTransitionMessage});
}

void EditorModel::startInitialRefresh() {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  server.configureRuntimeForProjectServerIfNeeded();
  account.refreshCurrentVelkProfile();
  if (!timing.projectSwitchProfileTarget.empty())
    projects.refreshHostedProjects();
  if (isBlank(server.addresses.remoteStageURL)) {
    // Local: the inspector helper composes the stage; nothing needs resolving first.
    startup.initialProjectResolved.set(true);
    stageRefresher.refresh();
    return;
  }
  // Hosted: the project must be resolved before the viewport and the stage may start.
  const std::uint64_t generation = ++startup.initialProjectResolutionGeneration;
  const std::string launchScene = trimmed(scope.scenePath());
  const bool completeScope = hasCompleteHostedLaunchScope();
  startup.initialProjectResolved.set(completeScope);
  startup.initialProjectResponsive = false;
  startup.initialProjectError.clear();
  startup.initialProjectNeedsSignIn = false;
  documents.clearSceneSelection();
  stageRefresher.storeStage(PreparedStage::empty());
  documents.projectAssets.clear();
  documents.scheduleClientDocumentRebuild(false, true);
  stageRefresher.stageRefreshInFlight = true;
  projects.setWorkspaceState(scope.transportWorkspace(), {}, true);
  projects.workspaceCatalogLoading = true;
  projects.workspaceCatalogError.clear();
  status.set("Loading project");
  if (completeScope) {
    // Stage and workspace catalogue load side by side; no project list is needed.
    projects.refreshWorkspaceCatalog();
    stageRefresher.refresh();
    return;
  }
  const WeakLifetime weak = lifetime_.weak();
  projects.resolveCurrentHostedProjectBeforeStartup(
      generation, [this, weak, generation, launchScene](HostedProjectResolution outcome) {
        if (!weak.isAlive() || generation != startup.initialProjectResolutionGeneration)
          return;
        if (startup.initialProjectNeedsSignIn) {
          startup.initialProjectResolved.set(false);  // the sign-in sheet stays
          return;
        }
        switch (outcome) {
          case HostedProjectResolution::none:
          case HostedProjectResolution::stale:
            startup.initialProjectResolved.set(true);
            return;
          case HostedProjectResolution::chosen:
            startup.initialProjectResolved.set(true);
            // A resolution that merely confirmed the scene the launch asked for starts nothing.
            if (launchScene.empty() || trimmed(scope.scenePath()) != launchScene)
              stageRefresher.refresh();
            return;
          case HostedProjectResolution::failed:
            startup.initialProjectResolved.set(!launchScene.empty());
            return;
        }
      });
}

void EditorModel::performConnectionAction(VelkConnectionAction action) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  switch (action) {
    case VelkConnectionAction::retry:
      startup.connectionIssue.set(std::nullopt);
      startInitialRefresh();
      return;
    case VelkConnectionAction::none:
      return;
    case VelkConnectionAction::chooseProject:
      projects.markStartupResolvedWithoutProject();
      return;
    case VelkConnectionAction::login:
      account.signInToVelk();
      return;
    case VelkConnectionAction::requestAccess:
      spdlog::info("connection action {} is not available in this build", static_cast<int>(action));
      return;
  }
}

void EditorModel::dismissConnectionIssue() {
  startup.connectionIssue.set(std::nullopt);
}

// ---- Links

void EditorModel::handleIncomingURL(const std::string& url) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  if (const std::optional<URLComponents> parts = URLComponents::parse(url)) {
    const std::string scheme = lowercased(parts->scheme);
    const std::string host = lowercased(parts->host);
    if (scheme == "velk" || scheme == "orvan") {
      if (host == "setup-agent") {
        spdlog::info("agent set-up links are not handled by this build");
        return;
      }
      if (host == "auth-callback") {
        account.handleVelkAuthCallback(*parts);
        return;
      }
    }
  }
  openProjectLink(url);
}

void EditorModel::openProjectLink(const std::string& url) {
  // Project links join with project switching; until then they are noted and left alone.
  (void)url;
  spdlog::info("project links are not opened by this build yet");
}

// ---- Collaboration seams

void EditorModel::startToolWatcher() {
  toolWatcherEnabled = true;
}

void EditorModel::stopToolWatcher() {
  toolWatcherEnabled = false;
}

}  // namespace orvan::editor
