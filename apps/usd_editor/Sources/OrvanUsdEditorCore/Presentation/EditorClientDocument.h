#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Presentation/PreparedStage.h"
#include "orvan/wire/records/ProjectAssetItem.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// Where a dragged project asset's ghost sits in the viewport, and what it stands for.
struct EditorViewportDropBounds {
  std::vector<double> center;
  std::vector<double> dimensions;
  std::optional<std::uint64_t> assetId;
  std::optional<std::uint64_t> contentHash;
  std::optional<std::string> contentURL;

  bool operator==(const EditorViewportDropBounds&) const = default;
};

// The derived, indexed and immutable view of the stage and the project's assets that every view
// reads, so that no view scans thousands of prims to draw. Built off the main thread and published
// whole; every look-up a view needs is a dictionary read.
//
// The stage's half (prims, tree, store catalogue) is a `PreparedStage` shared with the model, so a
// change of the project's assets alone reuses it as it is.
struct EditorClientDocumentSnapshot {
  // The stage the document was built from. Its prims are those of `preparedStage`; only a patch of
  // the stage's assets makes them two objects.
  std::shared_ptr<const StageInspection> stageInspection = PreparedStage::empty()->inspection;
  std::shared_ptr<const PreparedStage> preparedStage = PreparedStage::empty();
  std::vector<ProjectAssetItem> projectAssets;  // sorted by name
  std::unordered_map<std::string, std::size_t> projectAssetsByPath;
  std::map<std::string, std::vector<std::size_t>> projectAssetsByFolder;
  std::unordered_map<std::string, EditorViewportDropBounds> projectAssetDropBoundsByPath;
  std::vector<std::string> projectFolders;  // sorted, distinct
  std::vector<UsdAsset> materialAssets;     // sorted by name
  std::unordered_map<std::string, std::size_t> materialAssetsByPath;
  std::unordered_map<std::string, UsdAsset> stageAssetsByProjectAssetPath;
  std::unordered_map<std::string, UsdAsset> storeLinkedStageAssetsByProjectAssetPath;
  // Created assets the stage did not list yet when the document was built; they count as stage
  // assets above.
  std::vector<UsdAsset> pendingCreatedAssets;

  // Built once, from the empty stage.
  static std::shared_ptr<const EditorClientDocumentSnapshot> empty();

  const StageInspection& stage() const { return *stageInspection; }
  const HierarchyIndex& hierarchy() const { return *preparedStage->hierarchy; }
  const UsdPrimDetail* prim(std::string_view path) const { return preparedStage->prim(path); }
  const ProjectAssetItem* projectAsset(std::string_view path) const;
  std::vector<const ProjectAssetItem*> projectAssetsInFolder(std::string_view folder) const;
  const UsdAsset* materialAsset(std::string_view path) const;
  const UsdAsset* stageAsset(std::string_view projectAssetPath) const;
  const UsdAsset* storeLinkedStageAsset(std::string_view projectAssetPath) const;
  const EditorViewportDropBounds* dropBounds(std::string_view projectAssetPath) const;
};

// What one build starts from. Values only: the build runs on another thread.
struct EditorClientDocumentBuildInput {
  std::shared_ptr<const PreparedStage> stage = PreparedStage::empty();
  std::vector<ProjectAssetItem> projectAssets;
  // Assets just created in the scene that the stage does not list yet.
  std::vector<UsdAsset> pendingCreatedAssets;
  std::uint64_t generation = 0;
};

// Builds a whole document. Pure; safe on any thread.
std::shared_ptr<const EditorClientDocumentSnapshot> makeClientDocumentSnapshot(
    const EditorClientDocumentBuildInput& input);

// A document whose stage is replaced by `stage` and whose stage-derived indexes are redone, with
// the project's half carried over from `current`. For edits that must show before a full build.
std::shared_ptr<const EditorClientDocumentSnapshot> withReplacedStage(
    const EditorClientDocumentSnapshot& current, std::shared_ptr<const PreparedStage> stage);

// The same document with only the stage's assets changed: materials and the project assets'
// links to stage assets are redone, prims and tree are kept. `stage` must hold the same prims as
// the current one (a material edit, for example).
std::shared_ptr<const EditorClientDocumentSnapshot> withReplacedStageAssets(
    const EditorClientDocumentSnapshot& current, std::shared_ptr<const StageInspection> stage);

// Whether a stage asset is the one a project asset row stands for: the row's path (or its own
// asset path) names the stage asset's path or its source.
bool projectAssetStageMatches(const ProjectAssetItem& projectAsset, const UsdAsset& stageAsset);

// Ghost bounds for each project asset: the matching stage asset's measured bounds, else the row's
// own bounds, else the default asset size.
std::unordered_map<std::string, EditorViewportDropBounds> projectAssetDropBounds(
    const std::vector<ProjectAssetItem>& projectAssets,
    const std::unordered_map<std::string, UsdAsset>& stageAssetsByProjectAssetPath);

}  // namespace orvan::editor
