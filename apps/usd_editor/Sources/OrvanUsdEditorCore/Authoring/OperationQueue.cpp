#include "Authoring/OperationQueue.h"

#include <algorithm>
#include <chrono>

#include <spdlog/spdlog.h>

#include "Authoring/InstanceRules.h"
#include "ServerClient/RunProcess.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace status = authoring_status;

namespace {

constexpr int kMaximumPropertyRetries = 2;
constexpr auto kRetryStep = std::chrono::milliseconds(50);
constexpr auto kResetRefreshDelay = std::chrono::milliseconds(0);
constexpr auto kInstanceableRefreshDelay = std::chrono::milliseconds(250);
constexpr auto kStructuralRefreshDelay = std::chrono::seconds(2);

bool containsAny(std::string_view text, std::initializer_list<std::string_view> needles) {
  return std::any_of(needles.begin(), needles.end(),
                     [&](std::string_view needle) { return text.find(needle) != text.npos; });
}

std::string elapsedMilliseconds(Duration elapsed) {
  return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

// What one exchange needs, taken on the main thread so the background touches nothing of the
// model.
struct Exchange {
  std::shared_ptr<PersistentEditClient> client;  // the persistent route
  std::string command;
  bool retryOnUnexpectedClosure = false;
  ProcessLauncher* launcher = nullptr;  // the one-shot route
  std::string executablePath;
  std::vector<std::string> arguments;
  std::string token;

  Result<EditClientResponse> run() const {
    Result<std::string> line = client
                                   ? client->submit(command, retryOnUnexpectedClosure)
                                   : runEditClientOnce(*launcher, executablePath, arguments, token,
                                                       kEditClientStandardErrorTailCharacters);
    if (!line.ok())
      return line.error();
    return decodeEditClientResponse(trimmed(*line));
  }
};

}  // namespace

bool operationIsIdempotentPropertyWrite(const AtomicOperation& operation) {
  if (operation.usdProperty())
    return true;
  const ComponentAtomicOperation* component = operation.component();
  return component && (component->kind == ComponentOperationKind::enable ||
                       component->kind == ComponentOperationKind::set);
}

bool responseMeansPropertyIsAlreadyApplied(std::string_view message) {
  return containsAny(lowercased(message), {"no valid authored change", "did not change the scene",
                                           "already up to date"});
}

bool shouldRetryPropertyResponse(const EditClientResponse& response,
                                 const AtomicOperation& operation, std::uint64_t previousRevision) {
  if (!operationIsIdempotentPropertyWrite(operation))
    return false;
  if (response.revision != 0 && response.revision != previousRevision)
    return true;
  return containsAny(lowercased(response.message), {"unavailable", "deadline", "connection",
                                                    "transport", "socket", "temporarily"});
}

bool retriesOnUnexpectedClosure(const AtomicOperation& operation) {
  if (operation.prim() || operation.usdProperty() || operation.asset())
    return true;
  if (operation.component())
    return operationIsIdempotentPropertyWrite(operation);
  return false;
}

std::vector<std::string> spliceOneShotArguments(std::vector<std::string> arguments,
                                                const std::string& address,
                                                const std::string& clientId,
                                                const std::string& scene,
                                                const std::string& activeLayer) {
  std::vector<std::string> spliced{"--client-id", clientId, "--scene", scene};
  if (!activeLayer.empty()) {
    spliced.emplace_back("--active-layer");
    spliced.push_back(activeLayer);
  }
  const auto at = std::find(arguments.begin(), arguments.end(), address);
  arguments.insert(at, spliced.begin(), spliced.end());
  return arguments;
}

// ---- Admission

void OperationQueue::timingLog(const std::string& text) const {
  if (context_.timing.timingLogsEnabled)
    spdlog::info("{}", text);
}

bool OperationQueue::transitionBlocksSubmission() const {
  return context_.scope.seamlessWorkspaceTransitionInFlight ||
         (hooks.preserveViewportDuringTransition() && context_.stageRefresher.stageRefreshInFlight);
}

std::optional<std::string> OperationQueue::instanceGateRefusal(
    const AtomicOperation& operation) const {
  return hierarchyEditRulesFor(context_.stage.get(), context_.documents)
      .instanceGateRefusal(operation);
}

bool OperationQueue::admits(const AtomicOperation& operation) {
  (void)operation;
  if (hooks.historyPreviewOpen()) {
    context_.status.set(std::string(status::kHistoryPreviewReadOnly));
    return false;
  }
  if (!context_.scope.seamlessWorkspaceTransitionInFlight &&
      hooks.preserveViewportDuringTransition() && context_.stageRefresher.stageRefreshInFlight) {
    context_.status.set(std::string(status::kFinishOpeningProject));
    return false;
  }
  return true;
}

void OperationQueue::removeNamesakes(const std::string& key) {
  std::erase_if(state.pendingOperations,
                [&](const AtomicOperation& queued) { return queued.replacementKey() == key; });
}

void OperationQueue::queue(AtomicOperation operation) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  if (!admits(operation))
    return;
  if (std::optional<std::string> refusal = instanceGateRefusal(operation)) {
    context_.status.set(std::move(*refusal));
    return;  // nothing queued, nothing changed locally
  }
  if (state.inFlightOperation == operation)
    return;  // the same edit is on its way
  if (const PrimAtomicOperation* prim = operation.prim()) {
    // A structural edit shows at once, before any reply.
    std::vector<std::string> selectAfter;
    if (std::optional<std::string> path = prim->selectedPathAfterAccept())
      selectAfter.push_back(std::move(*path));
    context_.overlay.applyOptimisticOperations(std::span(prim, 1), std::move(selectAfter));
  }
  // A replaced edit gives up its place in the line.
  removeNamesakes(operation.replacementKey());
  state.pendingOperations.push_back(std::move(operation));
}

