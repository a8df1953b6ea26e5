#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Application/EditorConfiguration.h"
#include "Application/EditorSessionState.h"
#include "Application/HostedProjectLaunchScope.h"
#include "Application/UserIdentity.h"
#include "Foundation/Error.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Foundation/UrlComponents.h"
#include "Platform/UserFolders.h"
#include "Presentation/EditorClientDocumentBuilder.h"
#include "Presentation/EditorClientDocumentState.h"
#include "Presentation/EditorPresentationStore.h"
#include "Presentation/PreparedStage.h"
#include "Presentation/SelectionSnapshot.h"
#include "ProjectsAndWorkspaces/SharedScopeSwitchCoordinator.h"
#include "ServerClient/Records/ProjectAssetItem.h"
#include "ServerClient/Records/ProjectRecords.h"
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
};

enum class HierarchyOrder { alphabetical, scene };
enum class ProjectAssetBrowserOrganization { typeAndClass, folders };

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
//   EditorModelRequests.cpp  project server and web editor addresses   (ServerClient)
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

  // ---- Stage refresh
  std::uint64_t refreshGeneration = 0;
  std::uint32_t staleStageRefreshRetries = 0;
  bool stageRefreshInFlight = false;

  void refresh(StageRefreshOptions options = {});
  void applyRefreshResultNow(std::shared_ptr<const PreparedStage> prepared,
                             std::optional<std::uint64_t> incomingRevision,
                             std::uint64_t generation, bool preserveDrafts);
  void applyRefreshFailure(const Error& error, std::uint64_t generation);
  void handleConnectionFailure(const Error& error, std::string_view prefix);
  void registerConnectionIssue(const VelkConnectionIssue& issue);
  // A button of the start-up sheet or the banner. Retry starts over; sign-in, access requests and
  // the project browser join with their own flows and only log until then.
  void performConnectionAction(VelkConnectionAction action);
  void dismissConnectionIssue();
  void scheduleStageRefresh(Duration delay);

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

  void setUserIdentity(std::optional<std::string> name, std::optional<std::string> id,
                       std::optional<std::string> color, bool syncRemote);
  void applyUserProfiles(const std::vector<UserProfileSummary>& profiles);
  std::string userInitial() const;
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
  // Lets replaced documents go on a background thread: the last reference to a large stage
  // should not be dropped on the main thread.
  void retire(std::vector<std::shared_ptr<const EditorClientDocumentSnapshot>> snapshots);

  EditorModelPorts ports_;
  LifetimeToken lifetime_;
  TaskSlot refreshTask_;
  TaskSlot stageChangedRefreshTask_;
  TaskSlot clientDocumentBuildTask_;
  TaskSlot selectionSnapshotTask_;
  std::shared_ptr<EditorClientDocumentBuilder> clientDocumentBuilder_ =
      std::make_shared<EditorClientDocumentBuilder>();
  std::vector<Subscription> preferenceBindings_;
};

}  // namespace orvan::editor
