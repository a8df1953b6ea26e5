#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Application/UserIdentityController.h"
#include "Application/ViewPreferences.h"
#include "Authoring/ComponentEditing.h"
#include "Authoring/EditClientSlot.h"
#include "Authoring/GizmoCommits.h"
#include "Authoring/LayerStackEditing.h"
#include "Authoring/OperationQueue.h"
#include "Authoring/OptimisticOverlay.h"
#include "Authoring/PropertyDrafts.h"
#include "Authoring/StructuralEditing.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/ThreadPool.h"
#include "Launch/EditorConfiguration.h"
#include "Launch/EditorScope.h"
#include "Launch/EditorTiming.h"
#include "Platform/UserFolders.h"
#include "Presentation/DocumentPublisher.h"
#include "Presentation/EditorClientDocumentState.h"
#include "Presentation/EditorPresentationStore.h"
#include "Presentation/EditorSessionState.h"
#include "Presentation/PreparedStage.h"
#include "ProjectsAndWorkspaces/AccountSession.h"
#include "ProjectsAndWorkspaces/ProjectNavigator.h"
#include "ProjectsAndWorkspaces/SharedScopeSwitchCoordinator.h"
#include "ServerClient/ProjectDataFeed.h"
#include "ServerClient/ServerSession.h"
#include "ServerClient/StageRefresher.h"
#include "ServerClient/StartupState.h"

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
  // Where exchanges with the edit helper block; by default one thread of the model's own. Tests
  // pass their scheduler's background.
  BackgroundExecutor* helperExchanges = nullptr;
};

// The editor's central object: one per process, on the main thread, owner of the stage, the place
// and every task in flight. Views read its stores and call operations on its parts; nothing else
// writes. Each concern is a part that owns its state, in the folder of its subsystem:
//   viewPreferences  pane and view preferences, kept between runs             (Application)
//   identity         who this editor is, and the profiles it knows            (Application)
//   server           credential, addresses, authorized requests, caches       (ServerClient)
//   documents        the client document, selection and inspector snapshot    (Presentation)
//   projectData      the project stream: assets, clients, agents, comments    (ServerClient)
//   stageRefresher   stage refresh, generations, stale retries, failures      (ServerClient)
//   account          sign-in, callback links, sign-out, the account (ProjectsAndWorkspaces)
//   projects         hosted projects, start-up resolution, workspaces (ProjectsAndWorkspaces)
//   editClients      the long-lived edit helper                              (Authoring)
//   overlay          structural edits shown before the server confirms them  (Authoring)
//   operations       the serial queue of edits to the helper                 (Authoring)
//   structure        create, delete, duplicate, rename, reparent, instance   (Authoring)
//   propertyDrafts   inspector drafts, value grammar, debounced commits      (Authoring)
//   components       add, remove, enable, reorder, copy and paste components (Authoring)
//   layers           the layer pane: stack commands and the active layer     (Authoring)
//   viewportGizmo    transform drags of the viewport's gizmo, beside the queue (Authoring)
// This class wires them together and runs start-up (EditorModel.cpp).
class EditorModel {
  // First, so that every part below may hold on to the ports.
  EditorModelPorts ports_;
  // The client id as launched: a user id that sanitises to nothing falls back to it.
  const std::string launchClientId_;
  // Where helper exchanges block when the ports name no executor: one thread, so a hung helper
  // holds nothing else. Before the parts, which it must outlive.
  std::unique_ptr<ThreadPool> ownHelperExchanges_;
  BackgroundExecutor& helperExchanges_;

 public:
  EditorModel(EditorConfiguration configuration, EditorModelPorts ports);
  ~EditorModel();
  EditorModel(const EditorModel&) = delete;
  EditorModel& operator=(const EditorModel&) = delete;

  // ---- What the launch said (with a client id unique to this run), and where the editor is
  const EditorConfiguration configuration;
  EditorScope scope;
  const EditorTiming timing;

  // ---- Core
  Observable<std::shared_ptr<const PreparedStage>> stage{PreparedStage::empty()};
  Observable<std::uint64_t> revision{0};
  Observable<std::string> status{"Ready"};
  const StageInspection& currentStage() const { return stage.get()->stage(); }

  // ---- Stores, created once
  EditorSessionState session;
  EditorClientDocumentState clientDocument;
  EditorPresentationStore presentation;
  SharedScopeSwitchCoordinator sharedScopeSwitch;
  StartupState startup;

  // ---- Parts, one per concern
  ViewPreferences viewPreferences;
  UserIdentityController identity;
  ServerSession server;
  DocumentPublisher documents;
  ProjectDataFeed projectData;
  StageRefresher stageRefresher;
  AccountSession account;
  ProjectNavigator projects;
  EditClientSlot editClients;
  OptimisticOverlay overlay;
  OperationQueue operations;
  StructuralEditing structure;
  PropertyDrafts propertyDrafts;
  ComponentEditing components;
  LayerStackEditing layers;
  GizmoCommits viewportGizmo;

  // ---- Start-up
  // Begins or begins again: resolves the project of a hosted launch, then loads the stage.
  void startInitialRefresh();
  bool isStartupBlocking() const;
  bool canLaunchViewport() const { return !isStartupBlocking(); }
  bool hasCompleteHostedLaunchScope() const;
  std::string projectLabel() const;
  std::string projectLoadingMessage() const;
  // A button of the start-up sheet or the banner. Retry starts over; sign-in opens the browser;
  // access requests join with their own flow and only log until then.
  void performConnectionAction(VelkConnectionAction action);
  void dismissConnectionIssue();

  // ---- Links: sign-in callbacks, agent set-up, project links
  void handleIncomingURL(const std::string& url);

  // ---- Collaboration (the watcher joins with the collaboration subsystem)
  bool toolWatcherEnabled = false;
  void startToolWatcher();
  void stopToolWatcher();

  MainExecutor& mainExecutor() const { return ports_.main; }

 private:
  void connectParts();
  void openProjectLink(const std::string& url);

  LifetimeToken lifetime_;
};

}  // namespace orvan::editor
