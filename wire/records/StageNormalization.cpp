#include "orvan/wire/records/StageNormalization.h"

#include <algorithm>

namespace orvan::editor {

namespace {

bool isPathOrBelow(std::string_view path, std::string_view root) {
  return path == root ||
         (path.size() > root.size() && path.starts_with(root) && path[root.size()] == '/');
}

bool hasTellingBadge(const std::vector<std::string>& badges) {
  return std::any_of(badges.begin(), badges.end(), [](const std::string& badge) {
    return badge == "payload" || badge == "entity";
  });
}

bool isPlaceholder(const std::optional<bool>& defined, const std::vector<std::string>& badges) {
  return defined.has_value() && !*defined && !hasTellingBadge(badges);
}

bool dropsFromFlatList(const UsdPrimDetail& prim) {
  return isEditorInternalPrimPath(prim.path) ||
         (isPlaceholder(prim.defined, prim.badges) && prim.components.empty());
}

bool dropsFromTree(const UsdPrimNode& node) {
  return isEditorInternalPrimPath(node.path) || isPlaceholder(node.defined, node.badges);
}

void pruneTree(std::vector<UsdPrimNode>& nodes) {
  std::erase_if(nodes, dropsFromTree);
  for (UsdPrimNode& node : nodes)
    pruneTree(node.children);
}

}  // namespace

bool isEditorInternalPrimPath(std::string_view path) {
  return isPathOrBelow(path, "/_OrvanAssets") || isPathOrBelow(path, "/__VelkPrototypes") ||
         isPathOrBelow(path, "/World/OrvanAssets") || path.ends_with("/OrvanComponents") ||
         path.find("/OrvanComponents/") != std::string_view::npos;
}

StageInspection normalizedAuthoringStage(StageInspection stage) {
  std::erase_if(stage.prims, dropsFromFlatList);
  pruneTree(stage.rootPrims);
  return stage;
}

}  // namespace orvan::editor
