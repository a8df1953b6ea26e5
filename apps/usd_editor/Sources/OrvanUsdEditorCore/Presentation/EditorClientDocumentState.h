#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Foundation/Observable.h"
#include "Presentation/EditorClientDocument.h"

namespace orvan::editor {

// One reader group's view of the document: its snapshot, and a revision bumped when that group has
// something new to draw.
struct EditorClientDocumentProjectionState {
  std::shared_ptr<const EditorClientDocumentSnapshot> snapshot =
      EditorClientDocumentSnapshot::empty();
  Observable<std::uint64_t> revision{0};
};

// The newest document, and two projections so that the hierarchy and the project pane redraw
// independently: a new project list does not redraw the tree, a new stage does not redraw the
// asset list unless the stage's assets changed.
class EditorClientDocumentState {
 public:
  Observable<std::shared_ptr<const EditorClientDocumentSnapshot>> snapshot{
      EditorClientDocumentSnapshot::empty()};
  EditorClientDocumentProjectionState hierarchyProjection;
  EditorClientDocumentProjectionState projectProjection;

  static std::shared_ptr<const EditorClientDocumentSnapshot> makeSnapshot(
      std::shared_ptr<const PreparedStage> stage, std::vector<ProjectAssetItem> projectAssets);

  // Stores `next` and tells the projections it concerns. Returns the snapshots it replaced, so
  // that the caller can let them go where freeing a large stage does not stall anyone.
  std::vector<std::shared_ptr<const EditorClientDocumentSnapshot>> publish(
      std::shared_ptr<const EditorClientDocumentSnapshot> next, bool stageChanged,
      bool projectChanged);

  // A small change of the stage's assets (a material edit): the material and stage-asset indexes
  // are redone on the current document, without a background build, for the project's readers.
  std::vector<std::shared_ptr<const EditorClientDocumentSnapshot>> publishStageAssetPatch(
      std::shared_ptr<const StageInspection> stage);

  const EditorClientDocumentSnapshot& current() const { return *snapshot.get(); }
};

}  // namespace orvan::editor
