// Component operations written as the component model's attributes and read back through the
// inspector's components.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AuthoringFixture.h"

namespace orvan::engine::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

EditOperation componentOp(ComponentOperationKind kind, std::string path, std::string type,
                          std::string property = "", std::string value = "") {
  EditOperation operation;
  operation.type = OperationType::Component;
  operation.kind = kind;
  operation.entityPath = std::move(path);
  operation.componentType = std::move(type);
  operation.propertyName = std::move(property);
  operation.value = std::move(value);
  return operation;
}

const editor::UsdComponent* componentOf(const editor::UsdPrimDetail& detail,
                                        std::string_view type) {
  for (const editor::UsdComponent& component : detail.components) {
    if (component.type == type)
      return &component;
  }
  return nullptr;
}

TEST_F(AuthoringTest, ComponentSetsWriteTheModelsAttributesAndReadBack) {
  const EditResult result = apply(
      {componentOp(ComponentOperationKind::Set, "/World/Group/Ball", "Transform", "rotation",
                   "0,45,0"),
       componentOp(ComponentOperationKind::Set, "/World/Group/Ball", "Transform", "translation",
                   "1,2,3"),
       componentOp(ComponentOperationKind::Set, "/World/Group/Ball", "RenderShape", "dimensions",
                   "3,3,3"),
       componentOp(ComponentOperationKind::Set, "/World/Group/Ball", "RenderShape", "color",
                   "0.5,0.25,1"),
       componentOp(ComponentOperationKind::Set, "/World/Group/Ball", "Name", "name", "Red ball"),
       componentOp(ComponentOperationKind::Set, "/World", "WorldSettings", "shadowsEnabled",
                   "false")});
  ASSERT_TRUE(result.accepted) << result.message;
  EXPECT_THAT(rootText(), HasSubstr("double3 xformOp:translate = (1, 2, 3)"));
  EXPECT_THAT(rootText(), HasSubstr("uniform token[] xformOpOrder = [\"xformOp:translate\", "
                                    "\"xformOp:rotateXYZ\"]"));
  ProjectFolder copy{std::map<std::string, std::string>{}};
  for (const InspectResult& inspected : {inspectScene(*scene), inspectWrittenBack(*scene, copy)}) {
    const auto* ball = findPrimDetail(inspected, "/World/Group/Ball");
    ASSERT_NE(ball, nullptr);
    EXPECT_EQ(componentValue(*ball, "Transform", "translation"), "1,2,3");
    EXPECT_EQ(componentValue(*ball, "Transform", "rotation"), "0,45,0");
    EXPECT_EQ(componentValue(*ball, "RenderShape", "dimensions"), "3,3,3");
    EXPECT_EQ(componentValue(*ball, "RenderShape", "color"), "0.5,0.25,1");
    EXPECT_EQ(componentValue(*ball, "Name", "name"), "Red ball");
    EXPECT_EQ(
        componentValue(*findPrimDetail(inspected, "/World"), "WorldSettings", "shadowsEnabled"),
        "false");
  }
}

