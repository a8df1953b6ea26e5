#include "Presentation/EditorClientDocument.h"

#include <algorithm>
#include <set>

#include "Presentation/DisplayOrder.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

constexpr std::string_view kMaterialKind = "material";
constexpr std::string_view kStoreScheme = "store://";

// An asset reference reduced to the form rows and stage assets share: forward slashes, no leading
// "./" or "/".
std::string assetReferenceKey(std::string_view reference) {
  std::string key(trimWhitespaceAndNewlines(reference));
  std::replace(key.begin(), key.end(), '\\', '/');
  std::string_view rest = key;
  while (hasPrefix(rest, "./"))
    rest.remove_prefix(2);
  while (hasPrefix(rest, "/"))
    rest.remove_prefix(1);
  return std::string(rest);
}

// A stage reference names a row when it is the row's path, or a file path that ends in it (a
// local stage lists absolute file paths).
bool referenceNames(std::string_view stageReference, const std::string& rowKey) {
  if (rowKey.empty())
    return false;
  const std::string stageKey = assetReferenceKey(stageReference);
  if (stageKey == rowKey)
    return true;
  return stageKey.size() > rowKey.size() && hasSuffix(stageKey, rowKey) &&
         stageKey[stageKey.size() - rowKey.size() - 1] == '/';
}

bool isStoreLinked(const UsdAsset& asset) {
  return !asset.storeURI.empty() || hasPrefix(asset.source, kStoreScheme);
}

bool hasThreeValues(const std::optional<std::vector<double>>& values) {
  return values && values->size() == 3;
}

// The stage's assets followed by those created meanwhile that the stage does not list yet.
std::vector<const UsdAsset*> knownStageAssets(const StageInspection& stage,
                                              const std::vector<UsdAsset>& pendingCreated) {
  std::vector<const UsdAsset*> assets;
  assets.reserve(stage.assets.size() + pendingCreated.size());
  std::set<std::string_view> paths;
  for (const UsdAsset& asset : stage.assets) {
    assets.push_back(&asset);
    paths.insert(asset.path);
  }
  for (const UsdAsset& asset : pendingCreated) {
    if (asset.path.empty() || paths.insert(asset.path).second)
      assets.push_back(&asset);
  }
  return assets;
}

void indexProjectAssets(EditorClientDocumentSnapshot& document,
                        std::vector<ProjectAssetItem> projectAssets) {
  sortByDisplayName(
      projectAssets, [](const ProjectAssetItem& item) { return std::string_view(item.name); },
      [](const ProjectAssetItem& item) { return std::string_view(item.path); });
  document.projectAssets = std::move(projectAssets);
  std::vector<std::string> folders;
  for (std::size_t index = 0; index < document.projectAssets.size(); ++index) {
    const ProjectAssetItem& item = document.projectAssets[index];
    document.projectAssetsByPath.emplace(item.path, index);  // the first row of a path wins
    auto [entry, added] = document.projectAssetsByFolder.try_emplace(item.folder);
    if (added)
      folders.push_back(item.folder);
    entry->second.push_back(index);
  }
  sortByDisplayName(
      folders, [](const std::string& folder) { return std::string_view(folder); },
      [](const std::string& folder) { return std::string_view(folder); });
  document.projectFolders = std::move(folders);
}

// Materials and the links between rows and stage assets: everything that depends on both the
// stage's assets and the project's rows.
void indexStageAssets(EditorClientDocumentSnapshot& document) {
  const std::vector<const UsdAsset*> stageAssets =
      knownStageAssets(document.stage(), document.pendingCreatedAssets);

  document.materialAssets.clear();
  document.materialAssetsByPath.clear();
  for (const UsdAsset* asset : stageAssets) {
    if (asset->kind == kMaterialKind)
      document.materialAssets.push_back(*asset);
  }
  sortByDisplayName(
      document.materialAssets, [](const UsdAsset& asset) { return std::string_view(asset.name); },
      [](const UsdAsset& asset) { return std::string_view(asset.path); });
  for (std::size_t index = 0; index < document.materialAssets.size(); ++index) {
    document.materialAssetsByPath.emplace(document.materialAssets[index].path, index);
  }

  document.stageAssetsByProjectAssetPath.clear();
  document.storeLinkedStageAssetsByProjectAssetPath.clear();
  for (const ProjectAssetItem& row : document.projectAssets) {
    const auto match =
        std::find_if(stageAssets.begin(), stageAssets.end(),
                     [&](const UsdAsset* asset) { return projectAssetStageMatches(row, *asset); });
    if (match == stageAssets.end())
      continue;
    document.stageAssetsByProjectAssetPath.emplace(row.path, **match);
    if (isStoreLinked(**match))
      document.storeLinkedStageAssetsByProjectAssetPath.emplace(row.path, **match);
  }
  document.projectAssetDropBoundsByPath =
      projectAssetDropBounds(document.projectAssets, document.stageAssetsByProjectAssetPath);
}

template <class Map>
auto findIn(const Map& map, std::string_view key) -> decltype(&map.begin()->second) {
  const auto found = map.find(std::string(key));
  return found == map.end() ? nullptr : &found->second;
}

}  // namespace

