// The incremental inspector: after every kind of edit its document is byte for byte the one a
// full inspection of the same stage writes, while only the prims whose inputs changed are encoded
// again.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include <unistd.h>

#include "Inspector/IncrementalInspector.h"
#include "Inspector/StageInspector.h"
#include "UsdText/LayerReader.h"
#include "UsdText/SceneGenerator.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

const std::string kFixtures = ORVAN_ENGINE_FIXTURES_DIR "/Inspector/";
const std::string kDemo = ORVAN_DEMO_DIR "/hello_world.usda";

class TempFolder {
 public:
  TempFolder() {
    path_ =
        fs::temp_directory_path() / ("orvan_incremental_" + std::to_string(::getpid()) + "_" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(path_);
    fs::create_directories(path_);
    path_ = fs::canonical(path_);
  }
  ~TempFolder() { fs::remove_all(path_); }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / name, std::ios::binary | std::ios::trunc) << text;
    return (path_ / name).string();
  }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
};

// An entity with parts below it, two entities that reference one asset, a material whose colour
// sits on its shader, and two sublayers.
constexpr const char* kRoot = R"(#usda 1.0
(
    defaultPrim = "World"
    subLayers = [
        @./edits.usda@,
        @./base.usda@
    ]
)

def Xform "World" (
    kind = "assembly"
)
{
    custom color3f orvan:backgroundColor = (0.1, 0.2, 0.3)

    def Xform "Robot" (
        kind = "component"
    )
    {
        custom uint64 orvan:entityId = 7
        custom string orvan:name = "Robot"
        double3 xformOp:translate = (1, 2, 3)
        uniform token[] xformOpOrder = ["xformOp:translate"]

        def Cube "Arm"
        {
            double size = 2

            def Sphere "Hand"
            {
                double radius = 0.5
            }
        }
    }

    def Xform "LampA" (
        kind = "component"
        prepend references = @./lamp.usda@
    )
    {
        custom uint64 orvan:entityId = 8
    }

    def Xform "LampB" (
        kind = "component"
        prepend references = @./lamp.usda@
    )
    {
        custom uint64 orvan:entityId = 9
    }

    def Scope "OrvanAssets"
    {
        def Scope "Materials"
        {
            def Material "Red"
            {
                def Shader "Surface"
                {
                    color3f inputs:diffuseColor = (0.8, 0.1, 0.1)
                    float inputs:roughness = 0.4
                }
            }
        }
    }
}
)";

constexpr const char* kEdits = R"(#usda 1.0
over "World"
{
    over "Robot"
    {
        double3 xformOp:translate = (4, 5, 6)
    }

    over "Box"
    {
    }
}
)";

constexpr const char* kBase = R"(#usda 1.0
over "World"
{
    def Cube "Box" (
        kind = "component"
    )
    {
        custom uint64 orvan:entityId = 10
        double size = 1
    }
}
)";

// Two lamps that say the same, down to a relationship target that names the first: brought in
// as the second, the target lies outside what the reference brings and stays as written.
constexpr const char* kLamp = R"(#usda 1.0
(
    defaultPrim = "Lamp"
)

def Xform "Lamp"
{
    float3[] extent = [(-1, 0, -1), (1, 3, 1)]

    def Sphere "Bulb"
    {
        double radius = 0.2
        rel light:filters = </Lamp/Bulb>
    }
}

def Xform "Lamp2"
{
    float3[] extent = [(-1, 0, -1), (1, 3, 1)]

    def Sphere "Bulb"
    {
        double radius = 0.2
        rel light:filters = </Lamp/Bulb>
    }
}
)";

std::string fullDocument(const Stage& stage, const InspectOptions& options) {
  std::string text;
  const auto error = writeInspectionJson(stage, options, text);
  if (error)
    throw std::runtime_error(*error);
  return text;
}

// Inspects incrementally and checks the document against a full inspection of the same stage.
// Returns how many prims were encoded anew.
std::size_t expectFullDocument(IncrementalInspector& inspector, const Stage& stage,
                               const InspectOptions& options = {}) {
  const IncrementalInspector::Result result = inspector.inspect(stage, options);
  EXPECT_TRUE(result.ok()) << *result.error;
  const std::string text = result.document.text();
  EXPECT_EQ(result.document.size(), text.size());
  const std::string full = fullDocument(stage, options);
  EXPECT_EQ(text.size(), full.size());
  EXPECT_TRUE(text == full)
      << "the documents first differ at byte "
      << std::mismatch(text.begin(), text.end(), full.begin(), full.end()).first - text.begin();
  EXPECT_EQ(inspector.lastStats().encoded + inspector.lastStats().reused, stage.prims.size());
  return inspector.lastStats().encoded;
}

