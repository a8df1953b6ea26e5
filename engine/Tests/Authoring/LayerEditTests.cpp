// Layer operations: new layer files and the first-use move of the root's content, the sublayer
// lists, muting as workspace state, clearing and merging down; each undone exactly.
#include <gmock/gmock.h>

#include <gtest/gtest.h>
#include <filesystem>

#include "AuthoringFixture.h"

namespace orvan::engine::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

EditOperation layerOp(LayerOperationKind kind, std::string identifier, std::string name = "") {
  EditOperation operation;
  operation.type = OperationType::Layer;
  operation.kind = kind;
  operation.identifier = std::move(identifier);
  operation.name = std::move(name);
  return operation;
}

std::vector<std::string> stackNames(const EditableScene& scene) {
  std::vector<std::string> names;
  for (const std::string& identifier : scene.layerStack())
    names.push_back(fs::path(identifier).filename().string());
  return names;
}

const std::map<std::string, std::string> kFlatScene{{"flat.usda", R"(#usda 1.0
(
    defaultPrim = "World"
)

def Xform "World"
{
    def Cube "Box"
    {
        custom uint64 orvan:entityId = 3
        double size = 1
    }
}
)"}};

TEST(LayerEdits, TheFirstLayerMovesTheRootsContentIntoBaseAndUndoPutsItBack) {
  ProjectFolder folder(kFlatScene);
  auto scene = loadScene(folder, "flat.usda");
  const auto texts = allTexts(*scene);
  EntityIdSource ids;
  ClientHistory history;
  EditOperation add = layerOp(LayerOperationKind::Add, "", "  lighting ");
  add.moveRootContentToBaseLayer = true;
  const EditResult result = applyEdit(*scene, requestOf({add}), ids, history);
  ASSERT_TRUE(result.accepted) << result.message;
  EXPECT_EQ(result.message, "Added layer lighting.usda");
  EXPECT_THAT(stackNames(*scene), ElementsAre("flat.usda", "lighting.usda", "base.usda"));
  const std::string root = scene->layerText(folder.file("flat.usda"));
  EXPECT_THAT(root, Not(HasSubstr("def Xform")));
  EXPECT_THAT(root, HasSubstr("defaultPrim = \"World\""));
  EXPECT_THAT(scene->layerText(folder.file("base.usda")), HasSubstr("double size = 1"));
  const auto dirty = scene->dirtyLayers();
  EXPECT_THAT(dirty, ::testing::Contains(folder.file("base.usda")));
  EXPECT_THAT(dirty, ::testing::Contains(folder.file("lighting.usda")));
  // The stage composes the same prims from the new stack.
  const InspectResult inspected = inspectScene(*scene);
  const auto* box = findPrimDetail(inspected, "/World/Box");
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(box->entityId, 3u);
  // The new layers are not on disk until the write-back, yet they are offered for editing.
  ASSERT_FALSE(std::filesystem::exists(folder.file("lighting.usda")));
  for (const auto& layer : inspected.inspection.layers)
    EXPECT_TRUE(layer.writable) << layer.identifier;
  // Edits may go to the new layer.
  ASSERT_TRUE(applyEdit(*scene, requestOf({propertyOp("/World/Box", "size", "2")}, "lighting.usda"),
                        ids, history)
                  .accepted);
  EXPECT_THAT(scene->layerText(folder.file("lighting.usda")), HasSubstr("double size = 2"));

  ASSERT_TRUE(
      applyEdit(*scene, requestOf({historyOp(HistoryOperationKind::Undo)}), ids, history).accepted);
  ASSERT_TRUE(
      applyEdit(*scene, requestOf({historyOp(HistoryOperationKind::Undo)}), ids, history).accepted);
  EXPECT_EQ(allTexts(*scene), texts);
  EXPECT_EQ(scene->findLayer(folder.file("base.usda")), nullptr);  // the created file is gone
}

TEST_F(AuthoringTest, LayersAreAddedRemovedMovedAndReAdded) {
  ASSERT_TRUE(apply({layerOp(LayerOperationKind::Add, "", "extra")}).accepted);
  EXPECT_THAT(stackNames(*scene), ElementsAre("root.usda", "extra.usda", "sub.usda"));
  EditOperation down = layerOp(LayerOperationKind::Move, "extra.usda");
  down.direction = "down";
  ASSERT_TRUE(apply({down}).accepted);
  EXPECT_THAT(stackNames(*scene), ElementsAre("root.usda", "sub.usda", "extra.usda"));
  EditOperation toTop = layerOp(LayerOperationKind::Move, folder.file("extra.usda"));
  toTop.direction = "index:0";  // the place right below the root
  ASSERT_TRUE(apply({toTop}).accepted);
  EXPECT_THAT(stackNames(*scene), ElementsAre("root.usda", "extra.usda", "sub.usda"));
  // A layer operation goes ahead even when the active layer the request names is gone.
  const EditResult removed = apply({layerOp(LayerOperationKind::Remove, "sub.usda")}, "gone.usda");
  ASSERT_TRUE(removed.accepted) << removed.message;
  EXPECT_THAT(stackNames(*scene), ElementsAre("root.usda", "extra.usda"));
  // The removed file stays a layer of the project and can be added again.
  const EditResult again = apply({layerOp(LayerOperationKind::Add, "", "sub")});
  ASSERT_TRUE(again.accepted) << again.message;
  EXPECT_THAT(stackNames(*scene), ElementsAre("root.usda", "sub.usda", "extra.usda"));
  EXPECT_THAT(subText(), HasSubstr("double size = 2"));
}

TEST_F(AuthoringTest, MutingIsWorkspaceStateThatCompositionAndUndoFollow) {
  const auto texts = allTexts(*scene);
  EditOperation mute = layerOp(LayerOperationKind::Mute, "sub.usda");
  mute.muted = true;
  const EditResult result = apply({mute});
  ASSERT_TRUE(result.accepted) << result.message;
  EXPECT_EQ(allTexts(*scene), texts);  // no file changes
  EXPECT_THAT(scene->mutedLayers(), ElementsAre(folder.file("sub.usda")));
  ASSERT_EQ(result.changes.changes.size(), 1u);
  EXPECT_EQ(result.changes.changes[0].kind, ChangeKind::LayerMute);
  {
    const InspectResult inspected = inspectScene(*scene);
    EXPECT_EQ(attributeValue(*findPrimDetail(inspected, "/World/Box"), "orvan:weight"),
              "<missing>");
  }
  EXPECT_EQ(apply({propertyOp("/World/Box", "size", "3")}, "sub.usda").message,
            "Enable sub.usda before editing it");
  ASSERT_TRUE(apply({historyOp(HistoryOperationKind::Undo)}).accepted);
  EXPECT_TRUE(scene->mutedLayers().empty());
  EXPECT_EQ(attributeValue(*findPrimDetail(inspectScene(*scene), "/World/Box"), "orvan:weight"),
            "4");
}

TEST_F(AuthoringTest, ClearAndMergeDownKeepWhatTheStackComposes) {
  ASSERT_TRUE(apply({layerOp(LayerOperationKind::Add, "", "top")}).accepted);
  ASSERT_TRUE(apply({propertyOp("/World/Box", "orvan:weight", "6"),
                     propertyOp("/World/Group/Ball", "radius", "4")},
                    "top.usda")
                  .accepted);
  const auto before = allTexts(*scene);
  const EditResult merged = apply({layerOp(LayerOperationKind::MergeDown, "top.usda")});
  ASSERT_TRUE(merged.accepted) << merged.message;
  EXPECT_EQ(merged.message, "Merged top.usda into sub.usda");
  EXPECT_THAT(stackNames(*scene), ElementsAre("root.usda", "sub.usda"));
  EXPECT_THAT(subText(), HasSubstr("custom double orvan:weight = 6"));
  EXPECT_THAT(subText(), HasSubstr("double radius = 4"));
  EXPECT_THAT(subText(), HasSubstr("double size = 2"));
  EXPECT_EQ(attributeValue(*findPrimDetail(inspectScene(*scene), "/World/Box"), "orvan:weight"),
            "6");
  ASSERT_EQ(applyChangeSet(*scene, invertChangeSet(merged.changes)), std::nullopt);
  EXPECT_EQ(allTexts(*scene), before);

  // Clearing the top layer gives the weight below it back.
  ASSERT_TRUE(apply({layerOp(LayerOperationKind::Clear, "top.usda")}).accepted);
  EXPECT_THAT(scene->layerText(folder.file("top.usda")), Not(HasSubstr("over")));
  EXPECT_EQ(attributeValue(*findPrimDetail(inspectScene(*scene), "/World/Box"), "orvan:weight"),
            "4");
}

TEST_F(AuthoringTest, LayerRefusalsUseTheirOwnWords) {
  const auto texts = allTexts(*scene);
  const auto refused = [&](EditOperation operation) {
    const EditResult result = apply({std::move(operation)});
    EXPECT_FALSE(result.accepted);
    EXPECT_EQ(allTexts(*scene), texts);
    return result.message;
  };
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Add, "", "   ")), "Layer name required");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Add, "", "../escape")),
            "'../escape' cannot be a layer file name");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Add, "", "sub")),
            "The layer sub.usda is in the stack already");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Remove, "root.usda")),
            "Root layer cannot be removed");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Move, "root.usda")), "Root layer cannot be moved");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Mute, "root.usda")),
            "Root layer is always enabled");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::MergeDown, "sub.usda")),
            "No lower layer to merge into");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::MergeDown, "root.usda")),
            "No editable layer below to merge into");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Remove, "gone.usda")),
            "No layer gone.usda in the scene's layer stack");
  scene->setWritable(folder.file("sub.usda"), false);
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Clear, "sub.usda")),
            "That layer cannot be cleared");
  EXPECT_EQ(refused(layerOp(LayerOperationKind::Active, "sub.usda")), "That layer is read-only");
  EXPECT_EQ(apply({layerOp(LayerOperationKind::Active, "root.usda")}).message, "Editing root.usda");
}

}  // namespace
}  // namespace orvan::engine::testing
