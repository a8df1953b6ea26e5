// Composition of the fixture scenes: layer stack strength, arcs, variants, instancing and the
// problems a broken scene reports without stopping.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include <unistd.h>

#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"
#include "UsdText/SceneGenerator.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

const std::string kCompose = ORVAN_ENGINE_FIXTURES_DIR "/UsdText/compose/";

std::shared_ptr<Stage> open(const std::string& name, ComposeOptions options = {}) {
  StageOpenResult result = openStage(kCompose + name, options);
  if (!result.ok())
    ADD_FAILURE() << result.error->describe();
  return result.stage;
}

const ComposedPrim& prim(const Stage& stage, std::string_view path) {
  const ComposedPrim* found = stage.findPrim(path);
  if (!found)
    throw std::runtime_error("no composed prim " + std::string(path));
  return *found;
}

std::string valueOf(const Stage& stage, std::string_view path, std::string_view name) {
  const auto property = stage.findProperty(prim(stage, path), name);
  if (!property || !property->value)
    return "<none>";
  return formatValue(*property->value);
}

std::vector<std::string> childNames(const Stage& stage, std::string_view path) {
  std::vector<std::string> names;
  for (const std::uint32_t child : prim(stage, path).children)
    names.emplace_back(stage.prims[child].name);
  return names;
}

bool hasProblemContaining(const Stage& stage, const ComposedPrim& at, std::string_view text) {
  for (const std::uint32_t index : at.problems) {
    if (stage.problems[index].message.find(text) != std::string::npos)
      return true;
  }
  return false;
}

TEST(StageComposerLayerStack, StrongerLayersWinAndNestedSublayersSitBetween) {
  const auto stage = open("stack_root.usda");
  ASSERT_TRUE(stage);
  // root > strong > nested (strong's sublayer) > weak > muted.
  EXPECT_EQ(valueOf(*stage, "/World/Box", "size"), "3");
  EXPECT_EQ(valueOf(*stage, "/World/Box", "primvars:displayColor"), "[(0, 1, 0)]");
  EXPECT_EQ(valueOf(*stage, "/World/Box", "opacity"), "0.5");
  EXPECT_EQ(valueOf(*stage, "/World", "rootOnly"), "1");
  EXPECT_EQ(valueOf(*stage, "/World", "weakOnly"), "5");

  std::vector<std::pair<std::string, int>> layers;
  for (const StageLayer& layer : stage->layers)
    layers.emplace_back(layer.name, layer.depth);
  EXPECT_EQ(layers, (std::vector<std::pair<std::string, int>>{{"stack_root.usda", 0},
                                                              {"stack_strong.usda", 1},
                                                              {"stack_nested.usda", 2},
                                                              {"stack_weak.usda", 1},
                                                              {"stack_muted.usda", 1},
                                                              {"stack_missing.usda", 1}}));
  EXPECT_TRUE(stage->layers[0].root);
  EXPECT_FALSE(stage->layers[5].error.empty());
  ASSERT_EQ(stage->problems.size(), 1u);
  EXPECT_EQ(stage->problems[0].message.rfind(
                "stack_root.usda:4:5: The sublayer './stack_missing.usda'", 0),
            0u)
      << stage->problems[0].message;

  // The property opinions list every contributing layer, strongest first.
  const auto size = stage->findProperty(prim(*stage, "/World/Box"), "size");
  ASSERT_TRUE(size);
  std::vector<std::string> contributing;
  for (const PropertyOpinion& opinion : size->opinions)
    contributing.push_back(stage->layers[opinion.layer].name);
  EXPECT_EQ(contributing, (std::vector<std::string>{"stack_strong.usda", "stack_nested.usda",
                                                    "stack_weak.usda", "stack_muted.usda"}));
}

