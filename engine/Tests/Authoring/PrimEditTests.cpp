// Prim operations applied to the fixture scene, read back through the inspector, both from the
// layers in memory and from their written texts read again from disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AuthoringFixture.h"

namespace orvan::engine::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST_F(AuthoringTest, AddMakesATypedEntityWithANewIdAndReadsBackFromMemoryAndFromDisk) {
  EditOperation add = addOp("/World/Group", "Crate", "cube");
  add.assetName = "Wooden crate";
  add.initialTranslation = std::vector<double>{12, 1, 0, 99};  // world space, the fourth unused
  const EditResult result = apply({add});
  ASSERT_TRUE(result.accepted) << result.message;
  EXPECT_EQ(result.message, "Added Crate");
  ASSERT_EQ(result.createdPrims.size(), 1u);
  EXPECT_EQ(result.createdPrims[0].path, "/World/Group/Crate");
  EXPECT_EQ(result.createdPrims[0].entityId, 11u);  // above the scene's largest id, 10
  ASSERT_EQ(result.primOperations.size(), 1u);
  EXPECT_EQ(result.primOperations[0],
            (PrimOperationRecord{"add", "/World/Group", "Crate", "cube", ""}));

  ProjectFolder copy{std::map<std::string, std::string>{}};
  for (const InspectResult& inspected : {inspectScene(*scene), inspectWrittenBack(*scene, copy)}) {
    const editor::UsdPrimDetail* crate = findPrimDetail(inspected, "/World/Group/Crate");
    ASSERT_NE(crate, nullptr);
    EXPECT_EQ(crate->typeName, "Cube");
    EXPECT_EQ(crate->entityId, 11u);
    EXPECT_EQ(componentValue(*crate, "Name", "name"), "Wooden crate");
    // The group sits at x = 10, so a world x of 12 is 2 inside it.
    EXPECT_EQ(componentValue(*crate, "Transform", "translation"), "2,1,0");
    EXPECT_EQ(componentValue(*crate, "RenderShape", "dimensions"), "1,1,1");
    EXPECT_THAT(crate->badges, ::testing::Contains("entity"));
  }
}

TEST_F(AuthoringTest, EachPrimitiveKindMakesItsTypeAndUnknownKindsAreRefused) {
  const std::vector<std::pair<std::string, std::string>> kinds{{"sphere", "Sphere"},
                                                               {"cylinder", "Cylinder"},
                                                               {"capsule", "Capsule"},
                                                               {"plane", "Plane"},
                                                               {"empty", "Xform"},
                                                               {"scope", "Scope"},
                                                               {"distantLight", "DistantLight"},
                                                               {"rect-light", "RectLight"}};
  std::vector<EditOperation> operations;
  for (std::size_t i = 0; i < kinds.size(); ++i)
    operations.push_back(addOp("/World", "P" + std::to_string(i), kinds[i].first));
  const EditResult result = apply(operations);
  ASSERT_TRUE(result.accepted) << result.message;
  EXPECT_EQ(result.message, "Applied 8 operations");
  const InspectResult inspected = inspectScene(*scene);
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    const auto* prim = findPrimDetail(inspected, "/World/P" + std::to_string(i));
    ASSERT_NE(prim, nullptr) << kinds[i].first;
    EXPECT_EQ(prim->typeName, kinds[i].second);
    EXPECT_EQ(prim->entityId, 11u + i);
  }
  const std::string before = rootText();
  const EditResult unknown = apply({addOp("/World", "Q", "teapot")});
  EXPECT_FALSE(unknown.accepted);
  EXPECT_EQ(unknown.message, "Unknown primitive kind 'teapot'");
  EXPECT_EQ(rootText(), before);
}

TEST_F(AuthoringTest, ReferenceAndPayloadBringTheAssetIn) {
  EditOperation reference = primOp(PrimOperationKind::Reference);
  reference.parentPath = "/World";
  reference.primName = "Lamp2";
  reference.referenceURI = "./asset.usda";
  EditOperation payload = primOp(PrimOperationKind::Payload);
  payload.parentPath = "/World";
  payload.primName = "Lamp3";
  payload.payloadURI = "./asset.usda";
  payload.assetName = "Street lamp";
  const EditResult result = apply({reference, payload});
  ASSERT_TRUE(result.accepted) << result.message;
  const InspectResult inspected = inspectScene(*scene);
  ASSERT_NE(findPrimDetail(inspected, "/World/Lamp2/Bulb"), nullptr);
  ASSERT_NE(findPrimDetail(inspected, "/World/Lamp3/Bulb"), nullptr);
  EXPECT_EQ(findPrimDetail(inspected, "/World/Lamp2")->typeName, "Xform");
  EXPECT_THAT(findPrimDetail(inspected, "/World/Lamp3")->badges, ::testing::Contains("payload"));
  EXPECT_EQ(componentValue(*findPrimDetail(inspected, "/World/Lamp3"), "Name", "name"),
            "Street lamp");
}

