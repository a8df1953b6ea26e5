// Layout presets, the order of a moved component and the local effect of component operations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Authoring/ComponentEditing.h"
#include "Authoring/LocalStage.h"
#include "Authoring/OptimisticOverlay.h"

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
  prim.components[0].properties[0].overridden = true;
  prim.components[0].properties[0].overrideLayer = "a.usda";
  apply(ComponentOperationKind::set, "RenderShape", "color", "0,0,1");
  EXPECT_EQ(prim.components[0].properties[0].value, "0,0,1");
  apply(ComponentOperationKind::reset, "RenderShape", "color");
  EXPECT_FALSE(prim.components[0].properties[0].overridden) << "a reset drops the override";
  EXPECT_EQ(prim.components[0].properties[0].overrideLayer, "");
  apply(ComponentOperationKind::remove, "RenderShape");
  ASSERT_EQ(prim.components.size(), 1u);
  EXPECT_EQ(prim.components[0].type, "Light");
}

// /World with Lamp (placed in base.usda, its Bulb defined in a referenced asset file) and Box
// (defined in base.usda); each has a Name and a RenderShape. The stack: the root, base, top.
StageInspection referencedStage() {
  StageInspection stage;
  for (const char* identifier : {"/p/scene.usda", "/p/base.usda", "/p/top.usda"}) {
    UsdLayerInfo layer;
    layer.identifier = identifier;
    layer.name = std::string(identifier).substr(3);
    layer.root = layer.name == "scene.usda";
    layer.writable = true;
    stage.layers.push_back(layer);
  }
  auto node = [](std::string path, std::string defining) {
    UsdPrimNode each;
    each.path = path;
    each.name = path.substr(path.rfind('/') + 1);
    each.parent = path.substr(0, path.rfind('/'));
    each.definingLayer = std::move(defining);
    return each;
  };
  UsdPrimNode world = node("/World", "/p/base.usda");
  world.parent = "/";
  UsdPrimNode lamp = node("/World/Lamp", "/p/base.usda");
  lamp.children.push_back(node("/World/Lamp/Bulb", "/p/assets/lamp.usda"));
  world.children = {lamp, node("/World/Box", "/p/base.usda")};
  stage.rootPrims.push_back(world);
  for (const char* path : {"/World", "/World/Lamp", "/World/Lamp/Bulb", "/World/Box"}) {
    UsdPrimDetail prim;
    prim.path = path;
    prim.name = prim.path.substr(prim.path.rfind('/') + 1);
    prim.parent = prim.path == "/World" ? "/" : prim.path.substr(0, prim.path.rfind('/'));
    prim.entityPath = path;
    prim.components = {component("Name", {{"name", prim.name}}),
                       component("RenderShape", {{"color", "1,1,1"}})};
    UsdAttribute displayName;
    displayName.name = "orvan:name";
    displayName.type = "string";
    displayName.value = prim.name;
    prim.attributes.push_back(displayName);
    stage.prims.push_back(prim);
  }
  return stage;
}

const ComponentProperty& propertyOf(const StageInspection& stage, std::string_view path,
                                    std::string_view type, std::string_view name) {
  for (const UsdPrimDetail& prim : stage.prims) {
    for (const UsdComponent& each : prim.components) {
      for (const ComponentProperty& property : each.properties) {
        if (prim.path == path && each.type == type && property.name == name)
          return property;
      }
    }
  }
  static const ComponentProperty kNone;
  ADD_FAILURE() << "no " << name << " on " << path;
  return kNone;
}

ComponentAtomicOperation setOperation(std::string path, std::string type, std::string name,
                                      std::string value) {
  return {.kind = ComponentOperationKind::set,
          .entityPath = std::move(path),
          .componentType = std::move(type),
          .propertyName = std::move(name),
          .value = std::move(value)};
}

