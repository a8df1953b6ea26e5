// The model's side of the client document: builds off the main thread, merged requests, stale
// builds, the structural patch and the selection snapshots that follow a document.
#include <gtest/gtest.h>

#include "Application/EditorModel.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/StageBuilders.h"

namespace orvan::editor {
namespace {

class EditorModelClientDocumentTest : public ::testing::Test {
 protected:
  EditorModelClientDocumentTest()
      : model_(EditorConfiguration{}, EditorModelPorts{scheduler_, scheduler_.background(),
                                                       preferences_, secrets_, launcher_, http_}) {
    publishes_ = model_.clientDocument.snapshot.subscribe([this](const auto&) { ++publishCount_; });
  }

  // Applies a stage as a refresh would, and lets the document follow.
  void applyStage(StageInspection stage) {
    model_.stageRefresher.applyRefreshResultNow(PreparedStage::prepare(std::move(stage)),
                                                std::nullopt,
                                                model_.stageRefresher.refreshGeneration, false);
    scheduler_.runUntilQuiet();
  }

  std::uint64_t hierarchyRevision() const {
    return model_.clientDocument.hierarchyProjection.revision.get();
  }
  std::uint64_t projectRevision() const {
    return model_.clientDocument.projectProjection.revision.get();
  }

  testing::ManualScheduler scheduler_;
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher launcher_;
  testing::FakeHttpClient http_{scheduler_};
  EditorModel model_;
  int publishCount_ = 0;
  Subscription publishes_;
};

ProjectAssetItem row(std::string path) {
  ProjectAssetItem item;
  item.path = path;
  item.name = path;
  item.kind = "USD";
  return item;
}

TEST_F(EditorModelClientDocumentTest, RequestsInARowPublishOnceWithEveryCause) {
  model_.documents.scheduleClientDocumentRebuild(true, false);
  model_.documents.projectAssets = {row("a.usda")};
  model_.documents.scheduleClientDocumentRebuild(false, true);
  EXPECT_EQ(publishCount_, 0) << "nothing is built on the main thread";
  scheduler_.runUntilQuiet();
  EXPECT_EQ(publishCount_, 1);
  EXPECT_EQ(hierarchyRevision(), 2u) << "construction published the empty stage as the first";
  EXPECT_EQ(projectRevision(), 2u);
  EXPECT_NE(model_.clientDocument.current().projectAsset("a.usda"), nullptr);
  EXPECT_EQ(model_.presentation.projectAssetRecordsByPath.count("a.usda"), 1u);
  EXPECT_FALSE(model_.documents.clientDocumentPendingStageChanged);
  EXPECT_FALSE(model_.documents.clientDocumentPendingProjectChanged);
}

TEST_F(EditorModelClientDocumentTest, ABuildOvertakenByANewerRequestIsNeverPublished) {
  model_.documents.projectAssets = {row("old.usda")};
  model_.documents.scheduleClientDocumentRebuild(false, true);
  // The first build finishes; its reply waits for the main thread when a newer request comes.
  scheduler_.runBackground(testing::ManualScheduler::ThenRunMain::kNo);
  model_.documents.projectAssets = {row("new.usda")};
  model_.documents.scheduleClientDocumentRebuild(false, true);
  std::vector<std::string> published;
  Subscription seen = model_.clientDocument.snapshot.subscribe(
      [&](const auto& document) { published.push_back(document->projectAssets.at(0).path); });
  scheduler_.runUntilQuiet();
  EXPECT_EQ(published, (std::vector<std::string>{"new.usda"}));

  // A build that reports with an older generation than the newest request is dropped too.
  const auto before = model_.clientDocument.snapshot.get();
  model_.documents.publishClientDocument(EditorClientDocumentSnapshot::empty(),
                                         model_.documents.clientDocumentBuildGeneration - 1,
                                         Duration::zero());
  EXPECT_EQ(model_.clientDocument.snapshot.get(), before);
}

TEST_F(EditorModelClientDocumentTest, AStructuralPatchShowsAtOnceAndTheFullBuildAgrees) {
  StageInspection stage = testing::makeTreeStage(2, 2, 0);
  stage.assets = {};
  model_.documents.projectAssets = {row("a.usda")};
  applyStage(stage);
  ASSERT_EQ(model_.clientDocument.current().stage().rootPrims.size(), 2u);

  // An optimistic edit adds a root: the tree shows it before any background work runs.
  StageInspection edited = stage;
  edited.rootPrims.push_back(testing::makeTreeStage(3, 0, 0).rootPrims.at(2));
  edited.prims.push_back(testing::makePrimDetail("/Root2", "Xform"));
  model_.stage.set(PreparedStage::prepare(edited));
  const std::uint64_t projectBefore = projectRevision();
  model_.documents.publishStructuralClientDocumentPatch();
  const auto patched = model_.clientDocument.hierarchyProjection.snapshot;
  EXPECT_EQ(patched->stage().rootPrims.size(), 3u);
  EXPECT_NE(patched->prim("/Root2"), nullptr);
  EXPECT_EQ(projectRevision(), projectBefore) << "the project pane has nothing new";

  scheduler_.runUntilQuiet();
  const auto& rebuilt = model_.clientDocument.current();
  EXPECT_NE(&rebuilt, patched.get()) << "a full build followed";
  EXPECT_EQ(rebuilt.stage(), patched->stage());
  EXPECT_EQ(rebuilt.projectAssets, patched->projectAssets);
  EXPECT_EQ(rebuilt.preparedStage->primsByPath.size(), patched->preparedStage->primsByPath.size());
  EXPECT_EQ(rebuilt.preparedStage->defaultCollapsedHierarchyPaths,
            patched->preparedStage->defaultCollapsedHierarchyPaths);
}

TEST_F(EditorModelClientDocumentTest, SelectionHighlightsAtOnceAndOnlyTheLastClickIsComputed) {
  applyStage(testing::makeTreeStage(3, 0, 0));
  std::vector<std::string> computed;
  Subscription inspector =
      model_.session.inspector.subscribe([&](const InspectorTargetState& state) {
        if (state.sceneSnapshot.prim)
          computed.push_back(state.sceneSnapshot.prim->path);
      });
  model_.documents.selectPrims("/Root0", {"/Root0"});
  model_.documents.selectPrims("/Root1", {"/Root1"});
  EXPECT_EQ(model_.session.sceneSelection.get().primaryPath, "/Root1")
      << "the highlight is at once";
  EXPECT_TRUE(computed.empty()) << "the snapshot waits for the next turns";
  scheduler_.runUntilIdle();
  EXPECT_EQ(computed, (std::vector<std::string>{"/Root1"}));

  // A snapshot scheduled for an older selection is discarded when it finally runs.
  const std::uint64_t oldSerial = model_.session.sceneSelection.get().serial;
  model_.documents.scheduleSelectionSnapshot("/Root0", {"/Root0"}, oldSerial);
  model_.session.applySceneSelection("/Root2", {"/Root2"}, true);
  scheduler_.runUntilIdle();
  EXPECT_EQ(computed.back(), "/Root1");
  EXPECT_EQ(model_.session.inspector.get().sceneSnapshot.prim->path, "/Root1");
}

TEST_F(EditorModelClientDocumentTest, SelectionKeepsStorePreviewsThatHaveNoPrim) {
  applyStage(testing::makeTreeStage(2, 0, 0));
  model_.documents.storeScenePreviews["/Preview"] = StoreScenePreview{"/Preview", {}};
  model_.documents.selectPrims("/Root1", {"/Root1", "/Preview"});
  applyStage(testing::makeTreeStage(1, 0, 0));
  EXPECT_EQ(model_.session.sceneSelection.get().paths, (std::vector<std::string>{"/Preview"}));
  EXPECT_EQ(model_.session.sceneSelection.get().primaryPath, "/Preview");
  EXPECT_TRUE(model_.session.inspector.get().sceneSnapshot.storePreview.has_value());
}

}  // namespace
}  // namespace orvan::editor