TEST_F(AuthoringTest, RefusalsChangeNothingAndSayWhy) {
  const auto texts = allTexts(*scene);
  const auto refused = [&](std::vector<EditOperation> operations, std::string activeLayer = "") {
    const EditResult result = apply(std::move(operations), std::move(activeLayer));
    EXPECT_FALSE(result.accepted);
    EXPECT_TRUE(result.changes.empty());
    EXPECT_EQ(allTexts(*scene), texts) << result.message;
    return result.message;
  };
  EXPECT_EQ(refused({addOp("/World/Gone", "A", "cube")}), "No prim at /World/Gone");
  EXPECT_EQ(refused({sourceOp(PrimOperationKind::Delete, "/World/Gone")}),
            "No prim at /World/Gone");
  EXPECT_EQ(refused({addOp("/World", "Box", "cube")}), "Name already exists: Box");
  EXPECT_EQ(refused({addOp("/World", "2 fast!", "cube")}), "'2 fast!' is not a valid prim name");
  EXPECT_EQ(refused({addOp("/World", "", "cube")}), "Prim name cannot be empty");
  EXPECT_EQ(refused({sourceOp(PrimOperationKind::Rename, "/World/Box", "/World", "Group")}),
            "Name already exists: Group");
  EXPECT_EQ(refused({addOp("/World/Lamp", "Inside", "cube")}),
            "Can't add inside an instance \xE2\x80\x94 disable Instance on Lamp first");
  EXPECT_EQ(refused({sourceOp(PrimOperationKind::Delete, "/World/Lamp/Bulb")}),
            "Part of an instance \xE2\x80\x94 disable Instance on Lamp to edit it");
  EXPECT_EQ(refused({propertyOp("/World/Lamp/Bulb", "radius", "2")}),
            "Part of an instance \xE2\x80\x94 disable Instance on Lamp to edit it");
  EXPECT_EQ(refused({sourceOp(PrimOperationKind::Reparent, "/World/Group", "/World/Group/Ball",
                              "Group")}),
            "Cannot move /World/Group into itself");
  EXPECT_EQ(refused({sourceOp(PrimOperationKind::Delete, "/World")}), "/World cannot be deleted");
  EXPECT_EQ(refused({addOp("/World", "A", "cube")}, "missing.usda"),
            "No layer missing.usda in the scene's layer stack");
  scene->setWritable(folder.file("sub.usda"), false);
  EXPECT_EQ(refused({propertyOp("/World/Box", "size", "3")}, "sub.usda"),
            "sub.usda is not writable");
  // Moving a prim moves it in every layer that holds it: a read-only one stops the move.
  EXPECT_EQ(refused({sourceOp(PrimOperationKind::Rename, "/World/Box", "/World", "Crate")}),
            "sub.usda is not writable");
}

TEST_F(AuthoringTest, ABatchWhoseThirdOperationFailsAppliesNothing) {
  const auto texts = allTexts(*scene);
  const EditResult result =
      apply({addOp("/World", "A", "cube"), propertyOp("/World/A", "size", "4"),
             sourceOp(PrimOperationKind::Delete, "/World/Gone"), addOp("/World", "B", "cube")});
  EXPECT_FALSE(result.accepted);
  EXPECT_EQ(result.message, "No prim at /World/Gone");
  EXPECT_TRUE(result.createdPrims.empty());
  EXPECT_EQ(allTexts(*scene), texts);
  EXPECT_EQ(scene->composedPrim("/World/A"), nullptr);
  EXPECT_EQ(history.undoDepth("client-a"), 0u);
}

