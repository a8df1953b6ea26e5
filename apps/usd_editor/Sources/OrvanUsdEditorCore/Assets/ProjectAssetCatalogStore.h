#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "orvan/wire/records/ProjectAssetItem.h"

namespace orvan::editor {

// The last known asset list of one scope (project, scene and workspace), with the catalogue head
// it was complete for; "" when no complete list has been seen.
struct ScopeCatalog {
  std::string headKey = {};
  std::vector<ProjectAssetItem> assets = {};

  bool operator==(const ScopeCatalog&) const = default;
};

struct ProjectAssetCatalogReconciliation {
  std::vector<ProjectAssetItem> assets = {};
  // The list may lack rows the server has: a further complete fetch is wanted.
  bool needsCompleteFetch = false;

  bool operator==(const ProjectAssetCatalogReconciliation&) const = default;
};

// The asset lists of recently visited scopes, so that a switch shows its last known assets at
// once and partial answers never make known rows vanish. A plain value, used on the main thread.
class ProjectAssetCatalogStore {
 public:
  static constexpr std::size_t kMaxScopes = 12;

  // Replaces the scope's catalogue and makes it the most recently remembered; beyond kMaxScopes
  // the least recently remembered scope is forgotten.
  void remember(std::string headKey, std::vector<ProjectAssetItem> assets,
                const std::string& scopeKey);

  // Folds a fetched list into the scope's catalogue and gives the list to show. A complete list
  // for a new head replaces everything; a complete list for the known head keeps rows it omits
  // (and asks for another fetch); a partial list only ever adds and updates.
  ProjectAssetCatalogReconciliation reconcile(const std::string& scopeKey,
                                              const std::string& headKey,
                                              std::vector<ProjectAssetItem> incoming,
                                              bool complete);

  // Forgets every scope, for sign-out.
  void removeAll();

  const ScopeCatalog* catalog(std::string_view scopeKey) const;
  const std::map<std::string, ScopeCatalog, std::less<>>& catalogs() const { return catalogs_; }
  // Oldest first.
  const std::vector<std::string>& recentScopeKeys() const { return recentScopeKeys_; }

 private:
  std::map<std::string, ScopeCatalog, std::less<>> catalogs_;
  std::vector<std::string> recentScopeKeys_;
};

}  // namespace orvan::editor
