#include "ServerClient/PreparedStage.h"

namespace orvan::editor {

std::shared_ptr<const PreparedStage> PreparedStage::prepare(StageInspection stage) {
  auto prepared = std::make_shared<PreparedStage>();
  prepared->inspection = std::make_shared<const StageInspection>(std::move(stage));
  prepared->hierarchy = HierarchyIndex::build(prepared->inspection);
  const auto& prims = prepared->inspection->prims;
  prepared->primsByPath.reserve(prims.size());
  for (const UsdPrimDetail& prim : prims) {
    prepared->primsByPath.emplace(prim.path, &prim);
    // An entity is known by its own prim: the one whose path is the entity path.
    if (prim.entityPath == prim.path) prepared->primsByEntityPath.emplace(prim.entityPath, &prim);
  }
  return prepared;
}

std::shared_ptr<const PreparedStage> PreparedStage::empty() {
  static const std::shared_ptr<const PreparedStage> emptyStage = prepare(StageInspection::empty());
  return emptyStage;
}

const UsdPrimDetail* PreparedStage::prim(std::string_view path) const {
  const auto found = primsByPath.find(path);
  return found == primsByPath.end() ? nullptr : found->second;
}

}  // namespace orvan::editor
