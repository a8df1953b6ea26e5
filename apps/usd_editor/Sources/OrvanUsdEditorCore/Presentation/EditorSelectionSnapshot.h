#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// A store item placed in the scene for a look before it is added for real. It has a path in the
// hierarchy but no prim of the stage behind it.
struct StoreScenePreview {
  std::string path;
  StoreCatalogItem item;

  bool operator==(const StoreScenePreview&) const = default;
};

// What the inspector shows for a selection, computed once per selection and kept beside it.
struct EditorSelectionSnapshot {
  std::optional<UsdPrimDetail> prim;
  std::optional<StoreScenePreview> storePreview;
  std::string entityPath;
  std::vector<std::string> entityPaths;
  std::optional<UsdPrimDetail> entity;
  std::vector<UsdPrimDetail> entities;
  std::vector<UsdComponent> components;
  std::vector<UsdAttribute> attributes;
  std::vector<UsdComponent> availableCatalog;

  static EditorSelectionSnapshot empty() { return {}; }
  bool operator==(const EditorSelectionSnapshot&) const = default;
};

}  // namespace orvan::editor
