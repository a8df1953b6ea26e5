#include "Authoring/OptimisticOverlay.h"

#include <algorithm>

#include <spdlog/spdlog.h>

namespace orvan::editor {

// ---- State

void OptimisticOverlayState::recordOptimisticStructuralOperation(
    const PrimAtomicOperation& operation) {
  ++optimisticStructuralSequence;
  switch (operation.kind) {
    case PrimOperationKind::reset:
      return;
    case PrimOperationKind::setInstanceable:
      optimisticInstanceableOverrides[operation.sourcePath] = {operation.instanceable,
                                                               kUnacknowledgedRevision};
      return;
    case PrimOperationKind::deletePrim:
      // Add and then delete leaves one delete.
      optimisticDeletedPaths[operation.sourcePath] = kUnacknowledgedRevision;
      optimisticInsertedPaths.erase(operation.sourcePath);
      return;
    case PrimOperationKind::add:
    case PrimOperationKind::reference:
    case PrimOperationKind::payload:
    case PrimOperationKind::duplicate:
    case PrimOperationKind::reparent:
    case PrimOperationKind::rename: {
      // A move is kept under its target and carries its source inside.
      const std::string path = operation.createdPath();
      optimisticInsertedPaths[path] = {operation, kUnacknowledgedRevision,
                                       optimisticStructuralSequence};
      optimisticDeletedPaths.erase(path);
      if (operation.kind == PrimOperationKind::duplicate)
        pendingDuplicatePrimPaths.insert(path);
      return;
    }
  }
}

void OptimisticOverlayState::acknowledgeOptimisticStructuralOperations(
    std::span<const PrimAtomicOperation> operations, std::uint64_t revision) {
  for (const PrimAtomicOperation& operation : operations) {
    switch (operation.kind) {
      case PrimOperationKind::reset:
        break;
      case PrimOperationKind::deletePrim: {
        const auto found = optimisticDeletedPaths.find(operation.sourcePath);
        if (found != optimisticDeletedPaths.end() && found->second == kUnacknowledgedRevision)
          found->second = revision;
        break;
      }
      case PrimOperationKind::setInstanceable: {
        const auto found = optimisticInstanceableOverrides.find(operation.sourcePath);
        // A later flip of the other sense keeps its own mark.
        if (found != optimisticInstanceableOverrides.end() &&
            found->second.instanceable == operation.instanceable &&
            found->second.acknowledgedRevision == kUnacknowledgedRevision) {
          found->second.acknowledgedRevision = revision;
        }
        break;
      }
      case PrimOperationKind::add:
      case PrimOperationKind::reference:
      case PrimOperationKind::payload:
      case PrimOperationKind::duplicate:
      case PrimOperationKind::reparent:
      case PrimOperationKind::rename: {
        const auto found = optimisticInsertedPaths.find(operation.createdPath());
        if (found != optimisticInsertedPaths.end() &&
            found->second.acknowledgedRevision == kUnacknowledgedRevision) {
          found->second.acknowledgedRevision = revision;
        }
        break;
      }
    }
  }
}

void OptimisticOverlayState::discardOptimisticStructuralOperations(
    std::span<const PrimAtomicOperation> operations) {
  // Plain lookups by path: every kind is discarded the same way.
  for (const PrimAtomicOperation& operation : operations) {
    optimisticDeletedPaths.erase(operation.sourcePath);
    optimisticInsertedPaths.erase(operation.createdPath());
    const auto found = optimisticInstanceableOverrides.find(operation.sourcePath);
    if (found != optimisticInstanceableOverrides.end() &&
        found->second.instanceable == operation.instanceable) {
      optimisticInstanceableOverrides.erase(found);
    }
  }
}

void OptimisticOverlayState::clearPendingDuplicatePrimPaths(
    std::span<const PrimAtomicOperation> operations) {
  for (const PrimAtomicOperation& operation : operations) {
    if (operation.kind == PrimOperationKind::duplicate)
      pendingDuplicatePrimPaths.erase(operation.createdPath());
  }
}

void OptimisticOverlayState::recordOptimisticComponentOperation(
    const ComponentAtomicOperation& operation) {
  optimisticComponentChanges.push_back({operation, kUnacknowledgedRevision});
}

void OptimisticOverlayState::acknowledgeOptimisticComponentOperation(
    const ComponentAtomicOperation& operation, std::uint64_t revision) {
  for (OptimisticComponentChange& change : optimisticComponentChanges) {
    if (change.acknowledgedRevision == kUnacknowledgedRevision && change.operation == operation) {
      change.acknowledgedRevision = revision;
      return;
    }
  }
}

void OptimisticOverlayState::discardOptimisticComponentOperation(
    const ComponentAtomicOperation& operation) {
  const auto found =
      std::find_if(optimisticComponentChanges.begin(), optimisticComponentChanges.end(),
                   [&](const OptimisticComponentChange& change) {
                     return change.acknowledgedRevision == kUnacknowledgedRevision &&
                            change.operation == operation;
                   });
  if (found != optimisticComponentChanges.end())
    optimisticComponentChanges.erase(found);
}

void OptimisticOverlayState::pruneForIncomingStage(std::optional<std::uint64_t> incomingRevision) {
  const std::uint64_t incoming = incomingRevision.value_or(0);
  std::erase_if(optimisticInsertedPaths,
                [&](const auto& entry) { return incoming >= entry.second.acknowledgedRevision; });
  std::erase_if(optimisticDeletedPaths,
                [&](const auto& entry) { return incoming >= entry.second; });
  std::erase_if(optimisticInstanceableOverrides, [&](const auto& entry) {
    if (incomingRevision)
      return incoming >= entry.second.acknowledgedRevision;
    return entry.second.acknowledgedRevision != kUnacknowledgedRevision;
  });
  std::erase_if(optimisticComponentChanges, [&](const OptimisticComponentChange& change) {
    if (incomingRevision)
      return incoming >= change.acknowledgedRevision;
    return change.acknowledgedRevision != kUnacknowledgedRevision;
  });
  createdPrimIdentities.clear();
}

bool OptimisticOverlayState::holdsEdits() const {
  return !optimisticInsertedPaths.empty() || !optimisticDeletedPaths.empty() ||
         !optimisticInstanceableOverrides.empty() || !createdPrimIdentities.empty() ||
         !optimisticComponentChanges.empty();
}

void OptimisticOverlayState::clear() {
  optimisticComponentChanges.clear();
  optimisticInsertedPaths.clear();
  optimisticDeletedPaths.clear();
  optimisticInstanceableOverrides.clear();
  createdPrimIdentities.clear();
}

void replayOptimisticOverlay(const OptimisticOverlayState& state, LocalStage& stage) {
  std::vector<const OptimisticStructuralInsert*> inserts;
  inserts.reserve(state.optimisticInsertedPaths.size());
  for (const auto& [path, insert] : state.optimisticInsertedPaths)
    inserts.push_back(&insert);
  std::sort(inserts.begin(), inserts.end(),
            [](const auto* left, const auto* right) { return left->sequence < right->sequence; });
  for (const OptimisticStructuralInsert* insert : inserts) {
    const PrimAtomicOperation& operation = insert->operation;
    switch (operation.kind) {
      case PrimOperationKind::add:
      case PrimOperationKind::reference:
      case PrimOperationKind::payload:
      case PrimOperationKind::duplicate:
        stage.insertPrimInLocalStage(operation);
        break;
      case PrimOperationKind::reparent:
      case PrimOperationKind::rename:
        stage.movePrimInLocalStage(operation.sourcePath, operation.parentPath, operation.primName);
        break;
      case PrimOperationKind::deletePrim:
      case PrimOperationKind::reset:
      case PrimOperationKind::setInstanceable:
        break;
    }
  }
  for (const auto& [path, revision] : state.optimisticDeletedPaths) {
    if (path.empty() || path == "/World")
      continue;
    stage.removePrimFromLocalStage(path);
  }
  for (const auto& [path, override] : state.optimisticInstanceableOverrides)
    stage.applyInstanceableOverride(path, override.instanceable);
  stage.applyCreatedPrimIdentities(state.createdPrimIdentities);
  for (const OptimisticComponentChange& change : state.optimisticComponentChanges)
    stage.applyComponentChange(change.operation);
  stage.finish();
}

// ---- The part

namespace {

// Room for the prims that edits add, so that the list of a large stage is not moved while they
// land.
constexpr std::size_t kLocalStageSpareRows = 1024;

}  // namespace

StageInspection copyWithRoomToGrow(const StageInspection& stage) {
  StageInspection copy;
  copy.prims.reserve(stage.prims.size() + kLocalStageSpareRows);
  copy = stage;  // a vector's copy assignment keeps capacity that suffices
  return copy;
}

std::shared_ptr<const PreparedStage> OptimisticOverlay::baseStage() const {
  return serverStage_ ? serverStage_ : context_.stage.get();
}

void OptimisticOverlay::applyOptimisticOperations(std::span<const PrimAtomicOperation> operations,
                                                  std::vector<std::string> selectAfter) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  // Until an edit is laid over it, the stage shown is the server's own.
  if (!serverStage_)
    serverStage_ = context_.stage.get();
  for (const PrimAtomicOperation& operation : operations)
    state.recordOptimisticStructuralOperation(operation);
  rebuildLocalStage(std::move(selectAfter));
}