// The layer the server would edit in place; the stage holds it as a layer nobody changes.
Layer& editable(const Stage& stage, std::string_view name) {
  for (const StageLayer& layer : stage.layers) {
    if (layer.name == name && layer.layer)
      return const_cast<Layer&>(*layer.layer);
  }
  throw std::runtime_error("no layer " + std::string(name));
}

LayerPrim& authoredPrim(Layer& layer, std::string_view path) {
  const std::uint32_t index = layer.findPrim(path);
  if (index == kNoPrim)
    throw std::runtime_error("no authored prim " + std::string(path));
  return layer.prims[index];
}

PropertyField& defaultField(Layer& layer, std::string_view path, std::string_view name) {
  for (LayerProperty& property : authoredPrim(layer, path).properties) {
    if (property.name != name)
      continue;
    for (PropertyField& field : property.fields) {
      if (field.suffix.empty())
        return field;
    }
  }
  throw std::runtime_error("no property " + std::string(name) + " on " + std::string(path));
}

void setScalar(Layer& layer, std::string_view path, std::string_view name, ValueKind kind,
               std::string text) {
  PropertyField& field = defaultField(layer, path, name);
  field.value = Value::ofKind(kind, layer.storeText(std::move(text)));
  field.hasValue = true;
}

void setTuple(Layer& layer, std::string_view path, std::string_view name,
              const std::vector<std::string>& numbers) {
  std::vector<Value> items;
  for (const std::string& number : numbers)
    items.push_back(Value::ofKind(ValueKind::Number, layer.storeText(number)));
  PropertyField& field = defaultField(layer, path, name);
  field.value = layer.makeValue(ValueKind::Tuple, {}, items);
  field.hasValue = true;
}

// A new `def` prim under `parentPath`, with one double attribute.
void addPrim(Layer& layer, std::string_view parentPath, std::string name, std::string_view type) {
  const std::uint32_t parent = layer.findPrim(parentPath);
  if (parent == kNoPrim)
    throw std::runtime_error("no authored prim " + std::string(parentPath));
  LayerPrim prim;
  prim.specifier = Specifier::Def;
  prim.typeName = layer.storeText(std::string(type));
  prim.name = layer.storeText(std::move(name));
  prim.parent = parent;
  LayerProperty size;
  size.typeName = "double";
  size.name = "size";
  size.fields.push_back({"", ListOp::Explicit, true, Value::ofKind(ValueKind::Number, "3")});
  prim.properties.push_back(std::move(size));
  layer.prims.push_back(std::move(prim));
  layer.prims[parent].children.push_back(static_cast<std::uint32_t>(layer.prims.size() - 1));
}

void removeChild(Layer& layer, std::string_view parentPath, std::string_view name) {
  std::vector<std::uint32_t>& children = authoredPrim(layer, parentPath).children;
  std::erase_if(children, [&](std::uint32_t child) { return layer.prims[child].name == name; });
}

struct Scene {
  TempFolder folder;
  std::string root;

  Scene() {
    root = folder.write("root.usda", kRoot);
    folder.write("edits.usda", kEdits);
    folder.write("base.usda", kBase);
    folder.write("lamp.usda", kLamp);
  }

  std::shared_ptr<Stage> open(const ComposeOptions& options = {}) const {
    const StageOpenResult opened = openStage(root, options);
    if (!opened.ok())
      throw std::runtime_error(opened.error->describe());
    return opened.stage;
  }
};