TEST(StageComposerLayerStack, PropertiesAndChildrenOfAPrimComeFromEveryLayer) {
  const auto stage = open("stack_root.usda");
  ASSERT_TRUE(stage);
  const ComposedPrim& box = prim(*stage, "/World/Box");
  const std::vector<ComposedProperty> properties = stage->composeProperties(box);
  std::vector<std::string_view> names;
  for (const ComposedProperty& property : properties) {
    names.push_back(property.name);
    const auto single = stage->findProperty(box, property.name);
    ASSERT_TRUE(single);
    EXPECT_EQ(single->value, property.value) << property.name;
    EXPECT_EQ(single->opinions.size(), property.opinions.size()) << property.name;
  }
  // The muted-by-default layer is the weakest and names only size; the weak layer adds the rest.
  EXPECT_EQ(names, (std::vector<std::string_view>{"size", "primvars:displayColor", "opacity"}));
  EXPECT_FALSE(stage->findProperty(box, "noSuchProperty"));

  // An over contributes without defining.
  EXPECT_TRUE(box.defined);
  EXPECT_EQ(box.typeName, "Cube");
  EXPECT_EQ(box.specifier, Specifier::Def);
  const ComposedPrim& never = prim(*stage, "/World/NeverDefined");
  EXPECT_FALSE(never.defined);
  EXPECT_EQ(never.specifier, Specifier::Over);
  // Children appear weakest layer first (the muted one is not muted here), new names from stronger
  // layers after.
  EXPECT_EQ(childNames(*stage, "/World"),
            (std::vector<std::string>{"Box", "MutedOnly", "OnlyWeak", "NeverDefined"}));
}

TEST(StageComposerLayerStack, AMutedLayerContributesNothing) {
  ComposeOptions options;
  options.mutedLayers.push_back(kCompose + "stack_muted.usda");
  const auto stage = open("stack_root.usda", options);
  ASSERT_TRUE(stage);
  EXPECT_EQ(stage->findPrim("/World/MutedOnly"), nullptr);
  const auto size = stage->findProperty(prim(*stage, "/World/Box"), "size");
  ASSERT_TRUE(size);
  EXPECT_EQ(size->opinions.size(), 3u);
  const auto muted = std::find_if(stage->layers.begin(), stage->layers.end(),
                                  [](const StageLayer& l) { return l.name == "stack_muted.usda"; });
  ASSERT_NE(muted, stage->layers.end());
  EXPECT_TRUE(muted->muted);
  EXPECT_EQ(muted->layer, nullptr);
}

TEST(StageComposerReferences, DefaultPrimReferenceBringsTheAssetUnderTheLocalName) {
  const auto stage = open("refs_root.usda");
  ASSERT_TRUE(stage);
  const ComposedPrim& withDefault = prim(*stage, "/World/WithDefault");
  EXPECT_TRUE(withDefault.hasArcs);
  EXPECT_EQ(withDefault.kind, "component");
  EXPECT_EQ(valueOf(*stage, "/World/WithDefault", "assetValue"), "1");
  EXPECT_EQ(valueOf(*stage, "/World/WithDefault", "overriddenLocally"), "2");
  EXPECT_EQ(valueOf(*stage, "/World/WithDefault", "localOnly"), "3");
  EXPECT_EQ(valueOf(*stage, "/World/WithDefault/Geom", "size"), "2");
  EXPECT_EQ(childNames(*stage, "/World/WithDefault"), (std::vector<std::string>{"Geom", "Looks"}));
  // Targets inside the asset follow it; targets outside it stay as written.
  const auto binding = stage->findProperty(withDefault, "material:binding");
  ASSERT_TRUE(binding);
  EXPECT_EQ(binding->targets, (std::vector<std::string>{"/World/WithDefault/Looks/Red"}));
  EXPECT_EQ(stage->findProperty(withDefault, "outside")->targets,
            (std::vector<std::string>{"/Elsewhere"}));
  // The asset's default variant applies.
  EXPECT_EQ(valueOf(*stage, "/World/WithDefault", "primvars:displayColor"), "[(1, 0, 0)]");
  // The referenced layer is listed, outside the root layer stack.
  const auto asset = std::find_if(stage->layers.begin(), stage->layers.end(),
                                  [](const StageLayer& l) { return l.name == "asset.usda"; });
  ASSERT_NE(asset, stage->layers.end());
  EXPECT_FALSE(asset->inRootLayerStack);
}

TEST(StageComposerReferences, NamedPrimAndInternalReferences) {
  const auto stage = open("refs_root.usda");
  ASSERT_TRUE(stage);
  EXPECT_EQ(childNames(*stage, "/World/Named"), (std::vector<std::string>{"Ball"}));
  EXPECT_EQ(valueOf(*stage, "/World/Named/Ball", "radius"), "4");
  EXPECT_EQ(valueOf(*stage, "/World/Internal", "protoValue"), "7");
  EXPECT_EQ(childNames(*stage, "/World/Internal"), (std::vector<std::string>{"Part"}));
}

