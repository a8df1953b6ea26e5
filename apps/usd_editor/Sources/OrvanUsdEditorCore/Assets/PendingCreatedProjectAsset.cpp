#include "Assets/PendingCreatedProjectAsset.h"

#include <algorithm>
#include <unordered_set>

#include "Assets/ProjectAssetMerging.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {
namespace {

template <class T>
bool agreeWhereBothCarry(const std::optional<T>& a, const std::optional<T>& b, bool aCarries,
                         bool bCarries) {
  return !(aCarries && bCarries) || *a == *b;
}

bool carriesAssetPath(const ProjectAssetItem& row) {
  return row.assetPath.has_value() && !row.assetPath->empty();
}

}  // namespace

std::vector<ProjectAssetItem> projectAssetsOverlayingPendingCreations(
    const PendingCreatedProjectAssets& pending, std::vector<ProjectAssetItem> assets) {
  std::vector<const PendingCreatedProjectAsset*> oldestFirst;
  oldestFirst.reserve(pending.size());
  for (const auto& entry : pending)
    oldestFirst.push_back(&entry.second);
  std::stable_sort(oldestFirst.begin(), oldestFirst.end(),
                   [](const auto* a, const auto* b) { return a->createdAt < b->createdAt; });

  std::unordered_set<std::string> listed;
  listed.reserve(assets.size() + pending.size());
  for (const ProjectAssetItem& row : assets)
    listed.insert(row.path);
  for (const PendingCreatedProjectAsset* created : oldestFirst) {
    if (listed.insert(created->asset.path).second)
      assets.push_back(created->asset);
  }
  return assets;
}

bool projectAssetAuthoritativelyConfirmsPendingCreation(const ProjectAssetItem& pending,
                                                        const ProjectAssetItem& authoritative) {
  if (pending.path != authoritative.path)
    return false;
  if (!pending.kind.empty() && !authoritative.kind.empty() &&
      !equalsIgnoringCase(pending.kind, authoritative.kind)) {
    return false;
  }
  return agreeWhereBothCarry(pending.assetPath, authoritative.assetPath, carriesAssetPath(pending),
                             carriesAssetPath(authoritative)) &&
         agreeWhereBothCarry(pending.contentHash, authoritative.contentHash,
                             hasContentHash(pending), hasContentHash(authoritative)) &&
         agreeWhereBothCarry(pending.sourceGeneration, authoritative.sourceGeneration,
                             hasSourceGeneration(pending), hasSourceGeneration(authoritative));
}

}  // namespace orvan::editor