std::shared_ptr<const EditorClientDocumentSnapshot> EditorClientDocumentSnapshot::empty() {
  static const std::shared_ptr<const EditorClientDocumentSnapshot> document =
      makeClientDocumentSnapshot(EditorClientDocumentBuildInput{});
  return document;
}

const ProjectAssetItem* EditorClientDocumentSnapshot::projectAsset(std::string_view path) const {
  const std::size_t* index = findIn(projectAssetsByPath, path);
  return index ? &projectAssets[*index] : nullptr;
}

std::vector<const ProjectAssetItem*> EditorClientDocumentSnapshot::projectAssetsInFolder(
    std::string_view folder) const {
  std::vector<const ProjectAssetItem*> items;
  if (const auto* indexes = findIn(projectAssetsByFolder, folder)) {
    for (std::size_t index : *indexes)
      items.push_back(&projectAssets[index]);
  }
  return items;
}

const UsdAsset* EditorClientDocumentSnapshot::materialAsset(std::string_view path) const {
  const std::size_t* index = findIn(materialAssetsByPath, path);
  return index ? &materialAssets[*index] : nullptr;
}

const UsdAsset* EditorClientDocumentSnapshot::stageAsset(std::string_view projectAssetPath) const {
  return findIn(stageAssetsByProjectAssetPath, projectAssetPath);
}

const UsdAsset* EditorClientDocumentSnapshot::storeLinkedStageAsset(
    std::string_view projectAssetPath) const {
  return findIn(storeLinkedStageAssetsByProjectAssetPath, projectAssetPath);
}

const EditorViewportDropBounds* EditorClientDocumentSnapshot::dropBounds(
    std::string_view projectAssetPath) const {
  return findIn(projectAssetDropBoundsByPath, projectAssetPath);
}

std::shared_ptr<const EditorClientDocumentSnapshot> makeClientDocumentSnapshot(
    const EditorClientDocumentBuildInput& input) {
  auto document = std::make_shared<EditorClientDocumentSnapshot>();
  document->preparedStage = input.stage ? input.stage : PreparedStage::empty();
  document->stageInspection = document->preparedStage->inspection;
  document->pendingCreatedAssets = input.pendingCreatedAssets;
  indexProjectAssets(*document, input.projectAssets);
  indexStageAssets(*document);
  return document;
}

std::shared_ptr<const EditorClientDocumentSnapshot> withReplacedStage(
    const EditorClientDocumentSnapshot& current, std::shared_ptr<const PreparedStage> stage) {
  auto document = std::make_shared<EditorClientDocumentSnapshot>(current);
  document->preparedStage = stage ? std::move(stage) : PreparedStage::empty();
  document->stageInspection = document->preparedStage->inspection;
  return document;
}

std::shared_ptr<const EditorClientDocumentSnapshot> withReplacedStageAssets(
    const EditorClientDocumentSnapshot& current, std::shared_ptr<const StageInspection> stage) {
  auto document = std::make_shared<EditorClientDocumentSnapshot>(current);
  // The prims and the tree stay indexed over the current stage object, which is equal in them;
  // only the assets are read from the new one.
  document->stageInspection = std::move(stage);
  indexStageAssets(*document);
  return document;
}

bool projectAssetStageMatches(const ProjectAssetItem& projectAsset, const UsdAsset& stageAsset) {
  for (const std::string* rowReference :
       {&projectAsset.path, projectAsset.assetPath ? &*projectAsset.assetPath : nullptr}) {
    if (!rowReference)
      continue;
    const std::string rowKey = assetReferenceKey(*rowReference);
    if (referenceNames(stageAsset.path, rowKey) || referenceNames(stageAsset.source, rowKey))
      return true;
  }
  return false;
}

std::unordered_map<std::string, EditorViewportDropBounds> projectAssetDropBounds(
    const std::vector<ProjectAssetItem>& projectAssets,
    const std::unordered_map<std::string, UsdAsset>& stageAssetsByProjectAssetPath) {
  static const UsdAsset kDefaultAsset;
  std::unordered_map<std::string, EditorViewportDropBounds> bounds;
  bounds.reserve(projectAssets.size());
  for (const ProjectAssetItem& row : projectAssets) {
    EditorViewportDropBounds drop{kDefaultAsset.boundsCenter, kDefaultAsset.boundsDimensions,
                                  row.runtimeAssetId, row.contentHash, row.contentUrl};
    const auto stageAsset = stageAssetsByProjectAssetPath.find(row.path);
    if (stageAsset != stageAssetsByProjectAssetPath.end() && stageAsset->second.hasBoundsMetadata) {
      drop.center = stageAsset->second.boundsCenter;
      drop.dimensions = stageAsset->second.boundsDimensions;
    } else if (hasThreeValues(row.boundsCenter) && hasThreeValues(row.boundsDimensions)) {
      drop.center = *row.boundsCenter;
      drop.dimensions = *row.boundsDimensions;
    }
    bounds.emplace(row.path, std::move(drop));
  }
  return bounds;
}

}  // namespace orvan::editor
