#include "Application/EditorModel.h"

#include <sys/random.h>

#include <cstdio>

#include <spdlog/spdlog.h>

#include "Application/StartupPresentation.h"
#include "Application/UserDefaultsKeys.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "Foundation/Logging.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/UrlComponents.h"
#include "Platform/PreferencesStore.h"
#include "Platform/ProcessLauncher.h"
#include "ProjectsAndWorkspaces/VelkSessionTokenStore.h"

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

// Writes an observable preference back at each change.
template <class T, class Write>
Subscription bindPreference(Observable<T>& value, Write write) {
  return value.subscribe([write](const T& current) { write(current); });
}

}  // namespace

namespace {

AgentPromptController::Ports agentPromptPorts(const EditorModelPorts& ports) {
  ProcessLauncher& launcher = ports.processes;
  return {.main = ports.main,
          .background = ports.background,
          .preferences = ports.preferences,
          .processLauncher = launcher,
          .http = ports.http,
          .homeDirectory = ports.homeDirectory,
          .isExecutableFile = [&launcher](const std::string& path) { return launcher.isExecutableFile(path); },
          .executableSearchPath = ports.executableSearchPath,
          .agentWorkingDirectory = {},
          // Opening another workspace joins with workspace switching; until then the result
          // says where the change landed.
          .openWorkspace = [](const std::string& workspaceId, const std::string& editorURL) {
            spdlog::info("agent result workspace={} url={} (workspace switching is not available in this build)",
                         workspaceId, editorURL);
          }};
}

}  // namespace

EditorModel::EditorModel(EditorConfiguration launchConfiguration, EditorModelPorts ports)
    : configuration(std::move(launchConfiguration)),
      session(agentPromptPorts(ports)),
      ports_(std::move(ports)) {
  // 1. Initial values, and the view preferences kept between runs.
  readViewPreferences();
  bindViewPreferences();
  // 2-3. The remembered place on this server, merged with the launch arguments.
  applyRememberedLaunchScope();
  projectId.set(configuration.projectId);
  // 4. Who this editor is.
  initializeIdentity();
  // 5. A unique client identity per run, unless one was given.
  makeClientIdUnique();
  // 6. The session of this server, and the launch revision.
  loadSessionToken();
  revision.set(configuration.revision);
  // 7. Diagnostics switches.
  projectTimingEnabled = isDiagnosticFlagEnabled("ORVAN_PROJECT_SWITCH_TIMING");
  if (const char* target = std::getenv("ORVAN_PROFILE_OPEN_PROJECT_AFTER_START")) {
    projectSwitchProfileTarget = target;
  }
  timingLogsEnabled = isDiagnosticFlagEnabled("ORVAN_GIZMO_TIMING");
  // 8. The workspace being opened.
  currentWorkspace = configuration.workspace.empty() ? "main" : configuration.workspace;
  // 9. A first document, of the empty stage, for every reader.
  retire(clientDocument.publish(EditorClientDocumentState::makeSnapshot(stage.get(), projectAssets),
                                true, true));
  rebuildPresentationIndex();
  // 10. Start the edit helper while the window is still opening, when there is a scene for it.
  prewarmPersistentEditClientIfPossible();
}

EditorModel::~EditorModel() = default;

// ---- Preferences

void EditorModel::readViewPreferences() {
  PreferencesStore& preferences = ports_.preferences;
  hierarchyOrder.set(preferences.string(defaults::kHierarchyOrder) == "scene"
                         ? HierarchyOrder::scene
                         : HierarchyOrder::alphabetical);
  showHierarchyStatus.set(preferences.boolean(defaults::kShowHierarchyStatus).value_or(false));
  showFakeAssetSettings.set(preferences.boolean(defaults::kShowFakeAssetSettings).value_or(false));
  projectAssetBrowserOrganization.set(
      preferences.string(defaults::kProjectAssetBrowserOrganization) == "folders"
          ? ProjectAssetBrowserOrganization::folders
          : ProjectAssetBrowserOrganization::typeAndClass);
  snapEnabled.set(preferences.boolean(defaults::kSnapEnabled).value_or(false));
  snapSurfaceMode.set(preferences.boolean(defaults::kSnapSurfaceMode).value_or(false));
  snapBoundsPlacement.set(preferences.boolean(defaults::kSnapBoundsPlacement).value_or(false));
  snapAlignToSurface.set(preferences.boolean(defaults::kSnapAlignToSurface).value_or(false));
}

