#include "Authoring/EditPlanner.h"

#include <algorithm>

#include "Authoring/PlanContext.h"

namespace orvan::engine {
namespace {

Refusal planOperation(PlanContext& context, const EditOperation& operation, std::string& message) {
  switch (operation.type) {
    case OperationType::Prim:
      return planPrimOperation(context, operation, message);
    case OperationType::UsdProperty:
      return planPropertyOperation(context, operation, message);
    case OperationType::Component:
      return planComponentOperation(context, operation, message);
    case OperationType::Layer:
      return planLayerOperation(context, operation, message);
    case OperationType::Asset:
      return planAssetOperation(context, operation, message);
    case OperationType::History:
      return std::string("Undo and redo go alone, not inside a batch");
  }
  return std::string("Unknown operation");
}

EditResult refusal(std::string message) {
  EditResult result;
  result.message = std::move(message);
  return result;
}

// Plans the request's operations and leaves them applied when accepted; a refusal leaves the
// scene as it was.
EditResult planAndKeep(EditableScene& scene, const EditRequest& request, EntityIdSource& ids) {
  if (request.operations.empty())
    return refusal("The edit holds no operations");
  PlanContext context(scene, ids);
  // A layer operation does not need the active layer: it may name one that is gone already.
  context.requestedLayer = request.activeLayer;
  context.layerId = scene.resolveLayerName(request.activeLayer).value_or("");
  std::string message;
  for (const EditOperation& operation : request.operations) {
    Refusal refused = planOperation(context, operation, message);
    if (!refused)
      continue;
    if (Refusal undone = applyChangeSet(scene, invertChangeSet(context.applied)))
      return refusal("The scene could not be restored: " + *undone);
    return refusal(std::move(*refused));
  }
  EditResult result;
  result.accepted = true;
  result.message = request.operations.size() == 1
                       ? std::move(message)
                       : "Applied " + std::to_string(request.operations.size()) + " operations";
  result.changes = std::move(context.applied);
  result.createdPrims = std::move(context.createdPrims);
  result.primOperations = std::move(context.primOperations);
  return result;
}

std::string labelOf(const EditRequest& request, const EditResult& result) {
  return request.label.empty() ? result.message : request.label;
}

EditResult applyHistory(EditableScene& scene, const EditRequest& request, ClientHistory& history) {
  const auto kind = request.operations.front().kindAs<HistoryOperationKind>();
  const bool undo = kind == HistoryOperationKind::Undo;
  const ClientHistory::Entry* entry =
      undo ? history.lastEdit(request.clientId) : history.lastUndone(request.clientId);
  if (!entry)
    return refusal(undo ? "Nothing to undo" : "Nothing to redo");
  ChangeSet changes = undo ? invertChangeSet(entry->changes) : entry->changes;
  if (applyChangeSet(scene, changes)) {
    return refusal(std::string(undo ? "Cannot undo " : "Cannot redo ") + entry->label +
                   ": another edit has changed the same thing since");
  }
  EditResult result;
  result.accepted = true;
  result.message = (undo ? "Undid " : "Redid ") + entry->label;
  result.changes = std::move(changes);
  if (undo)
    history.markUndone(request.clientId);
  else
    history.markRedone(request.clientId);
  return result;
}

bool isHistoryRequest(const EditRequest& request) {
  return std::any_of(request.operations.begin(), request.operations.end(),
                     [](const EditOperation& op) { return op.type == OperationType::History; });
}

}  // namespace

std::uint64_t EntityIdSource::take(const EditableScene& scene) {
  next_ = std::max(next_, scene.maxEntityId() + 1);
  return next_++;
}

EditResult planEdit(EditableScene& scene, const EditRequest& request, EntityIdSource& ids) {
  if (isHistoryRequest(request))
    return refusal("Undo and redo are made by applying the edit, not by planning it");
  EditResult result = planAndKeep(scene, request, ids);
  if (result.accepted) {
    if (Refusal undone = applyChangeSet(scene, invertChangeSet(result.changes)))
      return refusal("The scene could not be restored: " + *undone);
  }
  return result;
}

EditResult applyEdit(EditableScene& scene, const EditRequest& request, EntityIdSource& ids,
                     ClientHistory& history) {
  if (isHistoryRequest(request)) {
    if (request.operations.size() != 1)
      return refusal("Undo and redo go alone, not inside a batch");
    return applyHistory(scene, request, history);
  }
  EditResult result = planAndKeep(scene, request, ids);
  if (result.accepted)
    history.recordEdit(request.clientId, result.changes, labelOf(request, result));
  return result;
}

}  // namespace orvan::engine
