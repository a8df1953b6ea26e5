#include "Presentation/PreparedStage.h"

#include <algorithm>

#include "Presentation/DisplayOrder.h"

namespace orvan::editor {

namespace {

constexpr std::size_t kLargestOpenRootGroup = 200;

}  // namespace

std::string_view entityPathOf(const UsdPrimDetail& prim) {
  if (!prim.entityPath.empty())
    return prim.entityPath;
  const bool markedEntity =
      std::find(prim.badges.begin(), prim.badges.end(), "entity") != prim.badges.end();
  return markedEntity ? std::string_view(prim.path) : std::string_view();
}

bool startsCollapsedInHierarchy(std::uint32_t depth, std::size_t childCount) {
  if (childCount == 0)
    return false;
  return depth > 0 || childCount > kLargestOpenRootGroup;
}

std::shared_ptr<const PreparedStage> PreparedStage::prepare(StageInspection stage) {
  return prepare(std::make_shared<const StageInspection>(std::move(stage)));
}

std::shared_ptr<const PreparedStage> PreparedStage::prepare(
    std::shared_ptr<const StageInspection> stage) {
  auto prepared = std::make_shared<PreparedStage>();
  prepared->inspection = std::move(stage);
  prepared->hierarchy = HierarchyIndex::build(prepared->inspection);
  const StageInspection& inspection = *prepared->inspection;

  prepared->primsByPath.reserve(inspection.prims.size());
  for (const UsdPrimDetail& prim : inspection.prims) {
    prepared->primsByPath.emplace(prim.path, &prim);
    // An entity is known by its own prim: the one whose path is the entity path.
    if (entityPathOf(prim) == prim.path)
      prepared->primsByEntityPath.emplace(prim.path, &prim);
  }

  const HierarchyIndex& hierarchy = *prepared->hierarchy;
  for (std::uint32_t id = 1; id < hierarchy.entryCount(); ++id) {
    const HierarchyIndex::Entry& entry = hierarchy.entry(id);
    if (startsCollapsedInHierarchy(entry.depth, entry.node->children.size())) {
      prepared->defaultCollapsedHierarchyPaths.insert(entry.node->path);
    }
  }

  for (const StoreCatalogItem& item : inspection.storeCatalog) {
    prepared->storeItemsByURI.emplace(item.uri, &item);  // the first of a URI wins
    prepared->sortedStoreItems.push_back(&item);
  }
  sortByDisplayName(
      prepared->sortedStoreItems,
      [](const StoreCatalogItem* item) { return std::string_view(item->name); },
      [](const StoreCatalogItem* item) { return std::string_view(item->uri); });
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

const UsdPrimDetail* PreparedStage::entity(std::string_view entityPath) const {
  const auto found = primsByEntityPath.find(entityPath);
  return found == primsByEntityPath.end() ? nullptr : found->second;
}

}  // namespace orvan::editor