TEST(IncrementalInspector, TheFirstDocumentIsTheFullOneAndAnUnchangedStageReusesEveryPrim) {
  for (const std::string& scene :
       {kDemo, kFixtures + "marks_root.usda", kFixtures + "arcs_root.usda",
        kFixtures + "components.usda", kFixtures + "components_lights.usda"}) {
    SCOPED_TRACE(scene);
    const StageOpenResult opened = openStage(scene);
    ASSERT_TRUE(opened.ok());
    const Stage& stage = *opened.stage;
    IncrementalInspector inspector;
    EXPECT_EQ(expectFullDocument(inspector, stage), stage.prims.size());
    const std::uint64_t digest = inspector.inspect(stage).document.digest();
    EXPECT_EQ(inspector.lastStats().encoded, 0u);
    EXPECT_EQ(inspector.lastStats().reused, stage.prims.size());
    EXPECT_EQ(expectFullDocument(inspector, stage), 0u);

    // Read from any offset, as a body provider does, the pieces give the same text.
    const IncrementalInspector::Result document = inspector.inspect(stage);
    const std::string text = document.document.text();
    std::string read;
    for (std::uint64_t offset = 0; offset < document.document.size();) {
      std::string_view piece = document.document.textAt(offset);
      ASSERT_FALSE(piece.empty()) << offset;
      piece = piece.substr(0, 1 + offset % 5000);  // the reader takes less than it is offered
      read += piece;
      offset += piece.size();
    }
    EXPECT_TRUE(read == text);
    EXPECT_TRUE(document.document.textAt(text.size()).empty());
    EXPECT_EQ(document.document.textAt(text.size() - 1), "}");

    // A stage composed anew from the same files gives the same document and the same digest.
    const StageOpenResult again = openStage(scene);
    const IncrementalInspector::Result reused = inspector.inspect(*again.stage);
    EXPECT_EQ(inspector.lastStats().encoded, 0u);
    EXPECT_EQ(reused.document.digest(), digest);
    IncrementalInspector fresh;
    EXPECT_EQ(fresh.inspect(*again.stage).document.digest(), digest);
  }
}

TEST(IncrementalInspector, PropertiesChangedInPlaceReencodeTheirPrimAndWhatReadsIt) {
  Scene scene;
  const std::shared_ptr<Stage> stage = scene.open();
  IncrementalInspector inspector;
  expectFullDocument(inspector, *stage);
  const std::uint64_t before = inspector.inspect(*stage).document.digest();

  // A value in the root layer: the prim, and its parent, which reads its children.
  setScalar(editable(*stage, "root.usda"), "/World/Robot", "orvan:name", ValueKind::String,
            "\"Walker\"");
  EXPECT_EQ(expectFullDocument(inspector, *stage), 2u);
  EXPECT_NE(inspector.inspect(*stage).document.digest(), before);

  // A value in a sublayer: the override mark moves with it.
  setTuple(editable(*stage, "edits.usda"), "/World/Robot", "xformOp:translate", {"7", "8", "9"});
  EXPECT_EQ(expectFullDocument(inspector, *stage), 2u);

  // A world setting on /World: its descendants keep their parts.
  setTuple(editable(*stage, "root.usda"), "/World", "orvan:backgroundColor", {"0.5", "0.5", "0.5"});
  EXPECT_EQ(expectFullDocument(inspector, *stage), 1u);

  // The shader's colour shows in the material's component and in the stage's asset list.
  setTuple(editable(*stage, "root.usda"), "/World/OrvanAssets/Materials/Red/Surface",
           "inputs:diffuseColor", {"0.2", "0.9", "0.2"});
  EXPECT_EQ(expectFullDocument(inspector, *stage), 2u);

  // The referenced asset's extent gives the lamps' asset its bounds.
  {
    Layer& lamp = editable(*stage, "lamp.usda");
    PropertyField& extent = defaultField(lamp, "/Lamp", "extent");
    std::vector<Value> corners;
    for (const char* corner : {"-2", "2"}) {
      std::vector<Value> numbers(3, Value::ofKind(ValueKind::Number, lamp.storeText(corner)));
      corners.push_back(lamp.makeValue(ValueKind::Tuple, {}, numbers));
    }
    extent.value = lamp.makeValue(ValueKind::List, {}, corners);
  }
  EXPECT_EQ(expectFullDocument(inspector, *stage), 3u);  // both lamps and their parent

  // Another entity id: every prim that belongs to the entity takes it.
  setScalar(editable(*stage, "root.usda"), "/World/Robot", "orvan:entityId", ValueKind::Number,
            "70");
  EXPECT_EQ(expectFullDocument(inspector, *stage), 4u);  // World, Robot, Arm, Hand
  // The id of the world entity, which has none: only the owning entity's path tells them apart.
  setScalar(editable(*stage, "root.usda"), "/World/Robot", "orvan:entityId", ValueKind::Number,
            "0");
  EXPECT_EQ(expectFullDocument(inspector, *stage), 4u);
  // No entity any more: the parts fall back to the world entity.
  setScalar(editable(*stage, "root.usda"), "/World/Robot", "orvan:entityId", ValueKind::Number,
            "not a number");
  EXPECT_EQ(expectFullDocument(inspector, *stage), 4u);

  // Metadata alone on a stronger layer's over makes it an override of the box.
  {
    Layer& edits = editable(*stage, "edits.usda");
    MetadataEntry kind;
    kind.key = "kind";
    kind.value = Value::ofKind(ValueKind::String, "\"component\"");
    authoredPrim(edits, "/World/Box").metadata.push_back(kind);
  }
  EXPECT_EQ(expectFullDocument(inspector, *stage), 2u);  // World, Box
}

