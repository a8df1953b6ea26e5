#include "Authoring/StructuralEditing.h"

#include <algorithm>
#include <chrono>
#include <unordered_set>

#include <spdlog/spdlog.h>

#include "Authoring/PrimNames.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace status = authoring_status;

namespace {

constexpr int kMaximumBatchAttempts = 3;
constexpr auto kStructuralRefreshDelay = std::chrono::seconds(2);

bool isTopOrEmpty(std::string_view path) {
  return path.empty() || path == "/World";
}

// The parent that an operation names: the prim's own, or "/World" for a prim without one.
std::string parentOrWorld(const UsdPrimDetail& prim) {
  return prim.parent.empty() ? "/World" : prim.parent;
}

std::string countedLabel(std::string_view verb, const std::vector<PrimAtomicOperation>& operations,
                         const std::string& singleName) {
  if (operations.size() == 1)
    return std::string(verb) + " " + singleName;
  return std::string(verb) + " " + std::to_string(operations.size()) + " prims";
}

std::string elapsedMilliseconds(Duration elapsed) {
  return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

}  // namespace

const std::vector<PrimitiveKindChoice>& primitiveKindChoices() {
  static const std::vector<PrimitiveKindChoice> choices{
      {"xform", "Empty"}, {"cube", "Cube"},         {"sphere", "Sphere"},
      {"cone", "Cone"},   {"cylinder", "Cylinder"}, {"capsule", "Capsule"},
      {"plane", "Plane"}, {"sphereLight", "Light"}, {"audioSource", "Audio Source"},
  };
  return choices;
}

void StructuralEditing::timingLog(const std::string& text) const {
  if (context_.timing.timingLogsEnabled)
    spdlog::info("{}", text);
}

HierarchyEditRules StructuralEditing::rules() const {
  return hierarchyEditRulesFor(context_.stage.get(), context_.documents);
}

// ---- Which prims a command acts on

std::vector<std::string> StructuralEditing::hierarchyActionPaths(const std::string& path) const {
  const SceneSelectionState& selection = context_.session.sceneSelection.get();
  if (!selection.paths.empty() &&
      std::find(selection.paths.begin(), selection.paths.end(), path) != selection.paths.end()) {
    return selection.paths;
  }
  if (rules().canEditHierarchyPath(path))
    return {path};
  return {};
}

std::vector<std::string> StructuralEditing::editableTopLevelSelectedHierarchyPaths() const {
  const HierarchyEditRules editRules = rules();
  const std::vector<std::string>& selected = context_.session.sceneSelection.get().paths;
  auto liesBelowAnotherSelected = [&](const std::string& path) {
    return std::any_of(selected.begin(), selected.end(), [&](const std::string& other) {
      return other != path && hasPrefix(path, other + "/");
    });
  };
  std::vector<std::string> paths;
  for (const std::string& path : selected) {
    if (path == "/World" || !editRules.canEditHierarchyPath(path) || liesBelowAnotherSelected(path))
      continue;
    paths.push_back(path);
  }
  return paths;
}

std::string StructuralEditing::addPrimParentPath() const {
  const std::string& primary = context_.session.sceneSelection.get().primaryPath;
  if (primary.empty())
    return "/World";
  std::string path = primary;
  const HierarchyEditRules editRules = rules();
  if (const UsdPrimDetail* prim = editRules.prim(path);
      prim && !HierarchyEditRules::isSceneContentRow(*prim)) {
    path = prim->parent;
  }
  if (path.empty() || path == "/World")
    return "/World";
  return path;
}

void StructuralEditing::refuseEmptyAction(const std::string& path, const std::string& verb) {
  const HierarchyEditRules editRules = rules();
  if (editRules.isInstanceProxyPath(path))
    context_.status.set(editRules.instanceProxyRefusalStatus(path));
  else
    context_.status.set("Cannot " + verb + " " + path);
}

// ---- Commands

void StructuralEditing::addPrim(const std::string& primitiveKind) {
  const auto& choices = primitiveKindChoices();
  const auto choice = std::find_if(choices.begin(), choices.end(),
                                   [&](const auto& each) { return each.kind == primitiveKind; });
  const std::string parent = addPrimParentPath();
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  std::unordered_set<std::string> reserved;
  const std::string name = uniquePrimName(
      sanitizePrimName(choice != choices.end() ? choice->title : primitiveKind), parent,
      [&](const std::string& path) { return stage->prim(path) != nullptr; }, reserved);
  PrimAtomicOperation operation;
  operation.kind = PrimOperationKind::add;
  operation.parentPath = parent;
  operation.primName = name;
  operation.primitiveKind = primitiveKind;
  context_.queue.queue(AtomicOperation{operation});
  context_.queue.submitNextOperation();
}

void StructuralEditing::deletePrim(const std::string& path) {
  const HierarchyEditRules editRules = rules();
  std::vector<PrimAtomicOperation> operations;
  std::string singleName;
  for (const std::string& each : hierarchyActionPaths(path)) {
    const UsdPrimDetail* prim = editRules.prim(each);
    if (isTopOrEmpty(each) || !prim || !editRules.canEditHierarchyPrim(*prim))
      continue;
    PrimAtomicOperation operation;
    operation.kind = PrimOperationKind::deletePrim;
    operation.sourcePath = each;
    operation.parentPath = parentOrWorld(*prim);
    operations.push_back(std::move(operation));
    singleName = prim->name;
  }
  if (operations.empty()) {
    refuseEmptyAction(path, "delete");
    return;
  }
  const std::string label = countedLabel("delete", operations, singleName);
  submitPrimBatch(std::move(operations), label, {});
}

void StructuralEditing::deleteSelectedPrims() {
  const HierarchyEditRules editRules = rules();
  std::vector<PrimAtomicOperation> operations;
  std::string singleName;
  for (const std::string& path : editableTopLevelSelectedHierarchyPaths()) {
    const UsdPrimDetail* prim = editRules.prim(path);
    PrimAtomicOperation operation;
    operation.kind = PrimOperationKind::deletePrim;
    operation.sourcePath = path;
    operation.parentPath = parentOrWorld(*prim);
    operations.push_back(std::move(operation));
    singleName = prim->name;
  }
  if (operations.empty())
    return;
  const std::string label = countedLabel("delete", operations, singleName);
  submitPrimBatch(std::move(operations), label, {});
}

std::optional<PrimAtomicOperation> StructuralEditing::duplicatePrimOperation(
    const std::string& path, std::unordered_set<std::string>& reservedPaths) const {
  const HierarchyEditRules editRules = rules();
  const UsdPrimDetail* prim = editRules.prim(path);
  if (!prim || !editRules.canEditHierarchyPrim(*prim))
    return std::nullopt;
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  auto exists = [&](const std::string& candidate) { return stage->prim(candidate) != nullptr; };
  PrimAtomicOperation operation;
  operation.kind = PrimOperationKind::duplicate;
  operation.sourcePath = path;
  operation.parentPath = parentOrWorld(*prim);
  operation.primName = nextDuplicatePrimName(duplicatePrimBaseName(prim->name),
                                             operation.parentPath, exists, reservedPaths);
  return operation;
}

std::vector<PrimAtomicOperation> StructuralEditing::duplicatePrimOperations(
    const std::vector<std::string>& paths) {
  std::unordered_set<std::string> reserved;
  std::vector<PrimAtomicOperation> operations;
  for (const std::string& path : paths) {
    if (std::optional<PrimAtomicOperation> operation = duplicatePrimOperation(path, reserved))
      operations.push_back(std::move(*operation));
  }
  return operations;
}

void StructuralEditing::duplicatePrim(const std::string& path) {
  std::vector<PrimAtomicOperation> operations = duplicatePrimOperations(hierarchyActionPaths(path));
  if (operations.empty()) {
    refuseEmptyAction(path, "duplicate");
    return;
  }
  std::vector<std::string> created;
  for (const PrimAtomicOperation& operation : operations)
    created.push_back(operation.createdPath());
  const std::string label = countedLabel("duplicate", operations, operations.front().primName);
  submitPrimBatch(std::move(operations), label, std::move(created));
}

bool StructuralEditing::beginRenamePrim(const std::string& path) {
  if (rules().canEditHierarchyPath(path))
    return true;
  context_.status.set("Cannot rename " + path);
  return false;
}

void StructuralEditing::renamePrim(const std::string& path, const std::string& answer) {
  const HierarchyEditRules editRules = rules();
  const UsdPrimDetail* prim = editRules.prim(path);
  if (!prim || !editRules.canEditHierarchyPrim(*prim)) {
    context_.status.set("Cannot rename " + path);
    return;
  }
  const std::string name = sanitizePrimName(answer);
  if (name.empty()) {
    context_.status.set("Prim name cannot be empty");
    return;
  }
  if (name == prim->name)
    return;
  const std::string parent = parentOrWorld(*prim);
  if (editRules.prim(childPrimPath(parent, name))) {
    context_.status.set("Name already exists: " + name);
    return;
  }
  PrimAtomicOperation operation;
  operation.kind = PrimOperationKind::rename;
  operation.sourcePath = path;
  operation.parentPath = parent;
  operation.primName = name;
  context_.queue.queue(AtomicOperation{operation});
  context_.queue.submitNextOperation();
}

void StructuralEditing::reparentPrims(const std::vector<std::string>& sourcePaths,
                                      const std::string& target) {
  const HierarchyEditRules editRules = rules();
  if (const UsdPrimDetail* targetPrim = editRules.prim(target);
      targetPrim && !HierarchyEditRules::isSceneContentRow(*targetPrim)) {
    context_.status.set("Drop prims onto scene prims");
    return;
  }
  if (editRules.instanceRootPathLockingParent(target)) {
    context_.status.set(editRules.instanceInsertRefusalStatus(target));
    return;
  }
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  auto exists = [&](const std::string& path) { return stage->prim(path) != nullptr; };
  auto hasAncestorAmong = [&](const std::string& source) {
    return std::any_of(sourcePaths.begin(), sourcePaths.end(), [&](const std::string& other) {
      return other != source && !other.empty() && hasPrefix(source, other + "/");
    });
  };
  std::unordered_set<std::string> reserved;
  std::vector<PrimAtomicOperation> operations;
  std::vector<std::string> selectAfter;
  std::string singleName;
  for (const std::string& source : sourcePaths) {
    if (isTopOrEmpty(source) || source == target || hasPrefix(target, source + "/"))
      continue;
    const UsdPrimDetail* prim = editRules.prim(source);
    if (!prim || !editRules.canEditHierarchyPrim(*prim) || hasAncestorAmong(source))
      continue;
    PrimAtomicOperation operation;
    operation.kind = PrimOperationKind::reparent;
    operation.sourcePath = source;
    operation.parentPath = target;
    // A prim moved next to a namesake is renamed.
    operation.primName = uniquePrimName(prim->name, target, exists, reserved);
    selectAfter.push_back(operation.createdPath());
    singleName = prim->name;
    operations.push_back(std::move(operation));
  }
  if (operations.empty()) {
    context_.status.set("No editable prims to move");
    return;
  }
  const std::string label = countedLabel("move", operations, singleName);
  submitPrimBatch(std::move(operations), label, std::move(selectAfter));
}

void StructuralEditing::setPrimInstanceable(const std::string& path, bool instanceable) {
  if (isTopOrEmpty(path))
    return;
  PrimAtomicOperation operation;
  operation.kind = PrimOperationKind::setInstanceable;
  operation.sourcePath = path;
  operation.instanceable = instanceable;
  // The overlay's instance flag shows with the queued operation's local stage.
  context_.queue.queue(AtomicOperation{operation});
  context_.queue.submitNextOperation();
}

// ---- The batch route

void StructuralEditing::submitPrimBatch(std::vector<PrimAtomicOperation> operations,
                                        std::string label, std::vector<std::string> selectAfter) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  OperationQueue& queue = context_.queue;
  if (queue.hooks.historyPreviewOpen()) {
    context_.status.set(std::string(status::kHistoryPreviewReadOnly));
    return;
  }
  if (operations.empty())
    return;
  // All or nothing: the first refusal ends the whole batch.
  const HierarchyEditRules editRules = rules();
  for (const PrimAtomicOperation& operation : operations) {
    if (std::optional<std::string> refusal = editRules.instanceGateRefusal(operation)) {
      context_.status.set(std::move(*refusal));
      return;
    }
  }
  if (queue.isBusyForBatch()) {
    // The pipeline is busy: the batch degrades to single operations in the queue.
    for (PrimAtomicOperation& operation : operations)
      queue.queue(AtomicOperation{std::move(operation)});
    queue.submitNextOperation();
    return;
  }
  context_.status.set(std::string(status::kPublishing) + label);
  std::vector<std::string> selection = selectAfter;
  if (selection.empty() && operations.size() == 1) {
    if (std::optional<std::string> path = operations.front().selectedPathAfterAccept())
      selection.push_back(std::move(*path));
  }
  context_.overlay.applyOptimisticOperations(operations, std::move(selection));
  queue.state.submitInFlight = true;
  primBatchOperationsInFlight = operations;
  queue.state.primSubmitStartedAt = context_.main.now();

