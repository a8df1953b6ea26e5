#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Application/EditorConfiguration.h"
#include "Assets/PendingCreatedProjectAsset.h"
#include "Assets/ProjectAssetCatalogStore.h"
#include "Application/EditorSessionState.h"
#include "Application/HostedProjectLaunchScope.h"
#include "Application/UserIdentity.h"
#include "orvan/wire/Error.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "orvan/wire/UrlComponents.h"
#include "Platform/UserFolders.h"
#include "Presentation/EditorClientDocumentBuilder.h"
#include "Presentation/EditorClientDocumentState.h"
#include "Presentation/EditorPresentationStore.h"
#include "Presentation/PreparedStage.h"
#include "Presentation/ProjectAssetBrowser.h"
#include "Presentation/SelectionSnapshot.h"
#include "ProjectsAndWorkspaces/HostedProject.h"
#include "ProjectsAndWorkspaces/SharedScopeSwitchCoordinator.h"
#include "orvan/wire/records/AccountRecords.h"
#include "orvan/wire/records/HostedProjectRecords.h"
#include "orvan/wire/records/ProjectResponse.h"
#include "ServerClient/ResponseCaches.h"
#include "ServerClient/VelkClientRequestError.h"
#include "orvan/wire/records/ProjectAssetItem.h"
#include "orvan/wire/records/ProjectRecords.h"
#include "ServerClient/VelkConnectionIssue.h"

namespace orvan::editor {

class HttpClient;
class PreferencesStore;
class ProcessLauncher;
class SecretStore;

// Everything the model reaches the world through. The application passes the real adapters;
// tests pass fakes and a virtual-time scheduler.
struct EditorModelPorts {
  MainExecutor& main;
  BackgroundExecutor& background;
  PreferencesStore& preferences;
  SecretStore& secrets;
  ProcessLauncher& processes;
  HttpClient& http;
  RandomBytes randomBytes = systemRandomBytes();
  // The account's full name on this machine, for a first start without a stored name.
  std::function<std::string()> accountFullName = [] { return std::string(); };
  // Where the prompt bar looks for the user's coding agents.
  std::string homeDirectory = userHomeFolder().string();
  std::string executableSearchPath = editor::executableSearchPath();
  // Opens an address in the user's browser; false when no browser could be asked.
  std::function<bool(const std::string&)> openURL = {};
};

enum class HierarchyOrder { alphabetical, scene };

// What a new edit helper would be started with. The long-lived helper itself joins with the
// authoring pipeline; until then the model keeps the settings it would prewarm with.
struct PersistentEditClientSettings {
  std::string executablePath;
  std::string address;
  std::string author;
  std::string clientId;
  std::string scene;
  std::string workspace;
  std::string activeLayer;
  std::string authorizationToken;

  bool operator==(const PersistentEditClientSettings&) const = default;
};

// What the toolbar shows of the workspaces, published as one value.
struct WorkspacePresentationSnapshot {
  std::string currentWorkspace;
  std::vector<ProjectWorkspaceSummary> workspaces;

  bool operator==(const WorkspacePresentationSnapshot&) const = default;
};

// How the project of a hosted launch without a complete scope was settled.
enum class HostedProjectResolution { chosen, none, stale, failed };

struct StageRefreshOptions {
  // Keeps the queued edits and the optimistic overlay; edit paths refresh this way.
  bool preserveQueue = false;
  // Defaults to `preserveQueue`.
  std::optional<bool> preserveDrafts = std::nullopt;
};

// The editor's central object: one per process, on the main thread, owner of the stage, the
// configuration and every task in flight. Views read its stores and call its operations; nothing
// else writes. Its methods are implemented in one source file per concern:
//   EditorModel.cpp          construction, start-up, derived labels     (Application)
//   EditorModelIdentity.cpp  user identity and profiles                 (Application)
//   EditorModelRefresh.cpp   stage refresh and failures                 (ServerClient)
//   EditorModelRequests.cpp  addresses, authorized requests, caches    (ServerClient)
//   EditorModelProjectData.cpp  the project stream and its assets       (ServerClient)
//   EditorModelProjects.cpp  hosted projects, start-up resolution, workspaces (ProjectsAndWorkspaces)
//   EditorModelSession.cpp   sign-in, callback links, sign-out, the account (ProjectsAndWorkspaces)
//   EditorModelPresentation.cpp  client document, selection, inspector  (Presentation)
class EditorModel {
 public:
  EditorModel(EditorConfiguration configuration, EditorModelPorts ports);
  ~EditorModel();
  EditorModel(const EditorModel&) = delete;
  EditorModel& operator=(const EditorModel&) = delete;

