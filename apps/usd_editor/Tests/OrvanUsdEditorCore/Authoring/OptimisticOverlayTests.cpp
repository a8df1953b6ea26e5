// The local stage mutations and the life of the optimistic overlay's entries.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "Authoring/LocalStage.h"
#include "Authoring/OptimisticOverlay.h"
#include "Support/StageBuilders.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using K = PrimOperationKind;

// /World with /World/A (its child /World/A/Leaf) and /World/B; a catalog with RenderShape.
StageInspection worldStage() {
  StageInspection stage;
  UsdPrimNode world;
  world.path = "/World";
  world.name = "World";
  world.parent = "/";
  for (const char* name : {"A", "B"}) {
    UsdPrimNode node;
    node.path = std::string("/World/") + name;
    node.name = name;
    node.parent = "/World";
    world.children.push_back(node);
  }
  UsdPrimNode leaf;
  leaf.path = "/World/A/Leaf";
  leaf.name = "Leaf";
  leaf.parent = "/World/A";
  world.children[0].children.push_back(leaf);
  stage.rootPrims.push_back(world);
  for (const char* path : {"/World", "/World/A", "/World/A/Leaf", "/World/B"})
    stage.prims.push_back(testing::makePrimDetail(path, "Xform"));
  UsdComponent shape;
  shape.type = "RenderShape";
  stage.catalog.push_back(shape);
  return stage;
}

PrimAtomicOperation op(K kind, std::string parent, std::string name, std::string source = "") {
  PrimAtomicOperation operation;
  operation.kind = kind;
  operation.parentPath = std::move(parent);
  operation.primName = std::move(name);
  operation.sourcePath = std::move(source);
  operation.primitiveKind = "cube";
  return operation;
}

std::vector<std::string> primPaths(const StageInspection& stage) {
  std::vector<std::string> paths;
  for (const UsdPrimDetail& prim : stage.prims)
    paths.push_back(prim.path);
  return paths;
}

std::vector<std::string> treePaths(const StageInspection& stage) {
  std::vector<std::string> paths;
  std::function<void(const UsdPrimNode&)> walk = [&](const UsdPrimNode& node) {
    paths.push_back(node.path + "<" + node.parent);
    for (const UsdPrimNode& child : node.children)
      walk(child);
  };
  for (const UsdPrimNode& root : stage.rootPrims)
    walk(root);
  return paths;
}

TEST(LocalStageTest, InsertBuildsANewPrimOnceWithItsComponents) {
  StageInspection stage = worldStage();
  PrimAtomicOperation add = op(K::add, "/World", "Box");
  add.initialTranslation = std::vector<double>{1.5, 0.0, -2.0, 9.0};
  {
    LocalStage local(stage, "");
    EXPECT_TRUE(local.insertPrimInLocalStage(add));
    EXPECT_FALSE(local.insertPrimInLocalStage(add)) << "replay is idempotent";
    EXPECT_FALSE(local.insertPrimInLocalStage(op(K::add, "", "Box")));
    EXPECT_FALSE(local.insertPrimInLocalStage(op(K::add, "/World/Gone", "Box")));
  }
  ASSERT_EQ(stage.prims.size(), 5u);
  const UsdPrimDetail& box = stage.prims.back();
  EXPECT_EQ(box.path, "/World/Box");
  EXPECT_EQ(box.typeName, "Xform");
  ASSERT_EQ(box.components.size(), 2u);
  EXPECT_EQ(box.components[0].type, "Transform");
  EXPECT_EQ(box.components[0].properties[0].value, "1.5,0.0,-2.0");
  EXPECT_EQ(box.components[0].properties[2].value, "1,1,1");
  EXPECT_EQ(box.components[1].type, "RenderShape");
  EXPECT_EQ(treePaths(stage).back(), "/World/Box</World");

  PrimAtomicOperation light = op(K::add, "/", "Lamp");
  light.primitiveKind = "sphereLight";
  LocalStage(stage, "").insertPrimInLocalStage(light);
  EXPECT_EQ(stage.prims.back().components.size(), 1u) << "no Light in the catalog: left out";
  EXPECT_EQ(stage.rootPrims.back().path, "/Lamp");
}

