#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Presentation/HierarchyIndex.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// A stage together with every index that depends on the stage alone, built once per stage off the
// main thread, so that applying a stage on the main thread is a pointer swap. The client document
// adds the project's side to it. Keys and pointers point into the held stage, which never changes.
struct PreparedStage {
  std::shared_ptr<const StageInspection> inspection;
  // Tree nodes by path, with their depth; the hierarchy view reads its rows from it.
  std::shared_ptr<const HierarchyIndex> hierarchy;
  std::unordered_map<std::string_view, const UsdPrimDetail*> primsByPath;
  std::unordered_map<std::string_view, const UsdPrimDetail*> primsByEntityPath;
  // Rows that a hierarchy shows collapsed until the user opens them.
  std::unordered_set<std::string_view> defaultCollapsedHierarchyPaths;
  std::unordered_map<std::string_view, const StoreCatalogItem*> storeItemsByURI;
  std::vector<const StoreCatalogItem*> sortedStoreItems;

  static std::shared_ptr<const PreparedStage> prepare(StageInspection stage);
  static std::shared_ptr<const PreparedStage> prepare(std::shared_ptr<const StageInspection> stage);
  static std::shared_ptr<const PreparedStage> empty();

  const StageInspection& stage() const { return *inspection; }
  const UsdPrimDetail* prim(std::string_view path) const;
  const UsdPrimDetail* entity(std::string_view entityPath) const;
};

// The entity a prim belongs to: its entity path, or its own path when it has none and is marked
// as an entity itself; empty for a prim outside any entity.
std::string_view entityPathOf(const UsdPrimDetail& prim);

// Whether a tree row starts collapsed: root prims show their children, unless there are so many
// that the list would bury everything after them; deeper groups open on demand.
bool startsCollapsedInHierarchy(std::uint32_t depth, std::size_t childCount);

}  // namespace orvan::editor