void OperationQueue::queueNext(AtomicOperation operation) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  if (!admits(operation))
    return;
  if (state.inFlightOperation == operation)
    return;
  removeNamesakes(operation.replacementKey());
  state.pendingOperations.insert(state.pendingOperations.begin(), std::move(operation));
}

// ---- Submission

void OperationQueue::submitNextOperation() {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  if (hooks.historyPreviewOpen()) {
    state.pendingOperations.clear();
    return;
  }
  if (state.pendingOperations.empty()) {
    hooks.drained();
    hooks.applyDeferredEditorSimulationIfReady();
    continueDeferredScopeSwitchIfReady();
    return;
  }
  if (state.submitInFlight || hooks.viewportGizmoCommitInFlight()) {
    context_.status.set(std::string(status::kQueued));
    return;
  }
  if (transitionBlocksSubmission()) {
    context_.status.set(std::string(status::kSavingWhenDestinationReady));
    return;
  }
  if (hooks.pendingAddedLayerActivation()) {
    context_.status.set(std::string(status::kWaitingForAddedLayer));
    return;
  }
  AtomicOperation operation = std::move(state.pendingOperations.front());
  state.pendingOperations.erase(state.pendingOperations.begin());
  state.inFlightOperation = operation;
  state.submitInFlight = true;
  context_.status.set(std::string(status::kPublishing) + operation.label());

  // The base revision is read now, not when queued: an edit that waited goes against the newest.
  const std::uint64_t revision = context_.revision.get();
  const std::string executablePath = context_.editClients.editClientExecutablePath();
  Exchange exchange;
  if (const LayerAtomicOperation* layer = operation.layer()) {
    const std::string& address = context_.server.addresses.authoringAddress;
    exchange.launcher = &context_.processes;
    exchange.executablePath = executablePath;
    exchange.arguments =
        spliceOneShotArguments(layer->arguments(address, revision, context_.userName.get(),
                                                context_.scope.currentWorkspace()),
                               address, context_.configuration.clientId, context_.scope.scenePath(),
                               context_.scope.activeLayerIdentifier());
    exchange.token = context_.server.velkSessionToken;
  } else {
    exchange.client = context_.editClients.persistentEditClient(executablePath);
    exchange.retryOnUnexpectedClosure = retriesOnUnexpectedClosure(operation);
    if (const PrimAtomicOperation* prim = operation.prim()) {
      exchange.command = PrimAtomicOperation::stdioBatchCommand(revision, std::span(prim, 1));
      state.primSubmitStartedAt = context_.main.now();
      timingLog("prim submit label=" + operation.label() + " revision=" + std::to_string(revision));
    } else if (const ComponentAtomicOperation* component = operation.component()) {
      exchange.command = component->stdioCommand(revision);
    } else if (const UsdPropertyAtomicOperation* property = operation.usdProperty()) {
      exchange.command = property->stdioCommand(revision);
    } else if (const AssetAtomicOperation* asset = operation.asset()) {
      exchange.command = asset->stdioCommand(revision);
    } else if (const HistoryAtomicOperation* history = operation.history()) {
      exchange.command = history->stdioCommand(revision);
    }
  }

  const WeakLifetime weak = lifetime_.weak();
  // Detached: nobody cancels an edit on its way; a reply for a model that is gone is dropped.
  (void)postTaskAndReply(
      context_.exchanges, context_.main,
      [exchange = std::move(exchange)](std::stop_token) { return exchange.run(); },
      [this, weak, operation = std::move(operation)](Result<EditClientResponse> result) {
        if (!weak.isAlive())
          return;
        if (result.ok())
          handleSubmitResponse(*result, operation);
        else
          handleSubmitFailure(result.error());
      });
}

