// usdProperty set and reset, change sets (text form, inversion, replay), and per-client undo.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Authoring/ValueText.h"
#include "AuthoringFixture.h"

namespace orvan::engine::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(LayerValueText, ValuesTakeTheFormOfTheirDeclaredType) {
  EXPECT_EQ(layerValueText("double", "1.50"), "1.5");
  EXPECT_EQ(layerValueText("double3", "1, 2,3"), "(1, 2, 3)");
  EXPECT_EQ(layerValueText("color3f[]", "0.8,0.2,0.2"), "[(0.8, 0.2, 0.2)]");
  EXPECT_EQ(layerValueText("float2[]", "1,2,3,4"), "[(1, 2), (3, 4)]");
  EXPECT_EQ(layerValueText("bool", "true"), "true");
  EXPECT_EQ(layerValueText("bool", "0"), "false");
  EXPECT_EQ(layerValueText("int", "-3"), "-3");
  EXPECT_EQ(layerValueText("uint64", "18446744073709551615"), "18446744073709551615");
  EXPECT_EQ(layerValueText("token", "Y"), "\"Y\"");
  EXPECT_EQ(layerValueText("string", "say \"hi\", twice"), "\"say \\\"hi\\\", twice\"");
  EXPECT_EQ(layerValueText("asset", "textures/wood.png"), "@textures/wood.png@");
  EXPECT_EQ(layerValueText("token[]", "a,b"), "[\"a\", \"b\"]");
  EXPECT_EQ(layerValueText("matrix2d", "1,0,0,1"), "((1, 0), (0, 1))");
  EXPECT_EQ(layerValueText("rel", "/World/A"), "</World/A>");
  EXPECT_EQ(layerValueText("rel", "</World/A>,/World/B"), "[</World/A>, </World/B>]");
  EXPECT_EQ(layerValueText("double", "abc"), std::nullopt);
  EXPECT_EQ(layerValueText("double", "1e999"), std::nullopt);
  EXPECT_EQ(layerValueText("double3", "1,2"), std::nullopt);
  EXPECT_EQ(layerValueText("int", "1.5"), std::nullopt);
  EXPECT_EQ(layerValueText("uint", "-1"), std::nullopt);
  EXPECT_EQ(layerValueText("bool", "maybe"), std::nullopt);
  EXPECT_EQ(layerValueText("color3f[]", "1,2"), std::nullopt);
  EXPECT_EQ(layerValueText("rel", "World/A"), std::nullopt);
  EXPECT_EQ(layerValueText("opaque", "1"), std::nullopt);
}

TEST_F(AuthoringTest, PropertySetChangesTheAuthoredValueInPlaceAndKeepsItsMetadata) {
  ASSERT_TRUE(apply({propertyOp("/World/Box", "primvars:displayColor", "0.1,0.2,0.3")}).accepted);
  ASSERT_TRUE(apply({propertyOp("/World/Box", "xformOp:translate", "4,5,6")}).accepted);
  EXPECT_THAT(rootText(), HasSubstr("color3f[] primvars:displayColor = [(0.1, 0.2, 0.3)]"));
  EXPECT_THAT(rootText(), HasSubstr("double3 xformOp:translate = (4, 5, 6)"));
  ProjectFolder copy{std::map<std::string, std::string>{}};
  for (const InspectResult& inspected : {inspectScene(*scene), inspectWrittenBack(*scene, copy)}) {
    const auto* box = findPrimDetail(inspected, "/World/Box");
    EXPECT_EQ(componentValue(*box, "Transform", "translation"), "4,5,6");
    EXPECT_EQ(componentValue(*box, "RenderShape", "color"), "0.1,0.2,0.3");
  }
}

TEST_F(AuthoringTest, PropertySetInASublayerMakesAnOverWithTheComposedDeclaration) {
  const EditResult result = apply({propertyOp("/World/Group/Ball", "radius", "2"),
                                   propertyOp("/World/Box", "material:binding", "/World/Group"),
                                   propertyOp("/World/Box", "orvan:weight", "9")},
                                  "sub.usda");
  ASSERT_TRUE(result.accepted) << result.message;
  EXPECT_THAT(subText(), HasSubstr("over \"Group\""));
  EXPECT_THAT(subText(), HasSubstr("double radius = 2"));
  EXPECT_THAT(subText(), HasSubstr("rel material:binding = </World/Group>"));
  EXPECT_THAT(subText(), HasSubstr("custom double orvan:weight = 9"));
  EXPECT_THAT(rootText(), HasSubstr("double radius = 0.5"));
  // The root layer is the stronger one: where it has a say, it still wins.
  const InspectResult inspected = inspectScene(*scene);
  EXPECT_EQ(
      componentValue(*findPrimDetail(inspected, "/World/Group/Ball"), "RenderShape", "dimensions"),
      "1,1,1");
  EXPECT_EQ(attributeValue(*findPrimDetail(inspected, "/World/Box"), "orvan:weight"), "9");

  ASSERT_TRUE(apply({propertyResetOp("/World/Group/Ball", "radius")}, "sub.usda").accepted);
  EXPECT_THAT(subText(), Not(HasSubstr("radius")));
  const EditResult again = apply({propertyResetOp("/World/Group/Ball", "radius")}, "sub.usda");
  EXPECT_TRUE(again.accepted);
  EXPECT_TRUE(again.changes.empty());
}