TEST_F(AuthoringTest, ComponentsAreAddedWithCatalogueDefaultsSwitchedAndRemoved) {
  const EditResult added = apply(
      {componentOp(ComponentOperationKind::Add, "/World/Group", "AudioSource"),
       componentOp(ComponentOperationKind::Add, "/World/Group", "Light"),
       componentOp(ComponentOperationKind::Enable, "/World/Group", "Light", "", "false"),
       componentOp(ComponentOperationKind::Set, "/World/Group", "AudioSource", "volume", "0.25")});
  ASSERT_TRUE(added.accepted) << added.message;
  {
    const InspectResult inspected = inspectScene(*scene);
    const auto* group = findPrimDetail(inspected, "/World/Group");
    EXPECT_EQ(group->typeName, "SphereLight");
    const auto* audio = componentOf(*group, "AudioSource");
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(componentValue(*group, "AudioSource", "volume"), "0.25");
    EXPECT_EQ(componentValue(*group, "AudioSource", "spatial"), "true");
    const auto* light = componentOf(*group, "Light");
    ASSERT_NE(light, nullptr);
    EXPECT_FALSE(light->enabled);
    EXPECT_EQ(componentValue(*group, "Light", "radius"), "0.5");
  }
  // The author's order of the components is kept and shown.
  ASSERT_TRUE(apply({componentOp(ComponentOperationKind::Reorder, "/World/Group", "", "",
                                 "AudioSource,Light")})
                  .accepted);
  {
    const InspectResult inspected = inspectScene(*scene);
    std::vector<std::string> order;
    for (const editor::UsdComponent& component :
         findPrimDetail(inspected, "/World/Group")->components)
      order.push_back(component.type);
    EXPECT_THAT(order, ::testing::ElementsAre("Name", "Transform", "AudioSource", "Light"));
  }
  EXPECT_EQ(
      apply({componentOp(ComponentOperationKind::Reorder, "/World/Group", "", "", "Light,Gravity")})
          .message,
      "Unknown component 'Gravity'");
  const EditResult removed =
      apply({componentOp(ComponentOperationKind::Remove, "/World/Group", "AudioSource"),
             componentOp(ComponentOperationKind::Remove, "/World/Group", "Light")});
  ASSERT_TRUE(removed.accepted) << removed.message;
  const InspectResult inspected = inspectScene(*scene);
  const auto* group = findPrimDetail(inspected, "/World/Group");
  EXPECT_EQ(group->typeName, "Xform");
  EXPECT_EQ(componentOf(*group, "AudioSource"), nullptr);
  EXPECT_EQ(componentOf(*group, "Light"), nullptr);
  EXPECT_THAT(rootText(), Not(HasSubstr("orvan:audio")));
}

TEST_F(AuthoringTest, ComponentResetRemovesTheLayersOpinionAndRefusalsChangeNothing) {
  ASSERT_TRUE(apply({componentOp(ComponentOperationKind::Set, "/World/Box", "RenderShape",
                                 "dimensions", "4,4,4")},
                    "sub.usda")
                  .accepted);
  EXPECT_THAT(subText(), HasSubstr("double size = 4"));
  ASSERT_TRUE(
      apply({componentOp(ComponentOperationKind::Reset, "/World/Box", "RenderShape", "dimensions")},
            "sub.usda")
          .accepted);
  EXPECT_THAT(subText(), Not(HasSubstr("size")));

  const auto texts = allTexts(*scene);
  const auto refused = [&](EditOperation operation) {
    const EditResult result = apply({std::move(operation)});
    EXPECT_FALSE(result.accepted);
    EXPECT_EQ(allTexts(*scene), texts);
    return result.message;
  };
  EXPECT_EQ(refused(componentOp(ComponentOperationKind::Set, "/World/Box", "Transform",
                                "translation", "1,2")),
            "'1,2' is not a double3 value for xformOp:translate");
  EXPECT_EQ(
      refused(componentOp(ComponentOperationKind::Set, "/World/Box", "Transform", "skew", "1")),
      "Transform has no property skew");
  EXPECT_EQ(refused(componentOp(ComponentOperationKind::Add, "/World/Box", "Gravity")),
            "Unknown component 'Gravity'");
  EXPECT_EQ(refused(componentOp(ComponentOperationKind::Add, "/World/Box", "RenderShape")),
            "/World/Box has Render Shape already");
  EXPECT_EQ(
      refused(componentOp(ComponentOperationKind::Enable, "/World/Box", "Transform", "", "false")),
      "Transform cannot be switched off");
  EXPECT_EQ(refused(componentOp(ComponentOperationKind::Set, "/World/Looks", "Transform",
                                "translation", "1,2,3")),
            "/World/Looks is not an entity");
  EXPECT_EQ(refused(componentOp(ComponentOperationKind::Set, "/World/Lamp/Bulb", "Transform",
                                "translation", "1,2,3")),
            "Part of an instance \xE2\x80\x94 disable Instance on Lamp to edit it");
  EXPECT_EQ(refused(componentOp(ComponentOperationKind::Set, "/World/Box", "MaterialBinding",
                                "material", "/World/Nowhere")),
            "No prim at /World/Nowhere");
}

}  // namespace
}  // namespace orvan::engine::testing