TEST(IncrementalInspector, PrimsAddedAndRemovedInANewlyComposedStage) {
  Scene scene;
  LayerReadResult read = readLayerFile(scene.root);
  ASSERT_TRUE(read.ok());
  const std::shared_ptr<Layer> root = read.layer;
  IncrementalInspector inspector;
  StageOpenResult stage = composeStage(root);
  expectFullDocument(inspector, *stage.stage);

  // A new prim shifts every later prim of the stage: they are found by path and kept.
  addPrim(*root, "/World/Robot", "Leg", "Cube");
  stage = composeStage(root);
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 2u);  // Robot, Leg

  addPrim(*root, "/World/Robot/Leg", "Foot", "Sphere");
  stage = composeStage(root);
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 2u);  // Leg, Foot

  // The first lamp goes: the second one now brings the asset into the list.
  removeChild(*root, "/World", "LampA");
  stage = composeStage(root);
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 1u);  // World

  // The material goes, and with it its asset.
  removeChild(*root, "/World/OrvanAssets/Materials", "Red");
  stage = composeStage(root);
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 1u);  // Materials

  // A prim comes back under a name that was used before, as another type.
  addPrim(*root, "/World", "LampA", "Cube");
  stage = composeStage(root);
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 2u);  // World, LampA
}

TEST(IncrementalInspector, ActiveAndMutedLayersAndTheLayerStackItselfAreSeen) {
  Scene scene;
  IncrementalInspector inspector;
  const std::shared_ptr<Stage> stage = scene.open();
  expectFullDocument(inspector, *stage);
  // Prims with opinions in the old or the new active layer change their marks.
  for (const char* active : {"base.usda", "root.usda", "edits.usda", ""}) {
    SCOPED_TRACE(active);
    expectFullDocument(inspector, *stage, {.activeLayer = active});
  }
  // Only the text around the prims says which scene this is.
  EXPECT_EQ(expectFullDocument(inspector, *stage, {.sceneUri = "/elsewhere/scene.usda"}), 0u);

  const std::shared_ptr<Stage> muted =
      scene.open({.mutedLayers = {scene.folder.file("edits.usda")}});
  expectFullDocument(inspector, *muted);
  expectFullDocument(inspector, *scene.open());

  // A missing sublayer is a problem shown on the first root prim until the file appears.
  fs::remove(scene.folder.file("base.usda"));
  expectFullDocument(inspector, *scene.open());
  scene.folder.write("base.usda", kBase);
  expectFullDocument(inspector, *scene.open());

  // A referenced file that goes missing is a problem on the prims that name it; one that does
  // not read is another.
  fs::remove(scene.folder.file("lamp.usda"));
  expectFullDocument(inspector, *scene.open());
  scene.folder.write("lamp.usda", "#usda 1.0\ndef \"Lamp\" {\n");
  EXPECT_EQ(expectFullDocument(inspector, *scene.open()), 3u);  // World and the two lamps
  scene.folder.write("lamp.usda", kLamp);
  expectFullDocument(inspector, *scene.open());
}

TEST(IncrementalInspector, WhatArcsAndTheLayerStackSayAboutUnchangedPrimsIsSeen) {
  Scene scene;
  IncrementalInspector inspector;
  expectFullDocument(inspector, *scene.open());

  // The bulb below the first lamp now comes from the other lamp of the file: the same text,
  // reached through another path, so its relationship target maps differently.
  std::string root = kRoot;
  const std::string reference = "prepend references = @./lamp.usda@\n";
  root.replace(root.find(reference), reference.size(),
               "prepend references = @./lamp.usda@</Lamp2>\n");
  scene.folder.write("root.usda", root);
  EXPECT_EQ(expectFullDocument(inspector, *scene.open()), 3u);  // World, LampA, its bulb

  // Sublayers that are missing are problems of the stage, shown on /World, which says the same
  // throughout; an empty layer that appears ends its problem.
  const std::string sublayers = "@./base.usda@\n";
  root.replace(root.find(sublayers), sublayers.size(), "@./base.usda@,\n@./extra.usda@\n");
  scene.folder.write("root.usda", root);
  expectFullDocument(inspector, *scene.open());
  root.replace(root.find("@./extra.usda@"), 14, "@./extra.usda@,\n@./more.usda@");
  scene.folder.write("root.usda", root);
  EXPECT_EQ(expectFullDocument(inspector, *scene.open()), 1u);
  scene.folder.write("extra.usda", "#usda 1.0\n");
  scene.folder.write("more.usda", "#usda 1.0\n");
  EXPECT_EQ(expectFullDocument(inspector, *scene.open()), 1u);
}