void EditorModel::bindViewPreferences() {
  PreferencesStore& preferences = ports_.preferences;
  auto keepBool = [&](Observable<bool>& value, std::string_view key) {
    preferenceBindings_.push_back(bindPreference(
        value, [&preferences, key](bool current) { (void)preferences.setBoolean(key, current); }));
  };
  keepBool(showHierarchyStatus, defaults::kShowHierarchyStatus);
  keepBool(showFakeAssetSettings, defaults::kShowFakeAssetSettings);
  keepBool(snapEnabled, defaults::kSnapEnabled);
  keepBool(snapSurfaceMode, defaults::kSnapSurfaceMode);
  keepBool(snapBoundsPlacement, defaults::kSnapBoundsPlacement);
  keepBool(snapAlignToSurface, defaults::kSnapAlignToSurface);
  preferenceBindings_.push_back(bindPreference(hierarchyOrder, [&preferences](HierarchyOrder order) {
    (void)preferences.setString(defaults::kHierarchyOrder,
                                order == HierarchyOrder::scene ? "scene" : "alphabetical");
  }));
  preferenceBindings_.push_back(bindPreference(
      projectAssetBrowserOrganization, [&preferences](ProjectAssetBrowserOrganization organization) {
        (void)preferences.setString(
            defaults::kProjectAssetBrowserOrganization,
            organization == ProjectAssetBrowserOrganization::folders ? "folders" : "typeAndClass");
      }));
}

// ---- Launch scope

std::optional<HostedProjectLaunchScope> EditorModel::storedLaunchScope() const {
  const auto data = ports_.preferences.data(defaults::kHostedLaunchScopes);
  if (!data) return std::nullopt;
  const auto scopes = decodeJson<HostedProjectLaunchScopes>(*data);
  if (!scopes.ok()) return std::nullopt;
  const auto found = scopes->find(launchScopeServerKey(configuration.projectServerURL));
  if (found == scopes->end()) return std::nullopt;
  return found->second;
}

void EditorModel::applyRememberedLaunchScope() {
  editor::applyRememberedLaunchScope(configuration, storedLaunchScope());
}

void EditorModel::rememberHostedProjectLaunchScope() {
  const std::string scene = hostedScenePath(configuration.scenePath);
  if (isBlank(configuration.projectServerURL) || isBlank(projectId.get()) || isBlank(scene)) return;
  HostedProjectLaunchScopes scopes;
  if (const auto data = ports_.preferences.data(defaults::kHostedLaunchScopes)) {
    if (auto stored = decodeJson<HostedProjectLaunchScopes>(*data); stored.ok()) {
      scopes = std::move(*stored);
    }
  }
  scopes[launchScopeServerKey(configuration.projectServerURL)] = HostedProjectLaunchScope{
      projectId.get(), configuration.projectPath, scene,
      currentWorkspace.empty() ? "main" : currentWorkspace};
  (void)ports_.preferences.setData(defaults::kHostedLaunchScopes, encodeJson(scopes));
}

std::string EditorModel::hostedScenePath(std::string_view scene) const {
  return editor::hostedScenePath(scene, configuration.projectPath);
}

// ---- Identity and session at construction

void EditorModel::makeClientIdUnique() {
  if (configuration.clientId == "native-editor" || configuration.clientId.empty()) {
    configuration.clientId = "native-editor-" + lowerCaseUuid(ports_.randomBytes);
  }
}

void EditorModel::loadSessionToken() {
  velkSessionToken = VelkSessionTokenStore::load(ports_.secrets, configuration.projectServerURL);
}

// ---- Derived state

bool EditorModel::hasProjectServerContext() const {
  return !isBlank(projectId.get()) || !isBlank(configuration.projectPath) ||
         !isBlank(configuration.scenePath);
}

std::string EditorModel::transportWorkspace() const {
  return currentWorkspace.empty() ? "main" : currentWorkspace;
}

bool EditorModel::hasCompleteHostedLaunchScope() const {
  const SharedClientScope scope{configuration.projectServerURL, projectId.get(),
                                configuration.projectPath, hostedScenePath(configuration.scenePath),
                                transportWorkspace(), activeLayerIdentifier};
  if (!SharedScopeSwitchCoordinator::hasRenderScope(scope)) return false;
  if (isBlank(configuration.projectServerURL)) return true;
  if (isBlank(projectId.get())) return true;
  if (!isBlank(configuration.projectPath)) return true;
  return hasPrefix(configuration.scenePath, "/");
}

bool EditorModel::isStartupBlocking() const {
  if (isBlank(configuration.remoteStageURL)) return false;
  return !initialProjectResolved.get();
}

std::string EditorModel::projectLabel() const {
  return editor::projectLabel({.projectConnectionInFlight = projectConnectionInFlight,
                               .seamlessWorkspaceTransitionInFlight = seamlessWorkspaceTransitionInFlight,
                               .projectTransitionMessage = projectTransitionMessage,
                               .stageSceneUri = currentStage().sceneUri,
                               .remoteStageURL = configuration.remoteStageURL,
                               .scenePath = configuration.scenePath});
}

