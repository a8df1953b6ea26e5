// Layout presets, the order of a moved component and the local effect of component operations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Authoring/ComponentEditing.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;

UsdComponent component(std::string type, std::vector<std::pair<std::string, std::string>> values) {
  UsdComponent each;
  each.type = std::move(type);
  for (auto& [name, value] : values) {
    ComponentProperty property;
    property.name = name;
    property.kind = "string";
    property.value = value;
    each.properties.push_back(property);
  }
  return each;
}

// "name=value" for each operation, in order.
std::vector<std::string> settings(const std::vector<ComponentAtomicOperation>& operations) {
  std::vector<std::string> texts;
  for (const ComponentAtomicOperation& operation : operations) {
    EXPECT_EQ(operation.kind, ComponentOperationKind::set);
    EXPECT_EQ(operation.componentType, "UiLayout");
    EXPECT_EQ(operation.entityPath, "/World/Hud/Button");
    texts.push_back(operation.propertyName + "=" + operation.value);
  }
  return texts;
}

TEST(UiLayoutPresets, AnchorsFillAndScale) {
  const UsdComponent fresh = component("UiLayout", {});
  EXPECT_THAT(settings(uiLayoutPresetOperations("/World/Hud/Button", fresh,
                                                UiLayoutPreset::bottomRight, std::nullopt)),
              ElementsAre("position=absolute", "right=24", "rightUnit=pixels", "bottom=24",
                          "bottomUnit=pixels", "left=auto", "leftUnit=auto", "top=auto",
                          "topUnit=auto", "widthUnit=pixels", "heightUnit=pixels"))
      << "a fresh layout gets 24-pixel margins on the chosen edges";

  const UsdComponent placed = component("UiLayout", {{"left", "10"}, {"top", "auto"}});
  EXPECT_THAT(settings(uiLayoutPresetOperations("/World/Hud/Button", placed,
                                                UiLayoutPreset::topLeft, std::nullopt)),
              ElementsAre("position=absolute", "left=10", "leftUnit=pixels", "top=24",
                          "topUnit=pixels", "right=auto", "rightUnit=auto", "bottom=auto",
                          "bottomUnit=auto", "widthUnit=pixels", "heightUnit=pixels"));

  EXPECT_THAT(
      settings(uiLayoutPresetOperations("/World/Hud/Button", placed, UiLayoutPreset::fill, {})),
      ElementsAre("position=absolute", "left=0", "leftUnit=pixels", "right=0", "rightUnit=pixels",
                  "top=0", "topUnit=pixels", "bottom=0", "bottomUnit=pixels", "widthUnit=auto",
                  "heightUnit=auto"));

  const UsdComponent sized =
      component("UiLayout", {{"left", "192"}, {"top", "54"}, {"width", "480"}, {"height", "auto"}});
  EXPECT_THAT(settings(uiLayoutPresetOperations("/World/Hud/Button", sized, UiLayoutPreset::scale,
                                                std::pair(1920.0, 1080.0))),
              ElementsAre("position=absolute", "left=10.0000", "leftUnit=percent", "width=25.0000",
                          "widthUnit=percent", "top=5.0000", "topUnit=percent"));
  EXPECT_TRUE(
      uiLayoutPresetOperations("/World/Hud/Button", sized, UiLayoutPreset::scale, std::nullopt)
          .empty())
      << "without a canvas the entity is left out";
  ASSERT_EQ(uiLayoutPresetChoices().size(), 6u);
  EXPECT_EQ(uiLayoutPresetChoices()[4].title, "Scale bounds with screen");
}

TEST(ComponentOrder, MovesAmongVisibleComponentsOnly) {
  const std::vector<UsdComponent> components = {component("Name", {}), component("Transform", {}),
                                                component("RenderShape", {}),
                                                component("Light", {}), component("Script", {})};
  EXPECT_EQ(reorderedComponentTypes(components, "Script", 0),
            (std::vector<std::string>{"Script", "RenderShape", "Light"}));
  EXPECT_EQ(reorderedComponentTypes(components, "RenderShape", 9),
            (std::vector<std::string>{"Light", "Script", "RenderShape"}));
  EXPECT_EQ(reorderedComponentTypes(components, "Light", 1), std::nullopt) << "already there";
  EXPECT_EQ(reorderedComponentTypes(components, "Transform", 2), std::nullopt);
  EXPECT_EQ(reorderedComponentTypes(components, "Audio", 0), std::nullopt);
}

TEST(ComponentLocalEffect, AddRemoveEnableAndSet) {
  UsdPrimDetail prim;
  prim.path = "/World/A";
  prim.components = {component("RenderShape", {{"color", "1,0,0"}})};
  UsdComponent catalogLight = component("Light", {{"intensity", "1"}});
  catalogLight.label = "Light";
  const std::vector<UsdComponent> catalog = {catalogLight};
  auto apply = [&](ComponentOperationKind kind, std::string type, std::string property = {},
                   std::string value = {}) {
    applyComponentOperationToPrim(prim,
                                  {.kind = kind,
                                   .entityPath = "/World/A",
                                   .componentType = std::move(type),
                                   .propertyName = std::move(property),
                                   .value = std::move(value)},
                                  catalog);
  };
  apply(ComponentOperationKind::add, "Light");
  apply(ComponentOperationKind::add, "Light");
  ASSERT_EQ(prim.components.size(), 2u) << "added once, from the catalogue";
  EXPECT_EQ(prim.components[1].properties.at(0).value, "1");
  EXPECT_TRUE(prim.components[1].enabled);
  apply(ComponentOperationKind::enable, "Light", {}, "false");
  EXPECT_FALSE(prim.components[1].enabled);
  apply(ComponentOperationKind::set, "RenderShape", "color", "0,0,1");
  EXPECT_EQ(prim.components[0].properties[0].value, "0,0,1");
  EXPECT_TRUE(prim.components[0].properties[0].overriddenInActiveLayer);
  apply(ComponentOperationKind::remove, "RenderShape");
  ASSERT_EQ(prim.components.size(), 1u);
  EXPECT_EQ(prim.components[0].type, "Light");
}

}  // namespace
}  // namespace orvan::editor
