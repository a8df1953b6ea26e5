#include "Assets/ProjectAssetCatalogStore.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "Assets/ProjectAssetMerging.h"

namespace orvan::editor {
namespace {

std::size_t distinctPathCount(const std::vector<ProjectAssetItem>& rows) {
  std::unordered_set<std::string_view> paths;
  paths.reserve(rows.size());
  for (const ProjectAssetItem& row : rows)
    paths.insert(row.path);
  return paths.size();
}

}  // namespace

void ProjectAssetCatalogStore::remember(std::string headKey, std::vector<ProjectAssetItem> assets,
                                        const std::string& scopeKey) {
  catalogs_.insert_or_assign(scopeKey, ScopeCatalog{std::move(headKey), std::move(assets)});
  std::erase(recentScopeKeys_, scopeKey);
  const bool full = recentScopeKeys_.size() >= kMaxScopes;
  recentScopeKeys_.push_back(scopeKey);
  if (full) {
    catalogs_.erase(recentScopeKeys_.front());
    recentScopeKeys_.erase(recentScopeKeys_.begin());
  }
}

ProjectAssetCatalogReconciliation ProjectAssetCatalogStore::reconcile(
    const std::string& scopeKey, const std::string& headKey, std::vector<ProjectAssetItem> incoming,
    bool complete) {
  const ScopeCatalog* stored = catalog(scopeKey);
  if (stored == nullptr) {
    remember(complete ? headKey : std::string(), incoming, scopeKey);
    return {std::move(incoming), !complete};
  }
  incoming = projectAssetsPreservingKnownSourceIdentity(std::move(incoming), stored->assets);

  if (complete && !headKey.empty() && headKey != stored->headKey) {
    // The server's head moved: rows it no longer names are gone.
    remember(headKey, incoming, scopeKey);
    return {std::move(incoming), false};
  }
  std::string storedHead = stored->headKey;
  if (complete) {
    std::vector<ProjectAssetItem> merged =
        projectAssetsMergingCatalogRows(incoming, stored->assets);
    const bool knowsMore = merged.size() != distinctPathCount(incoming);
    remember(std::move(storedHead), merged, scopeKey);
    return {std::move(merged), knowsMore};
  }
  std::vector<ProjectAssetItem> merged =
      projectAssetsMergingProgressiveStage(incoming, stored->assets);
  remember(std::move(storedHead), merged, scopeKey);
  return {std::move(merged), true};
}

void ProjectAssetCatalogStore::removeAll() {
  catalogs_.clear();
  recentScopeKeys_.clear();
}

const ScopeCatalog* ProjectAssetCatalogStore::catalog(std::string_view scopeKey) const {
  const auto found = catalogs_.find(scopeKey);
  return found == catalogs_.end() ? nullptr : &found->second;
}

}  // namespace orvan::editor
