// What the reader makes of each construct: the model must say what the text says.
#include <gtest/gtest.h>

#include <cmath>

#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"

namespace orvan::engine {
namespace {

std::shared_ptr<Layer> readFixture(const std::string& name) {
  LayerReadResult result = readLayerFile(std::string(ORVAN_ENGINE_FIXTURES_DIR "/UsdText/") + name);
  if (!result.ok())
    ADD_FAILURE() << result.error->describe();
  return result.layer;
}

const LayerProperty& property(const Layer& layer, std::string_view primPath,
                              std::string_view name) {
  const std::uint32_t prim = layer.findPrim(primPath);
  if (prim == kNoPrim)
    throw std::runtime_error("no prim " + std::string(primPath));
  for (const LayerProperty& candidate : layer.prims[prim].properties) {
    if (candidate.name == name)
      return candidate;
  }
  throw std::runtime_error("no property " + std::string(name));
}

std::string defaultText(const Layer& layer, std::string_view primPath, std::string_view name) {
  const PropertyField* field = property(layer, primPath, name).findField("");
  return field && field->hasValue ? formatValue(field->value) : "<unset>";
}

TEST(LayerReaderValues, StringsDecodeEveryEscapeAndQuoteStyle) {
  const auto layer = readFixture("attributes.usda");
  ASSERT_TRUE(layer);
  const auto decoded = [&](std::string_view name) {
    return property(*layer, "/Everything", name).findField("")->value.decoded();
  };
  EXPECT_EQ(decoded("text"), "line one\nline two \"quoted\" tab\there \\ backslash A \xC3\xA9");
  EXPECT_EQ(decoded("single"), "single 'quoted'");
  EXPECT_EQ(decoded("long"), "a triple-quoted string\nthat spans \"lines\" and keeps 'quotes'");
  EXPECT_EQ(decoded("texture"), "./textures/wood.png");
  EXPECT_EQ(decoded("odd"), "./has@sign.png");
  EXPECT_EQ(decoded("escaped"), "./has@@@three.png");
}

TEST(LayerReaderValues, NumbersKeepTheirTextAndConvert) {
  const auto layer = readFixture("attributes.usda");
  ASSERT_TRUE(layer);
  const auto field = [&](std::string_view name) {
    return property(*layer, "/Everything", name).findField("")->value;
  };
  EXPECT_EQ(field("ratio").text, "1.25e-3");
  EXPECT_DOUBLE_EQ(*field("ratio").toNumber(), 0.00125);
  EXPECT_EQ(*field("flag").toBool(), true);
  EXPECT_EQ(*field("flagNumber").toBool(), false);
  EXPECT_TRUE(std::isinf(*field("negativeInfinite").toNumber()));
  EXPECT_LT(*field("negativeInfinite").toNumber(), 0);
  EXPECT_EQ(defaultText(*layer, "/Everything", "transform"),
            "((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (5, 6, 7, 1))");
  EXPECT_EQ(defaultText(*layer, "/Everything", "weights"), "[]");
  EXPECT_TRUE(field("blocked").isNone());
  EXPECT_FALSE(property(*layer, "/Everything", "declaredOnly").findField("")->hasValue);
}

TEST(LayerReaderProperties, DeclarationsSamplesSplinesAndConnectionsStayApart) {
  const auto layer = readFixture("attributes.usda");
  ASSERT_TRUE(layer);
  const LayerProperty& fade = property(*layer, "/Everything", "fade");
  ASSERT_EQ(fade.fields.size(), 2u);
  EXPECT_EQ(fade.fields[0].value.text, "1");
  ASSERT_EQ(fade.fields[1].suffix, "timeSamples");
  ASSERT_EQ(fade.fields[1].value.items().size(), 2u);
  EXPECT_EQ(fade.fields[1].value.items()[1].text, "2.5");

  const LayerProperty& translate = property(*layer, "/Everything", "xformOp:translate");
  EXPECT_EQ(translate.typeName, "float3");
  EXPECT_TRUE(translate.fields[0].value.items()[2].items()[0].isNone());

  const PropertyField* spline = property(*layer, "/Everything", "bounce").findField("spline");
  ASSERT_TRUE(spline);
  EXPECT_EQ(spline->value.kind, ValueKind::RawText);
  EXPECT_NE(spline->value.text.find("\"a } in a string\" },\n    }"), std::string_view::npos);

  const PropertyField* connect =
      property(*layer, "/Everything", "inputs:bias").findField("connect");
  ASSERT_TRUE(connect);
  EXPECT_EQ(connect->op, ListOp::Prepend);
  EXPECT_EQ(connect->value.decoded(), "/Everything/C.outputs:y");

  const LayerProperty& mode = property(*layer, "/Everything", "orvan:mode");
  EXPECT_TRUE(mode.custom);
  EXPECT_EQ(mode.variability, Variability::Uniform);

  const LayerProperty& color = property(*layer, "/Everything", "primvars:displayColor");
  ASSERT_EQ(color.metadata.size(), 3u);
  EXPECT_EQ(color.metadata[0].key, "interpolation");
}

TEST(LayerReaderProperties, PropertyOrderIsTheAuthoredOrder) {
  const auto layer = readFixture("relationships.usda");
  ASSERT_TRUE(layer);
  const LayerPrim& scene = layer->prims[layer->findPrim("/Scene")];
  std::vector<std::string_view> names;
  for (const LayerProperty& p : scene.properties)
    names.push_back(p.name);
  EXPECT_EQ(names,
            (std::vector<std::string_view>{"material:binding", "proxyPrim", "lights", "blocked",
                                           "orvan:targets", "orvan:follow", "orvan:self"}));
  const LayerProperty& targets = scene.properties[4];
  ASSERT_EQ(targets.fields.size(), 3u);
  EXPECT_EQ(targets.fields[2].op, ListOp::Delete);
  EXPECT_EQ(targets.kind, PropertyKind::Relationship);
}

TEST(LayerReaderMetadata, LayerAndPrimMetadataKeepListOpsAndUnknownKeys) {
  const auto layer = readFixture("layer_metadata.usda");
  ASSERT_TRUE(layer);
  EXPECT_EQ(layer->defaultPrim(), "World");
  EXPECT_EQ(layer->subLayerPaths(),
            (std::vector<std::string>{"./shot_anim.usda", "./weird@name.usda", "/abs/base.usda"}));
  ASSERT_TRUE(layer->findMetadata("doc"));
  EXPECT_EQ(layer->findMetadata("doc")->value.decoded(),
            "Layer documentation given as a bare string");
  EXPECT_EQ(layer->findMetadata("orvanUnknownKey")->value.decoded(), "kept as a value");
  const Value& custom = layer->findMetadata("customLayerData")->value;
  const Value* review = custom.findEntry("review");
  ASSERT_TRUE(review);
  EXPECT_EQ(review->entryType(), "dictionary");
  EXPECT_EQ(formatValue(*review->items()[0].findEntry("notes")),
            "notes = [\"light too warm\", \"move the cone\"]");
  const Value& relocates = layer->findMetadata("relocates")->value;
  EXPECT_EQ(relocates.kind, ValueKind::PathMap);
  ASSERT_EQ(relocates.itemCount, 2u);
  EXPECT_EQ(relocates.items()[1].text, "</World/Lamp/Bulb>");
  EXPECT_EQ(relocates.items()[1].items()[0].decoded(), "/World/Bulb");
  const Value& first = layer->findMetadata("subLayers")->value.items()[0];
  EXPECT_EQ(formatValue(first), "@./shot_anim.usda@ (offset = 10; scale = 2)");

  const auto prims = readFixture("prims_and_metadata.usda");
  ASSERT_TRUE(prims);
  const LayerPrim& referenced = prims->prims[prims->findPrim("/World/Referenced")];
  EXPECT_EQ(referenced.typeName, "Mesh");
  const MetadataEntry* references = referenced.findMetadata("references");
  ASSERT_TRUE(references);
  EXPECT_EQ(references->op, ListOp::Prepend);
  ASSERT_EQ(references->value.items().size(), 3u);
  EXPECT_EQ(*references->value.items()[0].assetPath(), "./asset.usda");
  EXPECT_EQ(*references->value.items()[0].targetPath(), "/Model");
  EXPECT_EQ(*references->value.items()[2].targetPath(), "/World/Typeless");
  EXPECT_EQ(referenced.findMetadata("payload")->op, ListOp::Append);
  const LayerPrim& overridden = prims->prims[prims->findPrim("/World/Overridden")];
  EXPECT_EQ(overridden.specifier, Specifier::Over);
  EXPECT_EQ(overridden.findMetadata("variants")->value.findEntry("lod")->items()[0].decoded(),
            "high");
  EXPECT_EQ(prims->prims[prims->findPrim("/_Class")].specifier, Specifier::Class);
  EXPECT_TRUE(prims->prims[prims->findPrim("/World/Typeless")].typeName.empty());
}

TEST(LayerReaderVariants, VariantBodiesHoldPropertiesChildrenAndNestedSets) {
  const auto layer = readFixture("variants.usda");
  ASSERT_TRUE(layer);
  const LayerPrim& asset = layer->prims[layer->findPrim("/Asset")];
  ASSERT_EQ(asset.variantSets.size(), 2u);
  const LayerVariantSet& shape = asset.variantSets[0];
  ASSERT_EQ(shape.variants.size(), 2u);
  const LayerPrim& cube = layer->prims[shape.variants[0].body];
  EXPECT_TRUE(cube.isVariantBody);
  EXPECT_EQ(cube.findMetadata("doc")->value.decoded(), "the boxy one");
  ASSERT_EQ(cube.children.size(), 1u);
  EXPECT_EQ(layer->prims[cube.children[0]].typeName, "Cube");
  const LayerPrim& sphere = layer->prims[shape.variants[1].body];
  ASSERT_EQ(sphere.variantSets.size(), 1u);
  EXPECT_EQ(sphere.variantSets[0].name, "detail");
  // Variant contents are not children of the prim itself.
  EXPECT_TRUE(asset.children.empty());
}

TEST(LayerReaderComments, CommentsStayWithTheStatementThatFollowsThem) {
  const auto layer = readFixture("comments.usda");
  ASSERT_TRUE(layer);
  EXPECT_EQ(layer->headerComments,
            (Comments{"# Comments before the layer metadata stay at the top.",
                      "// Both comment styles are kept."}));
  EXPECT_EQ(layer->metadata[0].comments, (Comments{"# a comment inside the metadata"}));
  const LayerPrim& root = layer->prims[layer->findPrim("/Root")];
  EXPECT_EQ(root.comments, (Comments{"# The root prim."}));
  EXPECT_EQ(root.properties[0].comments, (Comments{"# Before a property."}));
  EXPECT_EQ(root.properties[1].comments,
            (Comments{"# after a value: moves to the next statement"}));
  EXPECT_EQ(root.trailingComments, (Comments{"# The last thing in the root."}));
  EXPECT_EQ(root.variantSets[0].variants[0].comments, (Comments{"# Before a variant."}));
  EXPECT_EQ(layer->trailingComments, (Comments{"# The end of the file."}));
}

TEST(LayerWriterEdits, AnEditedValueIsWrittenAndEverythingElseIsKept) {
  const auto layer = readFixture("comments.usda");
  ASSERT_TRUE(layer);
  LayerPrim& root = layer->prims[layer->findPrim("/Root")];
  root.properties[0].fields[0].value = Value::ofKind(ValueKind::Number, layer->storeText("42"));
  LayerProperty added;
  added.typeName = "string";
  added.name = "orvan:label";
  added.fields.push_back(
      {"", ListOp::Explicit, true,
       Value::ofKind(ValueKind::String, layer->storeText(encodeStringLiteral("say \"hi\"\n")))});
  root.properties.push_back(added);

  const std::string written = writeLayer(*layer);
  const LayerReadResult reread = readLayerText("edited.usda", written);
  ASSERT_TRUE(reread.ok()) << reread.error->describe();
  const LayerPrim& again = reread.layer->prims[reread.layer->findPrim("/Root")];
  EXPECT_EQ(again.properties[0].fields[0].value.text, "42");
  EXPECT_EQ(again.properties.back().fields[0].value.decoded(), "say \"hi\"\n");
  EXPECT_EQ(again.comments, root.comments);
  EXPECT_EQ(again.trailingComments, root.trailingComments);
  EXPECT_EQ(reread.layer->trailingComments, layer->trailingComments);
}

TEST(LayerReaderText, StringLiteralHelpersRoundTrip) {
  for (const std::string& text : {std::string("quote \" and \\ slash\n\ttab"),
                                  std::string("ctrl \x01 byte"), std::string("")}) {
    EXPECT_EQ(decodeStringLiteral(encodeStringLiteral(text)), text);
  }
}

TEST(LayerReaderValues, WhatOtherWritersPutInLayersReadsAsTheyMeantIt) {
  const auto layer = readFixture("format_allowances.usda");
  ASSERT_TRUE(layer);
  const auto value = [&](std::string_view prim, std::string_view name) {
    return property(*layer, prim, name).findField("")->value;
  };
  // Assets: a quoted string is an asset path, and @@@ paths hold '@', even at their end.
  EXPECT_EQ(value("/Garage", "label").decoded(), "labels/garage.png");
  EXPECT_EQ(value("/Garage", "strange").assetPath(), "odd@name");
  EXPECT_EQ(value("/Garage", "trailing").assetPath(), "ends.in@");
  EXPECT_EQ(value("/Garage", "target").kind, ValueKind::Path);
  // Type names with namespaces, variant names that are not identifiers, names in UTF-8.
  const LayerPrim& garage = layer->prims[layer->findPrim("/Garage")];
  EXPECT_EQ(garage.typeName, "Vehicles::Car");
  ASSERT_EQ(garage.variantSets.size(), 2u);
  EXPECT_EQ(garage.variantSets[0].name, "4wd");
  EXPECT_EQ(garage.variantSets[0].variants[0].name, "1.5-turbo");
  EXPECT_EQ(garage.variantSets[1].variants[0].name, "base|sport");
  EXPECT_NE(layer->findPrim("/Zone/\u00dcberhang"), kNoPrim);
  EXPECT_EQ(value("/Zone", "gr\u00f6\u00dfe").decoded(), "gro\u00df");
  // Dictionary keys in quotes decode; empty values stay empty.
  const MetadataEntry* data = layer->findMetadata("customLayerData");
  ASSERT_NE(data, nullptr);
  const Value* nested = data->value.findEntry("nested one");
  ASSERT_NE(nested, nullptr);
  EXPECT_NE(nested->items()[0].findEntry("a b"), nullptr);
  EXPECT_EQ(layer->findMetadata("doc")->value.decoded(), "");
  // The layer's own reorder statement.
  ASSERT_EQ(layer->reorders.size(), 1u);
  EXPECT_EQ(layer->reorders[0].key, "rootPrims");
}

TEST(LayerReaderFailures, MessagesAreValidUtf8WhateverTheFileHolds) {
  // Bytes that are not UTF-8 in a token, in a prim name and in the file name are escaped.
  const std::string cases[] = {
      std::string("#usda 1.0\ndef \"A\" { \xC3\x28 }\n"),
      std::string("#usda 1.0\ndef \"Caf\xE9\" {}\n"),
      std::string("#usda 1.0\ndef \"A\" { double \xF0\x9F\x98 = 1 }\n"),
      std::string("#usda 1.0\ndef \"A\" { asset a = @\xFF\xFE\n }\n"),
  };
  for (const std::string& text : cases) {
    const LayerReadResult result = readLayerText("sc\xE8ne.usda", text);
    ASSERT_FALSE(result.ok()) << text;
    const std::string described = result.error->describe();
    EXPECT_EQ(escapeForMessage(described), described) << described;
    EXPECT_NE(described.find("sc\\xE8ne.usda"), std::string::npos) << described;
    EXPECT_EQ(described.find('\xFF'), std::string::npos) << described;
  }
  // Letters outside ASCII that are well-formed stay as they are.
  EXPECT_EQ(escapeForMessage("gr\u00f6\u00dfe \xE2\x82"), "gr\u00f6\u00dfe \\xE2\\x82");
  EXPECT_EQ(escapeForMessage("\xED\xA0\x80"), "\\xED\\xA0\\x80");  // a surrogate half
}

}  // namespace
}  // namespace orvan::engine