TEST_F(AuthoringTest, DeleteRemovesTheSpecAndSwitchesOffWhatOtherLayersStillMake) {
  ASSERT_TRUE(apply({sourceOp(PrimOperationKind::Delete, "/World/Group")}).accepted);
  EXPECT_EQ(scene->composedPrim("/World/Group"), nullptr);
  EXPECT_EQ(scene->composedPrim("/World/Group/Ball"), nullptr);
  EXPECT_THAT(rootText(), ::testing::Not(HasSubstr("Group")));
  // The box also has an opinion in sub.usda: deleting it from the root leaves it switched off.
  ASSERT_TRUE(apply({sourceOp(PrimOperationKind::Delete, "/World/Box")}).accepted);
  const InspectResult inspected = inspectScene(*scene);
  const auto* box = findPrimDetail(inspected, "/World/Box");
  ASSERT_NE(box, nullptr);
  EXPECT_FALSE(box->active);
  EXPECT_THAT(rootText(), HasSubstr("active = false"));
  // A referenced asset's part is switched off too, in an over of the active layer.
  ASSERT_TRUE(apply({sourceOp(PrimOperationKind::SetInstanceable, "/World/Lamp")}).accepted);
  ASSERT_TRUE(apply({sourceOp(PrimOperationKind::Delete, "/World/Lamp/Bulb")}, "sub.usda").accepted)
      << rootText();
  const InspectResult bulbInspected = inspectScene(*scene);
  const auto* bulb = findPrimDetail(bulbInspected, "/World/Lamp/Bulb");
  ASSERT_NE(bulb, nullptr);
  EXPECT_FALSE(bulb->active);
}

TEST_F(AuthoringTest, ResetClearsTheLayersOwnOpinionsAndKeepsWhatOthersSay) {
  // sub.usda overrides the box's size; resetting the box there leaves the root's definition.
  const EditResult reset = apply({sourceOp(PrimOperationKind::Reset, "/World/Box")}, "sub.usda");
  ASSERT_TRUE(reset.accepted) << reset.message;
  EXPECT_EQ(reset.message, "Reset /World/Box");
  EXPECT_THAT(subText(), ::testing::Not(HasSubstr("Box")));
  const InspectResult boxInspected = inspectScene(*scene);
  const auto* box = findPrimDetail(boxInspected, "/World/Box");
  EXPECT_EQ(componentValue(*box, "RenderShape", "dimensions"), "1,1,1");
  // Only the root defines the box: there is nothing to reset there, and nothing changes.
  const std::string before = rootText();
  const EditResult nothing = apply({sourceOp(PrimOperationKind::Reset, "/World/Box")});
  EXPECT_TRUE(nothing.accepted);
  EXPECT_EQ(nothing.message, "Nothing to reset on /World/Box");
  EXPECT_EQ(rootText(), before);
}

TEST_F(AuthoringTest, ResetOfAnOverWithChildrenKeepsTheChildren) {
  ASSERT_TRUE(apply({propertyOp("/World/Group", "xformOp:translate", "0,5,0"),
                     propertyOp("/World/Group/Ball", "radius", "3")},
                    "sub.usda")
                  .accepted);
  EXPECT_THAT(subText(), HasSubstr("double3 xformOp:translate = (0, 5, 0)"));
  ASSERT_TRUE(apply({sourceOp(PrimOperationKind::Reset, "/World/Group")}, "sub.usda").accepted);
  EXPECT_THAT(subText(), ::testing::Not(HasSubstr("xformOp:translate")));
  EXPECT_THAT(subText(), HasSubstr("over \"Ball\""));
  EXPECT_THAT(subText(), HasSubstr("double radius = 3"));
  EXPECT_NE(scene->composedPrim("/World/Group/Ball"), nullptr);
}

TEST_F(AuthoringTest, DuplicateCopiesTheSubtreeWithFreshIdsAndItsOwnTargets) {
  EditOperation duplicate =
      sourceOp(PrimOperationKind::Duplicate, "/World/Group", "/World", "Group_1");
  const EditResult result = apply({duplicate});
  ASSERT_TRUE(result.accepted) << result.message;
  ASSERT_EQ(result.createdPrims.size(), 2u);
  EXPECT_EQ(result.createdPrims[0].path, "/World/Group_1");
  EXPECT_EQ(result.createdPrims[1].path, "/World/Group_1/Ball");
  EXPECT_EQ(result.createdPrims[0].entityId, 11u);
  EXPECT_EQ(result.createdPrims[1].entityId, 12u);
  const InspectResult inspected = inspectScene(*scene);
  EXPECT_EQ(findPrimDetail(inspected, "/World/Group_1")->entityId, 11u);
  EXPECT_EQ(findPrimDetail(inspected, "/World/Group_1/Ball")->entityId, 12u);
  EXPECT_EQ(findPrimDetail(inspected, "/World/Group/Ball")->entityId, 9u);
  EXPECT_EQ(attributeValue(*findPrimDetail(inspected, "/World/Group_1"), "orvan:target"),
            "</World/Group_1/Ball>");
  EXPECT_EQ(attributeValue(*findPrimDetail(inspected, "/World/Group"), "orvan:target"),
            "</World/Group/Ball>");
}

