#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Authoring/ChangeSet.h"
#include "Authoring/ClientHistory.h"
#include "Authoring/EditOperation.h"
#include "Authoring/EditableScene.h"
#include "orvan/wire/records/EditClientResponse.h"

namespace orvan::engine {

// Hands out entity ids: each above every id the scene holds and every id handed out before, so
// ids stay unique however edits and undos interleave. Ids are chosen while planning and travel
// inside the change set, so replaying a change set gives the same ids again.
class EntityIdSource {
 public:
  explicit EntityIdSource(std::uint64_t next = 1) : next_(next) {}
  std::uint64_t take(const EditableScene& scene);
  std::uint64_t peek() const { return next_; }

 private:
  std::uint64_t next_;
};

// One structural change as the watch stream tells it ("rename" travels as "reparent").
struct PrimOperationRecord {
  std::string kind;
  std::string parentPath;
  std::string primName;
  std::string primitiveKind;
  std::string sourcePath;

  bool operator==(const PrimOperationRecord&) const = default;
};

struct EditResult {
  bool accepted = false;
  std::string message;  // one sentence: "Added Cube", "No prim at /World/Gone"
  ChangeSet changes;    // empty for a refusal (and for an accepted edit that changed nothing)
  std::vector<editor::EditClientCreatedPrim> createdPrims;
  std::vector<PrimOperationRecord> primOperations;
};

// Plans every operation of the request against the scene, in order (each one sees the ones
// before it), and gives the change set that makes them all, or the refusal of the first that
// cannot be made. The scene is left as it was found. History operations need a ClientHistory
// and are refused here: use applyEdit.
EditResult planEdit(EditableScene& scene, const EditRequest& request, EntityIdSource& ids);

// The same, but an accepted edit stays applied and goes on the client's undo stack; undo and
// redo of the requesting client are made here too. A refusal changes nothing.
EditResult applyEdit(EditableScene& scene, const EditRequest& request, EntityIdSource& ids,
                     ClientHistory& history);

}  // namespace orvan::engine