TEST(StageComposerReferences, BrokenReferencesAreReportedOnThePrimAndCompositionGoesOn) {
  const auto stage = open("refs_root.usda");
  ASSERT_TRUE(stage);
  const ComposedPrim& missing = prim(*stage, "/World/Missing");
  // The problem points at the statement that authored the reference.
  EXPECT_TRUE(hasProblemContaining(*stage, missing,
                                   "refs_root.usda:38:9: The reference to "
                                   "'./does_not_exist.usda' is left out"));
  EXPECT_EQ(valueOf(*stage, "/World/Missing", "stillHere"), "1");
  EXPECT_TRUE(hasProblemContaining(*stage, prim(*stage, "/World/Binary"), "binary"));
  EXPECT_TRUE(hasProblemContaining(*stage, prim(*stage, "/World/Foreign"), "model.fbx"));
  EXPECT_TRUE(hasProblemContaining(*stage, prim(*stage, "/World/NoDefault"), "no defaultPrim"));
  EXPECT_TRUE(hasProblemContaining(*stage, prim(*stage, "/World/Cycle"), "back to itself"));
  // Everything after the broken prims is still there.
  EXPECT_NE(stage->findPrim("/World/Switch/Shape"), nullptr);
  for (const StageProblem& problem : stage->problems)
    EXPECT_FALSE(problem.primPath.empty()) << problem.message;
}

TEST(StageComposerReferences, PayloadsLoadUnlessAskedNotTo) {
  const auto loaded = open("refs_root.usda");
  ASSERT_TRUE(loaded);
  const ComposedPrim& payloaded = prim(*loaded, "/World/Payloaded");
  EXPECT_TRUE(payloaded.hasPayload);
  EXPECT_TRUE(payloaded.payloadLoaded);
  EXPECT_EQ(childNames(*loaded, "/World/Payloaded"), (std::vector<std::string>{"Ball"}));

  ComposeOptions options;
  options.loadPayloads = false;
  const auto unloaded = open("refs_root.usda", options);
  ASSERT_TRUE(unloaded);
  const ComposedPrim& held = prim(*unloaded, "/World/Payloaded");
  EXPECT_TRUE(held.hasPayload);
  EXPECT_FALSE(held.payloadLoaded);
  EXPECT_TRUE(held.children.empty());
  // An unloaded payload is not opened, so a foreign one is no problem yet.
  EXPECT_TRUE(prim(*unloaded, "/World/Foreign").problems.empty());
}

TEST(StageComposerVariants, TheSelectedVariantContributesAndAStrongerSelectionWins) {
  const auto stage = open("refs_root.usda");
  ASSERT_TRUE(stage);
  EXPECT_EQ(prim(*stage, "/World/Switch/Shape").typeName, "Sphere");
  EXPECT_EQ(valueOf(*stage, "/World/Switch", "shapeRadius"), "2");
  EXPECT_EQ(prim(*stage, "/World/Switch").variantSelections,
            (std::vector<std::pair<std::string, std::string>>{{"shape", "sphere"}}));
  // The local selection beats the asset's own default.
  EXPECT_EQ(valueOf(*stage, "/World/BlueLook", "primvars:displayColor"), "[(0, 0, 1)]");
  // The variant is weaker than the asset's own prim, so its child comes first.
  EXPECT_EQ(childNames(*stage, "/World/BlueLook"),
            (std::vector<std::string>{"BlueOnly", "Geom", "Looks"}));
}

TEST(StageComposerInstancing, DescendantsOfAnInstanceAreProxiesAndInactivePrimsHideTheirs) {
  const auto stage = open("refs_root.usda");
  ASSERT_TRUE(stage);
  const ComposedPrim& instance = prim(*stage, "/World/Instances/A");
  EXPECT_TRUE(instance.isInstance);
  EXPECT_FALSE(instance.instanceProxy);
  EXPECT_TRUE(prim(*stage, "/World/Instances/A/Geom").instanceProxy);
  EXPECT_TRUE(prim(*stage, "/World/Instances/A/Looks/Red").instanceProxy);
  // Without any arc there is nothing to share: instanceable alone makes no instance.
  EXPECT_FALSE(prim(*stage, "/World/Instances/NotAnInstance").isInstance);
  EXPECT_FALSE(prim(*stage, "/World/Instances/NotAnInstance/Plain").instanceProxy);

  // An inactive prim hides its subtree.
  EXPECT_FALSE(prim(*stage, "/World/Inactive").active);
  EXPECT_EQ(stage->findPrim("/World/Inactive/Hidden"), nullptr);
  EXPECT_FALSE(prim(*stage, "/World/OverOnly").defined);
}

