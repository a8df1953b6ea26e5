// The scene in memory: the kept stage answers right after structural changes without composing
// for property edits, dirty layers are tracked for the write-back, and change sets keep to the
// project folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AuthoringFixture.h"

namespace orvan::engine::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(AuthoringTest, TheKeptStageComposesAgainOnlyWhereStructureChanged) {
  ASSERT_NE(scene->composedPrim("/World/Box"), nullptr);
  const std::size_t first = scene->compositionCount();
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(apply({propertyOp("/World/Box", "size", std::to_string(i + 2))}).accepted);
  }
  EXPECT_EQ(scene->compositionCount(), first);

  ASSERT_TRUE(apply({addOp("/World/Group", "Crate", "cube")}).accepted);
  // A question elsewhere is still answered by the kept stage ...
  EXPECT_NE(scene->composedPrim("/World/Looks/Red"), nullptr);
  EXPECT_EQ(scene->compositionCount(), first);
  // ... one about the changed subtree composes again, and sees the change.
  EXPECT_NE(scene->composedPrim("/World/Group/Crate"), nullptr);
  EXPECT_EQ(scene->compositionCount(), first + 1);

  ASSERT_TRUE(
      apply({sourceOp(PrimOperationKind::Rename, "/World/Group", "/World", "Team")}).accepted);
  EXPECT_EQ(scene->composedPrim("/World/Group/Crate"), nullptr);
  EXPECT_NE(scene->composedPrim("/World/Team/Crate"), nullptr);
  ASSERT_TRUE(apply({historyOp(HistoryOperationKind::Undo)}).accepted);
  EXPECT_NE(scene->composedPrim("/World/Group/Crate"), nullptr);
  EXPECT_EQ(scene->composedPrim("/World/Team"), nullptr);
}

TEST_F(AuthoringTest, AnEditInsideAPrimThatArcsPointAtRefreshesEveryPrimThatUsesIt) {
  // A child added to a class shows up under every prim that inherits it, not only below the
  // class: the kept stage must not answer from before for those.
  ProjectFolder classes(std::map<std::string, std::string>{{"root.usda", R"(#usda 1.0
class "Base"
{
}

def Xform "World"
{
    def Xform "A" (
        inherits = </Base>
    )
    {
        custom uint64 orvan:entityId = 1
    }
}
)"}});
  auto withClasses = loadScene(classes);
  EntityIdSource classIds;
  ClientHistory classHistory;
  ASSERT_EQ(withClasses->composedPrim("/World/A/Child"), nullptr);
  ASSERT_TRUE(
      applyEdit(*withClasses, requestOf({addOp("/Base", "Child", "cube")}), classIds, classHistory)
          .accepted);
  EXPECT_NE(withClasses->composedPrim("/World/A/Child"), nullptr);
}

TEST_F(AuthoringTest, DirtyLayersAreTheOnesChangedSinceTheyWereWritten) {
  EXPECT_THAT(scene->dirtyLayers(), IsEmpty());
  ASSERT_TRUE(apply({propertyOp("/World/Box", "size", "3")}, "sub.usda").accepted);
  EXPECT_THAT(scene->dirtyLayers(), ElementsAre(folder.file("sub.usda")));
  scene->markWritten(folder.file("sub.usda"));
  EXPECT_THAT(scene->dirtyLayers(), IsEmpty());
  ASSERT_TRUE(apply({addOp("/World", "A", "cube")}).accepted);
  EXPECT_THAT(scene->dirtyLayers(), ElementsAre(folder.file("root.usda")));
}

TEST_F(AuthoringTest, ChangeSetsCannotReachOutsideTheProjectOrDeleteTheRoot) {
  LayerChange outside;
  outside.kind = ChangeKind::LayerFile;
  outside.layer = "../elsewhere.usda";
  outside.after = "#usda 1.0\n";
  EXPECT_EQ(applyChangeSet(*scene, ChangeSet{{outside}}),
            "The layer ../elsewhere.usda is outside the project folder");
  LayerChange root;
  root.kind = ChangeKind::LayerFile;
  root.layer = "root.usda";
  root.before = rootText();
  EXPECT_EQ(applyChangeSet(*scene, ChangeSet{{root}}), "The root layer cannot be deleted");
  LayerChange unknown;
  unknown.kind = ChangeKind::Property;
  unknown.layer = "nowhere.usda";
  unknown.path = "/World";
  unknown.name = "x";
  unknown.after = "#usda 1.0\n";
  EXPECT_EQ(applyChangeSet(*scene, ChangeSet{{unknown}}),
            "The change names the layer nowhere.usda, which the scene does not hold");
  EXPECT_EQ(scene->findLayer(folder.path().parent_path().string() + "/elsewhere.usda"), nullptr);
}

TEST(EditableSceneLoad, ASceneThatDoesNotReadOrLiesOutsideTheProjectIsAnError) {
  ProjectFolder folder(std::map<std::string, std::string>{
      {"broken.usda", "#usda 1.0\ndef \"A\" {\n"}, {"ok.usda", "#usda 1.0\n"}});
  auto broken = EditableScene::load(folder.file("broken.usda"), folder.path().string());
  ASSERT_TRUE(std::holds_alternative<std::string>(broken));
  EXPECT_THAT(std::get<std::string>(broken),
              ::testing::StartsWith(folder.file("broken.usda") + ":3"));
  auto outside = EditableScene::load(folder.file("ok.usda"), (folder.path() / "inner").string());
  ASSERT_TRUE(std::holds_alternative<std::string>(outside));
  EXPECT_THAT(std::get<std::string>(outside), ::testing::HasSubstr("outside the project folder"));
}

}  // namespace
}  // namespace orvan::engine::testing