void OptimisticOverlay::discardOptimisticStructuralOperations(
    std::span<const PrimAtomicOperation> operations) {
  state.clearPendingDuplicatePrimPaths(operations);
  state.discardOptimisticStructuralOperations(operations);
  // The server's last stage without them shows at once; the refresh that follows confirms it.
  if (serverStage_)
    rebuildLocalStage({});
}

void OptimisticOverlay::recordOptimisticComponentOperations(
    std::span<const ComponentAtomicOperation> operations) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  for (const ComponentAtomicOperation& operation : operations)
    state.recordOptimisticComponentOperation(operation);
  // A local build under way started without them: it starts again with them.
  if (serverStage_ && !operations.empty())
    rebuildLocalStage({});
}

bool OptimisticOverlay::discardOptimisticComponentOperation(
    const ComponentAtomicOperation& operation) {
  const std::size_t before = state.optimisticComponentChanges.size();
  state.discardOptimisticComponentOperation(operation);
  if (state.optimisticComponentChanges.size() == before)
    return false;
  if (serverStage_)
    rebuildLocalStage({});
  return true;
}

void OptimisticOverlay::applyCreatedPrimIdentities(
    const std::vector<EditClientCreatedPrim>& createdPrims) {
  bool learned = false;
  for (const EditClientCreatedPrim& created : createdPrims) {
    if (created.path.empty() || created.entityId == 0)
      continue;
    if (!serverStage_)
      serverStage_ = context_.stage.get();
    state.createdPrimIdentities.push_back(created);
    learned = true;
  }
  if (learned)
    rebuildLocalStage({});
}