  // ---- Core
  EditorConfiguration configuration;
  Observable<std::shared_ptr<const PreparedStage>> stage{PreparedStage::empty()};
  Observable<std::uint64_t> revision{0};
  Observable<std::string> status{"Ready"};
  const StageInspection& currentStage() const { return stage.get()->stage(); }

  // ---- Stores, created once
  EditorSessionState session;
  EditorClientDocumentState clientDocument;
  EditorPresentationStore presentation;
  SharedScopeSwitchCoordinator sharedScopeSwitch;

  // ---- Project and workspace
  Observable<std::string> projectId;
  std::string projectSceneRef;   // the project's own portable reference to its scene
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
  std::string currentWorkspace = "main";
  bool projectConnectionInFlight = false;
  bool seamlessWorkspaceTransitionInFlight = false;
  std::string projectTransitionMessage;
  std::string activeLayerIdentifier;

  // ---- Start-up
  Observable<bool> initialProjectResolved{false};
  bool initialProjectResponsive = false;
  std::string initialProjectError;
  bool initialProjectNeedsSignIn = false;
  std::uint64_t initialProjectResolutionGeneration = 0;
  bool initialStageLoadInFlight = false;
  Observable<std::optional<VelkConnectionIssue>> connectionIssue;

  void startInitialRefresh();
  // Settles which project a launch without a complete scope opens: the one asked for, else the
  // server's current one, else the first with a scene; none opens the project browser.
  void resolveCurrentHostedProjectBeforeStartup(std::uint64_t generation,
                                                std::function<void(HostedProjectResolution)> done);
  void fetchHostedProjectsResponse(std::optional<Duration> timeout, bool publishConnectionIssue,
                                   std::function<void(RequestResult<HostedProjectsResponse>)> done);
  void applyHostedProjectsResponse(const HostedProjectsResponse& response, bool adoptingServerCurrentScope);
  void refreshHostedProjects();
  void openProject();
  void refreshWorkspaceCatalog();
  void setWorkspaceState(std::string current, std::vector<ProjectWorkspaceSummary> list,
                         bool publishPresentation);
  void applyProjectWorkspaceState(const ProjectResponse& project);
  bool isStartupBlocking() const;
  bool canLaunchViewport() const { return !isStartupBlocking(); }
  bool hasCompleteHostedLaunchScope() const;
  bool hasProjectServerContext() const;
  std::string projectLabel() const;
  std::string projectLoadingMessage() const;
  std::string transportWorkspace() const;
  std::string hostedScenePath(std::string_view scene) const;
  void rememberHostedProjectLaunchScope();
  void configureRuntimeForProjectServerIfNeeded();
  // The project server's address for `path`: the caller's query items, plus the scope (project,
  // scene, workspace, active layer) and identity (client, profile) items the caller did not give.
  // Nothing when the server address does not parse.
  std::optional<std::string> projectServerAPIURL(std::string_view path,
                                                 std::vector<UrlQueryItem> queryItems = {}) const;
  // The same against the web editor's address, with the identity items only.
  std::optional<std::string> remoteURL(std::string_view path,
                                       std::vector<UrlQueryItem> queryItems = {}) const;

  // ---- Requests
  // Adds the session's credential, when there is one.
  void authorize(HttpRequest& request) const;
  // Runs a request on the shared session. A bad answer becomes a classified failure, published as
  // the connection issue when asked; a cancelled request fails quietly.
  TaskHandle authorizedData(HttpRequest request, bool publishConnectionIssue,
                            std::function<void(RequestResult<HttpResponse>)> done);
  TaskHandle authorizedData(const std::string& url, std::optional<Duration> timeout,
                            bool publishConnectionIssue,
                            std::function<void(RequestResult<HttpResponse>)> done);
  AccessOrderedCache<CachedRemoteStage> remoteStageCache{kRemoteStageCacheLimit};
  AccessOrderedCache<CachedProjectResponse> projectResponseCache{kProjectResponseCacheLimit};