TEST(LocalStageTest, NewPrimsLandWhereTheirLayerComposes) {
  StageInspection stage = worldStage();
  for (const char* identifier : {"session", "anim", "root"}) {
    UsdLayerInfo layer;
    layer.identifier = identifier;
    stage.layers.push_back(layer);
  }
  stage.rootPrims[0].children[0].definingLayer = "root";
  stage.rootPrims[0].children[1].overrideLayer = "session";
  EXPECT_EQ(layerAwareInsertionIndex(stage.rootPrims[0].children, stage.layers, "anim"), 1u);
  EXPECT_EQ(layerAwareInsertionIndex(stage.rootPrims[0].children, stage.layers, "session"), 2u);
  EXPECT_EQ(layerAwareInsertionIndex(stage.rootPrims[0].children, stage.layers, "unknown"), 2u);
  EXPECT_EQ(layerAwareInsertionIndex(stage.rootPrims[0].children, stage.layers, ""), 2u);
  LocalStage(stage, "anim").insertPrimInLocalStage(op(K::add, "/World", "New"));
  EXPECT_EQ(stage.rootPrims[0].children[1].path, "/World/New");
}

TEST(LocalStageTest, DuplicateCopiesTheSubtreeOrMakesAPlainPrim) {
  StageInspection stage = worldStage();
  {
    LocalStage local(stage, "");
    EXPECT_TRUE(local.insertPrimInLocalStage(op(K::duplicate, "/World", "A_1", "/World/A")));
    EXPECT_TRUE(local.insertPrimInLocalStage(op(K::duplicate, "/World", "Z_1", "/World/Gone")));
  }
  EXPECT_THAT(primPaths(stage), ElementsAre("/World", "/World/A", "/World/A/Leaf", "/World/B",
                                            "/World/A_1", "/World/A_1/Leaf", "/World/Z_1"));
  EXPECT_EQ(stage.prims[5].parent, "/World/A_1");
  EXPECT_EQ(stage.prims[5].entityPath, "/World/A_1/Leaf");
  EXPECT_EQ(stage.prims[4].name, "A_1");
  EXPECT_THAT(treePaths(stage), ElementsAre("/World</", "/World/A</World", "/World/A/Leaf</World/A",
                                            "/World/B</World", "/World/A_1</World",
                                            "/World/A_1/Leaf</World/A_1", "/World/Z_1</World"));
}

TEST(LocalStageTest, RemoveTakesTheSubtreeButNeverWorld) {
  StageInspection stage = worldStage();
  {
    LocalStage local(stage, "");
    EXPECT_FALSE(local.removePrimFromLocalStage("/World"));
    EXPECT_FALSE(local.removePrimFromLocalStage(""));
    EXPECT_TRUE(local.removePrimFromLocalStage("/World/A"));
    EXPECT_FALSE(local.hasPrim("/World/A/Leaf"));
    EXPECT_EQ(local.primCount(), 2u);
  }
  EXPECT_THAT(primPaths(stage), ElementsAre("/World", "/World/B"));
  EXPECT_THAT(treePaths(stage), ElementsAre("/World</", "/World/B</World"));
}

TEST(LocalStageTest, MoveRewritesTheSubtreeAndRefusesImpossibleTargets) {
  StageInspection stage = worldStage();
  {
    LocalStage local(stage, "");
    EXPECT_FALSE(local.movePrimInLocalStage("/World", "/", "Other"));
    EXPECT_FALSE(local.movePrimInLocalStage("/World/A", "/World/A/Leaf", "A"))
        << "never into its own subtree";
    EXPECT_FALSE(local.movePrimInLocalStage("/World/A", "/World", "B")) << "the target is taken";
    EXPECT_FALSE(local.movePrimInLocalStage("/World/Gone", "/World", "C"));
    EXPECT_TRUE(local.movePrimInLocalStage("/World/A", "/World/B", "Moved"));
  }
  EXPECT_THAT(primPaths(stage),
              ElementsAre("/World", "/World/B/Moved", "/World/B/Moved/Leaf", "/World/B"));
  EXPECT_EQ(stage.prims[2].parent, "/World/B/Moved");
  EXPECT_EQ(stage.prims[1].name, "Moved");
  EXPECT_THAT(treePaths(stage),
              ElementsAre("/World</", "/World/B</World", "/World/B/Moved</World/B",
                          "/World/B/Moved/Leaf</World/B/Moved"));
}