void OperationQueue::afterReply() {
  submitNextOperation();
  hooks.applyDeferredEditorSimulationIfReady();
}

void OperationQueue::handleSubmitResponse(const EditClientResponse& response,
                                          const AtomicOperation& operation) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  state.submitInFlight = false;
  state.inFlightOperation.reset();
  const PrimAtomicOperation* prim = operation.prim();
  if (prim && state.primSubmitStartedAt) {
    const Duration elapsed = context_.main.now() - *std::exchange(state.primSubmitStartedAt, {});
    timingLog("prim response accepted=" + std::string(response.accepted ? "true" : "false") +
              " elapsedMs=" + elapsedMilliseconds(elapsed) +
              (response.accepted ? "" : " message=" + response.message));
  }
  const std::string key = operation.replacementKey();
  Observable<std::uint64_t>& revision = context_.revision;

  if (response.accepted) {
    state.operationRetryAttempts.erase(key);
    revision.set(response.revision != 0 ? response.revision : revision.get() + 1);
    if (prim) {
      context_.overlay.state.acknowledgeOptimisticStructuralOperations(std::span(prim, 1),
                                                                       revision.get());
      if (response.createdPrims)
        context_.overlay.applyCreatedPrimIdentities(*response.createdPrims);
    } else {
      if (const ComponentAtomicOperation* component = operation.component())
        context_.overlay.state.acknowledgeOptimisticComponentOperation(*component, revision.get());
      hooks.applyAcceptedOperation(operation);
    }
    if (std::optional<std::string> path = operation.selectedPathAfterAccept())
      context_.documents.selectPrims(*path, {*path});
    StageRefresher& refresher = context_.stageRefresher;
    if (prim) {
      if (prim->kind == PrimOperationKind::reset)
        refresher.refresh({.preserveQueue = true, .preserveDrafts = false});
      else if (prim->kind == PrimOperationKind::setInstanceable)
        refresher.scheduleStageRefresh(kInstanceableRefreshDelay);
      else
        refresher.scheduleStageRefresh(kStructuralRefreshDelay);
    } else if (const ComponentAtomicOperation* component = operation.component()) {
      if (component->changesStageStructure())
        refresher.scheduleStageRefresh(kStructuralRefreshDelay);
    } else if (const LayerAtomicOperation* layer = operation.layer();
               layer && layer->kind == LayerOperationKind::active) {
      // the active layer is the editor's own choice: nothing to fetch
    } else if (operation.history()) {
      refresher.refresh({.preserveQueue = true, .preserveDrafts = false});
    } else {
      refresher.refresh({.preserveQueue = true, .preserveDrafts = true});
    }
    context_.status.set(response.message);
    afterReply();
    return;
  }

  if (prim)
    context_.overlay.state.clearPendingDuplicatePrimPaths(std::span(prim, 1));
  else
    hooks.rollBackOperation(operation);
  const std::uint64_t previousRevision = revision.get();
  // A refusal teaches the client the server's newest revision.
  if (response.revision != 0)
    revision.set(response.revision);
  if (operationIsIdempotentPropertyWrite(operation) &&
      responseMeansPropertyIsAlreadyApplied(response.message)) {
    state.operationRetryAttempts.erase(key);
    if (const ComponentAtomicOperation* component = operation.component())
      context_.overlay.state.acknowledgeOptimisticComponentOperation(*component, revision.get());
    hooks.applyAcceptedOperation(operation);
    context_.status.set(std::string(status::kAlreadyUpToDate));
    afterReply();
    return;
  }
  if (shouldRetryPropertyResponse(response, operation, previousRevision) &&
      schedulePropertyOperationRetry(operation, response.message)) {
    return;
  }
  // A prim refused from a stale base goes again against the revision just learned.
  if (prim && response.revision != 0 && response.revision != previousRevision &&
      schedulePropertyOperationRetry(operation, response.message)) {
    return;
  }
  state.operationRetryAttempts.erase(key);
  if (state.deferredEditorSimulationPlaying == true)
    state.deferredEditorSimulationPlaying.reset();
  if (prim) {
    context_.overlay.discardOptimisticStructuralOperations(std::span(prim, 1));
    context_.stageRefresher.refresh({.preserveQueue = true, .preserveDrafts = false});
  } else if (const ComponentAtomicOperation* component = operation.component()) {
    // What the local stage showed goes; the server's stage says what is true.
    const bool shown = context_.overlay.discardOptimisticComponentOperation(*component);
    if (shown || component->kind == ComponentOperationKind::enable)
      context_.stageRefresher.refresh({.preserveQueue = true});
  }
  hooks.refused(operation);
  context_.status.set(std::string(status::kRejected) + response.message);
  cancelDeferredWorkspaceSwitchForSaveFailure(response.message);
  afterReply();
}