  // ---- Stage refresh
  std::uint64_t refreshGeneration = 0;
  std::uint32_t staleStageRefreshRetries = 0;
  bool stageRefreshInFlight = false;

  void refresh(StageRefreshOptions options = {});
  void applyRefreshResultNow(std::shared_ptr<const PreparedStage> prepared,
                             std::optional<std::uint64_t> incomingRevision,
                             std::uint64_t generation, bool preserveDrafts);
  void applyRefreshFailure(const RequestFailure& failure, std::uint64_t generation);
  void handleConnectionFailure(const RequestFailure& failure, std::string_view prefix);
  void registerConnectionIssue(const VelkConnectionIssue& issue);
  // A button of the start-up sheet or the banner. Retry starts over; sign-in, access requests and
  // the project browser join with their own flows and only log until then.
  void performConnectionAction(VelkConnectionAction action);
  void dismissConnectionIssue();
  void scheduleStageRefresh(Duration delay);

  // ---- Project data
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
  void scheduleProjectMetadataRefresh(Duration delay);
  void applyRemoteProjectResponse(const ProjectResponse& project);
  void publishProjectAssetsFromStage(const std::vector<UsdAsset>& assets);

  // ---- Client document and presentation
  std::vector<ProjectAssetItem> projectAssets;
  // Assets created in the scene that the stage does not list yet.
  std::vector<UsdAsset> pendingCreatedAssets;
  // Store items placed in the scene for a look; they have hierarchy paths but no prims.
  StoreScenePreviews storeScenePreviews;
  std::uint64_t clientDocumentBuildGeneration = 0;
  bool clientDocumentPendingStageChanged = false;
  bool clientDocumentPendingProjectChanged = false;

  // Rebuilds the document off the main thread; requests that come while one is under way are
  // merged, and only the newest build is published.
  void scheduleClientDocumentRebuild(bool stageChanged, bool projectChanged);
  void publishClientDocument(std::shared_ptr<const EditorClientDocumentSnapshot> snapshot,
                             std::uint64_t generation, Duration elapsed);
  // Shows a structural edit of `stage` in the hierarchy at once, ahead of the full build.
  void publishStructuralClientDocumentPatch();
  void rebuildStageIndex();
  void rebuildPresentationIndex();

  // Selects prims from a view and points the inspector at them; the highlight shows at once, the
  // inspector's data follows on the next turn.
  void selectPrims(std::string primaryPath, std::vector<std::string> paths);
  // Selects an asset of the project pane and points the inspector at it.
  void selectProjectAsset(const std::string& path);
  void scheduleSelectionSnapshot(std::string primaryPath, std::vector<std::string> paths,
                                 std::uint64_t serial);
  // Drops selected paths that the document no longer has, and refreshes the inspector's data.
  void reconcileSessionSelectionWithStage();
  bool isStorePreviewPath(std::string_view path) const;

  // ---- Panes and view preferences (kept between runs where noted)
  Observable<HierarchyOrder> hierarchyOrder{HierarchyOrder::alphabetical};              // kept
  Observable<bool> showHierarchyStatus{false};                                          // kept
  Observable<bool> showFakeAssetSettings{false};                                        // kept
  Observable<ProjectAssetBrowserOrganization> projectAssetBrowserOrganization{
      ProjectAssetBrowserOrganization::typeAndClass};                                   // kept
  Observable<bool> snapEnabled{false};                                                  // kept
  Observable<bool> snapSurfaceMode{false};                                              // kept
  Observable<bool> snapBoundsPlacement{false};                                          // kept
  Observable<bool> snapAlignToSurface{false};                                           // kept
  Observable<bool> showHierarchyPane{true};
  Observable<bool> showInspectorPane{true};
  Observable<bool> showProjectPane{true};
  Observable<bool> showLayerPane{false};
  Observable<bool> viewportFocusMode{false};
  Observable<bool> showRigidBodyShapes{false};
  Observable<bool> showViewportGrid{false};