TEST(IncrementalInspector, RefusedOptionsAndLimitsKeepThePartsForTheNextCall) {
  Scene scene;
  const std::shared_ptr<Stage> stage = scene.open();
  IncrementalInspector inspector;
  expectFullDocument(inspector, *stage);

  const IncrementalInspector::Result unknown = inspector.inspect(*stage, {.activeLayer = "nope"});
  ASSERT_FALSE(unknown.ok());
  EXPECT_EQ(*unknown.error, "the active layer 'nope' is not in the scene's layer stack");
  EXPECT_EQ(expectFullDocument(inspector, *stage), 0u);

  std::string ignored;
  const InspectOptions small{.maxOutputBytes = 1000};
  const IncrementalInspector::Result tooLarge = inspector.inspect(*stage, small);
  ASSERT_FALSE(tooLarge.ok());
  EXPECT_EQ(*tooLarge.error, writeInspectionJson(*stage, small, ignored).value_or(""));
  EXPECT_EQ(expectFullDocument(inspector, *stage), 0u);

  inspector.clear();
  EXPECT_EQ(expectFullDocument(inspector, *stage), stage->prims.size());
}

// Counts, not timings: the benchmark measures how long the same edits take.
TEST(IncrementalInspectorCounts, AnEditOnAGeneratedSceneReencodesOnlyThePrimsItTouches) {
  LayerReadResult read = readLayerText("/generated/scene.usda", generateScene(3000));
  ASSERT_TRUE(read.ok());
  const std::shared_ptr<Layer> layer = read.layer;
  StageOpenResult stage = composeStage(layer);
  ASSERT_TRUE(stage.ok());
  ASSERT_EQ(stage.stage->prims.size(), 3000u);
  IncrementalInspector inspector;
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 3000u);

  const ComposedPrim* cluster = stage.stage->findPrim("/World/Zone_1/Cluster_3");
  ASSERT_TRUE(cluster);
  const std::string entity = stage.stage->prims[cluster->children.at(7)].path;
  setTuple(*layer, entity, "xformOp:translate", {"1", "2", "3"});
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 2u);  // the entity and its cluster
  setTuple(*layer, entity, "xformOp:scale", {"2", "2", "2"});
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 2u);
  setTuple(*layer, "/World", "orvan:backgroundColor", {"1", "1", "1"});
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 1u);

  addPrim(*layer, "/World/Zone_1/Cluster_3", "Added", "Cube");
  stage = composeStage(layer);
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 2u);
  removeChild(*layer, "/World/Zone_0", "Cluster_2");
  stage = composeStage(layer);
  EXPECT_EQ(expectFullDocument(inspector, *stage.stage), 1u);
}

// Random edits of every kind on a generated scene, each followed by the comparison with a full
// inspection: values changed in place, prims added and removed, materials with shaders, internal
// references (some of them cycles), references to missing files.
class RandomEdits {
 public:
  explicit RandomEdits(std::shared_ptr<Layer> layer) : layer_(std::move(layer)) {}

  // The authored prims of the root layer at the paths the stage has, in stage order.
  std::vector<std::uint32_t> authored(const Stage& stage) const {
    std::vector<std::uint32_t> prims;
    for (const ComposedPrim& prim : stage.prims) {
      if (const std::uint32_t index = layer_->findPrim(prim.path); index != kNoPrim)
        prims.push_back(index);
    }
    return prims;
  }

