#include "Presentation/EditorClientDocumentState.h"

namespace orvan::editor {

namespace {

using Retired = std::vector<std::shared_ptr<const EditorClientDocumentSnapshot>>;

void storeIn(EditorClientDocumentProjectionState& projection,
             const std::shared_ptr<const EditorClientDocumentSnapshot>& next, Retired& retired) {
  retired.push_back(std::exchange(projection.snapshot, next));
  projection.revision.set(projection.revision.get() + 1);
}

}  // namespace

std::shared_ptr<const EditorClientDocumentSnapshot> EditorClientDocumentState::makeSnapshot(
    std::shared_ptr<const PreparedStage> stage, std::vector<ProjectAssetItem> projectAssets) {
  return makeClientDocumentSnapshot({.stage = std::move(stage),
                                     .projectAssets = std::move(projectAssets),
                                     .pendingCreatedAssets = {},
                                     .generation = 0});
}

Retired EditorClientDocumentState::publish(std::shared_ptr<const EditorClientDocumentSnapshot> next,
                                           bool stageChanged, bool projectChanged) {
  Retired retired;
  const bool stageAssetsChanged =
      projectProjection.snapshot->stage().assets != next->stage().assets;
  retired.push_back(snapshot.get());
  snapshot.set(next);
  if (stageChanged)
    storeIn(hierarchyProjection, next, retired);
  if (projectChanged || stageAssetsChanged)
    storeIn(projectProjection, next, retired);
  return retired;
}

Retired EditorClientDocumentState::publishStageAssetPatch(
    std::shared_ptr<const StageInspection> stage) {
  Retired retired;
  auto next = withReplacedStageAssets(current(), std::move(stage));
  retired.push_back(snapshot.get());
  snapshot.set(next);
  storeIn(projectProjection, next, retired);
  return retired;
}

}  // namespace orvan::editor
