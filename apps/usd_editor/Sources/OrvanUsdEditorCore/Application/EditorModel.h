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
#include "ProjectsAndWorkspaces/SharedScopeSwitchCoordinator.h"
#include "ServerClient/PreparedStage.h"
#include "ServerClient/Records/ProjectRecords.h"
#include "ServerClient/VelkConnectionIssue.h"

namespace orvan::editor {

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
  RandomBytes randomBytes = systemRandomBytes();
  // The account's full name on this machine, for a first start without a stored name.
  std::function<std::string()> accountFullName = [] { return std::string(); };
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
  SharedScopeSwitchCoordinator sharedScopeSwitch;

  // ---- Project and workspace
  Observable<std::string> projectId;
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
  // The project server's address for `path`, with no scope items yet.
  std::optional<std::string> projectServerAPIURL(std::string_view path) const;

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

  // ---- Selection
  // Selects prims from a view and points the inspector at them.
  void selectPrims(std::string primaryPath, std::vector<std::string> paths);
  // Drops selected paths that the new stage no longer has, and refreshes the inspector's data.
  void reconcileSessionSelectionWithStage();

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

  MainExecutor& mainExecutor() const { return ports_.main; }

 private:
  void readViewPreferences();
  void bindViewPreferences();
  void applyRememberedLaunchScope();
  void initializeIdentity();
  void makeClientIdUnique();
  void loadSessionToken();
  std::optional<HostedProjectLaunchScope> storedLaunchScope() const;
  std::string activeLayerForPrewarm() const;
  void storeStage(std::shared_ptr<const PreparedStage> prepared);

  EditorModelPorts ports_;
  LifetimeToken lifetime_;
  TaskSlot refreshTask_;
  TaskSlot stageChangedRefreshTask_;
  std::vector<Subscription> preferenceBindings_;
};

}  // namespace orvan::editor