TEST(StageComposerClasses, InheritedOpinionsAreWeakerThanLocalOnesAndReorderApplies) {
  const auto stage = open("refs_root.usda");
  ASSERT_TRUE(stage);
  EXPECT_EQ(valueOf(*stage, "/World/Inheritor", "classValue"), "5");
  EXPECT_EQ(valueOf(*stage, "/World/Inheritor", "local"), "1");
  EXPECT_EQ(childNames(*stage, "/World/Inheritor"), (std::vector<std::string>{"FromClass"}));
  const ComposedPrim& look = prim(*stage, "/_Look");
  EXPECT_EQ(look.specifier, Specifier::Class);
  EXPECT_TRUE(look.defined);
  EXPECT_EQ(childNames(*stage, "/World/Ordered"), (std::vector<std::string>{"C", "A", "B"}));
}

TEST(StageComposerFailures, AnUnreadableRootLayerFailsWithItsLocation) {
  const StageOpenResult bad =
      openStage(ORVAN_ENGINE_FIXTURES_DIR "/UsdText/bad_unclosed_prim.usda");
  ASSERT_FALSE(bad.ok());
  EXPECT_EQ(bad.error->line, 9u);
  const StageOpenResult binary = openStage(kCompose + "mesh.usdc");
  ASSERT_FALSE(binary.ok());
  EXPECT_NE(binary.error->message.find("not a USD text layer"), std::string::npos);
}

TEST(SceneGenerator, GeneratesExactlyTheAskedNumberOfPrimsWithUniqueEntityIds) {
  for (const std::size_t count :
       {std::size_t{1}, std::size_t{2}, std::size_t{23}, std::size_t{2500}}) {
    LayerReadResult read = readLayerText("generated.usda", generateScene(count));
    ASSERT_TRUE(read.ok()) << read.error->describe();
    const StageOpenResult composed = composeStage(read.layer);
    ASSERT_TRUE(composed.ok());
    const Stage& stage = *composed.stage;
    EXPECT_EQ(stage.prims.size(), count);
    EXPECT_TRUE(stage.problems.empty());
    std::set<std::string> ids;
    std::size_t entities = 0;
    for (const ComposedPrim& p : stage.prims) {
      if (p.kind != "component")
        continue;
      ++entities;
      const auto id = stage.findProperty(p, "orvan:entityId");
      ASSERT_TRUE(id && id->value);
      ids.insert(std::string(id->value->text));
    }
    EXPECT_EQ(ids.size(), entities);
  }
}

TEST(StageComposerChains, PathsMapThroughEveryLevelOfNestedReferences) {
  const auto stage = open("chain_root.usda");
  ASSERT_TRUE(stage);
  ASSERT_NE(stage->findPrim("/Outer/Inner/Part"), nullptr);
  const ComposedPrim& inner = prim(*stage, "/Outer/Inner");
  EXPECT_EQ(stage->findProperty(inner, "absolute")->targets,
            (std::vector<std::string>{"/Outer/Inner/Part"}));
  EXPECT_EQ(stage->findProperty(inner, "relative")->targets,
            (std::vector<std::string>{"/Outer/Inner/Part"}));
  EXPECT_EQ(stage->findProperty(inner, "inputs:tint")->targets,
            (std::vector<std::string>{"/Outer/Inner/Part.outputs:rgb"}));
  EXPECT_EQ(stage->findProperty(prim(*stage, "/Outer"), "pick")->targets,
            (std::vector<std::string>{"/Outer/Inner/Part"}));
  // A reference authored inside a variant of a referenced asset still arrives.
  EXPECT_NE(stage->findPrim("/Outer/Extra/Part"), nullptr);
  EXPECT_EQ(stage->findProperty(prim(*stage, "/Outer/Extra"), "absolute")->targets,
            (std::vector<std::string>{"/Outer/Extra/Part"}));
}

TEST(StageComposerChains, PayloadsInsideReferencesFollowTheLoadOption) {
  const auto loaded = open("chain_root.usda");
  ASSERT_TRUE(loaded);
  EXPECT_NE(loaded->findPrim("/Outer/Heavy/Part"), nullptr);
  ComposeOptions options;
  options.loadPayloads = false;
  const auto unloaded = open("chain_root.usda", options);
  ASSERT_TRUE(unloaded);
  EXPECT_TRUE(prim(*unloaded, "/Outer/Heavy").hasPayload);
  EXPECT_EQ(unloaded->findPrim("/Outer/Heavy/Part"), nullptr);
  EXPECT_NE(unloaded->findPrim("/Outer/Inner/Part"), nullptr);
}

