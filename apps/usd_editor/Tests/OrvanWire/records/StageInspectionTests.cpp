#include <gtest/gtest.h>

#include <string>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/records/StageInspection.h"
#include "orvan/wire/records/StageNormalization.h"

namespace orvan::editor {
namespace {

constexpr const char* kMinimalStage =
    R"({"sceneUri":"/p/scene.usda","rootPrims":[],"prims":[],"catalog":[],"assets":[]})";

std::string primJson(const std::string& path, const std::string& extra = "") {
  return R"({"path":")" + path + R"(","name":"n","typeName":"Xform","parent":"/","active":true,)" +
         R"("badges":[],"entityPath":")" + path +
         R"(","entityId":1,"components":[],"attributes":[])" + extra + "}";
}

TEST(StageInspectionRecordsTest, MinimalStageTakesTheStatedDefaults) {
  const auto stage = decodeJson<StageInspection>(kMinimalStage);
  ASSERT_TRUE(stage.ok()) << stage.error().description;
  EXPECT_TRUE(stage->usdLayersEnabled) << "a stage without the key reads as layers enabled";
  StageInspection expected = StageInspection::empty();
  expected.sceneUri = "/p/scene.usda";
  EXPECT_EQ(*stage, expected);
}

TEST(StageInspectionRecordsTest, MissingOrMistypedRequiredKeysFailTheWholeStageWithItsPath) {
  const auto missing = decodeJson<RemoteStageResponse>(
      R"({"revision":3,"stage":{"sceneUri":"s","rootPrims":[],"prims":[],"catalog":[]}})");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error().description, "missing required key at stage.assets");

  const std::string badPrim = R"({"revision":3,"stage":{"sceneUri":"s","rootPrims":[],"prims":[)" +
                              primJson("/a") + "," + primJson("/b", R"(,"entityId":"7")") +
                              R"(],"catalog":[],"assets":[]}})";
  const auto mistyped = decodeJson<RemoteStageResponse>(badPrim);
  ASSERT_FALSE(mistyped.ok());
  EXPECT_NE(mistyped.error().description.find("at stage.prims[1].entityId"), std::string::npos)
      << mistyped.error().description;
}

// The tree of a chain of `depth` prims, each the only child of the one before.
std::string primChainJson(std::size_t depth) {
  std::string json;
  std::string path;
  for (std::size_t level = 0; level < depth; ++level) {
    const std::string parent = path.empty() ? "/" : path;
    path += "/p";
    json += R"({"path":")" + path + R"(","name":"p","typeName":"Xform","parent":")" + parent +
            R"(","active":true,"badges":[],"children":[)";
  }
  for (std::size_t level = 0; level < depth; ++level)
    json += "]}";
  return json;
}

std::string stageWithChain(std::size_t depth) {
  return R"({"sceneUri":"/p/deep.usda","rootPrims":[)" + primChainJson(depth) +
         R"(],"prims":[],"catalog":[],"assets":[]})";
}

std::size_t chainDepth(const UsdPrimNode& root) {
  std::size_t depth = 1;
  for (const UsdPrimNode* node = &root; !node->children.empty(); node = &node->children[0])
    ++depth;
  return depth;
}

// Every scene the engine's reader takes (prims nested up to its limit) decodes, from the local
// inspector and from the server alike; a deeper record fails with a message, not a crash.
TEST(StageInspectionRecordsTest, PrimsNestedAsDeepAsScenesMayGoDecodeAndDeeperOnesFailCleanly) {
  const auto local = decodeJson<StageInspection>(stageWithChain(kMaxPrimNesting), "stage");
  ASSERT_TRUE(local.ok()) << local.error().description;
  ASSERT_EQ(local->rootPrims.size(), 1u);
  EXPECT_EQ(chainDepth(local->rootPrims[0]), kMaxPrimNesting);

  const auto remote = decodeJson<RemoteStageResponse>(R"({"revision":4,"stage":)" +
                                                      stageWithChain(kMaxPrimNesting) + "}");
  ASSERT_TRUE(remote.ok()) << remote.error().description;
  EXPECT_EQ(chainDepth(remote->stage.rootPrims[0]), kMaxPrimNesting);
  // Normalising walks the tree too.
  EXPECT_EQ(chainDepth(normalizedAuthoringStage(remote->stage).rootPrims[0]), kMaxPrimNesting);

  for (const std::size_t depth : {std::size_t{300}, std::size_t{5000}}) {
    const auto deeper = decodeJson<StageInspection>(stageWithChain(depth), "stage");
    ASSERT_FALSE(deeper.ok()) << depth;
    EXPECT_EQ(deeper.error().code, kJsonMalformed);
    EXPECT_TRUE(deeper.error().description.starts_with("nesting too deep at stage.rootPrims[0]"))
        << deeper.error().description;
  }
}

TEST(StageInspectionRecordsTest, RevisionAndEntityIdsKeepAllSixtyFourBits) {
  const std::string json =
      R"({"revision":18446744073709551615,"stage":{"sceneUri":"s","rootPrims":[],)"
      R"("prims":[)" +
      primJson("/a", R"(,"entityId":9223372036854775809)") + R"(],"catalog":[],"assets":[]}})";
  const auto response = decodeJson<RemoteStageResponse>(json);
  ASSERT_TRUE(response.ok()) << response.error().description;
  EXPECT_EQ(response->revision, 18446744073709551615ull);
  EXPECT_EQ(response->stage.prims.at(0).entityId, 9223372036854775809ull);
  const auto again = decodeJson<RemoteStageResponse>(encodeJson(*response));
  ASSERT_TRUE(again.ok());
  EXPECT_EQ(*again, *response);
}

