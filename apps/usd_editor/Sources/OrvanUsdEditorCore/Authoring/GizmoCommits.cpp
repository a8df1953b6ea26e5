#include "Authoring/GizmoCommits.h"

#include <cmath>

#include <spdlog/spdlog.h>

#include "Authoring/InstanceRules.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace status = gizmo_status;

namespace {

constexpr auto kRefreshAfterFinalDelay = std::chrono::milliseconds(250);

bool firstThreeAreFinite(const std::vector<double>& values) {
  return values.size() >= 3 && std::isfinite(values[0]) && std::isfinite(values[1]) &&
         std::isfinite(values[2]);
}

}  // namespace

std::string formatTransformValues(const std::vector<double>& values) {
  std::string text;
  for (std::size_t index = 0; index < values.size(); ++index) {
    if (index > 0)
      text += ',';
    text += formatNumber(values[index]);
  }
  return text;
}

bool refusalMeansNoAuthoredChange(std::string_view message) {
  return lowercased(message).find("no valid authored change") != std::string::npos;
}

void GizmoCommits::timingLog(const std::string& text) const {
  if (context_.timing.timingLogsEnabled)
    spdlog::info("{}", text);
}

bool GizmoCommits::transitionHoldsBack() const {
  return context_.queue.hooks.preserveViewportDuringTransition() &&
         context_.stageRefresher.stageRefreshInFlight;
}

// ---- A line of the viewport

void GizmoCommits::handleViewportTransformCommit(const std::string& entityPath,
                                                 const std::string& propertyName,
                                                 const std::vector<double>& values, bool final,
                                                 bool duplicate,
                                                 const std::string& previewSessionId) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  if (context_.timing.timingLogsEnabled) {
    spdlog::info(
        "Orvan editor timing gizmo transformCommit entity={} property={} final={} values={}",
        entityPath, propertyName, final ? 1 : 0, formatTransformValues(values));
  }
  // A preview of the history is read-only; a project still opening takes no edit yet.
  if (context_.queue.hooks.historyPreviewOpen())
    return;
  if (!context_.scope.seamlessWorkspaceTransitionInFlight && transitionHoldsBack())
    return;
  if (entityPath.empty() || propertyName.empty() || !firstThreeAreFinite(values))
    return;
  const HierarchyEditRules rules = hierarchyEditRulesFor(context_.stage.get(), context_.documents);
  if (rules.isInstanceProxyPath(entityPath)) {
    context_.status.set(rules.instanceProxyRefusalStatus(entityPath));
    return;
  }
  std::string targetPath = entityPath;
  if (duplicate) {
    std::optional<std::string> copy = viewportDuplicatePath(entityPath, previewSessionId);
    if (!copy)
      return;
    targetPath = std::move(*copy);
  }

  lastViewportTransformActivity = context_.main.now();
  const std::string value = formatTransformValues({values[0], values[1], values[2]});
  const std::string component(kTransformComponent);
  PropertyDrafts& drafts = context_.propertyDrafts;
  drafts.livePreviews.set(previewKey(targetPath, component, propertyName), value);
  drafts.updateDraftSnapshot({targetPath}, component, propertyName, value);

  ComponentAtomicOperation operation;
  operation.kind = ComponentOperationKind::set;
  operation.entityPath = targetPath;
  operation.componentType = component;
  operation.propertyName = propertyName;
  operation.value = value;
  if (final) {
    drafts.livePreviews.publishPendingValues();
    queueViewportGizmoCommit(std::move(operation), true);
  } else {
    drafts.livePreviews.schedulePublish();
    queueViewportGizmoCommit(std::move(operation), false);
  }
}

