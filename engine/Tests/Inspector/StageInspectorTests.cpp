// The stage inspector on the demo and on small fixture scenes: what the editor decodes, which
// prims and properties carry override marks, badges, components, problems and assets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <sys/wait.h>
#include <unistd.h>

#include "Inspector/ComponentModel.h"
#include "Inspector/StageInspector.h"
#include "UsdText/LayerReader.h"
#include "UsdText/SceneGenerator.h"
#include "UsdText/StageComposer.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/StageNormalization.h"

namespace orvan::engine {
namespace {

using editor::ComponentProperty;
using editor::StageInspection;
using editor::UsdComponent;
using editor::UsdPrimDetail;
using editor::UsdPrimNode;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::string kFixtures = ORVAN_ENGINE_FIXTURES_DIR "/Inspector/";
const std::string kDemo = ORVAN_DEMO_DIR "/hello_world.usda";

InspectResult inspect(const std::string& scene, InspectOptions options = {},
                      ComposeOptions compose = {}) {
  const StageOpenResult opened = openStage(scene, compose);
  if (!opened.ok())
    throw std::runtime_error(opened.error->describe());
  return inspectStage(*opened.stage, options);
}

const UsdPrimDetail& prim(const StageInspection& stage, std::string_view path) {
  for (const UsdPrimDetail& detail : stage.prims) {
    if (detail.path == path)
      return detail;
  }
  throw std::runtime_error("no prim " + std::string(path));
}

const UsdPrimNode* findNode(const std::vector<UsdPrimNode>& nodes, std::string_view path) {
  for (const UsdPrimNode& node : nodes) {
    if (node.path == path)
      return &node;
    if (const UsdPrimNode* found = findNode(node.children, path))
      return found;
  }
  return nullptr;
}

const UsdPrimNode& node(const StageInspection& stage, std::string_view path) {
  const UsdPrimNode* found = findNode(stage.rootPrims, path);
  if (!found)
    throw std::runtime_error("no tree node " + std::string(path));
  return *found;
}

const UsdComponent* component(const UsdPrimDetail& detail, std::string_view type) {
  for (const UsdComponent& c : detail.components) {
    if (c.type == type)
      return &c;
  }
  return nullptr;
}

const ComponentProperty& property(const UsdPrimDetail& detail, std::string_view type,
                                  std::string_view name) {
  const UsdComponent* found = component(detail, type);
  if (!found)
    throw std::runtime_error(detail.path + " has no " + std::string(type));
  for (const ComponentProperty& p : found->properties) {
    if (p.name == name)
      return p;
  }
  throw std::runtime_error(std::string(type) + " has no " + std::string(name));
}

const editor::UsdAttribute& attribute(const UsdPrimDetail& detail, std::string_view name) {
  for (const editor::UsdAttribute& a : detail.attributes) {
    if (a.name == name)
      return a;
  }
  throw std::runtime_error(detail.path + " has no attribute " + std::string(name));
}

std::vector<std::string> componentTypes(const UsdPrimDetail& detail) {
  std::vector<std::string> types;
  for (const UsdComponent& c : detail.components)
    types.push_back(c.type);
  return types;
}

std::vector<std::string> paths(const std::vector<UsdPrimDetail>& prims) {
  std::vector<std::string> out;
  for (const UsdPrimDetail& detail : prims)
    out.push_back(detail.path);
  return out;
}

void collectPaths(const std::vector<UsdPrimNode>& nodes, std::vector<std::string>& out) {
  for (const UsdPrimNode& n : nodes) {
    out.push_back(n.path);
    collectPaths(n.children, out);
  }
}

// ---- the demo, through the editor's own decoder and normalisation ----

TEST(StageInspectorDemo, JsonDecodesWithTheEditorsRecordsAndNormalisesToWhatTheAuthorSees) {
  const InspectResult result = inspect(kDemo);
  ASSERT_TRUE(result.ok()) << *result.error;
  const auto decoded = editor::decodeJson<StageInspection>(encodeInspection(result), "stage");
  ASSERT_TRUE(decoded.ok()) << decoded.error().description;
  EXPECT_EQ(decoded->prims, result.inspection.prims);
  EXPECT_EQ(decoded->rootPrims, result.inspection.rootPrims);
  EXPECT_EQ(decoded->layers, result.inspection.layers);
  EXPECT_EQ(decoded->catalog, result.inspection.catalog);
  EXPECT_FALSE(decoded->requiresLayerStackInitialization);  // the demo has a sublayer

  // Only assets with real bounds carry them: the lamp post's extent, not the material.
  ASSERT_EQ(decoded->assets.size(), 2u);
  for (const editor::UsdAsset& asset : decoded->assets) {
    if (asset.kind == "mesh") {
      EXPECT_TRUE(asset.hasBoundsMetadata);
      EXPECT_EQ(asset.boundsDimensions, (std::vector<double>{0.44, 3.32, 0.44}));
    } else {
      EXPECT_EQ(asset.kind, "material");
      EXPECT_FALSE(asset.hasBoundsMetadata);
      EXPECT_EQ(asset.baseColor, (std::vector<double>{0.86, 0.18, 0.16, 1.0}));
      EXPECT_DOUBLE_EQ(asset.roughness, 0.3);
    }
  }

  const StageInspection normalized = editor::normalizedAuthoringStage(*decoded);
  const std::vector<std::string> expected{"/World",
                                          "/World/Sun",
                                          "/World/BlueSphere",
                                          "/World/Ground",
                                          "/World/RedCube",
                                          "/World/YellowCone",
                                          "/World/GreenCapsule",
                                          "/World/LampPost",
                                          "/World/LampPost/Pole",
                                          "/World/LampPost/Bulb",
                                          "/World/LampPost/Glow",
                                          "/World/MainCamera"};
  EXPECT_EQ(paths(normalized.prims), expected);
  std::vector<std::string> tree;
  collectPaths(normalized.rootPrims, tree);
  EXPECT_EQ(tree, expected);
  EXPECT_EQ(normalized.assets, decoded->assets);
  // The asset library was in the stage before normalisation, marked as internal.
  EXPECT_THAT(prim(*decoded, "/World/OrvanAssets/Materials/GlossyRed").badges,
              ElementsAre("asset", "internal"));
}

// The helper writes prim by prim; what it writes must be what the records path encodes, stage
// problems, bounds and nested trees included.
TEST(StageInspectorDemo, StreamedJsonDecodesToTheSameStageAsTheRecords) {
  for (const std::string& scene :
       {kDemo, kFixtures + "arcs_root.usda", kFixtures + "components.usda",
        std::string(ORVAN_ENGINE_FIXTURES_DIR "/UsdText/compose/stack_root.usda")}) {
    const StageOpenResult opened = openStage(scene);
    ASSERT_TRUE(opened.ok()) << scene;
    std::string streamed;
    ASSERT_FALSE(writeInspectionJson(*opened.stage, {}, streamed).has_value()) << scene;
    const std::string fromRecordsText = encodeInspection(inspectStage(*opened.stage));
    // Both go through the one encoder: the same bytes, not only the same records.
    EXPECT_EQ(streamed, fromRecordsText) << scene;
    const auto fromStream = editor::decodeJson<StageInspection>(streamed, "stage");
    const auto fromRecords = editor::decodeJson<StageInspection>(fromRecordsText, "stage");
    ASSERT_TRUE(fromStream.ok()) << scene << ": " << fromStream.error().description;
    ASSERT_TRUE(fromRecords.ok()) << scene;
    EXPECT_EQ(*fromStream, *fromRecords) << scene;
  }
}

// A stage large enough to be handed over in several pieces, and a sink that gives up.
TEST(StageInspectorDemo, LargeStagesArriveInPiecesAndARefusingSinkStopsTheWriting) {
  const LayerReadResult read = readLayerText("generated.usda", generateScene(3000));
  ASSERT_TRUE(read.ok());
  const StageOpenResult opened = composeStage(read.layer);
  std::string text;
  std::size_t pieces = 0;
  ASSERT_FALSE(writeInspectionJson(*opened.stage, {}, [&](std::string_view piece) {
                 text += piece;
                 ++pieces;
                 return true;
               }).has_value());
  EXPECT_GT(pieces, 2u);
  const auto decoded = editor::decodeJson<StageInspection>(text, "stage");
  ASSERT_TRUE(decoded.ok()) << decoded.error().description;
  EXPECT_EQ(decoded->prims.size(), 3000u);
  EXPECT_EQ(decoded->rootPrims, inspectStage(*opened.stage).inspection.rootPrims);

  std::size_t calls = 0;
  const auto refused = writeInspectionJson(*opened.stage, {}, [&](std::string_view) {
    ++calls;
    return false;
  });
  ASSERT_TRUE(refused.has_value());
  EXPECT_EQ(calls, 1u);
}

TEST(StageInspectorDemo, EntitiesCarryTheirIdsComponentsAndOwningEntity) {
  const StageInspection stage = inspect(kDemo).inspection;
  const UsdPrimDetail& cube = prim(stage, "/World/RedCube");
  EXPECT_EQ(cube.entityId, 1002u);
  EXPECT_EQ(cube.entityPath, "/World/RedCube");
  // An entity is edited as a whole: it is no part of another, and the asset it may place is its.
  EXPECT_THAT(cube.badges, ElementsAre("entity"));
  EXPECT_THAT(prim(stage, "/World/LampPost").badges, ElementsAre("entity"));
  // The pieces the lamp post's asset brings in are parts of that entity.
  EXPECT_THAT(prim(stage, "/World/LampPost/Pole").badges, ElementsAre("component"));
  EXPECT_THAT(componentTypes(cube),
              ElementsAre("Name", "Transform", "RenderShape", "MaterialBinding"));
  EXPECT_EQ(property(cube, "Name", "name").value, "Red cube");
  EXPECT_EQ(property(cube, "Transform", "translation").value, "-2.5,0.5,0");
  EXPECT_EQ(property(cube, "Transform", "rotation").value, "0,30,0");
  EXPECT_EQ(property(cube, "RenderShape", "color").value, "0.86,0.18,0.16");
  EXPECT_EQ(property(cube, "MaterialBinding", "material").value,
            "/World/OrvanAssets/Materials/GlossyRed");
  EXPECT_EQ(attribute(cube, "material:binding").type, "rel");
  EXPECT_EQ(attribute(cube, "xformOpOrder").value,
            R"(["xformOp:translate", "xformOp:rotateXYZ", "xformOp:scale"])");

  // Parts of a referenced asset belong to the entity that references it and carry no components.
  const UsdPrimDetail& bulb = prim(stage, "/World/LampPost/Bulb");
  EXPECT_EQ(bulb.entityPath, "/World/LampPost");
  EXPECT_EQ(bulb.entityId, 1006u);
  EXPECT_TRUE(bulb.components.empty());
  EXPECT_EQ(property(prim(stage, "/World/LampPost"), "MeshAsset", "asset").value,
            "./assets/lamp_post.usda");

  const UsdPrimDetail& world = prim(stage, "/World");
  EXPECT_EQ(property(world, "WorldSettings", "ambientColor").value, "0.22,0.24,0.3");
  EXPECT_EQ(property(world, "WorldSettings", "ambientOcclusionEnabled").value, "true");
}

// ---- override marks and layers ----

TEST(StageInspectorMarks, StrongerLayersMarkPrimsAndPropertiesAsOverridden) {
  InspectOptions options;
  options.activeLayer = "marks_edits.usda";
  ComposeOptions compose;
  compose.mutedLayers = {kFixtures + "marks_muted.usda"};
  const StageInspection stage = inspect(kFixtures + "marks_root.usda", options, compose).inspection;

  const UsdPrimDetail& box = prim(stage, "/World/Box");
  EXPECT_EQ(box.overriddenInActiveLayer, true);
  EXPECT_EQ(box.overrideLayerName, "marks_edits.usda");
  EXPECT_EQ(node(stage, "/World/Box").definingLayer, kFixtures + "marks_base.usda");
  const ComponentProperty& color = property(box, "RenderShape", "color");
  EXPECT_EQ(color.value, "0,1,0");
  EXPECT_TRUE(color.overriddenInActiveLayer);
  EXPECT_EQ(color.overrideLayer, kFixtures + "marks_edits.usda");
  // The muted layer's size of 99 never reaches the stage.
  EXPECT_EQ(property(box, "RenderShape", "dimensions").value, "3,3,3");
  EXPECT_TRUE(property(box, "RenderShape", "dimensions").overridden);
  EXPECT_FALSE(property(box, "Transform", "translation").overridden);
  EXPECT_TRUE(attribute(box, "size").overridden);
  EXPECT_FALSE(attribute(box, "xformOpOrder").overridden);

  // The root layer overrides the ball, which is not the active layer.
  const UsdPrimDetail& ball = prim(stage, "/World/Ball");
  EXPECT_EQ(ball.overriddenInActiveLayer, false);
  EXPECT_EQ(ball.overrideLayerName, "marks_root.usda");
  EXPECT_EQ(property(ball, "Name", "name").overrideLayerName, "marks_root.usda");

  // An over that only reaches a child says nothing about its parent.
  EXPECT_EQ(prim(stage, "/World/Crate").overridden, false);
  EXPECT_EQ(prim(stage, "/World/Crate/Lid").overridden, true);
  EXPECT_EQ(prim(stage, "/World/Crate/Lid").entityPath, "/World/Crate");
  EXPECT_EQ(node(stage, "/World/Box").overrideLayerName, "marks_edits.usda");
}

TEST(StageInspectorMarks, ActiveLayerDefaultsToTheFirstEditableSublayerAndMustExist) {
  ComposeOptions compose;
  compose.mutedLayers = {kFixtures + "marks_muted.usda"};
  const StageInspection byDefault = inspect(kFixtures + "marks_root.usda", {}, compose).inspection;
  EXPECT_EQ(prim(byDefault, "/World/Box").overriddenInActiveLayer, true);

  InspectOptions rootActive;
  rootActive.activeLayer = kFixtures + "marks_root.usda";
  const StageInspection root = inspect(kFixtures + "marks_root.usda", rootActive).inspection;
  EXPECT_EQ(prim(root, "/World/Box").overriddenInActiveLayer, false);
  EXPECT_EQ(prim(root, "/World/Ball").overriddenInActiveLayer, true);
  EXPECT_TRUE(property(prim(root, "/World/Ball"), "Name", "name").overriddenInActiveLayer);

  InspectOptions unknown;
  unknown.activeLayer = "nowhere.usda";
  const InspectResult refused = inspect(kFixtures + "marks_root.usda", unknown);
  ASSERT_FALSE(refused.ok());
  EXPECT_THAT(*refused.error, HasSubstr("nowhere.usda"));
}

TEST(StageInspectorLayers, TheRootLayerStackIsListedStrongestFirstWithItsState) {
  ComposeOptions compose;
  compose.mutedLayers = {kFixtures + "marks_muted.usda"};
  const StageInspection stage = inspect(kFixtures + "marks_root.usda", {}, compose).inspection;
  ASSERT_EQ(stage.layers.size(), 4u);
  EXPECT_EQ(stage.layers[0].identifier, kFixtures + "marks_root.usda");
  EXPECT_TRUE(stage.layers[0].root);
  EXPECT_EQ(stage.layers[1].path, "marks_edits.usda");
  EXPECT_EQ(stage.layers[1].depth, 1);
  EXPECT_EQ(stage.layers[2].name, "marks_base.usda");
  EXPECT_TRUE(stage.layers[3].muted);
  EXPECT_FALSE(stage.requiresLayerStackInitialization);
  EXPECT_EQ(stage.sceneUri, kFixtures + "marks_root.usda");
}

// ---- arcs, badges and problems ----

TEST(StageInspectorArcs, PayloadsInstancesAndBrokenReferencesShowInBadgesAndComponents) {
  const StageInspection stage = inspect(kFixtures + "arcs_root.usda").inspection;
  // Prims in the root layer and no sublayer: the first added layer needs the content moved.
  EXPECT_TRUE(stage.requiresLayerStackInitialization);

  EXPECT_THAT(prim(stage, "/World/Deferred").badges, ElementsAre("entity", "payload"));
  EXPECT_THAT(prim(stage, "/World/Deferred/Trunk").badges, Not(Contains("payload")));

  const UsdPrimDetail& forest = prim(stage, "/World/Forest");
  EXPECT_THAT(forest.badges, ElementsAre("entity", "instance"));
  EXPECT_EQ(forest.instanceable, true);
  EXPECT_FALSE(forest.instanceProxy.has_value());
  EXPECT_EQ(prim(stage, "/World/Forest/Trunk").instanceProxy, true);
  EXPECT_EQ(node(stage, "/World/Forest/Trunk").instanceProxy, true);
  EXPECT_EQ(prim(stage, "/World/Forest/Trunk").entityPath, "/World/Forest");

  const UsdPrimDetail& broken = prim(stage, "/World/Broken");
  EXPECT_THAT(broken.badges, Contains("problem"));
  const ComponentProperty& problem = property(broken, "Problems", "problem1");
  EXPECT_THAT(problem.value, HasSubstr("arcs_root.usda:"));
  EXPECT_THAT(problem.value, HasSubstr("gone.usda"));
  EXPECT_EQ(problem.control, "readonly");
  EXPECT_THAT(property(prim(stage, "/World/Crated"), "Problems", "problem1").value,
              HasSubstr("binary layer"));

  EXPECT_FALSE(prim(stage, "/World/Hidden").active);
  EXPECT_EQ(prim(stage, "/Stray").defined, false);
  EXPECT_THAT(prim(stage, "/World/OrvanComponents").badges, ElementsAre("internal"));

  // One mesh asset for the file that two entities bring in, with its extent as bounds; the
  // missing file is no asset.
  ASSERT_EQ(stage.assets.size(), 1u);
  EXPECT_EQ(stage.assets[0].path, "./arcs_asset.usda");
  EXPECT_EQ(stage.assets[0].boundsCenter, (std::vector<double>{0, 2, 0}));
  EXPECT_EQ(stage.assets[0].boundsDimensions, (std::vector<double>{2, 4, 2}));

  const StageInspection normalized = editor::normalizedAuthoringStage(stage);
  std::vector<std::string> tree;
  collectPaths(normalized.rootPrims, tree);
  EXPECT_THAT(tree, Not(Contains("/Stray")));
  EXPECT_THAT(tree, Not(Contains("/World/OrvanComponents")));
  EXPECT_THAT(tree, Contains("/World/Broken"));
}

TEST(StageInspectorArcs, AnUnloadedPayloadIsMarkedAsLoading) {
  ComposeOptions compose;
  compose.loadPayloads = false;
  const StageInspection stage = inspect(kFixtures + "arcs_root.usda", {}, compose).inspection;
  EXPECT_THAT(prim(stage, "/World/Deferred").badges, ElementsAre("entity", "payload", "loading"));
  EXPECT_TRUE(node(stage, "/World/Deferred").children.empty());
  EXPECT_THAT(prim(stage, "/World/Broken").badges, Not(Contains("loading")));
}

TEST(StageInspectorArcs, AMissingSublayerIsShownOnTheFirstRootPrimAndIsNotWritable) {
  const StageInspection stage =
      inspect(ORVAN_ENGINE_FIXTURES_DIR "/UsdText/compose/stack_root.usda").inspection;
  const auto missing = std::find_if(stage.layers.begin(), stage.layers.end(),
                                    [](const auto& l) { return l.name == "stack_missing.usda"; });
  ASSERT_NE(missing, stage.layers.end());
  EXPECT_FALSE(missing->writable);
  const UsdPrimDetail& first = prim(stage, stage.rootPrims.front().path);
  EXPECT_THAT(first.badges, Contains("problem"));
  EXPECT_THAT(property(first, "Problems", "problem1").value, HasSubstr("stack_missing.usda"));
}

// ---- components ----

TEST(StageInspectorComponents, AttributesBecomeComponentPropertiesOfTheirKind) {
  const StageInspection stage = inspect(kFixtures + "components.usda").inspection;

  const UsdPrimDetail& pill = prim(stage, "/World/Pill");
  EXPECT_EQ(pill.entityId, 18446744073709551615u);
  EXPECT_EQ(property(pill, "Name", "name").value, "Pill");  // no display name: the prim's
  EXPECT_FALSE(component(pill, "RenderShape")->enabled);
  EXPECT_EQ(property(pill, "RenderShape", "shape").value, "capsule");
  EXPECT_EQ(property(pill, "RenderShape", "shape").control, "readonly");
  // Along X: the capsule's full length (height plus both caps) lies on the first axis.
  EXPECT_EQ(property(pill, "RenderShape", "dimensions").value, "3,1,1");
  EXPECT_EQ(property(pill, "RenderShape", "color").kind, "color");
  EXPECT_EQ(property(pill, "Transform", "scale").value, "1,1,1");
  EXPECT_EQ(property(pill, "MaterialBinding", "material").kind, "material");

  const UsdPrimDetail& speaker = prim(stage, "/World/Speaker");
  EXPECT_THAT(componentTypes(speaker),
              ElementsAre("Name", "Transform", "AudioSource", "Script", "UiLayout"));
  EXPECT_EQ(property(speaker, "AudioSource", "clip").value, "./sounds/hum.ogg");
  EXPECT_EQ(property(speaker, "AudioSource", "volume").value, "0.25");
  EXPECT_EQ(property(speaker, "AudioSource", "loop").value, "true");
  EXPECT_EQ(property(speaker, "AudioSource", "spatial").value, "true");  // the default
  EXPECT_EQ(property(speaker, "Script", "source").value, "./scripts/spin.lua");
  EXPECT_EQ(property(speaker, "Script", "speed").kind, "number");
  EXPECT_EQ(property(speaker, "Script", "speed").value, "2.5");
  EXPECT_EQ(property(speaker, "Script", "clockwise").kind, "bool");
  EXPECT_EQ(property(speaker, "Script", "label").kind, "string");
  EXPECT_EQ(property(speaker, "UiLayout", "position").value, "absolute");
  EXPECT_EQ(property(speaker, "UiLayout", "left").value, "24");

  const UsdPrimDetail& panel = prim(stage, "/World/Panel");
  EXPECT_EQ(property(panel, "Light", "type").value, "rect");
  EXPECT_EQ(property(panel, "Light", "intensity").value, "7");
  EXPECT_EQ(property(panel, "Light", "castShadows").value, "false");
  EXPECT_EQ(property(panel, "Light", "width").value, "2");
  EXPECT_EQ(property(panel, "Light", "color").value, "1,1,1");

  const UsdPrimDetail& world = prim(stage, "/World");
  EXPECT_EQ(property(world, "WorldSettings", "backgroundColor").value, "0.1,0.2,0.3");
  EXPECT_EQ(property(world, "WorldSettings", "shadowsEnabled").value, "false");

  ASSERT_EQ(stage.assets.size(), 1u);
  EXPECT_EQ(stage.assets[0].baseColor, (std::vector<double>{1, 0, 0, 0.5}));
  EXPECT_DOUBLE_EQ(stage.assets[0].metallic, 1.0);
}

// Every default of the catalogue must be a value the editor accepts for its kind, or a freshly
// added component would start out invalid.
TEST(StageInspectorComponents, CatalogDefaultsAreValidForTheirKinds) {
  const std::vector<UsdComponent> catalog = componentCatalog();
  std::set<std::string> types;
  for (const UsdComponent& entry : catalog) {
    types.insert(entry.type);
    EXPECT_FALSE(entry.properties.empty()) << entry.type;
    for (const ComponentProperty& p : entry.properties) {
      std::size_t numbers = 0;
      if (p.kind == "number")
        numbers = 1;
      else if (p.kind == "vector2")
        numbers = 2;
      else if (p.kind == "vector3" || p.kind == "color")
        numbers = 3;
      if (numbers != 0) {
        std::vector<double> parsed;
        std::stringstream text(p.value);
        for (std::string piece; std::getline(text, piece, ',');)
          parsed.push_back(std::stod(piece));
        EXPECT_EQ(parsed.size(), numbers) << entry.type << "." << p.name;
      }
      if (p.kind == "bool") {
        EXPECT_TRUE(p.value == "true" || p.value == "false") << entry.type << "." << p.name;
      }
      if (!p.options.empty()) {
        EXPECT_TRUE(std::any_of(p.options.begin(), p.options.end(),
                                [&](const auto& o) { return o.value == p.value; }))
            << entry.type << "." << p.name << " defaults to no option";
      }
    }
  }
  EXPECT_EQ(types, (std::set<std::string>{"RenderShape", "Light", "MaterialBinding", "MeshAsset",
                                          "AudioSource", "Script", "UiCanvas", "UiLayout"}));
}

TEST(StageInspectorComponents, NumbersAreWrittenAsTheEditorsFieldsWriteThem) {
  EXPECT_EQ(formatNumbers({1000, 0.1234567, -0.5}), "1000,0.123457,-0.5");
  EXPECT_EQ(formatNumbers({1e-05, 1234567, 0}), "1e-05,1.23457e+06,0");
  EXPECT_EQ(formatNumbers({}), "");
}

// ---- the executable ----

struct ProcessResult {
  int status = -1;
  std::string out;
};

ProcessResult runInspector(const std::string& arguments) {
  const std::string command =
      std::string(ORVAN_ENGINE_BIN_DIR "/orvan_usd_inspector ") + arguments + " 2>&1";
  ProcessResult result;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe)
    return result;
  char buffer[65536];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    result.out.append(buffer, n);
  const int status = ::pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

std::string fileText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(InspectorExecutable, PrintsTheDemoStageAndExitsZeroLeavingTheSceneAsItWas) {
  const auto demoTexts = [] {
    return fileText(kDemo) + fileText(ORVAN_DEMO_DIR "/hello_world_base.usda") +
           fileText(ORVAN_DEMO_DIR "/hello_world_lighting.usda");
  };
  const std::string before = demoTexts();
  const auto modified = std::filesystem::last_write_time(kDemo);
  const ProcessResult run = runInspector("'" + kDemo + "'");
  EXPECT_EQ(demoTexts(), before);
  EXPECT_EQ(std::filesystem::last_write_time(kDemo), modified);
  ASSERT_EQ(run.status, 0) << run.out;
  const auto decoded = editor::decodeJson<StageInspection>(run.out, "stage");
  ASSERT_TRUE(decoded.ok()) << decoded.error().description;
  EXPECT_EQ(decoded->prims, inspect(kDemo).inspection.prims);
}

TEST(InspectorExecutable, FailuresAreOneLineWithFileLineAndColumnAndANonZeroStatus) {
  const ProcessResult bad = runInspector("'" + kFixtures + "bad_scene.usda'");
  EXPECT_NE(bad.status, 0);
  EXPECT_THAT(bad.out, testing::StartsWith(kFixtures + "bad_scene.usda:6:1: expected"));
  EXPECT_EQ(std::count(bad.out.begin(), bad.out.end(), '\n'), 1) << bad.out;

  const ProcessResult layer =
      runInspector("'" + kFixtures + "marks_root.usda' --active-layer elsewhere.usda");
  EXPECT_NE(layer.status, 0);
  EXPECT_THAT(layer.out, testing::StartsWith(kFixtures + "marks_root.usda:0:0: "));
  EXPECT_THAT(layer.out, HasSubstr("elsewhere.usda"));

  const ProcessResult usage = runInspector("");
  EXPECT_EQ(usage.status, 2);
  EXPECT_THAT(usage.out, HasSubstr("usage:"));
}

TEST(StageInspectorArcs, InstanceProxiesLeaveLargeArraysOutAndSaySo) {
  // One tree asset, instanced 400 times and referenced once without instancing.
  const auto directory =
      std::filesystem::temp_directory_path() / ("orvan_proxies_" + std::to_string(::getpid()));
  std::filesystem::create_directories(directory);
  std::string points = "[";
  std::string normals = "[";
  for (int i = 0; i < 1000; ++i) {
    points += (i ? ", (" : "(") + std::to_string(i) + ", 1, 2)";
    if (i < 100)
      normals += (i ? ", (" : "(") + std::string("0, 1, 0)");
  }
  points += "]";
  normals += "]";
  std::ofstream(directory / "tree.usda")
      << "#usda 1.0\n(\n    defaultPrim = \"Tree\"\n)\ndef Xform \"Tree\"\n{\n"
      << "    def Mesh \"Leaves\"\n    {\n        point3f[] points = " << points << "\n"
      << "        int[] faceVertexCounts = [3, 3, 3]\n"
      << "        normal3f[] normals.timeSamples = {\n            0: " << normals
      << ",\n            1: [(0, 0, 1)],\n        }\n"
      << "        rel material = </Tree/Looks>\n    }\n}\n";
  std::ofstream scene(directory / "forest.usda");
  scene
      << "#usda 1.0\ndef Xform \"World\"\n{\n"
      << "    def \"Single\" (\n        prepend references = @./tree.usda@\n    )\n    {\n    }\n";
  for (int i = 0; i < 400; ++i) {
    scene << "    def \"Tree_" << i << "\" (\n        instanceable = true\n"
          << "        prepend references = @./tree.usda@\n    )\n    {\n    }\n";
  }
  scene << "}\n";
  scene.close();

  const InspectResult result = inspect((directory / "forest.usda").string());
  const auto attribute = [&](std::string_view path, std::string_view name) {
    for (const editor::UsdAttribute& candidate : prim(result.inspection, path).attributes) {
      if (candidate.name == name)
        return candidate.value;
    }
    return std::string("<missing>");
  };
  // The prim that is not instanced keeps every value.
  EXPECT_EQ(attribute("/World/Single/Leaves", "points"), points);
  // A proxy keeps small arrays and targets, and names what it left out.
  EXPECT_EQ(attribute("/World/Tree_7/Leaves", "faceVertexCounts"), "[3, 3, 3]");
  EXPECT_EQ(attribute("/World/Tree_7/Leaves", "points"),
            "[1000 items, left out on instance proxies]");
  EXPECT_EQ(attribute("/World/Tree_7/Leaves", "normals"),
            "{2 samples, left out on instance proxies}");
  EXPECT_EQ(attribute("/World/Tree_7/Leaves", "material"), "</World/Tree_7/Looks>");
  // So the document grows with the instances' count, not with the prototype's size: 400
  // instances take less room than 100 copies of the points (each copy is 13 KB).
  EXPECT_LT(encodeInspection(result).size(), 100 * points.size());
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace orvan::engine
