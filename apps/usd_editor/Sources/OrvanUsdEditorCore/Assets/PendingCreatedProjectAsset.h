#pragma once

#include <map>
#include <string>
#include <vector>

#include "Foundation/Executors.h"
#include "orvan/wire/records/ProjectAssetItem.h"

namespace orvan::editor {

// An asset the user has just created, shown before the server lists it. It stays until an
// authoritative list confirms it, the creation fails, or its wait runs out.
struct PendingCreatedProjectAsset {
  ProjectAssetItem asset = {};
  TimePoint createdAt = {};

  bool operator==(const PendingCreatedProjectAsset&) const = default;
};

// Pending creations by the path of their row.
using PendingCreatedProjectAssets = std::map<std::string, PendingCreatedProjectAsset>;

// `assets` with every pending creation whose path no row has yet appended, oldest first.
std::vector<ProjectAssetItem> projectAssetsOverlayingPendingCreations(
    const PendingCreatedProjectAssets& pending, std::vector<ProjectAssetItem> assets);

// Whether `authoritative` is the server's row for the created asset, not an older object that
// happens to have the same path (a replaced file, a recreated name). Paths must match; then the
// kind must agree (without regard to case) when both rows name one, and `assetPath`, `contentHash`
// and `sourceGeneration` must agree where both rows carry them.
bool projectAssetAuthoritativelyConfirmsPendingCreation(const ProjectAssetItem& pending,
                                                        const ProjectAssetItem& authoritative);

}  // namespace orvan::editor
