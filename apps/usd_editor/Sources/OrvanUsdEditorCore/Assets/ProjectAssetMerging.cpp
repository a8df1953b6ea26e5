#include "Assets/ProjectAssetMerging.h"

#include <string>
#include <unordered_map>
#include <utility>

#include "Assets/ProjectAssetPaths.h"

namespace orvan::editor {
namespace {

// Folds `rows` into `stored` by path: a known path goes through `update` in place, a new one is
// appended. Later duplicates within `rows` update the row the first one made.
template <class Update>
std::vector<ProjectAssetItem> mergeByPath(const std::vector<ProjectAssetItem>& rows,
                                          std::vector<ProjectAssetItem> stored, Update update) {
  std::unordered_map<std::string, std::size_t> indexByPath;
  indexByPath.reserve(stored.size() + rows.size());
  for (std::size_t i = 0; i < stored.size(); ++i)
    indexByPath.try_emplace(stored[i].path, i);
  for (const ProjectAssetItem& row : rows) {
    const auto [it, isNew] = indexByPath.try_emplace(row.path, stored.size());
    if (isNew) {
      stored.push_back(row);
    } else {
      update(stored[it->second], row);
    }
  }
  return stored;
}

template <class T>
void takeIfPresent(std::optional<T>& known, const std::optional<T>& incoming) {
  if (incoming.has_value())
    known = incoming;
}

void takeIfNotEmpty(std::string& known, const std::string& incoming) {
  if (!incoming.empty())
    known = incoming;
}

void overlayThinRow(ProjectAssetItem& known, const ProjectAssetItem& row) {
  takeIfNotEmpty(known.name, row.name);
  takeIfNotEmpty(known.folder, row.folder);
  takeIfNotEmpty(known.kind, row.kind);
  takeIfPresent(known.cooked, row.cooked);
  takeIfPresent(known.sceneClients, row.sceneClients);
  takeIfPresent(known.boundsCenter, row.boundsCenter);
  takeIfPresent(known.boundsDimensions, row.boundsDimensions);
  takeIfPresent(known.runtimeAssetId, row.runtimeAssetId);
  takeIfPresent(known.assetPath, row.assetPath);
  takeIfPresent(known.contentHash, row.contentHash);
  takeIfPresent(known.contentUrl, row.contentUrl);
  takeIfPresent(known.sourceGeneration, row.sourceGeneration);
  takeIfPresent(known.descriptor, row.descriptor);
}

std::string sourceFolder(const ProjectAssetItem& row) {
  const bool hasAssetPath = row.assetPath.has_value() && !row.assetPath->empty();
  return canonicalProjectAssetFolder(hasAssetPath ? *row.assetPath : row.path, row.folder);
}

}  // namespace

std::vector<ProjectAssetItem> projectAssetsMergingCatalogRows(
    const std::vector<ProjectAssetItem>& rows, std::vector<ProjectAssetItem> stored) {
  return mergeByPath(rows, std::move(stored),
                     [](ProjectAssetItem& known, const ProjectAssetItem& row) { known = row; });
}

std::vector<ProjectAssetItem> projectAssetsMergingProgressiveStage(
    const std::vector<ProjectAssetItem>& rows, std::vector<ProjectAssetItem> stored) {
  return mergeByPath(rows, std::move(stored), overlayThinRow);
}

bool hasSourceGeneration(const ProjectAssetItem& row) {
  return row.sourceGeneration.has_value() && !row.sourceGeneration->empty() &&
         *row.sourceGeneration != "0";
}

bool hasContentHash(const ProjectAssetItem& row) {
  return row.contentHash.has_value() && *row.contentHash != 0;
}

std::vector<ProjectAssetItem> projectAssetsPreservingKnownSourceIdentity(
    std::vector<ProjectAssetItem> rows, const std::vector<ProjectAssetItem>& previous) {
  if (previous.empty())
    return rows;
  std::unordered_map<std::string_view, const ProjectAssetItem*> previousByPath;
  previousByPath.reserve(previous.size());
  for (const ProjectAssetItem& row : previous)
    previousByPath.try_emplace(row.path, &row);

  for (ProjectAssetItem& row : rows) {
    if (hasSourceGeneration(row) || hasContentHash(row))
      continue;
    const auto found = previousByPath.find(row.path);
    if (found == previousByPath.end())
      continue;
    const ProjectAssetItem& known = *found->second;
    if (!hasSourceGeneration(known) && !hasContentHash(known))
      continue;
    if (sourceFolder(known) != sourceFolder(row))
      continue;
    row.sourceGeneration = known.sourceGeneration;
    row.contentHash = known.contentHash;
  }
  return rows;
}

}  // namespace orvan::editor
