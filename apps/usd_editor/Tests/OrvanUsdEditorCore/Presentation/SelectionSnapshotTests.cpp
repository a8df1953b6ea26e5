#include <gtest/gtest.h>

#include "Presentation/EditorClientDocumentState.h"
#include "Presentation/SelectionSnapshot.h"
#include "Support/StageBuilders.h"

namespace orvan::editor {
namespace {

UsdComponent component(std::string type) {
  UsdComponent made;
  made.type = std::move(type);
  return made;
}

UsdAttribute attribute(std::string name, std::string type, std::string value) {
  UsdAttribute made;
  made.name = std::move(name);
  made.type = std::move(type);
  made.value = std::move(value);
  return made;
}

std::vector<std::string> types(const std::vector<UsdComponent>& components) {
  std::vector<std::string> out;
  for (const auto& each : components)
    out.push_back(each.type);
  return out;
}

// Two entities with their parts: /A (Name, Transform, Light, Body) and /B (Name, Body, Transform),
// a part /A/Mesh that belongs to /A, a lone /C entity with no component in common, and /Loose,
// which belongs to no entity.
class SelectionSnapshotTest : public ::testing::Test {
 protected:
  void SetUp() override {
    StageInspection stage = testing::makeTreeStage(0, 0, 0);
    auto a = testing::makePrimDetail("/A", "Xform");
    a.components = {component("Name"), component("Transform"), component("Light"),
                    component("Body")};
    a.attributes = {attribute("visibility", "token", "inherited"), attribute("size", "double", "1"),
                    attribute("tag", "string", "a")};
    auto b = testing::makePrimDetail("/B", "Xform");
    b.components = {component("Name"), component("Body"), component("Transform")};
    b.attributes = {attribute("size", "double", "2"), attribute("visibility", "token", "invisible"),
                    attribute("tag", "token", "b")};
    auto mesh = testing::makePrimDetail("/A/Mesh", "Mesh");
    mesh.entityPath = "/A";
    mesh.attributes = {attribute("visibility", "token", "inherited")};
    auto c = testing::makePrimDetail("/C", "Xform");
    c.entityPath.clear();
    c.badges = {"entity"};
    c.components = {component("Name"), component("Script")};
    auto loose = testing::makePrimDetail("/Loose", "Scope");
    loose.entityPath.clear();
    stage.prims = {a, b, mesh, c, loose};
    stage.catalog = {component("Transform"), component("Light"), component("Audio")};
    document_ = EditorClientDocumentState::makeSnapshot(PreparedStage::prepare(stage), {});
  }

  EditorSelectionSnapshot snapshot(const std::string& primary,
                                   const std::vector<std::string>& paths) {
    return selectionSnapshot(*document_, previews_, primary, paths);
  }

  std::shared_ptr<const EditorClientDocumentSnapshot> document_;
  StoreScenePreviews previews_;
};

TEST_F(SelectionSnapshotTest, OneEntityShowsItsComponentsAndWhatCanStillBeAdded) {
  const auto shown = snapshot("/A/Mesh", {"/A/Mesh"});
  ASSERT_TRUE(shown.prim.has_value());
  EXPECT_EQ(shown.prim->path, "/A/Mesh");
  EXPECT_EQ(shown.entityPath, "/A") << "a part shows the entity it belongs to";
  ASSERT_TRUE(shown.entity.has_value());
  EXPECT_EQ(types(shown.components),
            (std::vector<std::string>{"Name", "Transform", "Light", "Body"}));
  EXPECT_EQ(types(shown.availableCatalog), (std::vector<std::string>{"Audio"}));

  const auto marked = snapshot("/C", {"/C"});
  EXPECT_EQ(marked.entityPath, "/C") << "marked as an entity, with no entity path of its own";
  EXPECT_EQ(marked.entityPaths, (std::vector<std::string>{"/C"}));

  const auto loose = snapshot("/Loose", {"/Loose"});
  EXPECT_EQ(loose.entityPath, "");
  EXPECT_TRUE(loose.entities.empty());
  EXPECT_TRUE(loose.components.empty());
  EXPECT_EQ(types(loose.availableCatalog),
            (std::vector<std::string>{"Transform", "Light", "Audio"}));
}

TEST_F(SelectionSnapshotTest, SeveralEntitiesShareOnlyWhatEveryOneHas) {
  const auto both = snapshot("/A", {"/A", "/A/Mesh", "/B"});
  EXPECT_EQ(both.entityPaths, (std::vector<std::string>{"/A", "/B"}))
      << "distinct, in selection order";
  EXPECT_EQ(types(both.components), (std::vector<std::string>{"Transform", "Body"}))
      << "the first entity's order, never the name";
  EXPECT_EQ(types(both.availableCatalog), (std::vector<std::string>{"Light", "Audio"}));

  const auto unrelated = snapshot("/A", {"/A", "/C"});
  EXPECT_TRUE(unrelated.components.empty()) << "nothing in common shows nothing";
  EXPECT_TRUE(commonInspectorComponents({}).empty());
}

TEST_F(SelectionSnapshotTest, AttributesAreThoseEverySelectedPrimHasByNameAndType) {
  const auto both = snapshot("/A", {"/A", "/B"});
  ASSERT_EQ(both.attributes.size(), 2u) << "tag differs in type, so it is not shared";
  EXPECT_EQ(both.attributes[0].name, "visibility");
  EXPECT_EQ(both.attributes[0].value, "inherited") << "a differing value stays the primary prim's";
  EXPECT_EQ(both.attributes[1].value, "1");

  EXPECT_EQ(snapshot("/A", {"/A", "/A/Mesh"}).attributes.size(), 1u);
  EXPECT_EQ(snapshot("/A", {"/A", "/Gone"}).attributes.size(), 3u) << "a missing path is no prim";
}

TEST_F(SelectionSnapshotTest, UnknownPathsAndStorePreviews) {
  EXPECT_EQ(snapshot("/Gone", {"/Gone"}), EditorSelectionSnapshot::empty());
  previews_["/Preview"] =
      StoreScenePreview{"/Preview", {"store://x", "X", "prefab", "", std::nullopt, 0}};
  const auto preview = snapshot("/Preview", {"/Preview"});
  ASSERT_TRUE(preview.storePreview.has_value());
  EXPECT_EQ(preview.storePreview->item.uri, "store://x");
  EXPECT_FALSE(preview.prim.has_value());
}

}  // namespace
}  // namespace orvan::editor
