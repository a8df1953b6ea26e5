// Small helpers the reader and composer lean on: literal decoding, numbers, list edits, paths.
#include <gtest/gtest.h>

#include "UsdText/Expressions.h"
#include "UsdText/LayerReader.h"
#include "UsdText/ListEdits.h"
#include "UsdText/PathMapping.h"
#include "UsdText/SceneGenerator.h"

namespace orvan::engine {
namespace {

TEST(StringLiterals, EscapesDecodeToTheirBytes) {
  EXPECT_EQ(decodeStringLiteral(R"("\101\x42\u00e9\U0001F600")"), "AB\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(decodeStringLiteral(R"("tab\tnl\ncr\r")"), "tab\tnl\ncr\r");
  EXPECT_EQ(decodeStringLiteral(R"("unknown \q stays")"), "unknown q stays");
  EXPECT_EQ(decodeStringLiteral(R"("\x" and "\u")"), "x\" and \"u");
  EXPECT_EQ(decodeStringLiteral("''''''"), "");
  EXPECT_EQ(decodeStringLiteral("'''it's'''"), "it's");
  EXPECT_EQ(encodeStringLiteral("a\"b\\c\nd"), R"("a\"b\\c\nd")");
  EXPECT_EQ(encodeAssetLiteral("plain.usda"), "@plain.usda@");
  EXPECT_EQ(encodeAssetLiteral("a@b"), "@@@a@b@@@");
  EXPECT_EQ(encodeAssetLiteral("x@@@y"), "@@@x\\@@@y@@@");
}

TEST(ValueConversions, NumbersBoolsAndLookups) {
  EXPECT_EQ(Value::ofKind(ValueKind::Number, "+2.5").toNumber(), 2.5);
  EXPECT_EQ(Value::ofKind(ValueKind::Number, "-1e3").toNumber(), -1000.0);
  EXPECT_FALSE(Value::ofKind(ValueKind::String, "\"1\"").toNumber());
  EXPECT_EQ(Value::ofKind(ValueKind::Identifier, "true").toBool(), true);
  EXPECT_EQ(Value::ofKind(ValueKind::Number, "0").toBool(), false);
  EXPECT_FALSE(Value::ofKind(ValueKind::Identifier, "maybe").toBool());
  EXPECT_EQ(Value::ofKind(ValueKind::Path, "</A/B>").decoded(), "/A/B");

  const LayerReadResult read = readLayerText(
      "values.usda",
      "#usda 1.0\ndef \"A\" (\n    customData = {string \"spaced key\" = \"v\"; int plain = 1}\n"
      "    references = @x.usda@</Target> (offset = 2)\n)\n{\n}\n");
  ASSERT_TRUE(read.ok()) << read.error->describe();
  const LayerPrim& prim = read.layer->prims[0];
  const Value& custom = prim.findMetadata("customData")->value;
  ASSERT_TRUE(custom.findEntry("spaced key"));
  EXPECT_EQ(custom.findEntry("spaced key")->items()[0].decoded(), "v");
  EXPECT_EQ(custom.findEntry("plain")->entryType(), "int");
  EXPECT_EQ(custom.findEntry("missing"), nullptr);
  const Value& reference = prim.findMetadata("references")->value;
  EXPECT_EQ(reference.assetPath(), "x.usda");
  EXPECT_EQ(reference.targetPath(), "/Target");
  EXPECT_EQ(reference.items()[1].findEntry("offset")->items()[0].text, "2");
}

TEST(ListEdits, EditsApplyInOrderFromTheWeakest) {
  std::vector<std::string> list;
  const auto same = [](const std::string& a, const std::string& b) { return a == b; };
  applyListOp(list, ListOp::Explicit, std::vector<std::string>{"a", "b"}, same);
  applyListOp(list, ListOp::Prepend, std::vector<std::string>{"c", "b"}, same);
  EXPECT_EQ(list, (std::vector<std::string>{"c", "b", "a"}));
  applyListOp(list, ListOp::Append, std::vector<std::string>{"c"}, same);
  EXPECT_EQ(list, (std::vector<std::string>{"b", "a", "c"}));
  applyListOp(list, ListOp::Add, std::vector<std::string>{"a", "d"}, same);
  EXPECT_EQ(list, (std::vector<std::string>{"b", "a", "c", "d"}));
  applyListOp(list, ListOp::Delete, std::vector<std::string>{"a", "zzz"}, same);
  EXPECT_EQ(list, (std::vector<std::string>{"b", "c", "d"}));
  applyListOp(list, ListOp::Reorder, std::vector<std::string>{"d"}, same);
  EXPECT_EQ(list, (std::vector<std::string>{"b", "c", "d"}));
  applyListOp(list, ListOp::Explicit, std::vector<std::string>{}, same);
  EXPECT_TRUE(list.empty());
}

TEST(PathMappings, RelativeTargetsAndArcNamespaces) {
  EXPECT_EQ(absolutePath("/Abs/Path", "/World/A"), "/Abs/Path");
  EXPECT_EQ(absolutePath("Child", "/World/A"), "/World/A/Child");
  EXPECT_EQ(absolutePath("../Sibling/X", "/World/A"), "/World/Sibling/X");
  EXPECT_EQ(absolutePath("../../../Top", "/World/A"), "/Top");
  EXPECT_EQ(absolutePath(".size", "/World/A"), "/World/A.size");
  EXPECT_EQ(absolutePath("Child.outputs:rgb", "/World/A"), "/World/A/Child.outputs:rgb");

  EXPECT_TRUE(hasPrefixPath("/Model/Geom", "/Model"));
  EXPECT_TRUE(hasPrefixPath("/Model.size", "/Model"));
  EXPECT_FALSE(hasPrefixPath("/ModelX", "/Model"));

  const auto inner = std::make_shared<PathMapping>(PathMapping{"/Lamp", "/Street/Lamp_1", nullptr});
  const PathMapping leaf{"/Bulb", "/Lamp/Head", inner};
  EXPECT_EQ(mapTargetToStage("/Bulb/Glass", "/Bulb", &leaf), "/Street/Lamp_1/Head/Glass");
  EXPECT_EQ(mapTargetToStage("Glass.color", "/Bulb", &leaf), "/Street/Lamp_1/Head/Glass.color");
  // Outside the innermost arc: kept as written.
  EXPECT_EQ(mapTargetToStage("/Elsewhere", "/Bulb", &leaf), "/Elsewhere");
  EXPECT_EQ(mapTargetToStage("/Any", "/Prim", nullptr), "/Any");
}

TEST(SceneGenerator, IsDeterministicPerSeedAndFollowsTheShape) {
  EXPECT_EQ(generateScene(300), generateScene(300));
  GeneratedSceneShape other;
  other.seed = 7;
  EXPECT_NE(generateScene(300, other), generateScene(300));

  GeneratedSceneShape small;
  small.entitiesPerCluster = 3;
  small.clustersPerZone = 2;
  // World, then per zone: the zone, 2 clusters, 3 entities each = 9 prims. Shapes take turns
  // across the whole scene, so the twelfth entity is the sixth kind, a plane.
  const LayerReadResult read = readLayerText("shape.usda", generateScene(1 + 9 * 2, small));
  ASSERT_TRUE(read.ok()) << read.error->describe();
  const Layer& layer = *read.layer;
  EXPECT_NE(layer.findPrim("/World/Zone_1/Cluster_1/Plane_2"), kNoPrim);
  EXPECT_EQ(layer.findPrim("/World/Zone_2"), kNoPrim);
  EXPECT_EQ(layer.prims[layer.findPrim("/World/Zone_0/Cluster_0")].children.size(), 3u);
}

TEST(Expressions, StringsAndVariablesEvaluateAndEverythingElseSaysWhy) {
  const ExpressionVariables variables{{"SHOT", "s010"}, {"EMPTY", ""}};
  std::string error;
  EXPECT_EQ(evaluateExpression("`\"./${SHOT}/set_${SHOT}.usda\"`", variables, error),
            "./s010/set_s010.usda");
  EXPECT_EQ(evaluateExpression("` ${SHOT} `", variables, error), "s010");
  EXPECT_EQ(evaluateExpression("`'a \\' ${EMPTY}b'`", variables, error), "a ' b");
  EXPECT_EQ(evaluateExpression("`\"no variables\"`", variables, error), "no variables");
  EXPECT_TRUE(error.empty()) << error;

  EXPECT_EQ(evaluateExpression("`\"${NOPE}.usda\"`", variables, error), std::nullopt);
  EXPECT_NE(error.find("'NOPE' is not set"), std::string::npos) << error;
  error.clear();
  EXPECT_EQ(evaluateExpression("`if(${SHOT}, \"a\", \"b\")`", variables, error), std::nullopt);
  EXPECT_FALSE(error.empty());
  error.clear();
  EXPECT_EQ(evaluateExpression("`\"a\" \"b\"`", variables, error), std::nullopt);
  EXPECT_FALSE(error.empty());
  // An unclosed variable is text, not a variable.
  error.clear();
  EXPECT_EQ(evaluateExpression("`\"${SHOT\"`", variables, error), "${SHOT");

  EXPECT_TRUE(isExpression("`x`"));
  EXPECT_FALSE(isExpression("`"));
  EXPECT_FALSE(isExpression("./x.usda"));
}

}  // namespace
}  // namespace orvan::engine
