#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "Authoring/AtomicOperation.h"
#include "Authoring/LocalStage.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorScope.h"
#include "Launch/EditorTiming.h"
#include "Presentation/DocumentPublisher.h"
#include "Presentation/PreparedStage.h"
#include "ServerClient/StageRefresher.h"

namespace orvan::editor {

// The server has not answered yet: such an entry outlives every incoming revision.
inline constexpr std::uint64_t kUnacknowledgedRevision = std::numeric_limits<std::uint64_t>::max();

struct OptimisticStructuralInsert {
  PrimAtomicOperation operation;
  std::uint64_t acknowledgedRevision = kUnacknowledgedRevision;
  // The order of recording, in which the inserts are laid again.
  std::uint64_t sequence = 0;

  bool operator==(const OptimisticStructuralInsert&) const = default;
};

struct OptimisticInstanceableOverride {
  bool instanceable = false;
  std::uint64_t acknowledgedRevision = kUnacknowledgedRevision;

  bool operator==(const OptimisticInstanceableOverride&) const = default;
};

// A component command shown in the local stage before the server's stage holds it.
struct OptimisticComponentChange {
  ComponentAtomicOperation operation;
  std::uint64_t acknowledgedRevision = kUnacknowledgedRevision;

  bool operator==(const OptimisticComponentChange&) const = default;
};

// What structural edits the editor shows before the server's stage has them. An entry is recorded
// when the edit is queued, gets a revision when the server accepts it, and dies with the first
// incoming stage at least that new; a refusal or failure removes it at once.
struct OptimisticOverlayState {
  std::map<std::string, OptimisticStructuralInsert> optimisticInsertedPaths;
  std::map<std::string, std::uint64_t> optimisticDeletedPaths;
  std::map<std::string, OptimisticInstanceableOverride> optimisticInstanceableOverrides;
  std::uint64_t optimisticStructuralSequence = 0;
  // Created paths of duplicates under way.
  std::unordered_set<std::string> pendingDuplicatePrimPaths;
  // Identities the server gave to created prims, shown until the next incoming stage has them.
  std::vector<EditClientCreatedPrim> createdPrimIdentities;
  // Component commands in the order they were made; laid again after the structural edits.
  std::vector<OptimisticComponentChange> optimisticComponentChanges;

  void recordOptimisticStructuralOperation(const PrimAtomicOperation& operation);
  void acknowledgeOptimisticStructuralOperations(std::span<const PrimAtomicOperation> operations,
                                                 std::uint64_t revision);
  void discardOptimisticStructuralOperations(std::span<const PrimAtomicOperation> operations);
  void clearPendingDuplicatePrimPaths(std::span<const PrimAtomicOperation> operations);
  void recordOptimisticComponentOperation(const ComponentAtomicOperation& operation);
  // The oldest unanswered entry equal to `operation`.
  void acknowledgeOptimisticComponentOperation(const ComponentAtomicOperation& operation,
                                               std::uint64_t revision);
  void discardOptimisticComponentOperation(const ComponentAtomicOperation& operation);
  // Drops the entries that a stage of `incomingRevision` already holds. A stage of unknown
  // revision clears acknowledged instance flags and component changes, but no inserts or deletes.
  void pruneForIncomingStage(std::optional<std::uint64_t> incomingRevision);
  bool holdsEdits() const;
  void clear();

  bool operator==(const OptimisticOverlayState&) const = default;
};

// Lays the remembered edits over a stage: inserts and moves in the order they were made, then the
// deletes, then the instance flags, then the known identities, then the component changes.
void replayOptimisticOverlay(const OptimisticOverlayState& state, LocalStage& stage);

// A copy of a stage whose prim list has room for what edits add.
StageInspection copyWithRoomToGrow(const StageInspection& stage);

// Keeps the overlay and shows it: every stage the editor shows while edits are unconfirmed is the
// last server stage with the overlay laid over it, built off the main thread.
class OptimisticOverlay {
 public:
  struct Context {
    MainExecutor& main;
    BackgroundExecutor& background;
    Observable<std::shared_ptr<const PreparedStage>>& stage;
    const EditorScope& scope;
    DocumentPublisher& documents;
    StageRefresher& stageRefresher;
    const EditorTiming& timing;
  };

  explicit OptimisticOverlay(Context context) : context_(context) {}
  OptimisticOverlay(const OptimisticOverlay&) = delete;
  OptimisticOverlay& operator=(const OptimisticOverlay&) = delete;

  OptimisticOverlayState state;
  // Raised for each local stage build; an older build's result is dropped.
  std::uint64_t localStageGeneration = 0;

  // Records the edit and shows the stage with it. `selectAfter` is selected once it shows.
  void applyOptimisticOperations(std::span<const PrimAtomicOperation> operations,
                                 std::vector<std::string> selectAfter);
  // A refused or failed edit: its entries go and the stage shows without it.
  void discardOptimisticStructuralOperations(std::span<const PrimAtomicOperation> operations);
  // Component commands already shown in the local stage: every stage that arrives before the
  // server's holds them shows them too.
  void recordOptimisticComponentOperations(std::span<const ComponentAtomicOperation> operations);
  // A refused or failed command: false when it was never shown locally.
  bool discardOptimisticComponentOperation(const ComponentAtomicOperation& operation);
  void applyCreatedPrimIdentities(const std::vector<EditClientCreatedPrim>& createdPrims);
  // A stage from the server is about to be shown: the overlay is pruned by its revision and what
  // remains is laid over it before it shows.
  void applyOptimisticStructuralOverlay(std::shared_ptr<const PreparedStage> incoming,
                                        std::optional<std::uint64_t> incomingRevision);
  // A full refresh starts over: the overlay is emptied.
  void clear();

 private:
  std::shared_ptr<const PreparedStage> baseStage() const;
  void rebuildLocalStage(std::vector<std::string> selectAfter);
  void showLocalStage(std::shared_ptr<const PreparedStage> prepared,
                      const std::vector<std::string>& selectAfter);

  Context context_;
  LifetimeToken lifetime_;
  TaskSlot localStageTask_;
  // The last stage the server sent, without the overlay.
  std::shared_ptr<const PreparedStage> serverStage_;
};

}  // namespace orvan::editor