void OperationQueue::handleSubmitFailure(const Error& error) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  state.submitInFlight = false;
  std::optional<AtomicOperation> operation = std::exchange(state.inFlightOperation, std::nullopt);
  if (operation) {
    const PrimAtomicOperation* prim = operation->prim();
    if (operation->layer())
      hooks.rollBackOperation(*operation);
    if (operationIsIdempotentPropertyWrite(*operation) &&
        schedulePropertyOperationRetry(*operation, error.description)) {
      return;
    }
    if (operation->asset())
      hooks.rollBackOperation(*operation);
    if (prim) {
      state.primSubmitStartedAt.reset();
      context_.overlay.discardOptimisticStructuralOperations(std::span(prim, 1));
      context_.stageRefresher.refresh({.preserveQueue = true, .preserveDrafts = false});
    } else if (const ComponentAtomicOperation* component = operation->component();
               component && context_.overlay.discardOptimisticComponentOperation(*component)) {
      context_.stageRefresher.refresh({.preserveQueue = true});
    }
    state.operationRetryAttempts.erase(operation->replacementKey());
    hooks.refused(*operation);
  }
  if (state.deferredEditorSimulationPlaying == true)
    state.deferredEditorSimulationPlaying.reset();
  context_.status.set(std::string(status::kFailed) + error.description);
  cancelDeferredWorkspaceSwitchForSaveFailure(error.description);
  afterReply();
}