std::string EditorModel::projectLoadingMessage() const {
  return editor::projectLoadingMessage(
      {.seamlessWorkspaceTransitionInFlight = seamlessWorkspaceTransitionInFlight,
       .projectConnectionInFlight = projectConnectionInFlight,
       .stageRefreshInFlight = stageRefreshInFlight,
       .projectTransitionMessage = projectTransitionMessage});
}

void EditorModel::configureRuntimeForProjectServerIfNeeded() {
  if (isBlank(configuration.projectServerURL)) return;
  if (isBlank(configuration.remoteStageURL)) {
    if (auto stageURL = projectServerAPIURL("/api/stage")) configuration.remoteStageURL = *stageURL;
  }
  if (auto derived = configuration.projectServerDerivedAuthoringAddress()) {
    configuration.address = *derived;
  }
}

void EditorModel::projectTiming(std::string_view text) const {
  if (!projectTimingEnabled) return;
  std::string line = "Velk project timing";
  if (projectSwitchTimingStartedAt) {
    char since[48];
    std::snprintf(since, sizeof since, " t=%.3fs",
                  std::chrono::duration<double>(ports_.main.now() - *projectSwitchTimingStartedAt).count());
    line += since;
  }
  spdlog::info("{}: {}", line, text);
}

// ---- Start-up

void EditorModel::startInitialRefresh() {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  configureRuntimeForProjectServerIfNeeded();
  refreshCurrentVelkProfile();
  if (!projectSwitchProfileTarget.empty()) refreshHostedProjects();
  if (isBlank(configuration.remoteStageURL)) {
    // Local: the inspector helper composes the stage; nothing needs resolving first.
    initialProjectResolved.set(true);
    refresh();
    return;
  }
  // Hosted: the project must be resolved before the viewport and the stage may start.
  const std::uint64_t generation = ++initialProjectResolutionGeneration;
  const std::string launchScene = trimmed(configuration.scenePath);
  const bool completeScope = hasCompleteHostedLaunchScope();
  initialProjectResolved.set(completeScope);
  initialProjectResponsive = false;
  initialProjectError.clear();
  initialProjectNeedsSignIn = false;
  const std::uint64_t serial = session.applySceneSelection("", {}, true);
  presentation.showSceneSelection("", {});
  session.replaceSceneSelectionSnapshot(EditorSelectionSnapshot::empty(), serial);
  storeStage(PreparedStage::empty());
  projectAssets.clear();
  scheduleClientDocumentRebuild(false, true);
  stageRefreshInFlight = true;
  setWorkspaceState(currentWorkspace.empty() ? "main" : currentWorkspace, {}, true);
  workspaceCatalogLoading = true;
  workspaceCatalogError.clear();
  status.set("Loading project");
  if (completeScope) {
    // Stage and workspace catalogue load side by side; no project list is needed.
    refreshWorkspaceCatalog();
    refresh();
    return;
  }
  const WeakLifetime weak = lifetime_.weak();
  resolveCurrentHostedProjectBeforeStartup(
      generation, [this, weak, generation, launchScene](HostedProjectResolution outcome) {
        if (!weak.isAlive() || generation != initialProjectResolutionGeneration) return;
        if (initialProjectNeedsSignIn) {
          initialProjectResolved.set(false);  // the sign-in sheet stays
          return;
        }
        switch (outcome) {
          case HostedProjectResolution::none:
          case HostedProjectResolution::stale:
            initialProjectResolved.set(true);
            return;
          case HostedProjectResolution::chosen:
            initialProjectResolved.set(true);
            // A resolution that merely confirmed the scene the launch asked for starts nothing.
            if (launchScene.empty() || trimmed(configuration.scenePath) != launchScene) refresh();
            return;
          case HostedProjectResolution::failed:
            initialProjectResolved.set(!launchScene.empty());
            return;
        }
      });
}

// ---- Authoring seams

std::string EditorModel::activeLayerForPrewarm() const { return activeLayerIdentifier; }

void EditorModel::prewarmPersistentEditClientIfPossible() {
  if (!isBlank(configuration.projectId) && isBlank(configuration.projectPath) &&
      !hasPrefix(configuration.scenePath, "/")) {
    return;  // no scene to connect to yet
  }
  persistentEditClient = PersistentEditClientSettings{
      configuration.resolvedPath(configuration.editClientPath),
      configuration.address,
      userId.get(),
      configuration.clientId,
      configuration.scenePath,
      currentWorkspace,
      activeLayerForPrewarm(),
      velkSessionToken};
}

void EditorModel::retirePersistentEditClient() { persistentEditClient.reset(); }

void EditorModel::startToolWatcher() { toolWatcherEnabled = true; }

void EditorModel::stopToolWatcher() { toolWatcherEnabled = false; }

}  // namespace orvan::editor
