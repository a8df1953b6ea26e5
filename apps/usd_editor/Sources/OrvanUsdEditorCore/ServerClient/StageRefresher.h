#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorConfiguration.h"
#include "Launch/EditorScope.h"
#include "Launch/EditorTiming.h"
#include "Platform/ProcessLauncher.h"
#include "Presentation/DocumentPublisher.h"
#include "Presentation/PreparedStage.h"
#include "ServerClient/ProjectDataFeed.h"
#include "ServerClient/ServerSession.h"
#include "ServerClient/StartupState.h"
#include "ServerClient/VelkClientRequestError.h"

namespace orvan::editor {

struct StageRefreshOptions {
  // Keeps the queued edits and the optimistic overlay; edit paths refresh this way.
  bool preserveQueue = false;
  // Defaults to `preserveQueue`.
  std::optional<bool> preserveDrafts = std::nullopt;
};

// Stage refresh: the editor keeps no live copy of the scene; after each change it asks again, and
// only the newest request's answer is ever applied. Hosted, the project server composes the
// stage; locally, the inspector helper does.
class StageRefresher {
 public:
  struct Context {
    MainExecutor& main;
    BackgroundExecutor& background;
    ProcessLauncher& processes;
    const EditorConfiguration& configuration;
    EditorScope& scope;
    StartupState& startup;
    ServerSession& server;
    ProjectDataFeed& projectData;
    DocumentPublisher& documents;
    Observable<std::shared_ptr<const PreparedStage>>& stage;
    Observable<std::uint64_t>& revision;
    Observable<std::string>& status;
    const EditorTiming& timing;
  };
  struct Hooks {
    // The server refused the session: the account asks for sign-in.
    std::function<void()> signInRequired = [] {};
    // A stage of the server is to be shown; by default it shows as it came. The authoring
    // pipeline lays its unconfirmed edits over it first.
    std::function<void(std::shared_ptr<const PreparedStage>, std::optional<std::uint64_t>)>
        presentStage;
    // A full refresh drops the queued edits and everything shown ahead of the server.
    std::function<void()> queuedWorkDiscarded = [] {};
    // A refresh's stage is now shown; `preserveDrafts` says whether the fields keep their text.
    std::function<void(bool preserveDrafts)> stageApplied = [](bool) {};
    // A refresh's stage was applied: queued edits waiting for it may go.
    std::function<void()> refreshApplied = [] {};
  };

  explicit StageRefresher(Context context) : context_(context) {}
  StageRefresher(const StageRefresher&) = delete;
  StageRefresher& operator=(const StageRefresher&) = delete;

  Hooks hooks;
  std::uint64_t refreshGeneration = 0;
  std::uint32_t staleStageRefreshRetries = 0;
  bool stageRefreshInFlight = false;

  void refresh(StageRefreshOptions options = {});
  void applyRefreshResultNow(std::shared_ptr<const PreparedStage> prepared,
                             std::optional<std::uint64_t> incomingRevision,
                             std::uint64_t generation, bool preserveDrafts);
  void applyRefreshFailure(const RequestFailure& failure, std::uint64_t generation);
  // A failure that concerns the whole project: the issue is shown, the status names it after
  // `prefix`, and a project that never answered goes back to the start-up sheet.
  void handleConnectionFailure(const RequestFailure& failure, std::string_view prefix);
  void scheduleStageRefresh(Duration delay);
  // Shows `prepared` as the stage; the document follows.
  void storeStage(std::shared_ptr<const PreparedStage> prepared);
  // Every stage answer still on its way becomes stale.
  void dropAnswersInFlight();

 private:
  void refreshRemoteStage(const std::string& url, std::uint64_t generation, bool preserveDrafts);

  Context context_;
  LifetimeToken lifetime_;
  TaskSlot refreshTask_;
  TaskSlot stageChangedRefreshTask_;
};

}  // namespace orvan::editor