  // Returns whether the edit changed what the stage is composed from (else the stage is kept).
  bool apply(const Stage& stage) {
    const std::vector<std::uint32_t> prims = authored(stage);
    const std::uint32_t target = prims[pick(prims.size())];
    switch (pick(6)) {
      case 0:
      case 1:
        changeValue(target);
        return false;
      case 2:
        addChild(target);
        return true;
      case 3: {
        std::vector<std::uint32_t>& children = layer_->prims[target].children;
        if (!children.empty())
          children.erase(children.begin() + static_cast<std::ptrdiff_t>(pick(children.size())));
        return true;
      }
      case 4: {
        const std::string other = layer_->primPath(prims[pick(prims.size())]);
        addReference(target, ValueKind::Path, "<" + other + ">");
        return true;
      }
      default:
        addReference(target, ValueKind::Asset, "@./missing_" + std::to_string(pick(3)) + ".usda@");
        return true;
    }
  }

 private:
  std::size_t pick(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
  }

  std::string number() { return std::to_string(pick(1000)); }

  // A number or a tuple of numbers of one of the prim's properties gets new numbers.
  void changeValue(std::uint32_t target) {
    std::vector<PropertyField*> fields;
    for (LayerProperty& property : layer_->prims[target].properties) {
      for (PropertyField& field : property.fields) {
        if (field.hasValue &&
            (field.value.kind == ValueKind::Number || field.value.kind == ValueKind::Tuple))
          fields.push_back(&field);
      }
    }
    if (fields.empty())
      return;
    PropertyField& field = *fields[pick(fields.size())];
    if (field.value.kind == ValueKind::Number) {
      field.value = Value::ofKind(ValueKind::Number, layer_->storeText(number()));
      return;
    }
    std::vector<Value> items;
    for (std::uint32_t i = 0; i < field.value.itemCount; ++i)
      items.push_back(Value::ofKind(ValueKind::Number, layer_->storeText(number())));
    field.value = layer_->makeValue(ValueKind::Tuple, {}, items);
  }

  std::uint32_t add(std::uint32_t parent, std::string_view type, std::string_view property,
                    std::string_view propertyType, Value value) {
    LayerPrim prim;
    prim.typeName = type;
    prim.name = layer_->storeText("Added" + std::to_string(added_++));
    prim.parent = parent;
    LayerProperty authored;
    authored.typeName = propertyType;
    authored.name = property;
    authored.fields.push_back({"", ListOp::Explicit, true, value});
    prim.properties.push_back(std::move(authored));
    layer_->prims.push_back(std::move(prim));
    const auto index = static_cast<std::uint32_t>(layer_->prims.size() - 1);
    layer_->prims[parent].children.push_back(index);
    return index;
  }

  void addChild(std::uint32_t parent) {
    if (pick(2) == 0) {
      add(parent, "Cube", "size", "double", Value::ofKind(ValueKind::Number, "2"));
      return;
    }
    // A material whose colour is on its shader.
    const std::uint32_t material =
        add(parent, "Material", "orvan:entityId", "uint64",
            Value::ofKind(ValueKind::Number, layer_->storeText(number())));
    std::vector<Value> colour;
    for (int i = 0; i < 3; ++i)
      colour.push_back(Value::ofKind(ValueKind::Number, layer_->storeText(number())));
    add(material, "Shader", "inputs:diffuseColor", "color3f",
        layer_->makeValue(ValueKind::Tuple, {}, colour));
  }

  void addReference(std::uint32_t target, ValueKind kind, std::string text) {
    MetadataEntry entry;
    entry.op = ListOp::Prepend;
    entry.key = "references";
    entry.value = Value::ofKind(kind, layer_->storeText(std::move(text)));
    layer_->prims[target].metadata.push_back(entry);
  }

  std::shared_ptr<Layer> layer_;
  std::mt19937_64 random_{20261125};
  int added_ = 0;
};

TEST(IncrementalInspectorRandomEdits, EveryDocumentIsTheFullOne) {
  LayerReadResult read = readLayerText(
      "/generated/scene.usda", generateScene(400, {.entitiesPerCluster = 6, .clustersPerZone = 4}));
  ASSERT_TRUE(read.ok());
  RandomEdits edits(read.layer);
  StageOpenResult stage = composeStage(read.layer);
  IncrementalInspector inspector;
  expectFullDocument(inspector, *stage.stage);
  std::size_t encoded = 0;
  for (int round = 0; round < 120; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    if (edits.apply(*stage.stage))
      stage = composeStage(read.layer);
    ASSERT_TRUE(stage.ok());
    encoded += expectFullDocument(inspector, *stage.stage);
    if (testing::Test::HasFailure())
      return;
  }
  // Parts are kept: far fewer prims were encoded than 120 full inspections would.
  EXPECT_LT(encoded, 120 * stage.stage->prims.size() / 10);
}

}  // namespace
}  // namespace orvan::engine