TEST(LocalStageTest, InstanceFlagMarksWhatIsBelowAndIdentitiesArrive) {
  StageInspection stage = worldStage();
  stage.prims[1].badges = {"loading", "entity"};
  {
    LocalStage local(stage, "");
    EXPECT_TRUE(local.applyInstanceableOverride("/World/A", true));
    EXPECT_FALSE(local.applyInstanceableOverride("/World/Gone", true));
    EXPECT_TRUE(local.applyCreatedPrimIdentities({{"/World/B", 77}, {"/World/A", 0}, {"", 5}}));
    EXPECT_FALSE(local.applyCreatedPrimIdentities({{"/World/B", 77}})) << "already so";
  }
  EXPECT_THAT(stage.prims[1].badges, ElementsAre("entity", "instance"));
  EXPECT_EQ(stage.prims[1].instanceable, true);
  EXPECT_EQ(stage.prims[2].instanceProxy, true);
  EXPECT_EQ(stage.rootPrims[0].children[0].children[0].instanceProxy, true);
  EXPECT_EQ(stage.prims[3].entityId, 77u);

  LocalStage(stage, "").applyInstanceableOverride("/World/A", false);
  EXPECT_THAT(stage.prims[1].badges, ElementsAre("entity"));
  EXPECT_FALSE(stage.prims[2].instanceProxy.value_or(false));
}

TEST(LocalStageTest, ThroughItsOriginAMovedOrRemovedPrimFreesItsPath) {
  const auto prepared = PreparedStage::prepare(worldStage());
  StageInspection stage = copyWithRoomToGrow(prepared->stage());
  {
    LocalStage local(stage, "", {}, prepared);
    EXPECT_TRUE(local.movePrimInLocalStage("/World/B", "/World", "C"));
    EXPECT_TRUE(local.insertPrimInLocalStage(op(K::add, "/World", "B")))
        << "the moved prim's old path is free";
    EXPECT_TRUE(local.removePrimFromLocalStage("/World/A"));
    EXPECT_TRUE(local.insertPrimInLocalStage(op(K::duplicate, "/World", "D", "/World/A")));
    EXPECT_FALSE(local.hasPrim("/World/D/Leaf")) << "the removed source is not copied";
  }
  EXPECT_THAT(primPaths(stage), ElementsAre("/World", "/World/C", "/World/B", "/World/D"));
}

TEST(OptimisticOverlayStateTest, RecordingRules) {
  OptimisticOverlayState state;
  state.recordOptimisticStructuralOperation(op(K::add, "/World", "Box"));
  state.recordOptimisticStructuralOperation(op(K::deletePrim, "/World", "", "/World/Box"));
  EXPECT_TRUE(state.optimisticInsertedPaths.empty()) << "add then delete leaves one delete";
  EXPECT_EQ(state.optimisticDeletedPaths.at("/World/Box"), kUnacknowledgedRevision);

  state.recordOptimisticStructuralOperation(op(K::add, "/World", "Box"));
  EXPECT_FALSE(state.optimisticDeletedPaths.contains("/World/Box")) << "re-creation wins";
  EXPECT_EQ(state.optimisticInsertedPaths.at("/World/Box").sequence, 3u);

  state.recordOptimisticStructuralOperation(op(K::reset, "/World", "", "/World/A"));
  EXPECT_EQ(state.optimisticStructuralSequence, 4u) << "raised even when nothing is recorded";
  state.recordOptimisticStructuralOperation(op(K::rename, "/World", "C", "/World/A"));
  EXPECT_EQ(state.optimisticInsertedPaths.at("/World/C").operation.sourcePath, "/World/A");
  state.recordOptimisticStructuralOperation(op(K::duplicate, "/World", "B_1", "/World/B"));
  EXPECT_TRUE(state.pendingDuplicatePrimPaths.contains("/World/B_1"));
  state.clearPendingDuplicatePrimPaths(std::vector{op(K::duplicate, "/World", "B_1", "/World/B")});
  EXPECT_TRUE(state.pendingDuplicatePrimPaths.empty());
}

TEST(OptimisticOverlayStateTest, AnEntryLivesUntilAStageAsNewAsItsAcknowledgement) {
  OptimisticOverlayState state;
  const PrimAtomicOperation add = op(K::add, "/World", "Box");
  const PrimAtomicOperation remove = op(K::deletePrim, "/World", "", "/World/A");
  state.recordOptimisticStructuralOperation(add);
  state.recordOptimisticStructuralOperation(remove);
  state.pruneForIncomingStage(1000);
  EXPECT_TRUE(state.holdsEdits()) << "unacknowledged entries outlive every revision";

  state.acknowledgeOptimisticStructuralOperations(std::vector{add, remove}, 12);
  state.acknowledgeOptimisticStructuralOperations(std::vector{add}, 99);
  EXPECT_EQ(state.optimisticInsertedPaths.at("/World/Box").acknowledgedRevision, 12u)
      << "a real revision is never changed";
  state.pruneForIncomingStage(11);
  state.pruneForIncomingStage(std::nullopt);
  EXPECT_EQ(state.optimisticInsertedPaths.size(), 1u) << "an older or unknown stage keeps it";
  EXPECT_EQ(state.optimisticDeletedPaths.size(), 1u);
  state.pruneForIncomingStage(12);
  EXPECT_FALSE(state.holdsEdits()) << "the server's stage has them now";
}

