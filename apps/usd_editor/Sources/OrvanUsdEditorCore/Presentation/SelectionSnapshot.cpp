#include "Presentation/SelectionSnapshot.h"

#include <algorithm>

namespace orvan::editor {

namespace {

const UsdPrimDetail* entityOf(const PreparedStage& stage, const UsdPrimDetail& prim) {
  if (const UsdPrimDetail* entity = stage.prim(prim.entityPath)) return entity;
  return &prim;
}

bool hasComponent(const std::vector<UsdComponent>& components, const std::string& type) {
  return std::any_of(components.begin(), components.end(),
                     [&](const UsdComponent& component) { return component.type == type; });
}

}  // namespace

EditorSelectionSnapshot selectionSnapshot(const PreparedStage& stage, const std::string& primaryPath,
                                          const std::vector<std::string>& paths) {
  EditorSelectionSnapshot snapshot;
  const UsdPrimDetail* prim = stage.prim(primaryPath);
  if (!prim) return snapshot;
  snapshot.prim = *prim;
  const UsdPrimDetail* entity = entityOf(stage, *prim);
  snapshot.entity = *entity;
  snapshot.entityPath = entity->path;
  for (const std::string& path : paths) {
    const UsdPrimDetail* selected = stage.prim(path);
    if (!selected) continue;
    const UsdPrimDetail* owner = entityOf(stage, *selected);
    if (std::find(snapshot.entityPaths.begin(), snapshot.entityPaths.end(), owner->path) !=
        snapshot.entityPaths.end()) {
      continue;
    }
    snapshot.entityPaths.push_back(owner->path);
    snapshot.entities.push_back(*owner);
  }
  snapshot.components = entity->components;
  snapshot.attributes = prim->attributes;
  for (const UsdComponent& candidate : stage.stage().catalog) {
    if (!hasComponent(snapshot.components, candidate.type)) {
      snapshot.availableCatalog.push_back(candidate);
    }
  }
  return snapshot;
}

}  // namespace orvan::editor