namespace orvan::engine::testing {
namespace {

// The demo project edited in memory (nothing is written to its files), in its base layer as the
// editor would be by default: a component edit, a rename
// whose material binding target elsewhere stays, a new light in the lighting sublayer, and all of
// it undone to the exact texts.
TEST(EditableSceneDemo, EditsOfTheDemoComposeAndUndoToTheExactTexts) {
  auto loaded = EditableScene::load(ORVAN_DEMO_DIR "/hello_world.usda", ORVAN_DEMO_DIR);
  ASSERT_TRUE(std::holds_alternative<std::unique_ptr<EditableScene>>(loaded))
      << std::get<std::string>(loaded);
  EditableScene& scene = *std::get<std::unique_ptr<EditableScene>>(loaded);
  const auto texts = allTexts(scene);
  EntityIdSource ids;
  ClientHistory history;
  EditOperation move;
  move.type = OperationType::Component;
  move.kind = ComponentOperationKind::Set;
  move.entityPath = "/World/RedCube";
  move.componentType = "Transform";
  move.propertyName = "translation";
  move.value = "0,0.5,0";
  const std::vector<EditRequest> edits{
      requestOf({move}, "hello_world_base.usda"),
      requestOf({sourceOp(PrimOperationKind::Rename, "/World/RedCube", "/World", "Crimson")},
                "hello_world_base.usda"),
      requestOf({addOp("/World", "Fill", "sphereLight")}, "hello_world_lighting.usda")};
  for (const EditRequest& edit : edits) {
    const EditResult result = applyEdit(scene, edit, ids, history);
    ASSERT_TRUE(result.accepted) << result.message;
  }
  const InspectResult inspected = inspectScene(scene);
  const auto* cube = findPrimDetail(inspected, "/World/Crimson");
  ASSERT_NE(cube, nullptr);
  EXPECT_EQ(cube->entityId, 1002u);
  EXPECT_EQ(componentValue(*cube, "Transform", "translation"), "0,0.5,0");
  EXPECT_EQ(componentValue(*cube, "MaterialBinding", "material"),
            "/World/OrvanAssets/Materials/GlossyRed");
  const auto* fill = findPrimDetail(inspected, "/World/Fill");
  ASSERT_NE(fill, nullptr);
  EXPECT_EQ(fill->typeName, "SphereLight");
  EXPECT_GT(fill->entityId, 1007u);
  EXPECT_TRUE(scene.dirtyLayers().size() == 2u);
  for (std::size_t i = 0; i < edits.size(); ++i) {
    ASSERT_TRUE(applyEdit(scene, requestOf({historyOp(HistoryOperationKind::Undo)}), ids, history)
                    .accepted);
  }
  EXPECT_EQ(allTexts(scene), texts);
}

}  // namespace
}  // namespace orvan::engine::testing
