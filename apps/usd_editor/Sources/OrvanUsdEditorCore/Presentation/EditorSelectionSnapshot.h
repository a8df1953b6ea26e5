#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ServerClient/Records/StageInspection.h"

namespace orvan::editor {

// What the inspector shows for a selection, computed once per selection and kept beside it.
struct EditorSelectionSnapshot {
  std::optional<UsdPrimDetail> prim;
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