  // ---- User and session
  Observable<std::string> userName;
  Observable<std::string> userId;
  Observable<std::string> userColor;
  Observable<std::vector<UserProfileSummary>> userProfiles;
  std::string velkSessionToken;
  std::string velkAuthEmail;
  std::string velkAuthDisplayName;
  bool isVelkSignedIn() const;
  // The account as the profile button names it: display name, email, or whether signed in.
  std::string velkAccountLabel() const;
  // Opens the server's sign-in page in the browser; its answer comes back as a callback link.
  void signInToVelk();
  // Forgets the session; the open stage stays until a request is refused.
  void signOutOfVelk();
  // Every link that reaches the editor: sign-in callbacks, agent set-up, project links.
  void handleIncomingURL(const std::string& url);
  // The server refused the session: forget it, drop every answer in flight and ask for sign-in.
  // A refusal of an older session than the present one (`expectedSessionToken`) changes nothing.
  void requireVelkSignIn(std::optional<std::string> expectedSessionToken = std::nullopt);

  void setUserIdentity(std::optional<std::string> name, std::optional<std::string> id,
                       std::optional<std::string> color, bool syncRemote);
  void applyUserProfiles(const std::vector<UserProfileSummary>& profiles);
  std::string userInitial() const;
  // Asks the server who the session belongs to and takes the account's name and colour.
  void refreshCurrentVelkProfile();
  void applyVelkMeResponse(const VelkMeResponse& response);
  std::optional<UserProfileSummary> normalizedUserProfile(UserProfileSummary profile) const;
  std::vector<UserProfileSummary> storedUserProfiles() const;
  void persistUserProfiles(const std::vector<UserProfileSummary>& profiles);

  // ---- Authoring (the helper and the queue join with the authoring pipeline)
  std::optional<PersistentEditClientSettings> persistentEditClient;
  void prewarmPersistentEditClientIfPossible();
  void retirePersistentEditClient();

  // ---- Collaboration (the watcher joins with the collaboration subsystem)
  bool toolWatcherEnabled = false;
  void startToolWatcher();
  void stopToolWatcher();

  // ---- Timing (diagnostics)
  bool timingLogsEnabled = false;
  bool projectTimingEnabled = false;
  std::string projectSwitchProfileTarget;
  std::optional<TimePoint> projectSwitchTimingStartedAt;
  // A line of the project timing log, when that log is on.
  void projectTiming(std::string_view text) const;

  MainExecutor& mainExecutor() const { return ports_.main; }

 private:
  void handleVelkAuthCallback(const UrlComponents& callback);
  void openProjectLink(const std::string& url);
  void addIdentityQueryItems(std::vector<UrlQueryItem>& items) const;
  void readViewPreferences();
  void bindViewPreferences();
  void applyRememberedLaunchScope();
  void initializeIdentity();
  void makeClientIdUnique();
  void loadSessionToken();
  std::optional<HostedProjectLaunchScope> storedLaunchScope() const;
  std::string activeLayerForPrewarm() const;
  void storeStage(std::shared_ptr<const PreparedStage> prepared);
  void refreshRemoteStage(const std::string& url, std::uint64_t generation, bool preserveDrafts);
  // The place the editor shows, as the client core compares places.
  SharedClientScope currentSharedScope() const;
  // Lets replaced documents go on a background thread: the last reference to a large stage
  // should not be dropped on the main thread.
  void retire(std::vector<std::shared_ptr<const EditorClientDocumentSnapshot>> snapshots);

  EditorModelPorts ports_;
  LifetimeToken lifetime_;
  TaskSlot refreshTask_;
  TaskSlot stageChangedRefreshTask_;
  TaskSlot projectDataTask_;
  TaskSlot profileTask_;
  TaskSlot projectMetadataRefreshTask_;
  TaskSlot workspaceCatalogTask_;
  TaskSlot hostedProjectsTask_;
  // The project folder's own files in local mode; the stage's store-linked assets join them.
  std::vector<ProjectAssetItem> localProjectFileAssets_;
  std::vector<ProjectAssetItem> localStageStoreAssets_;
  void publishLocalProjectAssets();
  void handleHostedProjectsFailure(const RequestFailure& failure, const std::string& expectedToken,
                                   const std::function<void(HostedProjectResolution)>& done);
  void markStartupResolvedWithoutProject();
  TaskSlot clientDocumentBuildTask_;
  TaskSlot selectionSnapshotTask_;
  std::shared_ptr<EditorClientDocumentBuilder> clientDocumentBuilder_ =
      std::make_shared<EditorClientDocumentBuilder>();
  std::vector<Subscription> preferenceBindings_;
};

}  // namespace orvan::editor
