#include <gtest/gtest.h>

#include "Presentation/EditorClientDocumentState.h"
#include "Presentation/EditorPresentationStore.h"
#include "Presentation/ProjectAssetBrowser.h"
#include "Support/StageBuilders.h"

namespace orvan::editor {
namespace {

ProjectAssetItem row(std::string path, std::string name, std::string folder) {
  ProjectAssetItem item;
  item.path = std::move(path);
  item.name = std::move(name);
  item.folder = std::move(folder);
  item.kind = "USD";
  return item;
}

UsdAsset stageAsset(std::string path, std::string name, std::string kind, std::string source = "") {
  UsdAsset asset;
  asset.path = std::move(path);
  asset.name = std::move(name);
  asset.kind = std::move(kind);
  asset.source = std::move(source);
  return asset;
}

std::vector<std::string> names(const std::vector<ProjectAssetItem>& items) {
  std::vector<std::string> out;
  for (const auto& item : items)
    out.push_back(item.name);
  return out;
}

TEST(ClientDocumentTest, ListsSortWithoutRegardToCaseAndIndexByPathAndFolder) {
  const auto document = EditorClientDocumentState::makeSnapshot(
      PreparedStage::empty(), {row("b/zeta.usda", "zeta", "b"), row("a/Alpha.usda", "Alpha", "a"),
                               row("B/beta.usda", "beta", "B"), row("a/alpha.usda", "alpha", "a")});
  EXPECT_EQ(names(document->projectAssets),
            (std::vector<std::string>{"Alpha", "alpha", "beta", "zeta"}))
      << "case-insensitive, ties broken the same way every time";
  EXPECT_EQ(document->projectFolders, (std::vector<std::string>{"a", "B", "b"}));
  ASSERT_NE(document->projectAsset("B/beta.usda"), nullptr);
  EXPECT_EQ(document->projectAsset("missing.usda"), nullptr);
  std::vector<std::string> inA;
  for (const auto* item : document->projectAssetsInFolder("a"))
    inA.push_back(item->path);
  EXPECT_EQ(inA, (std::vector<std::string>{"a/Alpha.usda", "a/alpha.usda"}));
  EXPECT_TRUE(document->projectAssetsInFolder("c").empty());
}

TEST(ClientDocumentTest, ProjectPaneGroupsByKindInFixedOrderOrByFolderWithTheTopLevelFirst) {
  auto kinded = [](std::string path, std::string folder, std::string kind) {
    ProjectAssetItem item = row(path, path, std::move(folder));
    item.kind = std::move(kind);
    return item;
  };
  const auto document = EditorClientDocumentState::makeSnapshot(
      PreparedStage::empty(),
      {kinded("notes.txt", "", "File"), kinded("a/tex.png", "a", "Image"),
       kinded("scene.usda", "", "USD"), kinded("z/odd.xyz", "z", "Hologram"),
       kinded("a/rock.obj", "a", "Mesh"), kinded("blank", "", ""),
       kinded("z/song.ogg", "z", "Audio")});
  auto summary = [](const std::vector<ProjectAssetBrowserGroup>& groups) {
    std::vector<std::string> out;
    for (const auto& group : groups) {
      std::string line = group.title + ":";
      for (const auto* asset : group.assets)
        line += " " + asset->path;
      out.push_back(line);
    }
    return out;
  };
  EXPECT_EQ(
      summary(projectAssetBrowserGroups(*document, ProjectAssetBrowserOrganization::typeAndClass)),
      (std::vector<std::string>{"USD: scene.usda", "Mesh: a/rock.obj", "Image: a/tex.png",
                                "Audio: z/song.ogg", "Hologram: z/odd.xyz",
                                "File: blank notes.txt"}))
      << "unknown kinds sit before plain files; a row without a kind is a plain file";
  EXPECT_EQ(summary(projectAssetBrowserGroups(*document, ProjectAssetBrowserOrganization::folders)),
            (std::vector<std::string>{"Project: blank notes.txt scene.usda",
                                      "a: a/rock.obj a/tex.png", "z: z/odd.xyz z/song.ogg"}));
  EXPECT_TRUE(projectAssetBrowserGroups(
                  *EditorClientDocumentState::makeSnapshot(PreparedStage::empty(), {}),
                  ProjectAssetBrowserOrganization::folders)
                  .empty());
}

TEST(ClientDocumentTest, ProjectRowsFindTheirStageAssetsMaterialsAndDropBounds) {
  StageInspection stage = testing::makeTreeStage(1, 1, 0);
  UsdAsset lamp = stageAsset("/home/me/project/assets/lamp.usda", "Lamp", "prefab");
  lamp.hasBoundsMetadata = true;
  lamp.boundsCenter = {1, 2, 3};
  lamp.boundsDimensions = {4, 5, 6};
  UsdAsset crate = stageAsset("/World/Crate", "Crate", "prefab", "store://crates/wood");
  crate.storeURI = "store://crates/wood";
  stage.assets = {lamp, crate, stageAsset("/mat/B", "brick", "material"),
                  stageAsset("/mat/A", "Asphalt", "material")};
  stage.storeCatalog = {
      {"store://crates/wood", "Wooden crate", "prefab", "A crate", std::nullopt, 2.0}};

  ProjectAssetItem lampRow = row("assets/lamp.usda", "lamp", "assets");
  lampRow.runtimeAssetId = 41;
  ProjectAssetItem crateRow = row("store/crate.usda", "crate", "store");
  crateRow.assetPath = "store://crates/wood";
  ProjectAssetItem ownBounds = row("assets/rock.usda", "rock", "assets");
  ownBounds.boundsCenter = std::vector<double>{7, 8, 9};
  ownBounds.boundsDimensions = std::vector<double>{1, 1, 1};
  ProjectAssetItem halfBounds = row("assets/tree.usda", "tree", "assets");
  halfBounds.boundsCenter = std::vector<double>{7, 8, 9};  // no dimensions: not usable

  const auto document = EditorClientDocumentState::makeSnapshot(
      PreparedStage::prepare(stage), {lampRow, crateRow, ownBounds, halfBounds});

  ASSERT_NE(document->stageAsset("assets/lamp.usda"), nullptr)
      << "a local absolute path ends in the row";
  EXPECT_EQ(document->stageAsset("assets/lamp.usda")->name, "Lamp");
  EXPECT_EQ(document->storeLinkedStageAsset("assets/lamp.usda"), nullptr);
  ASSERT_NE(document->storeLinkedStageAsset("store/crate.usda"), nullptr)
      << "matched by its source";
  EXPECT_EQ(document->stageAsset("assets/rock.usda"), nullptr);

  const auto* lampDrop = document->dropBounds("assets/lamp.usda");
  ASSERT_NE(lampDrop, nullptr);
  EXPECT_EQ(lampDrop->center, (std::vector<double>{1, 2, 3})) << "measured bounds come first";
  EXPECT_EQ(lampDrop->assetId, 41u);
  EXPECT_EQ(document->dropBounds("assets/rock.usda")->center, (std::vector<double>{7, 8, 9}));
  EXPECT_EQ(document->dropBounds("assets/tree.usda")->dimensions, UsdAsset{}.boundsDimensions)
      << "half a bounds is no bounds";
  EXPECT_EQ(document->dropBounds("store/crate.usda")->center, UsdAsset{}.boundsCenter)
      << "a stage asset without measured bounds does not lend its defaults as measurements";

  ASSERT_EQ(document->materialAssets.size(), 2u);
  EXPECT_EQ(document->materialAssets[0].name, "Asphalt");
  EXPECT_EQ(document->materialAsset("/mat/B")->name, "brick");

  // The presentation records carry the same links, and the store item by the asset's address.
  EditorPresentationStore presentation;
  presentation.rebuild(document);
  const auto& crateRecord = presentation.projectAssetRecordsByPath.at("store/crate.usda");
  ASSERT_TRUE(crateRecord.storeItem.has_value());
  EXPECT_EQ(crateRecord.storeItem->name, "Wooden crate");
  EXPECT_EQ(presentation.storeLinkedProjectAssetPaths,
            (std::unordered_set<std::string>{"store/crate.usda"}));
  EXPECT_EQ(presentation.storeRecordsByURI.count("store://crates/wood"), 1u);
  ASSERT_TRUE(presentation.primRecord("/Root0/Child0").has_value());
  EXPECT_FALSE(presentation.primRecord("/Nowhere").has_value());
}

TEST(ClientDocumentTest, AssetsCreatedMeanwhileCountUntilTheStageListsThem) {
  StageInspection stage = testing::makeTreeStage(1, 0, 0);
  stage.assets = {stageAsset("/mat/Old", "Old", "material")};
  EditorClientDocumentBuildInput input{
      .stage = PreparedStage::prepare(stage),
      .projectAssets = {},
      .pendingCreatedAssets = {stageAsset("/mat/New", "New", "material"),
                               stageAsset("/mat/Old", "Duplicate", "material")},
      .generation = 3};
  const auto document = makeClientDocumentSnapshot(input);
  ASSERT_EQ(document->materialAssets.size(), 2u);
  EXPECT_EQ(document->materialAsset("/mat/Old")->name, "Old") << "the stage's own asset wins";
  EXPECT_NE(document->materialAsset("/mat/New"), nullptr);
}

TEST(ClientDocumentTest, ProjectionsRedrawOnlyForWhatConcernsThem) {
  EditorClientDocumentState state;
  auto stageA = PreparedStage::prepare(testing::makeTreeStage(2, 1, 0));
  const std::vector<ProjectAssetItem> rows{row("a.usda", "a", "")};

  state.publish(EditorClientDocumentState::makeSnapshot(stageA, rows), true, true);
  EXPECT_EQ(state.hierarchyProjection.revision.get(), 1u);
  EXPECT_EQ(state.projectProjection.revision.get(), 1u);

  // A new stage with the same assets: the project pane is not redrawn.
  auto stageB = PreparedStage::prepare(testing::makeTreeStage(3, 1, 0));
  state.publish(EditorClientDocumentState::makeSnapshot(stageB, rows), true, false);
  EXPECT_EQ(state.hierarchyProjection.revision.get(), 2u);
  EXPECT_EQ(state.projectProjection.revision.get(), 1u);
  EXPECT_EQ(state.hierarchyProjection.snapshot->stage().rootPrims.size(), 3u);

  // A new stage whose assets changed: the project pane is, since its links may have.
  StageInspection withAsset = testing::makeTreeStage(3, 1, 0);
  withAsset.assets = {stageAsset("a.usda", "A", "prefab")};
  state.publish(EditorClientDocumentState::makeSnapshot(PreparedStage::prepare(withAsset), rows),
                true, false);
  EXPECT_EQ(state.projectProjection.revision.get(), 2u);

  // A new project list alone leaves the tree alone; neither flag changes only the main snapshot.
  state.publish(EditorClientDocumentState::makeSnapshot(state.current().preparedStage, {}), false,
                true);
  EXPECT_EQ(state.hierarchyProjection.revision.get(), 3u);
  EXPECT_EQ(state.projectProjection.revision.get(), 3u);
  const auto before = state.snapshot.get();
  state.publish(EditorClientDocumentState::makeSnapshot(state.current().preparedStage, rows), false,
                false);
  EXPECT_NE(state.snapshot.get(), before);
  EXPECT_EQ(state.hierarchyProjection.revision.get(), 3u);
  EXPECT_EQ(state.projectProjection.revision.get(), 3u);
}

TEST(ClientDocumentTest, AStageAssetPatchRedoesMaterialsAndKeepsTheTree) {
  EditorClientDocumentState state;
  StageInspection stage = testing::makeTreeStage(2, 2, 0);
  stage.assets = {stageAsset("/mat/A", "Plain", "material")};
  state.publish(EditorClientDocumentState::makeSnapshot(PreparedStage::prepare(stage), {}), true,
                true);
  const auto tree = state.current().preparedStage;

  stage.assets[0].roughness = 0.1;
  stage.assets.push_back(stageAsset("/mat/B", "Shiny", "material"));
  state.publishStageAssetPatch(std::make_shared<const StageInspection>(stage));
  EXPECT_EQ(state.current().preparedStage, tree) << "no prim was indexed again";
  ASSERT_EQ(state.current().materialAssets.size(), 2u);
  EXPECT_DOUBLE_EQ(state.current().materialAsset("/mat/A")->roughness, 0.1);
  EXPECT_EQ(state.projectProjection.revision.get(), 2u);
  EXPECT_EQ(state.hierarchyProjection.revision.get(), 1u);
}

TEST(ClientDocumentTest, RootsStartOpenAndDeeperOrHugeGroupsClosed) {
  const auto prepared = PreparedStage::prepare(testing::makeTreeStage(2, 3, 1));
  const auto& collapsed = prepared->defaultCollapsedHierarchyPaths;
  EXPECT_FALSE(collapsed.contains("/Root0"));
  EXPECT_TRUE(collapsed.contains("/Root0/Child1"));
  EXPECT_FALSE(collapsed.contains("/Root0/Child1/Leaf0")) << "a leaf has nothing to collapse";
  const auto crowded = PreparedStage::prepare(testing::makeTreeStage(1, 500, 0));
  EXPECT_TRUE(crowded->defaultCollapsedHierarchyPaths.contains("/Root0"));
}

TEST(PresentationStoreTest, ASelectedAssetWhoseRowIsGoneIsCleared) {
  EditorPresentationStore presentation;
  StageInspection stage = testing::makeTreeStage(1, 0, 0);
  stage.assets = {stageAsset("/mat/A", "Plain", "material")};
  auto prepared = PreparedStage::prepare(stage);
  presentation.rebuild(EditorClientDocumentState::makeSnapshot(prepared, {row("a.usda", "a", "")}));

  presentation.selectedAsset.set(ProjectAssetSelection{"a.usda", "USD"});
  presentation.reconcileSelectionAfterDataUpdate();
  ASSERT_TRUE(presentation.inspectorRecord.get().has_value());
  EXPECT_TRUE(
      std::holds_alternative<ProjectAssetPresentationRecord>(*presentation.inspectorRecord.get()));

  presentation.selectedAsset.set(ProjectAssetSelection{"/mat/A", "material"});
  presentation.reconcileSelectionAfterDataUpdate();
  EXPECT_TRUE(
      std::holds_alternative<MaterialPresentationRecord>(*presentation.inspectorRecord.get()));

  presentation.rebuild(
      EditorClientDocumentState::makeSnapshot(PreparedStage::empty(), {row("a.usda", "a", "")}));
  EXPECT_FALSE(presentation.selectedAsset.get().has_value()) << "the material went with the stage";
  EXPECT_FALSE(presentation.inspectorRecord.get().has_value());
}

}  // namespace
}  // namespace orvan::editor