TEST(StageComposerChains, AStrongerDeleteRemovesAWeakerReference) {
  const auto stage = open("chain_root.usda");
  ASSERT_TRUE(stage);
  // The sublayer prepends leaf and middle; the root deletes leaf: only middle's children remain
  // (the variant's child first, being weaker).
  EXPECT_EQ(childNames(*stage, "/Trimmed"), (std::vector<std::string>{"Extra", "Inner", "Heavy"}));
  EXPECT_FALSE(stage->findProperty(prim(*stage, "/Trimmed"), "absolute").has_value());
}

TEST(StageComposerChains, ASublayerCycleIsReportedOnceAndTheRestComposes) {
  const auto stage = open("chain_root.usda");
  ASSERT_TRUE(stage);
  std::size_t cycles = 0;
  for (const StageProblem& problem : stage->problems) {
    if (problem.message.find("includes itself") != std::string::npos)
      ++cycles;
  }
  EXPECT_EQ(cycles, 1u);
  EXPECT_EQ(valueOf(*stage, "/Outer", "fromCycleB"), "1");
}

TEST(StageComposerChains, InstanceProxiesReachEveryDepthBelowTheInstance) {
  const auto stage = open("chain_root.usda");
  ASSERT_TRUE(stage);
  EXPECT_TRUE(prim(*stage, "/Shared").isInstance);
  EXPECT_TRUE(prim(*stage, "/Shared/Inner").instanceProxy);
  EXPECT_TRUE(prim(*stage, "/Shared/Inner/Part").instanceProxy);
  EXPECT_FALSE(prim(*stage, "/Outer/Inner/Part").instanceProxy);
}

TEST(StageComposerDemo, TheHelloWorldSceneComposesCleanlyWithItsSublayerAndReference) {
  const StageOpenResult result = openStage(ORVAN_DEMO_DIR "/hello_world.usda");
  ASSERT_TRUE(result.ok()) << result.error->describe();
  const Stage& stage = *result.stage;
  EXPECT_TRUE(stage.problems.empty());
  // The root, the base and the lighting sublayers, and the lamp post's referenced asset.
  ASSERT_EQ(stage.layers.size(), 4u);
  EXPECT_TRUE(stage.layers[1].inRootLayerStack);
  EXPECT_TRUE(stage.layers[2].inRootLayerStack);
  EXPECT_FALSE(stage.layers[3].inRootLayerStack);
  // The lighting sublayer's colour for the sphere is weaker than the base layer's.
  EXPECT_EQ(valueOf(stage, "/World/BlueSphere", "primvars:displayColor"), "[(0.16, 0.42, 0.9)]");
  EXPECT_EQ(stage.findProperty(prim(stage, "/World/BlueSphere"), "primvars:displayColor")
                ->opinions.size(),
            2u);
}

// Layers that can't be read, as sublayers and as references: composition goes on and says why.
TEST(StageComposerFailures, BrokenBinaryAndFolderLayersAreReportedWithTheirLocation) {
  const auto directory = std::filesystem::temp_directory_path() /
                         ("orvan_compose_broken_" + std::to_string(::getpid()));
  std::filesystem::create_directories(directory / "folder.usda");
  std::ofstream(directory / "broken.usda") << "#usda 1.0\ndef \"B\"\n{\n    float3 v = (1, 2)\n}\n";
  std::ofstream(directory / "binary.usd", std::ios::binary)
      << std::string("BINLAYER\x08\0\0\0", 12);
  std::ofstream(directory / "root.usda")
      << "#usda 1.0\n(\n    subLayers = [@./broken.usda@]\n)\n"
         "def \"A\" (\n    references = @./broken.usda@</B>\n)\n{\n}\n"
         "def \"C\" (\n    references = @./binary.usd@\n)\n{\n}\n"
         "def \"D\" (\n    references = @./folder.usda@\n)\n{\n}\n";
  const StageOpenResult result = openStage((directory / "root.usda").string());
  ASSERT_TRUE(result.ok());
  const Stage& stage = *result.stage;
  ASSERT_EQ(stage.problems.size(), 4u);
  EXPECT_TRUE(stage.problems[0].primPath.empty());
  EXPECT_NE(stage.problems[0].message.find("broken.usda:4:16: expected a tuple of 3 numbers"),
            std::string::npos)
      << stage.problems[0].message;
  EXPECT_TRUE(hasProblemContaining(stage, prim(stage, "/A"), "broken.usda:4:16"));
  EXPECT_TRUE(hasProblemContaining(stage, prim(stage, "/C"), "binary layer"));
  EXPECT_TRUE(hasProblemContaining(stage, prim(stage, "/D"), "folder"));
  EXPECT_FALSE(openStage(directory.string()).ok());
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace orvan::engine