TEST_F(AuthoringTest, PropertyRefusalsNameTheProblem) {
  const auto texts = allTexts(*scene);
  EXPECT_EQ(apply({propertyOp("/World/Box", "size", "big")}).message,
            "'big' is not a double value for size");
  EXPECT_EQ(apply({propertyOp("/World/Box", "xformOp:translate", "1,2")}).message,
            "'1,2' is not a double3 value for xformOp:translate");
  EXPECT_EQ(apply({propertyOp("/World/Box", "nothing", "1")}).message,
            "/World/Box has no property nothing");
  EXPECT_EQ(apply({propertyOp("/World/Nope", "size", "1")}).message, "No prim at /World/Nope");
  EXPECT_EQ(apply({propertyOp("/World/Box", "bad name", "1")}).message,
            "'bad name' is not a valid property name");
  EXPECT_EQ(allTexts(*scene), texts);
}

TEST_F(AuthoringTest, ChangeSetsRoundTripAsTextAndTheirInverseRestoresTheExactText) {
  const auto texts = allTexts(*scene);
  EditOperation duplicate =
      sourceOp(PrimOperationKind::Duplicate, "/World/Group", "/World", "Group_1");
  const EditResult result =
      apply({addOp("/World", "Crate", "cube"), propertyOp("/World/Crate", "size", "3"),
             propertyOp("/World/Box", "size", "5"), duplicate,
             sourceOp(PrimOperationKind::Rename, "/World/Looks/Red", "/World/Looks", "Crimson"),
             sourceOp(PrimOperationKind::Delete, "/World/Group"),
             sourceOp(PrimOperationKind::SetInstanceable, "/World/Lamp"),
             propertyOp("/World/Group_1/Ball", "radius", "7")},
            "sub.usda");
  ASSERT_TRUE(result.accepted) << result.message;
  const auto edited = allTexts(*scene);
  ASSERT_NE(edited, texts);

  const std::string encoded = encodeChangeSet(result.changes);
  const auto decoded = decodeChangeSet(encoded);
  ASSERT_TRUE(std::holds_alternative<ChangeSet>(decoded)) << std::get<std::string>(decoded);
  EXPECT_EQ(std::get<ChangeSet>(decoded), result.changes);
  EXPECT_EQ(encodeChangeSet(std::get<ChangeSet>(decoded)), encoded);

  ASSERT_EQ(applyChangeSet(*scene, invertChangeSet(result.changes)), std::nullopt);
  EXPECT_EQ(allTexts(*scene), texts);

  // Replaying the decoded text on a freshly read scene gives the same layers as the edit did.
  const auto fresh = loadScene(folder);
  ASSERT_EQ(applyChangeSet(*fresh, std::get<ChangeSet>(decoded)), std::nullopt);
  EXPECT_EQ(allTexts(*fresh), edited);
  EXPECT_EQ(fresh->maxEntityId(), 13u);
}

TEST_F(AuthoringTest, AChangeSetThatNoLongerFitsIsRefusedWholeAndChangesNothing) {
  const EditResult first = apply({propertyOp("/World/Box", "size", "5")});
  ASSERT_TRUE(first.accepted);
  const auto texts = allTexts(*scene);
  // Applying the same change again: the size is no longer what the change expects.
  ChangeSet twice;
  twice.changes = {first.changes.changes[0]};
  LayerChange add;
  add.kind = ChangeKind::Property;
  add.layer = "root.usda";
  add.path = "/World/Group";
  add.name = "extra";
  add.after = "#usda 1.0\n\nover \"_\"\n{\n    double extra = 1\n}\n";
  twice.changes.insert(twice.changes.begin(), add);
  const auto error = applyChangeSet(*scene, twice);
  ASSERT_TRUE(error.has_value());
  EXPECT_THAT(*error, HasSubstr("has changed since"));
  EXPECT_EQ(allTexts(*scene), texts);

  for (const std::string_view garbage :
       {"", "{}", "{\"version\": 1, \"changes\": [{\"kind\": \"explode\", \"layer\": \"a\"}]}",
        "{\"version\": 2, \"changes\": []}",
        "{\"version\": 1, \"changes\": [{\"kind\": \"property\", \"layer\": \"a\"}]}"}) {
    EXPECT_TRUE(std::holds_alternative<std::string>(decodeChangeSet(garbage))) << garbage;
  }
  LayerChange unreadable = add;
  unreadable.after = "#usda 1.0\nover \"_\" {\n double extra = (\n}\n";
  EXPECT_TRUE(applyChangeSet(*scene, ChangeSet{{unreadable}}).has_value());
  EXPECT_EQ(allTexts(*scene), texts);
}

