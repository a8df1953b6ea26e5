#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "Authoring/AtomicOperation.h"
#include "Authoring/EditClientSlot.h"
#include "Authoring/InstanceRules.h"
#include "Authoring/OperationQueue.h"
#include "Authoring/OptimisticOverlay.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Presentation/DocumentPublisher.h"
#include "Presentation/EditorSessionState.h"
#include "ServerClient/StageRefresher.h"

namespace orvan::editor {

// The primitive kinds the creation menu offers, with the words shown for them.
struct PrimitiveKindChoice {
  std::string kind;
  std::string title;
};
const std::vector<PrimitiveKindChoice>& primitiveKindChoices();

// Everything the user does to the shape of the scene tree: create, delete, duplicate, rename,
// reparent and flip the instance flag. A multi-selection is one edit on the server: its
// operations travel as one batch when the pipeline is idle.
class StructuralEditing {
 public:
  struct Context {
    MainExecutor& main;
    BackgroundExecutor& exchanges;
    Observable<std::shared_ptr<const PreparedStage>>& stage;
    EditorSessionState& session;
    DocumentPublisher& documents;
    OptimisticOverlay& overlay;
    OperationQueue& queue;
    EditClientSlot& editClients;
    StageRefresher& stageRefresher;
    Observable<std::uint64_t>& revision;
    Observable<std::string>& status;
    const EditorTiming& timing;
  };

  explicit StructuralEditing(Context context) : context_(context) {}
  StructuralEditing(const StructuralEditing&) = delete;
  StructuralEditing& operator=(const StructuralEditing&) = delete;

  // The batch now with the helper.
  std::vector<PrimAtomicOperation> primBatchOperationsInFlight;

  void submitPrimBatch(std::vector<PrimAtomicOperation> operations, std::string label,
                       std::vector<std::string> selectAfter);
  void handlePrimBatchResponse(const EditClientResponse& response,
                               const std::vector<PrimAtomicOperation>& operations,
                               const std::vector<std::string>& selectedPathsAfterAccept,
                               const std::string& label, std::uint64_t submittedRevision);
  void handlePrimBatchFailure(const Error& error,
                              const std::vector<PrimAtomicOperation>& operations);

  void addPrim(const std::string& primitiveKind);
  void deletePrim(const std::string& path);
  void deleteSelectedPrims();
  void duplicatePrim(const std::string& path);
  // Whether the prim may be renamed; says why not in the status line.
  bool beginRenamePrim(const std::string& path);
  // The answer of the rename prompt.
  void renamePrim(const std::string& path, const std::string& answer);
  void reparentPrims(const std::vector<std::string>& sourcePaths, const std::string& target);
  void setPrimInstanceable(const std::string& path, bool instanceable);

  std::string addPrimParentPath() const;
  std::vector<std::string> hierarchyActionPaths(const std::string& path) const;
  std::vector<std::string> editableTopLevelSelectedHierarchyPaths() const;
  HierarchyEditRules rules() const;
  // A copy of one editable prim beside it, named clear of the stage and of `reservedPaths`, whose
  // winner it joins; none when the prim is missing or not editable.
  std::optional<PrimAtomicOperation> duplicatePrimOperation(
      const std::string& path, std::unordered_set<std::string>& reservedPaths) const;

 private:
  std::vector<PrimAtomicOperation> duplicatePrimOperations(const std::vector<std::string>& paths);
  void refuseEmptyAction(const std::string& path, const std::string& verb);
  void timingLog(const std::string& text) const;

  Context context_;
  LifetimeToken lifetime_;
};

}  // namespace orvan::editor