TEST_F(AuthoringTest, DuplicateMergesWhatEveryLayerSaysOfTheOriginal) {
  // The box's weight comes from sub.usda, its size from the root (the stronger layer): a copy
  // made in the root says both, each as the stack composed it.
  const EditResult result =
      apply({sourceOp(PrimOperationKind::Duplicate, "/World/Box", "/World", "Box_1")});
  ASSERT_TRUE(result.accepted) << result.message;
  const InspectResult inspected = inspectScene(*scene);
  const auto* copy = findPrimDetail(inspected, "/World/Box_1");
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->typeName, "Cube");
  EXPECT_EQ(attributeValue(*copy, "orvan:weight"), "4");
  EXPECT_EQ(componentValue(*copy, "RenderShape", "dimensions"), "1,1,1");
  EXPECT_EQ(componentValue(*copy, "MaterialBinding", "material"), "/World/Looks/Red");
  EXPECT_THAT(subText(), ::testing::Not(HasSubstr("Box_1")));
}

TEST_F(AuthoringTest, RenameAndReparentMoveThePrimInEveryLayerAndRewireTargets) {
  const EditResult rename =
      apply({sourceOp(PrimOperationKind::Rename, "/World/Looks/Red", "/World/Looks", "Crimson")});
  ASSERT_TRUE(rename.accepted) << rename.message;
  EXPECT_EQ(rename.primOperations[0].kind, "reparent");
  EXPECT_THAT(rootText(), HasSubstr("rel material:binding = </World/Looks/Crimson>"));
  // The box has authored prims in both layers; both move, and the ball's target follows its group.
  const EditResult move =
      apply({sourceOp(PrimOperationKind::Reparent, "/World/Box", "/World/Group", "Box"),
             sourceOp(PrimOperationKind::Reparent, "/World/Group", "/World/Looks", "Group")});
  ASSERT_TRUE(move.accepted) << move.message;
  ProjectFolder copy{std::map<std::string, std::string>{}};
  for (const InspectResult& inspected : {inspectScene(*scene), inspectWrittenBack(*scene, copy)}) {
    EXPECT_EQ(findPrimDetail(inspected, "/World/Box"), nullptr);
    const auto* box = findPrimDetail(inspected, "/World/Looks/Group/Box");
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->entityId, 7u);
    EXPECT_EQ(attributeValue(*box, "orvan:weight"), "4");  // sub.usda's over moved too
    EXPECT_EQ(componentValue(*box, "MaterialBinding", "material"), "/World/Looks/Crimson");
    EXPECT_EQ(attributeValue(*findPrimDetail(inspected, "/World/Looks/Group"), "orvan:target"),
              "</World/Looks/Group/Ball>");
  }
  EXPECT_THAT(subText(), HasSubstr("over \"Looks\""));
}

TEST_F(AuthoringTest, SetInstanceableFlipsTheFlagAndProxiesFollow) {
  EditOperation off = sourceOp(PrimOperationKind::SetInstanceable, "/World/Lamp");
  off.instanceable = false;
  ASSERT_TRUE(apply({off}).accepted);
  EXPECT_THAT(rootText(), HasSubstr("instanceable = false"));
  // No longer an instance: its parts may be edited.
  const EditResult edit = apply({propertyOp("/World/Lamp/Bulb", "radius", "0.3")});
  ASSERT_TRUE(edit.accepted) << edit.message;
  const InspectResult bulbInspected = inspectScene(*scene);
  const auto* bulb = findPrimDetail(bulbInspected, "/World/Lamp/Bulb");
  EXPECT_EQ(attributeValue(*bulb, "radius"), "0.3");
  EXPECT_FALSE(bulb->instanceProxy.value_or(false));
}

}  // namespace
}  // namespace orvan::engine::testing