TEST_F(AuthoringTest, PlanningGivesTheChangesAndLeavesTheSceneAsItWas) {
  const auto texts = allTexts(*scene);
  const EditResult planned = planEdit(*scene, requestOf({addOp("/World", "Crate", "cube")}), ids);
  ASSERT_TRUE(planned.accepted);
  EXPECT_EQ(allTexts(*scene), texts);
  EXPECT_EQ(scene->composedPrim("/World/Crate"), nullptr);
  ASSERT_EQ(applyChangeSet(*scene, planned.changes), std::nullopt);
  EXPECT_NE(scene->composedPrim("/World/Crate"), nullptr);
}

TEST_F(AuthoringTest, UndoRevertsOnlyTheClientsOwnEditAndRedoBringsItBack) {
  const auto texts = allTexts(*scene);
  ASSERT_TRUE(apply({propertyOp("/World/Box", "size", "5")}, "", "a").accepted);
  ASSERT_TRUE(apply({addOp("/World", "Theirs", "sphere")}, "", "b").accepted);
  const auto withBoth = allTexts(*scene);

  const EditResult undo = apply({historyOp(HistoryOperationKind::Undo)}, "", "a");
  ASSERT_TRUE(undo.accepted) << undo.message;
  EXPECT_EQ(undo.message, "Undid Set size");
  EXPECT_THAT(rootText(), HasSubstr("double size = 1"));
  EXPECT_NE(scene->composedPrim("/World/Theirs"), nullptr);  // b's edit stays

  const EditResult redo = apply({historyOp(HistoryOperationKind::Redo)}, "", "a");
  ASSERT_TRUE(redo.accepted) << redo.message;
  EXPECT_EQ(allTexts(*scene), withBoth);

  // b undoes its add; a has nothing left to redo and undoes its own edit again.
  ASSERT_TRUE(apply({historyOp(HistoryOperationKind::Undo)}, "", "b").accepted);
  EXPECT_EQ(scene->composedPrim("/World/Theirs"), nullptr);
  EXPECT_EQ(apply({historyOp(HistoryOperationKind::Redo)}, "", "a").message, "Nothing to redo");
  ASSERT_TRUE(apply({historyOp(HistoryOperationKind::Undo)}, "", "a").accepted);
  EXPECT_EQ(allTexts(*scene), texts);
  EXPECT_EQ(apply({historyOp(HistoryOperationKind::Undo)}, "", "a").message, "Nothing to undo");
}

TEST_F(AuthoringTest, UndoIsRefusedWhenAnotherClientChangedTheSameThingSince) {
  ASSERT_TRUE(apply({propertyOp("/World/Box", "size", "5")}, "", "a").accepted);
  ASSERT_TRUE(apply({propertyOp("/World/Box", "size", "6")}, "", "b").accepted);
  const auto texts = allTexts(*scene);
  const EditResult undo = apply({historyOp(HistoryOperationKind::Undo)}, "", "a");
  EXPECT_FALSE(undo.accepted);
  EXPECT_EQ(undo.message, "Cannot undo Set size: another edit has changed the same thing since");
  EXPECT_EQ(allTexts(*scene), texts);
  EXPECT_EQ(history.undoDepth("a"), 1u);
  // A new edit clears the client's redo stack.
  ASSERT_TRUE(apply({historyOp(HistoryOperationKind::Undo)}, "", "b").accepted);
  EXPECT_EQ(history.redoDepth("b"), 1u);
  ASSERT_TRUE(apply({propertyOp("/World/Box", "size", "8")}, "", "b").accepted);
  EXPECT_EQ(history.redoDepth("b"), 0u);
  EXPECT_EQ(
      apply({historyOp(HistoryOperationKind::Undo), historyOp(HistoryOperationKind::Redo)}, "", "b")
          .message,
      "Undo and redo go alone, not inside a batch");
}

TEST_F(AuthoringTest, UndoOfStructuralEditsRestoresPrimsAndTheirIds) {
  const auto texts = allTexts(*scene);
  ASSERT_TRUE(apply({sourceOp(PrimOperationKind::Delete, "/World/Group")}).accepted);
  ASSERT_TRUE(
      apply({sourceOp(PrimOperationKind::Rename, "/World/Box", "/World", "Crate")}).accepted);
  ASSERT_TRUE(apply({historyOp(HistoryOperationKind::Undo)}).accepted);
  ASSERT_TRUE(apply({historyOp(HistoryOperationKind::Undo)}).accepted);
  EXPECT_EQ(allTexts(*scene), texts);
  const InspectResult ballInspected = inspectScene(*scene);
  const auto* ball = findPrimDetail(ballInspected, "/World/Group/Ball");
  ASSERT_NE(ball, nullptr);
  EXPECT_EQ(ball->entityId, 9u);
  // Ids handed out stay taken after an undo, so a new entity never reuses one.
  ASSERT_TRUE(apply({addOp("/World", "A", "cube")}).accepted);
  ASSERT_TRUE(apply({historyOp(HistoryOperationKind::Undo)}).accepted);
  const EditResult again = apply({addOp("/World", "A", "cube")});
  ASSERT_TRUE(again.accepted);
  EXPECT_EQ(again.createdPrims[0].entityId, 12u);
}

}  // namespace
}  // namespace orvan::engine::testing