TEST(StageInspectionRecordsTest, AssetBoundsMetadataNeedsBothBoundsKeys) {
  const auto decodeAsset = [](const std::string& extra) {
    return decodeJson<UsdAsset>(R"({"id":1,"name":"m","kind":"material","source":"s")" + extra +
                                "}");
  };
  const auto none = decodeAsset("");
  ASSERT_TRUE(none.ok());
  EXPECT_FALSE(none->hasBoundsMetadata);
  EXPECT_EQ(none->boundsDimensions, (std::vector<double>{0.75, 0.75, 0.75}));
  EXPECT_EQ(none->baseColor, (std::vector<double>{0.15, 0.55, 1.0, 1.0}));
  EXPECT_EQ(none->shaderModel, "pbr");
  EXPECT_DOUBLE_EQ(none->roughness, 0.55);
  EXPECT_FALSE(
      decodeAsset(R"(,"boundsCenter":[1,2,3],"boundsDimensions":null)")->hasBoundsMetadata);
  const auto both = decodeAsset(R"(,"boundsDimensions":[2,2,2],"boundsCenter":[1,2,3])");
  ASSERT_TRUE(both.ok());
  EXPECT_TRUE(both->hasBoundsMetadata);
  EXPECT_EQ(both->boundsCenter, (std::vector<double>{1, 2, 3}));
  // The flag survives a round trip because encoding writes both keys.
  EXPECT_TRUE(decodeJson<UsdAsset>(encodeJson(*both))->hasBoundsMetadata);
}

TEST(StageInspectionRecordsTest, OptionalKeysStayAbsentAndPropertiesTakeDefaults) {
  const auto property = decodeJson<ComponentProperty>(
      R"({"name":"radius","kind":"number","value":"0.5","min":null,"step":0.1,"unknown":{"x":[1]}})");
  ASSERT_TRUE(property.ok()) << property.error().description;
  EXPECT_FALSE(property->min.has_value());
  EXPECT_EQ(property->step, 0.1);
  EXPECT_FALSE(property->overridden);

  const auto layer = decodeJson<UsdLayerInfo>(
      R"({"identifier":"a","name":"a","path":"/a","root":true,"muted":false,"writable":true})");
  ASSERT_TRUE(layer.ok());
  EXPECT_FALSE(layer->depth.has_value());
  EXPECT_EQ(encodeJson(*layer).find("depth"), std::string::npos) << "absent optionals stay out";
}

UsdPrimNode node(std::string path, std::optional<bool> defined = std::nullopt,
                 std::vector<std::string> badges = {}, std::vector<UsdPrimNode> children = {}) {
  UsdPrimNode result;
  result.path = std::move(path);
  result.defined = defined;
  result.badges = std::move(badges);
  result.children = std::move(children);
  return result;
}

UsdPrimDetail detail(std::string path, std::optional<bool> defined = std::nullopt,
                     std::vector<std::string> badges = {}, int components = 0) {
  UsdPrimDetail result;
  result.path = std::move(path);
  result.defined = defined;
  result.badges = std::move(badges);
  result.components.resize(static_cast<std::size_t>(components));
  return result;
}

std::vector<std::string> paths(const std::vector<UsdPrimDetail>& prims) {
  std::vector<std::string> out;
  for (const auto& prim : prims)
    out.push_back(prim.path);
  return out;
}

TEST(StageNormalizationTest, InternalPathsAreRecognisedByWholeNames) {
  for (const char* internal : {"/_OrvanAssets", "/__VelkPrototypes/p", "/World/OrvanAssets/x",
                               "/Scene/OrvanComponents", "/A/OrvanComponents/b/c"}) {
    EXPECT_TRUE(isEditorInternalPrimPath(internal)) << internal;
  }
  for (const char* visible :
       {"/World/OrvanAssetsMore", "/_OrvanAssetsX", "/World", "/Scene/MyOrvanComponents2/a"}) {
    EXPECT_FALSE(isEditorInternalPrimPath(visible)) << visible;
  }
}

TEST(StageNormalizationTest, FlatListAndTreeDropPlaceholdersDifferently) {
  StageInspection stage;
  stage.prims = {detail("/World"),
                 detail("/World/OrvanAssets/x"),
                 detail("/World/Payload", false, {"payload"}),
                 detail("/World/Ghost", false, {}, 0),
                 detail("/World/WithComponent", false, {}, 1),
                 detail("/World/Defined", true, {}, 0)};
  stage.rootPrims = {
      node("/World", std::nullopt, {},
           {node("/World/OrvanAssets", std::nullopt, {}, {node("/World/OrvanAssets/x")}),
            node("/World/Payload", false, {"payload"}),
            node("/World/Ghost", false, {}, {node("/World/Ghost/Child")}),
            node("/World/WithComponent", false), node("/World/Defined", true)})};
  UsdComponent catalogEntry;
  catalogEntry.type = "Light";
  stage.catalog = {catalogEntry};

  const StageInspection normalized = normalizedAuthoringStage(stage);
  EXPECT_EQ(paths(normalized.prims),
            (std::vector<std::string>{"/World", "/World/Payload", "/World/WithComponent",
                                      "/World/Defined"}));
  ASSERT_EQ(normalized.rootPrims.size(), 1u);
  std::vector<std::string> children;
  for (const auto& child : normalized.rootPrims[0].children)
    children.push_back(child.path);
  EXPECT_EQ(children, (std::vector<std::string>{"/World/Payload", "/World/Defined"}))
      << "the not-defined node with a component leaves the tree but stays in the flat list";
  EXPECT_EQ(normalized.catalog, stage.catalog);
  EXPECT_EQ(normalizedAuthoringStage(normalized), normalized)
      << "normalising twice changes nothing";
}

}  // namespace
}  // namespace orvan::editor