std::optional<std::string> GizmoCommits::viewportDuplicatePath(
    const std::string& sourcePath, const std::string& previewSessionId) {
  const std::string key = previewSessionId.empty() ? sourcePath : previewSessionId;
  if (const auto known = viewportDuplicatePathsByPreviewSession.find(key);
      known != viewportDuplicatePathsByPreviewSession.end()) {
    return known->second;
  }
  // Copies under way are not on the stage yet: their names are taken all the same.
  std::unordered_set<std::string> reserved = context_.overlay.state.pendingDuplicatePrimPaths;
  std::optional<PrimAtomicOperation> operation =
      context_.structure.duplicatePrimOperation(sourcePath, reserved);
  if (!operation) {
    context_.status.set(std::string(status::kCannotDuplicate) + sourcePath);
    return std::nullopt;
  }
  const std::string created = operation->createdPath();
  viewportDuplicatePathsByPreviewSession[key] = created;
  context_.overlay.state.pendingDuplicatePrimPaths.insert(created);
  if (viewportDuplicatePathsByPreviewSession.size() >= kViewportDuplicateSessionLimit)
    viewportDuplicatePathsByPreviewSession = {{key, created}};
  context_.structure.submitPrimBatch({std::move(*operation)}, "duplicate " + sourcePath, {created});
  return created;
}

// ---- Rate

void GizmoCommits::queueViewportGizmoCommit(ComponentAtomicOperation operation, bool final) {
  const std::string key = operation.replacementKey();
  pendingViewportGizmoOperations[key] = std::move(operation);
  viewportGizmoCommitRefreshAfter = viewportGizmoCommitRefreshAfter || final;
  scheduleCommit(final ? Duration::zero() : kViewportGizmoLiveCommitDelay);
}

void GizmoCommits::scheduleCommit(Duration delay) {
  const WeakLifetime weak = lifetime_.weak();
  viewportGizmoCommitTask_.replace(context_.main.postAfter(delay, [this, weak] {
    if (!weak.isAlive())
      return;
    viewportGizmoCommitTask_.clear();
    flushViewportGizmoCommitIfReady();
  }));
}

void GizmoCommits::flushViewportGizmoCommitIfReady() {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  if (viewportGizmoCommitTask_.isActive())
    return;  // a timer is due
  OperationQueue& queue = context_.queue;
  if (viewportGizmoCommitInFlight || queue.state.submitInFlight) {
    context_.status.set(std::string(status::kQueued));
    return;  // runs again when that ends
  }
  if (context_.scope.seamlessWorkspaceTransitionInFlight || transitionHoldsBack()) {
    context_.status.set(std::string(status::kSavingWhenDestinationReady));
    return;
  }
  if (!queue.state.pendingOperations.empty()) {
    // Ordinary edits go first; the queue hands over when it runs dry.
    context_.status.set(std::string(status::kQueued));
    queue.submitNextOperation();
    return;
  }
  std::vector<ComponentAtomicOperation> operations;
  operations.reserve(pendingViewportGizmoOperations.size());
  for (auto& [key, operation] : pendingViewportGizmoOperations)
    operations.push_back(std::move(operation));  // the map keeps them sorted by key
  pendingViewportGizmoOperations.clear();
  if (operations.empty())
    return;
  const bool refreshAfter = std::exchange(viewportGizmoCommitRefreshAfter, false);
  viewportGizmoCommitInFlight = true;
  context_.status.set(std::string(refreshAfter ? status::kPublishing : status::kPublishingLive));
  submitViewportGizmoCommit(std::move(operations), refreshAfter, 0);
}

// ---- The helper

void GizmoCommits::submitViewportGizmoCommit(std::vector<ComponentAtomicOperation> operations,
                                             bool refreshAfter, int attempt) {
  EditClientSlot& clients = context_.editClients;
  std::shared_ptr<PersistentEditClient> client =
      clients.persistentEditClient(clients.editClientExecutablePath());
  std::string command =
      ComponentAtomicOperation::stdioBatchCommand(context_.revision.get(), operations);
  const WeakLifetime weak = lifetime_.weak();
  // Detached: a drag's values are never called back; a reply for a model that is gone is dropped.
  (void)postTaskAndReply(
      context_.exchanges, context_.main,
      [client = std::move(client),
       command = std::move(command)](std::stop_token) -> Result<EditClientResponse> {
        Result<std::string> line = client->submit(command, true);
        if (!line.ok())
          return line.error();
        return decodeEditClientResponse(trimmed(*line));
      },
      [this, weak, operations = std::move(operations), refreshAfter,
       attempt](Result<EditClientResponse> result) mutable {
        if (!weak.isAlive())
          return;
        if (result.ok())
          handleViewportGizmoCommitResponse(*result, std::move(operations), refreshAfter, attempt);
        else
          handleViewportGizmoCommitFailure(result.error(), std::move(operations), refreshAfter,
                                           attempt);
      });
}