// A set shows the override dot at once only where the value overrides another layer's or a
// referenced file's: on the entity whose parts come from an asset, or when edits go to another
// layer than the one that defines the entity; never for an entity defined where the edit lands.
TEST(ComponentLocalEffect, ASetIsMarkedAsAnOverrideOnlyWhereItOverridesSomething) {
  StageInspection stage = referencedStage();
  {
    LocalStage local(stage, "/p/base.usda");
    EXPECT_TRUE(local.applyComponentChange(
        setOperation("/World/Lamp", "RenderShape", "color", "0.5,0.5,0.5")));
    EXPECT_TRUE(
        local.applyComponentChange(setOperation("/World/Box", "RenderShape", "color", "0,0,1")));
    EXPECT_FALSE(
        local.applyComponentChange(setOperation("/World/Gone", "RenderShape", "color", "0,0,1")));
    local.finish();
  }
  const ComponentProperty& lamp = propertyOf(stage, "/World/Lamp", "RenderShape", "color");
  EXPECT_EQ(lamp.value, "0.5,0.5,0.5");
  EXPECT_TRUE(lamp.overridden) << "the lamp's parts come from a referenced file";
  EXPECT_TRUE(lamp.overriddenInActiveLayer);
  EXPECT_EQ(lamp.overrideLayer, "/p/base.usda");
  EXPECT_EQ(lamp.overrideLayerName, "base.usda");
  const ComponentProperty& box = propertyOf(stage, "/World/Box", "RenderShape", "color");
  EXPECT_EQ(box.value, "0,0,1");
  EXPECT_FALSE(box.overridden) << "the box is defined in the layer that receives the edit";

  {
    LocalStage local(stage, "/p/top.usda");
    local.applyComponentChange(setOperation("/World/Box", "RenderShape", "color", "0,1,0"));
    local.finish();
  }
  EXPECT_TRUE(propertyOf(stage, "/World/Box", "RenderShape", "color").overriddenInActiveLayer);
  EXPECT_EQ(propertyOf(stage, "/World/Box", "RenderShape", "color").overrideLayer, "/p/top.usda");
}

TEST(ComponentLocalEffect, ANewNameIsTheDisplayNameAndTheRowKeepsItsPath) {
  StageInspection stage = referencedStage();
  {
    LocalStage local(stage, "");
    local.applyComponentChange(setOperation("/World/Box", "Name", "name", "Crate"));
    local.finish();
  }
  const UsdPrimDetail& box = stage.prims[3];
  ASSERT_EQ(box.path, "/World/Box");
  EXPECT_EQ(box.name, "Box");
  EXPECT_EQ(box.attributes.at(0).value, "Crate");
  EXPECT_EQ(propertyOf(stage, "/World/Box", "Name", "name").value, "Crate");
  EXPECT_EQ(propertyOf(stage, "/World/Box", "RenderShape", "color").value, "1,1,1");
  EXPECT_EQ(stage.prims[1].attributes.at(0).value, "Lamp") << "other prims keep their names";
}

// Component commands shown before the server has them survive every stage that arrives until
// one at least as new as the accepted revision; a refused one goes at once.
TEST(ComponentOverlay, ChangesAreLaidOverIncomingStagesUntilTheServerHoldsThem) {
  OptimisticOverlayState state;
  const ComponentAtomicOperation recolor =
      setOperation("/World/Box", "RenderShape", "color", "0,0,1");
  const ComponentAtomicOperation rename = setOperation("/World/Lamp", "Name", "name", "Light");
  state.recordOptimisticComponentOperation(recolor);
  state.recordOptimisticComponentOperation(rename);
  EXPECT_TRUE(state.holdsEdits());

  auto laidOver = [&] {
    StageInspection incoming = referencedStage();
    LocalStage local(incoming, "/p/base.usda");
    replayOptimisticOverlay(state, local);
    return incoming;
  };
  StageInspection shown = laidOver();
  EXPECT_EQ(propertyOf(shown, "/World/Box", "RenderShape", "color").value, "0,0,1");
  EXPECT_EQ(propertyOf(shown, "/World/Lamp", "Name", "name").value, "Light");

  state.acknowledgeOptimisticComponentOperation(recolor, 7);
  state.pruneForIncomingStage(6);
  EXPECT_EQ(propertyOf(laidOver(), "/World/Box", "RenderShape", "color").value, "0,0,1")
      << "a stage older than the edit does not hold it yet";
  state.pruneForIncomingStage(7);
  EXPECT_EQ(propertyOf(laidOver(), "/World/Box", "RenderShape", "color").value, "1,1,1")
      << "the server's stage speaks for itself once it holds the edit";
  EXPECT_EQ(propertyOf(laidOver(), "/World/Lamp", "Name", "name").value, "Light")
      << "an unanswered change stays";

  state.discardOptimisticComponentOperation(rename);
  EXPECT_FALSE(state.holdsEdits());
  EXPECT_EQ(propertyOf(laidOver(), "/World/Lamp", "Name", "name").value, "Lamp");
}

}  // namespace
}  // namespace orvan::editor