  const std::uint64_t revision = context_.revision.get();
  timingLog("prim batch submit label=" + label + " revision=" + std::to_string(revision));
  std::string command = PrimAtomicOperation::stdioBatchCommand(revision, operations);
  std::shared_ptr<PersistentEditClient> client =
      context_.editClients.persistentEditClient(context_.editClients.editClientExecutablePath());
  const WeakLifetime weak = lifetime_.weak();
  (void)postTaskAndReply(
      context_.exchanges, context_.main,
      [client = std::move(client),
       command = std::move(command)](std::stop_token) -> Result<EditClientResponse> {
        Result<std::string> line = client->submit(command, true);
        if (!line.ok())
          return line.error();
        return decodeEditClientResponse(trimmed(*line));
      },
      [this, weak, operations = std::move(operations), selectAfter = std::move(selectAfter),
       label = std::move(label), revision](Result<EditClientResponse> result) {
        if (!weak.isAlive())
          return;
        if (result.ok())
          handlePrimBatchResponse(*result, operations, selectAfter, label, revision);
        else
          handlePrimBatchFailure(result.error(), operations);
      });
}

void StructuralEditing::handlePrimBatchResponse(
    const EditClientResponse& response, const std::vector<PrimAtomicOperation>& operations,
    const std::vector<std::string>& selectedPathsAfterAccept, const std::string& label,
    std::uint64_t submittedRevision) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  OperationQueue& queue = context_.queue;
  queue.state.submitInFlight = false;
  primBatchOperationsInFlight.clear();
  if (const std::optional<TimePoint> started = std::exchange(queue.state.primSubmitStartedAt, {})) {
    timingLog("prim batch response accepted=" + std::string(response.accepted ? "true" : "false") +
              " elapsedMs=" + elapsedMilliseconds(context_.main.now() - *started) +
              (response.accepted ? "" : " message=" + response.message));
  }
  std::string key = "prim-batch:";
  for (std::size_t i = 0; i < operations.size(); ++i) {
    if (i > 0)
      key += "|";
    key += operations[i].replacementKey();
  }
  Observable<std::uint64_t>& revision = context_.revision;
  OptimisticOverlay& overlay = context_.overlay;

  if (response.accepted) {
    queue.state.operationRetryAttempts.erase(key);
    revision.set(response.revision != 0 ? response.revision : revision.get() + 1);
    overlay.state.acknowledgeOptimisticStructuralOperations(operations, revision.get());
    if (response.createdPrims)
      overlay.applyCreatedPrimIdentities(*response.createdPrims);
    if (!selectedPathsAfterAccept.empty()) {
      context_.documents.selectPrims(selectedPathsAfterAccept.front(), selectedPathsAfterAccept);
    }
    context_.status.set(response.message);
    context_.stageRefresher.scheduleStageRefresh(kStructuralRefreshDelay);
    queue.submitNextOperation();
    queue.hooks.applyDeferredEditorSimulationIfReady();
    return;
  }

  if (response.revision != 0)
    revision.set(response.revision);
  const int attempts = queue.state.operationRetryAttempts[key] + 1;
  if (response.revision != 0 && response.revision != submittedRevision &&
      attempts < kMaximumBatchAttempts) {
    // A stale base: the same batch again against the revision just learned.
    queue.state.operationRetryAttempts[key] = attempts;
    timingLog("prim batch retry " + std::to_string(attempts) + " label=" + label +
              " revision=" + std::to_string(revision.get()));
    submitPrimBatch(operations, label.empty() ? "edit" : label, selectedPathsAfterAccept);
    return;
  }
  overlay.discardOptimisticStructuralOperations(operations);
  queue.state.operationRetryAttempts.erase(key);
  context_.status.set(std::string(status::kRejected) + response.message);
  queue.cancelDeferredWorkspaceSwitchForSaveFailure(response.message);
  context_.stageRefresher.refresh({.preserveQueue = true, .preserveDrafts = false});
  queue.submitNextOperation();
  queue.hooks.applyDeferredEditorSimulationIfReady();
}

void StructuralEditing::handlePrimBatchFailure(const Error& error,
                                               const std::vector<PrimAtomicOperation>& operations) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  OperationQueue& queue = context_.queue;
  queue.state.submitInFlight = false;
  queue.state.primSubmitStartedAt.reset();
  primBatchOperationsInFlight.clear();
  context_.overlay.discardOptimisticStructuralOperations(operations);
  context_.status.set(std::string(status::kFailed) + error.description);
  queue.cancelDeferredWorkspaceSwitchForSaveFailure(error.description);
  context_.stageRefresher.refresh({.preserveQueue = true, .preserveDrafts = false});
  queue.submitNextOperation();
  queue.hooks.applyDeferredEditorSimulationIfReady();
}

}  // namespace orvan::editor
