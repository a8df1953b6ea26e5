#include "Presentation/SelectionSnapshot.h"

#include <algorithm>

namespace orvan::editor {

namespace {

constexpr std::string_view kNameComponentType = "Name";

bool hasComponent(const UsdPrimDetail& entity, std::string_view type) {
  return std::any_of(entity.components.begin(), entity.components.end(),
                     [&](const UsdComponent& component) { return component.type == type; });
}

bool hasAttribute(const UsdPrimDetail& prim, const UsdAttribute& wanted) {
  return std::any_of(prim.attributes.begin(), prim.attributes.end(),
                     [&](const UsdAttribute& attribute) {
                       return attribute.name == wanted.name && attribute.type == wanted.type;
                     });
}

}  // namespace

std::vector<UsdAttribute> commonSelectedAttributes(const EditorClientDocumentSnapshot& document,
                                                   const std::string& primaryPath,
                                                   const std::vector<std::string>& paths) {
  const UsdPrimDetail* primary = document.prim(primaryPath);
  if (!primary)
    return {};
  std::vector<const UsdPrimDetail*> others;
  for (const std::string& path : paths) {
    if (path == primaryPath)
      continue;
    if (const UsdPrimDetail* prim = document.prim(path))
      others.push_back(prim);
  }
  std::vector<UsdAttribute> common;
  for (const UsdAttribute& attribute : primary->attributes) {
    const bool everywhere =
        std::all_of(others.begin(), others.end(),
                    [&](const UsdPrimDetail* prim) { return hasAttribute(*prim, attribute); });
    if (everywhere)
      common.push_back(attribute);
  }
  return common;
}

std::vector<UsdComponent> commonInspectorComponents(const std::vector<UsdPrimDetail>& entities) {
  if (entities.empty())
    return {};
  if (entities.size() == 1)
    return entities.front().components;
  std::vector<UsdComponent> common;
  for (const UsdComponent& component : entities.front().components) {
    if (component.type == kNameComponentType)
      continue;
    const bool shared = std::all_of(
        entities.begin() + 1, entities.end(),
        [&](const UsdPrimDetail& entity) { return hasComponent(entity, component.type); });
    if (shared)
      common.push_back(component);
  }
  return common;
}

EditorSelectionSnapshot selectionSnapshot(const EditorClientDocumentSnapshot& document,
                                          const StoreScenePreviews& storePreviews,
                                          const std::string& primaryPath,
                                          const std::vector<std::string>& paths) {
  EditorSelectionSnapshot snapshot;
  if (const auto preview = storePreviews.find(primaryPath); preview != storePreviews.end()) {
    snapshot.storePreview = preview->second;
    return snapshot;
  }
  const UsdPrimDetail* prim = document.prim(primaryPath);
  if (!prim)
    return snapshot;
  snapshot.prim = *prim;
  snapshot.entityPath = entityPathOf(*prim);
  if (const UsdPrimDetail* entity = document.prim(snapshot.entityPath))
    snapshot.entity = *entity;

  for (const std::string& path : paths) {
    const UsdPrimDetail* selected = document.prim(path);
    if (!selected)
      continue;
    const std::string_view entityPath = entityPathOf(*selected);
    if (entityPath.empty())
      continue;
    if (std::find(snapshot.entityPaths.begin(), snapshot.entityPaths.end(), entityPath) !=
        snapshot.entityPaths.end()) {
      continue;
    }
    snapshot.entityPaths.emplace_back(entityPath);
    if (const UsdPrimDetail* entity = document.prim(entityPath))
      snapshot.entities.push_back(*entity);
  }

  snapshot.components = commonInspectorComponents(snapshot.entities);
  snapshot.attributes = commonSelectedAttributes(document, primaryPath, paths);
  for (const UsdComponent& candidate : document.stage().catalog) {
    const bool held = std::any_of(
        snapshot.components.begin(), snapshot.components.end(),
        [&](const UsdComponent& component) { return component.type == candidate.type; });
    if (!held)
      snapshot.availableCatalog.push_back(candidate);
  }
  return snapshot;
}

}  // namespace orvan::editor
