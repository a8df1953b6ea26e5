#pragma once

#include <vector>

#include "orvan/wire/records/ProjectAssetItem.h"

// How asset rows from the different sources become one list. Rows are identified by `path`; the
// order of rows already known never changes, and new rows go at the end, so the project pane does
// not jump while pieces arrive. A path that appears twice in the incoming rows counts once.
namespace orvan::editor {

// A catalogue's rows over `stored`: a known row is replaced by the catalogue's.
std::vector<ProjectAssetItem> projectAssetsMergingCatalogRows(
    const std::vector<ProjectAssetItem>& rows, std::vector<ProjectAssetItem> stored);

// Rows taken from the stage over `stored`. A stage row is thin, so a known row only takes what
// the stage row actually says: non-empty names, folders and kinds, and present optional fields.
std::vector<ProjectAssetItem> projectAssetsMergingProgressiveStage(
    const std::vector<ProjectAssetItem>& rows, std::vector<ProjectAssetItem> stored);

// Whether a row says which version of its source it shows. A generation "" or "0" and a hash of 0
// say nothing.
bool hasSourceGeneration(const ProjectAssetItem& row);
bool hasContentHash(const ProjectAssetItem& row);

// `rows` with the source identity (`sourceGeneration` and `contentHash`) of the same path in
// `previous` carried over where a row brings none, so that a list without hashes does not make
// every preview look stale. It is carried over only while the asset is still in the same folder:
// the folder of its `assetPath` (or of its `path` when it has none), after
// canonicalProjectAssetFolder. A moved source is another source.
std::vector<ProjectAssetItem> projectAssetsPreservingKnownSourceIdentity(
    std::vector<ProjectAssetItem> rows, const std::vector<ProjectAssetItem>& previous);

}  // namespace orvan::editor
