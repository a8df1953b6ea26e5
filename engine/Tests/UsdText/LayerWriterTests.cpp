// The canonical text form: exact layout of values and statements, and layers built in memory.
#include <gtest/gtest.h>

#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"

namespace orvan::engine {
namespace {

std::string formatFirstDefault(const std::string& declaration) {
  const LayerReadResult result =
      readLayerText("value.usda", "#usda 1.0\ndef \"A\"\n{\n" + declaration + "\n}\n");
  if (!result.ok())
    return "error: " + result.error->describe();
  return formatValue(result.layer->prims[0].properties[0].fields[0].value);
}

TEST(LayerWriterValues, EachKindHasOneCanonicalSpelling) {
  EXPECT_EQ(formatFirstDefault("float3 v = (1,2 ,3)"), "(1, 2, 3)");
  EXPECT_EQ(formatFirstDefault("matrix2d m = ( (1,0),(0,1) )"), "((1, 0), (0, 1))");
  EXPECT_EQ(formatFirstDefault("int[] v = [ ]"), "[]");
  EXPECT_EQ(formatFirstDefault("int[] v = [1,2,]"), "[1, 2]");
  EXPECT_EQ(formatFirstDefault("string[] v = ['a', \"b\"]"), "['a', \"b\"]");
  EXPECT_EQ(formatFirstDefault("float v = None"), "None");
  EXPECT_EQ(formatFirstDefault("rel r = [ </a>,</b> ]"), "[</a>, </b>]");
  EXPECT_EQ(formatFirstDefault("dictionary d = {int a = 1; dictionary b = {string c = \"x\"}}"),
            "{\n    int a = 1\n    dictionary b = {\n        string c = \"x\"\n    }\n}");
  EXPECT_EQ(formatFirstDefault("dictionary d = {}"), "{\n}");
  EXPECT_EQ(formatFirstDefault("double v.timeSamples = {1:2,3.5:None}"),
            "{\n    1: 2,\n    3.5: None,\n}");
}

TEST(LayerWriterStatements, QualifiersListOpsAndMetadataLandOnTheRightLines) {
  const LayerReadResult result = readLayerText(
      "statements.usda",
      "#usda 1.0\n(subLayers=[@a.usda@ (offset=1),@b.usda@]; doc=\"d\")\n"
      "over \"A\" (prepend references = [@x.usda@</X> (scale = 2), </Local>]; hidden = true){\n"
      "custom uniform token t = \"x\" (allowedTokens = [\"x\", \"y\"])\n"
      "custom uniform token t.timeSamples = {0: \"y\"}\n"
      "prepend rel r = </A>\n"
      "varying rel plain\n"
      "variantSet \"v\" = { \"one\" (doc = \"first\") { } }\n"
      "}\n");
  ASSERT_TRUE(result.ok()) << result.error->describe();
  EXPECT_EQ(writeLayer(*result.layer),
            "#usda 1.0\n"
            "(\n"
            "    subLayers = [\n"
            "        @a.usda@ (offset = 1),\n"
            "        @b.usda@\n"
            "    ]\n"
            "    doc = \"d\"\n"
            ")\n"
            "\n"
            "over \"A\" (\n"
            "    prepend references = [@x.usda@</X> (scale = 2), </Local>]\n"
            "    hidden = true\n"
            ")\n"
            "{\n"
            "    custom uniform token t = \"x\" (\n"
            "        allowedTokens = [\"x\", \"y\"]\n"
            "    )\n"
            "    custom uniform token t.timeSamples = {\n"
            "        0: \"y\",\n"
            "    }\n"
            "    prepend rel r = </A>\n"
            "    rel plain\n"
            "\n"
            "    variantSet \"v\" = {\n"
            "        \"one\" (\n"
            "            doc = \"first\"\n"
            "        ) {\n"
            "        }\n"
            "    }\n"
            "}\n");
}

TEST(LayerWriterBuilt, ALayerMadeInMemoryWritesAndReadsBack) {
  Layer layer("built.usda", "");
  layer.metadata.push_back({ListOp::Explicit,
                            "defaultPrim",
                            Value::ofKind(ValueKind::String, layer.storeText("\"World\"")),
                            {}});
  LayerPrim world;
  world.typeName = "Xform";
  world.name = "World";
  world.comments.push_back("# made by hand");
  const Value components[] = {Value::ofKind(ValueKind::Number, "0.1"),
                              Value::ofKind(ValueKind::Number, "0.2"),
                              Value::ofKind(ValueKind::Number, "0.3")};
  const Value color = layer.makeValue(ValueKind::Tuple, {}, components);
  LayerProperty background;
  background.custom = true;
  background.typeName = "color3f";
  background.name = "orvan:backgroundColor";
  background.fields.push_back({"", ListOp::Explicit, true, color});
  world.properties.push_back(background);
  LayerProperty declared;
  declared.kind = PropertyKind::Relationship;
  declared.name = "orvan:target";
  world.properties.push_back(declared);
  layer.prims.push_back(world);
  layer.rootPrims.push_back(0);

  const std::string written = writeLayer(layer);
  EXPECT_NE(written.find("# made by hand\ndef Xform \"World\"\n{\n    custom color3f "
                         "orvan:backgroundColor = (0.1, 0.2, 0.3)\n    rel orvan:target\n}\n"),
            std::string::npos)
      << written;
  const LayerReadResult reread = readLayerText("built.usda", written);
  ASSERT_TRUE(reread.ok()) << reread.error->describe();
  ASSERT_EQ(reread.layer->prims[0].properties.size(), 2u);
  EXPECT_EQ(reread.layer->prims[0].properties[0], layer.prims[0].properties[0]);
  EXPECT_EQ(reread.layer->prims[0].properties[1].name, "orvan:target");
  EXPECT_EQ(reread.layer->defaultPrim(), "World");
}

TEST(LayerWriterBuilt, EquivalenceNoticesEveryKindOfDifference) {
  const std::string base =
      "#usda 1.0\ndef \"A\" (kind = \"group\")\n{\n    double v = 1\n    def \"B\"\n    {\n    "
      "}\n}\n";
  const auto a = readLayerText("a.usda", base).layer;
  ASSERT_TRUE(a);
  EXPECT_TRUE(a->equivalentTo(*readLayerText("c.usda", base).layer));
  // Metadata, a value, a child's name, a specifier, a header comment and a prim's comment.
  const std::pair<std::string, std::string> changes[] = {
      {"group", "model"},           {"= 1", "= 2"},
      {"\"B\"", "\"C\""},           {"def \"A", "over \"A"},
      {"0\ndef", "0\n# note\ndef"}, {"    def", "    # note\n    def"}};
  for (const auto& [from, to] : changes) {
    std::string changed = base;
    changed.replace(changed.find(from), from.size(), to);
    const auto b = readLayerText("b.usda", changed).layer;
    ASSERT_TRUE(b) << changed;
    EXPECT_FALSE(a->equivalentTo(*b)) << changed;
  }
}

TEST(LayerWriterStatements, TheLayersReorderStatementFollowsItsMetadataWithItsComments) {
  const LayerReadResult result = readLayerText(
      "order.usda",
      "#usda 1.0\n# header\n\ndef \"A\" {}\n# the order\nreorder rootPrims = [\"B\", \"A\"]\n"
      "def \"B\" {}\n");
  ASSERT_TRUE(result.ok()) << result.error->describe();
  const std::string written = writeLayer(*result.layer);
  EXPECT_EQ(written,
            "#usda 1.0\n"
            "# header\n"
            "(\n"
            ")\n"
            "\n"
            "# the order\n"
            "reorder rootPrims = [\"B\", \"A\"]\n"
            "\n"
            "def \"A\"\n"
            "{\n"
            "}\n"
            "\n"
            "def \"B\"\n"
            "{\n"
            "}\n");
  const LayerReadResult again = readLayerText("order.usda", written);
  ASSERT_TRUE(again.ok()) << again.error->describe();
  EXPECT_TRUE(again.layer->equivalentTo(*result.layer));
  EXPECT_EQ(writeLayer(*again.layer), written);
}

}  // namespace
}  // namespace orvan::engine