bool OperationQueue::schedulePropertyOperationRetry(const AtomicOperation& operation,
                                                    const std::string& message) {
  const std::string key = operation.replacementKey();
  const bool newerWaits =
      std::any_of(state.pendingOperations.begin(), state.pendingOperations.end(),
                  [&](const AtomicOperation& queued) { return queued.replacementKey() == key; });
  if (newerWaits) {
    // The failed write is out of date already: only the newer one goes.
    state.operationRetryAttempts.erase(key);
    context_.status.set(std::string(status::kPublishingLatest));
    submitNextOperation();
    return true;
  }
  const int attempt =
      (state.operationRetryAttempts.contains(key) ? state.operationRetryAttempts[key] : 0) + 1;
  if (attempt > kMaximumPropertyRetries)
    return false;
  state.operationRetryAttempts[key] = attempt;
  // The helper that failed is not trusted again.
  context_.editClients.retirePersistentEditClient();
  queueNext(operation);
  context_.status.set(std::string(status::kReconnecting));
  const WeakLifetime weak = lifetime_.weak();
  operationRetryTask_.replace(context_.main.postAfter(attempt * kRetryStep, [this, weak] {
    if (!weak.isAlive())
      return;
    operationRetryTask_.clear();
    context_.editClients.persistentEditClient(context_.editClients.editClientExecutablePath());
    submitNextOperation();
  }));
  timingLog("Velk property edit retry " + std::to_string(attempt) + ": " + message);
  return true;
}

// ---- Switches and the queue

bool OperationQueue::hasPendingAuthoringChanges() const {
  return state.submitInFlight || !state.pendingOperations.empty() ||
         hooks.otherPendingAuthoringChanges() || hooks.viewportGizmoCommitInFlight() ||
         hooks.pendingAddedLayerActivation();
}

bool OperationQueue::isBusyForBatch() const {
  return transitionBlocksSubmission() || state.submitInFlight ||
         hooks.viewportGizmoCommitInFlight() || !state.pendingOperations.empty();
}

void OperationQueue::deferWorkspaceSwitch(std::string workspace,
                                          const std::string& destinationName) {
  state.deferredWorkspaceSwitch = std::move(workspace);
  context_.status.set(std::string(status::kSavingBeforeOpening) + destinationName);
  hooks.drained();
  submitNextOperation();
  continueDeferredScopeSwitchIfReady();
}

void OperationQueue::deferProjectSwitch(std::string project, const std::string& destinationName) {
  state.deferredProjectSwitch = std::move(project);
  context_.status.set(std::string(status::kSavingBeforeOpening) + destinationName);
  hooks.drained();
  submitNextOperation();
  continueDeferredScopeSwitchIfReady();
}

void OperationQueue::continueDeferredScopeSwitchIfReady() {
  if (hasPendingAuthoringChanges())
    return;
  if (std::optional<std::string> project = std::exchange(state.deferredProjectSwitch, {})) {
    hooks.performProjectSwitch(*project);
    return;
  }
  if (std::optional<std::string> workspace = std::exchange(state.deferredWorkspaceSwitch, {})) {
    if (*workspace != context_.scope.currentWorkspace())
      hooks.performWorkspaceSwitch(*workspace);
  }
}

void OperationQueue::cancelDeferredWorkspaceSwitchForSaveFailure(const std::string& message) {
  if (!state.deferredWorkspaceSwitch && !state.deferredProjectSwitch)
    return;
  state.deferredWorkspaceSwitch.reset();
  state.deferredProjectSwitch.reset();
  context_.status.set(std::string(status::kSwitchPaused) + message);
}

void OperationQueue::discardChangesQueuedDuringFailedScopeSwitch() {
  state.pendingOperations.clear();
  operationRetryTask_.cancel();
  state.operationRetryAttempts.clear();
  state.inFlightOperation.reset();
  state.submitInFlight = false;
}

void OperationQueue::discardQueuedWork() {
  state.pendingOperations.clear();
  context_.overlay.clear();
}

}  // namespace orvan::editor