void OptimisticOverlay::applyOptimisticStructuralOverlay(
    std::shared_ptr<const PreparedStage> incoming, std::optional<std::uint64_t> incomingRevision) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  state.pruneForIncomingStage(incomingRevision);
  if (!state.holdsEdits()) {
    // Any local build still under way is older than this stage.
    ++localStageGeneration;
    localStageTask_.cancel();
    serverStage_.reset();
    context_.stageRefresher.storeStage(std::move(incoming));
    return;
  }
  serverStage_ = std::move(incoming);
  rebuildLocalStage({});
}

void OptimisticOverlay::clear() {
  state.clear();
  state.pendingDuplicatePrimPaths.clear();
  serverStage_.reset();
  ++localStageGeneration;
  localStageTask_.cancel();
}

void OptimisticOverlay::rebuildLocalStage(std::vector<std::string> selectAfter) {
  const std::uint64_t generation = ++localStageGeneration;
  const WeakLifetime weak = lifetime_.weak();
  const bool logs = context_.timing.timingLogsEnabled;
  localStageTask_.replace(postTaskAndReply(
      context_.background, context_.main,
      [base = baseStage(), overlay = state, layer = context_.scope.activeLayerIdentifier(),
       logs](std::stop_token) {
        // The copy and the indexes of a large stage are the heavy part; none of it on the main
        // thread.
        StageInspection copy = copyWithRoomToGrow(base->stage());
        {
          LocalStage::TimingLog log;
          if (logs)
            log = [](const std::string& line) { spdlog::info("{}", line); };
          LocalStage local(copy, layer, std::move(log), base);
          replayOptimisticOverlay(overlay, local);
        }
        return PreparedStage::prepare(std::move(copy));
      },
      [this, weak, generation,
       selectAfter = std::move(selectAfter)](std::shared_ptr<const PreparedStage> prepared) {
        if (!weak.isAlive() || generation != localStageGeneration)
          return;  // a newer stage or edit took over
        localStageTask_.clear();
        showLocalStage(std::move(prepared), selectAfter);
      }));
}

void OptimisticOverlay::showLocalStage(std::shared_ptr<const PreparedStage> prepared,
                                       const std::vector<std::string>& selectAfter) {
  std::shared_ptr<const PreparedStage> previous = context_.stage.get();
  context_.stage.set(std::move(prepared));
  context_.documents.publishStructuralClientDocumentPatch();
  context_.background.post([previous = std::move(previous)]() mutable { previous.reset(); });
  if (selectAfter.empty())
    return;
  context_.documents.selectPrims(selectAfter.front(), selectAfter);
}

}  // namespace orvan::editor