void GizmoCommits::handleViewportGizmoCommitFailure(
    const Error& error, std::vector<ComponentAtomicOperation> operations, bool refreshAfter,
    int attempt) {
  viewportGizmoCommitInFlight = false;
  // Only the end of a drag is worth repeating; a live value is overtaken by the next one.
  if (refreshAfter && attempt < kViewportGizmoFinalCommitRetryCount) {
    retryViewportGizmoCommit(std::move(operations), true, attempt + 1);
    return;
  }
  context_.status.set(std::string(status::kFailed) + error.description);
  context_.queue.cancelDeferredWorkspaceSwitchForSaveFailure(error.description);
  if (refreshAfter)
    context_.stageRefresher.scheduleStageRefresh(kRefreshAfterFinalDelay);
  flushPendingViewportGizmoCommitAfterInFlight();
  context_.queue.continueDeferredScopeSwitchIfReady();
}

void GizmoCommits::retryViewportGizmoCommit(std::vector<ComponentAtomicOperation> operations,
                                            bool refreshAfter, int attempt) {
  viewportGizmoCommitInFlight = true;
  context_.status.set(std::string(status::kRetrying));
  const WeakLifetime weak = lifetime_.weak();
  retryTask_.replace(context_.main.postAfter(
      attempt * kViewportGizmoFinalCommitRetryDelay,
      [this, weak, operations = std::move(operations), refreshAfter, attempt]() mutable {
        if (!weak.isAlive())
          return;
        retryTask_.clear();
        submitViewportGizmoCommit(std::move(operations), refreshAfter, attempt);
      }));
}

void GizmoCommits::handleViewportGizmoCommitResponse(
    const EditClientResponse& response, std::vector<ComponentAtomicOperation> operations,
    bool refreshAfter, int attempt) {
  viewportGizmoCommitInFlight = false;
  Observable<std::uint64_t>& revision = context_.revision;
  if (response.accepted) {
    revision.set(response.revision != 0 ? response.revision : revision.get() + 1);
    if (refreshAfter)
      context_.stageRefresher.scheduleStageRefresh(kRefreshAfterFinalDelay);
    context_.status.set(response.message.empty() ? std::string(status::kUpdated)
                                                 : response.message);
  } else {
    const std::uint64_t previous = revision.get();
    if (response.revision != 0)
      revision.set(response.revision);
    if (refreshAfter && attempt < kViewportGizmoFinalCommitRetryCount &&
        !refusalMeansNoAuthoredChange(response.message)) {
      timingLog("Velk viewport gizmo commit rejected at revision " + std::to_string(previous) +
                "; retrying at " + std::to_string(revision.get()) + ": " + response.message);
      retryViewportGizmoCommit(std::move(operations), true, attempt + 1);
      return;
    }
    context_.status.set(std::string(status::kRejected) + response.message);
    context_.queue.cancelDeferredWorkspaceSwitchForSaveFailure(response.message);
    if (refreshAfter)
      context_.stageRefresher.scheduleStageRefresh(kRefreshAfterFinalDelay);
  }
  flushPendingViewportGizmoCommitAfterInFlight();
  context_.queue.continueDeferredScopeSwitchIfReady();
}

void GizmoCommits::flushPendingViewportGizmoCommitAfterInFlight() {
  if (!pendingViewportGizmoOperations.empty()) {
    scheduleCommit(viewportGizmoCommitRefreshAfter ? Duration::zero()
                                                   : kViewportGizmoLiveCommitDelay);
    return;
  }
  context_.queue.submitNextOperation();
}

}  // namespace orvan::editor