TEST(OptimisticOverlayStateTest, InstanceFlagsAndDiscards) {
  OptimisticOverlayState state;
  PrimAtomicOperation on = op(K::setInstanceable, "", "", "/World/A");
  on.instanceable = true;
  PrimAtomicOperation off = on;
  off.instanceable = false;
  state.recordOptimisticStructuralOperation(on);
  state.acknowledgeOptimisticStructuralOperations(std::vector{off}, 5);
  EXPECT_EQ(state.optimisticInstanceableOverrides.at("/World/A").acknowledgedRevision,
            kUnacknowledgedRevision)
      << "a flip of the other sense keeps its own mark";
  state.acknowledgeOptimisticStructuralOperations(std::vector{on}, 5);
  state.pruneForIncomingStage(std::nullopt);
  EXPECT_TRUE(state.optimisticInstanceableOverrides.empty())
      << "a stage of unknown revision clears acknowledged flags";

  state.recordOptimisticStructuralOperation(on);
  state.recordOptimisticStructuralOperation(op(K::add, "/World", "Box"));
  state.recordOptimisticStructuralOperation(op(K::deletePrim, "/World", "", "/World/B"));
  state.discardOptimisticStructuralOperations(std::vector{off});
  EXPECT_EQ(state.optimisticInstanceableOverrides.size(), 1u);
  state.discardOptimisticStructuralOperations(
      std::vector{on, op(K::add, "/World", "Box"), op(K::deletePrim, "/World", "", "/World/B")});
  EXPECT_FALSE(state.holdsEdits());
}

TEST(OptimisticOverlayStateTest, ReplayInOrderOverAnIncomingStage) {
  OptimisticOverlayState state;
  state.recordOptimisticStructuralOperation(op(K::add, "/World", "Box"));
  state.recordOptimisticStructuralOperation(op(K::reparent, "/World/Box", "Inner", "/World/B"));
  state.recordOptimisticStructuralOperation(op(K::duplicate, "/World", "A_1", "/World/A"));
  state.recordOptimisticStructuralOperation(op(K::deletePrim, "/World", "", "/World/A"));
  PrimAtomicOperation flip = op(K::setInstanceable, "", "", "/World/Box");
  flip.instanceable = true;
  state.recordOptimisticStructuralOperation(flip);
  state.createdPrimIdentities = {{"/World/A_1", 42}};

  // Once with an index of its own, once finding prims through the prepared stage it copies.
  const auto prepared = PreparedStage::prepare(worldStage());
  for (const bool throughOrigin : {false, true}) {
    StageInspection stage = copyWithRoomToGrow(prepared->stage());
    {
      LocalStage local(stage, "", {}, throughOrigin ? prepared : nullptr);
      replayOptimisticOverlay(state, local);
      EXPECT_FALSE(local.hasPrim("/World/B")) << "a moved prim no longer answers to its old path";
      EXPECT_FALSE(local.hasPrim("/World/A/Leaf")) << "nor a removed one";
      EXPECT_TRUE(local.hasPrim("/World/Box/Inner"));
    }
    EXPECT_THAT(treePaths(stage),
                ElementsAre("/World</", "/World/Box</World", "/World/Box/Inner</World/Box",
                            "/World/A_1</World", "/World/A_1/Leaf</World/A_1"))
        << "the add, the move into it, the copy made before the delete, then the delete";
    EXPECT_THAT(primPaths(stage), ElementsAre("/World", "/World/Box/Inner", "/World/Box",
                                              "/World/A_1", "/World/A_1/Leaf"));
    EXPECT_EQ(stage.prims[2].instanceable, true);
    EXPECT_EQ(stage.prims[3].entityId, 42u);
  }

  // A duplicate whose source was deleted in the meantime gives a plain new prim.
  OptimisticOverlayState late;
  late.recordOptimisticStructuralOperation(op(K::duplicate, "/World", "Z_1", "/World/Z"));
  StageInspection stage = worldStage();
  {
    LocalStage local(stage, "");
    replayOptimisticOverlay(late, local);
  }
  EXPECT_EQ(stage.prims.back().path, "/World/Z_1");
  EXPECT_EQ(stage.prims.back().components.front().type, "Transform");
}

}  // namespace
}  // namespace orvan::editor
