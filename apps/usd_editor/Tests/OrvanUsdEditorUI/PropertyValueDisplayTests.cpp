#include <gtest/gtest.h>

#include "Inspector/PropertyValueDisplay.h"

namespace orvan::ui {
namespace {

using Style = PropertyValueDisplay::Style;

editor::ComponentProperty property(std::string kind, std::string value) {
  editor::ComponentProperty result;
  result.name = "p";
  result.kind = std::move(kind);
  result.value = std::move(value);
  return result;
}

TEST(PropertyValueDisplayTest, NumbersAndVectorsReadTheirTextInAnyNotation) {
  EXPECT_EQ(displayForValue("number", "0.500000").text, "0.5");
  EXPECT_EQ(displayForValue("number", "1e-05").text, "1e-05");
  EXPECT_EQ(displayForValue("number", "-3").style, Style::number);
  auto vector = displayForValue("vector3", "(0, 1.5, -2)");
  EXPECT_EQ(vector.style, Style::vector);
  EXPECT_EQ(vector.components, (QStringList{"0", "1.5", "-2"}));
  EXPECT_EQ(displayForValue("vector3", "[1,2,3]").components, (QStringList{"1", "2", "3"}));
  // Text that is not what its kind promises is shown as it came, never invented.
  EXPECT_EQ(displayForValue("number", "fast").style, Style::text);
  EXPECT_EQ(displayForValue("number", "fast").text, "fast");
  EXPECT_EQ(displayForValue("number", "1 2").style, Style::text);
  EXPECT_EQ(displayForValue("vector3", "(1, 2, 3, 4, 5)").style, Style::text);
  EXPECT_EQ(displayForValue("vector3", "").style, Style::text);
}

TEST(PropertyValueDisplayTest, ColoursFlagsAndAssets) {
  const auto unit = displayForValue("color", "(1, 0.5, 0)");
  ASSERT_EQ(unit.style, Style::color);
  EXPECT_EQ(unit.color.name(), "#ff8000");
  EXPECT_EQ(displayForValue("color", "(255, 0, 0)").color.name(), "#ff0000") << "0-255 channels";
  EXPECT_EQ(displayForValue("color", "(2)").style, Style::text);

  EXPECT_TRUE(displayForValue("bool", "true").checked);
  EXPECT_TRUE(displayForValue("bool", "1").checked);
  EXPECT_FALSE(displayForValue("bool", "False").checked);
  EXPECT_EQ(displayForValue("bool", "maybe").style, Style::text);

  const auto asset = displayForValue("asset", "@textures/sky/noon.hdr@");
  EXPECT_EQ(asset.style, Style::asset);
  EXPECT_EQ(asset.text, "noon.hdr");
  EXPECT_EQ(asset.toolTip, "textures/sky/noon.hdr");
  EXPECT_EQ(displayForValue("asset", "@@").text, "None");
  EXPECT_EQ(displayForValue("asset", "plain.usda").text, "plain.usda");
}

TEST(PropertyValueDisplayTest, PropertiesShowOptionLabelsAndUnits) {
  auto choice = property("enum", "high");
  choice.options = {{"low", "Low"}, {"high", "High"}};
  EXPECT_EQ(displayForProperty(choice).text, "High");
  choice.value = "ultra";
  EXPECT_EQ(displayForProperty(choice).text, "ultra") << "an unknown option shows its value";
  auto gravity = property("number", "-9.81");
  gravity.unit = "m/s";
  EXPECT_EQ(displayForProperty(gravity).text, "-9.81 m/s");
  EXPECT_EQ(displayForProperty(property("Vector3", "(1,2,3)")).style, Style::vector)
      << "kinds are read in any letter case";
}

TEST(PropertyValueDisplayTest, AttributesAreReadByTheirSceneType) {
  auto attribute = [](std::string type, std::string value) {
    editor::UsdAttribute raw;
    raw.name = "a";
    raw.type = std::move(type);
    raw.value = std::move(value);
    return displayForAttribute(raw);
  };
  EXPECT_EQ(attribute("color3f", "(0.8, 0.3, 0.2)").style, Style::color);
  EXPECT_EQ(attribute("float", "3000").style, Style::number);
  EXPECT_EQ(attribute("double3", "(0, 1, 2)").style, Style::vector);
  EXPECT_EQ(attribute("float3[]", "[(0, 1, 2), (3, 4, 5)]").style, Style::text);
  EXPECT_EQ(attribute("token", "inherited").text, "inherited");
}

}  // namespace
}  // namespace orvan::ui
