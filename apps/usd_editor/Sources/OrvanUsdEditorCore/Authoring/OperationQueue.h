#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Authoring/AtomicOperation.h"
#include "Authoring/EditClientSlot.h"
#include "Authoring/OptimisticOverlay.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorConfiguration.h"
#include "Launch/EditorScope.h"
#include "Launch/EditorTiming.h"
#include "Platform/ProcessLauncher.h"
#include "Presentation/DocumentPublisher.h"
#include "ServerClient/ServerSession.h"
#include "ServerClient/StageRefresher.h"

namespace orvan::editor {

// The status words of an edit's life.
namespace authoring_status {
inline constexpr std::string_view kHistoryPreviewReadOnly = "History preview is read-only";
inline constexpr std::string_view kFinishOpeningProject =
    "Finish opening the project before editing";
inline constexpr std::string_view kQueued = "Queued live edit";
inline constexpr std::string_view kSavingWhenDestinationReady =
    "Saving change when the destination is ready";
inline constexpr std::string_view kWaitingForAddedLayer = "Waiting for added layer";
inline constexpr std::string_view kPublishing = "Publishing ";
inline constexpr std::string_view kPublishingLatest = "Publishing latest edit";
inline constexpr std::string_view kReconnecting = "Reconnecting live edit";
inline constexpr std::string_view kAlreadyUpToDate = "Already up to date";
inline constexpr std::string_view kRejected = "Live edit rejected: ";
inline constexpr std::string_view kFailed = "Live edit failed: ";
inline constexpr std::string_view kSwitchPaused =
    "Destination switch paused because the last edit was not saved: ";
inline constexpr std::string_view kSavingBeforeOpening = "Saving changes before opening ";
}  // namespace authoring_status

// The queue's state, all on the main thread.
struct OperationQueueState {
  // Waiting, oldest first.
  std::vector<AtomicOperation> pendingOperations;
  // The one with the helper.
  std::optional<AtomicOperation> inFlightOperation;
  // A submission runs; the prim batch route sets it too.
  bool submitInFlight = false;
  // Retries so far, by replacement key.
  std::map<std::string, int> operationRetryAttempts;
  std::optional<TimePoint> primSubmitStartedAt;
  // A play or stop command waiting for the queue to drain.
  std::optional<bool> deferredEditorSimulationPlaying;
  // Switches waiting for the queue to drain: the destination's name.
  std::optional<std::string> deferredWorkspaceSwitch;
  std::optional<std::string> deferredProjectSwitch;
};

// Writes that may safely run twice: every USD property write, and component enable and set.
bool operationIsIdempotentPropertyWrite(const AtomicOperation& operation);
// The server's way of saying a write changed nothing because it was already so.
bool responseMeansPropertyIsAlreadyApplied(std::string_view message);
bool shouldRetryPropertyResponse(const EditClientResponse& response,
                                 const AtomicOperation& operation, std::uint64_t previousRevision);
// Whether the persistent helper repeats the command once on a fresh helper when it dies.
bool retriesOnUnexpectedClosure(const AtomicOperation& operation);
// The one-shot argument vector with the session's identity spliced in front of the address.
std::vector<std::string> spliceOneShotArguments(std::vector<std::string> arguments,
                                                const std::string& address,
                                                const std::string& clientId,
                                                const std::string& scene,
                                                const std::string& activeLayer);

// All authoring flows through this strictly serial queue: at most one operation is with the
// edit helper at a time, a newer edit of the same thing replaces an older queued one, and each
// reply moves the stage revision forward.
class OperationQueue {
 public:
  struct Context {
    MainExecutor& main;
    // Where helper exchanges block; a hung helper holds only this.
    BackgroundExecutor& exchanges;
    ProcessLauncher& processes;
    const EditorConfiguration& configuration;
    const EditorScope& scope;
    const ServerSession& server;
    const Observable<std::string>& userName;
    Observable<std::shared_ptr<const PreparedStage>>& stage;
    StageRefresher& stageRefresher;
    DocumentPublisher& documents;
    OptimisticOverlay& overlay;
    EditClientSlot& editClients;
    Observable<std::uint64_t>& revision;
    Observable<std::string>& status;
    const EditorTiming& timing;
  };
  // What the queue asks of the parts around it. Until those parts exist the defaults say "not
  // open", "not in flight", "nothing to do".
  struct Hooks {
    std::function<bool()> historyPreviewOpen = [] { return false; };
    std::function<bool()> preserveViewportDuringTransition = [] { return false; };
    std::function<bool()> viewportGizmoCommitInFlight = [] { return false; };
    std::function<bool()> pendingAddedLayerActivation = [] { return false; };
    // Property drafts waiting to commit, gizmo commits waiting or in flight.
    std::function<bool()> otherPendingAuthoringChanges = [] { return false; };
    // The queue ran dry: gizmo commits and a deferred play or stop may go.
    std::function<void()> drained = [] {};
    std::function<void()> applyDeferredEditorSimulationIfReady = [] {};
    // An accepted or already-applied operation that is not a prim: its local effect.
    std::function<void(const AtomicOperation&)> applyAcceptedOperation = [](const auto&) {};
    // A refused or failed layer or asset operation: its cheap local effects are undone.
    std::function<void(const AtomicOperation&)> rollBackOperation = [](const auto&) {};
    // An operation given up for good, refused or failed: what showed it ahead of the server goes.
    std::function<void(const AtomicOperation&)> refused = [](const auto&) {};
    std::function<void(const std::string&)> performProjectSwitch = [](const auto&) {};
    std::function<void(const std::string&)> performWorkspaceSwitch = [](const auto&) {};
  };

  explicit OperationQueue(Context context) : context_(context) {}
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  Hooks hooks;
  OperationQueueState state;

  // Admits and coalesces; sends nothing. Callers follow with `submitNextOperation`.
  void queue(AtomicOperation operation);
  // Admits at the front, for a retry.
  void queueNext(AtomicOperation operation);
  void submitNextOperation();
  void handleSubmitResponse(const EditClientResponse& response, const AtomicOperation& operation);
  void handleSubmitFailure(const Error& error);
  // Whether the retry took the operation over.
  bool schedulePropertyOperationRetry(const AtomicOperation& operation, const std::string& message);

  bool hasPendingAuthoringChanges() const;
  // A switch that finds edits still on their way waits for them.
  void deferWorkspaceSwitch(std::string workspace, const std::string& destinationName);
  void deferProjectSwitch(std::string project, const std::string& destinationName);
  void continueDeferredScopeSwitchIfReady();
  void cancelDeferredWorkspaceSwitchForSaveFailure(const std::string& message);
  // A switch failed after the queue was reset for it: what waited is thrown away.
  void discardChangesQueuedDuringFailedScopeSwitch();
  // A full refresh: queued edits and the overlay go.
  void discardQueuedWork();

  // Whether the pipeline is busy or held back by a switch, so a batch must go the slow way.
  bool isBusyForBatch() const;
  bool transitionBlocksSubmission() const;
  // The rules of the instance gate over the stage as it shows now.
  std::optional<std::string> instanceGateRefusal(const AtomicOperation& operation) const;

 private:
  bool admits(const AtomicOperation& operation);
  void removeNamesakes(const std::string& key);
  void afterReply();
  // Blocking work for the exchange executor: the reply line, decoded.
  Result<EditClientResponse> exchange(const AtomicOperation& operation, std::uint64_t revision);
  void timingLog(const std::string& text) const;

  Context context_;
  LifetimeToken lifetime_;
  TaskSlot operationRetryTask_;
};

}  // namespace orvan::editor
