#include "orvan/wire/JsonEncoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "OrvanWire/JsonTestRecords.h"
#include "orvan/wire/JsonDecoder.h"

namespace orvan::editor {
namespace {

using testing::TestAsset;
using testing::TestPrim;
using testing::TestStage;

std::string encodedString(std::string_view text) {
  std::string out;
  appendJsonString(out, text);
  return out;
}

TEST(JsonEncoderRecords, WritesTheTableKeysInOrderAndLeavesOutEmptyOptionals) {
  TestAsset asset;
  asset.id = 18446744073709551615ull;
  asset.shaderModel = "unlit";
  asset.roughness = 1;
  asset.boundsCenter = {0, -0.0, 0.25};
  asset.boundsDimensions = {1e-05, 1e21, 3};
  asset.hasBoundsMetadata = true;  // derived, never written
  EXPECT_EQ(encodeJson(asset),
            R"({"id":18446744073709551615,"shaderModel":"unlit","roughness":1.0,)"
            R"("boundsCenter":[0.0,-0.0,0.25],"boundsDimensions":[1e-05,1e+21,3.0]})");

  asset.label = "Brick";
  EXPECT_EQ(encodeJson(asset).substr(encodeJson(asset).size() - 17), R"(,"label":"Brick"})");
}

TEST(JsonEncoderRecords, DecodeEncodeDecodeGivesEqualRecords) {
  const std::string document =
      R"({"customData":{"z":[1,1.0,"\u0001",{"b":null,"a":{}}],"a":-9223372036854775808},)"
      R"("prims":[{"children":[{"path":"/A/B","name":"B","active":false,)"
      R"("entityId":9223372036854775809,"depth":2}],"metrics":{"w":[0.1,-2.5e-300]},)"
      R"("attributes":[{"name":"c","type":"color3f","value":[1,0.5,0]}],"path":"/A",)"
      R"("name":"Ä \"quoted\"","active":true,"entityId":0,"defined":false,"badges":["payload"]}],)"
      R"("sceneUri":"s.usda","assets":[{"id":3,"boundsCenter":[1,2,3],"boundsDimensions":[4,5,6],)"
      R"("label":"L"}],"revision":18446744073709551615})";
  const Result<TestStage> first = decodeJson<TestStage>(document);
  ASSERT_TRUE(first.ok()) << first.error().description;
  const std::string encoded = encodeJson(*first);
  const Result<TestStage> second = decodeJson<TestStage>(encoded);
  ASSERT_TRUE(second.ok()) << second.error().description << "\n" << encoded;
  EXPECT_EQ(*second, *first);
  EXPECT_TRUE(second->assets.at(0).hasBoundsMetadata);
  EXPECT_EQ(encodeJson(*second), encoded);
}

TEST(JsonEncoderValues, FreeFormValuesReencodeToTheSameText) {
  for (std::string_view text :
       {R"({"z":1,"a":[1.0,-0.0,1e-05,"x",true,false,null],"m":{}})", R"([])", R"("\n\u001f")",
        R"(18446744073709551615)", R"(-9223372036854775808)", R"(0.30000000000000004)"}) {
    const Result<JsonValue> value = decodeJson<JsonValue>(text);
    ASSERT_TRUE(value.ok()) << text << ": " << value.error().description;
    EXPECT_EQ(encodeJson(*value), text);
  }
  // Non-finite doubles have no JSON form.
  const JsonValue values(JsonValue::Array{std::numeric_limits<double>::quiet_NaN(),
                                          std::numeric_limits<double>::infinity(),
                                          -std::numeric_limits<double>::infinity()});
  EXPECT_EQ(encodeJson(values), "[null,null,null]");
}

TEST(JsonEncoderStrings, EscapesQuotesBackslashesAndControlCharacters) {
  EXPECT_EQ(encodedString("a\"b\\c/d"), R"("a\"b\\c/d")");
  EXPECT_EQ(encodedString("\b\f\n\r\t"), R"("\b\f\n\r\t")");
  EXPECT_EQ(encodedString(std::string_view("\x00\x01\x1f\x7f", 4)),
            "\"\\u0000\\u0001\\u001f\x7f\"");
  EXPECT_EQ(encodedString("Grüße, 世界 😀"), "\"Grüße, 世界 😀\"");
}

TEST(JsonEncoderStrings, InvalidUtf8IsReplacedSoTheOutputStaysJson) {
  EXPECT_EQ(encodedString("a\xC3(b"), "\"a\xEF\xBF\xBD(b\"");
  EXPECT_EQ(encodedString("\xED\xA0\x80"),
            "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");                 // surrogate
  EXPECT_EQ(encodedString("\xC0\xAF"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");  // overlong
  EXPECT_EQ(encodedString("\xF0\x9F\x98"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");  // cut
  EXPECT_EQ(encodedString("ok\xF4\x90\x80\x80\n"),
            "\"ok\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\\n\"");  // above U+10FFFF

  // Every single byte value, alone and after a valid character, reads back as a string.
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text = "é" + std::string(1, static_cast<char>(byte));
    const Result<std::string> decoded = decodeJson<std::string>(encodedString(text));
    ASSERT_TRUE(decoded.ok()) << byte << ": " << decoded.error().description;
    if (byte < 0x80) {
      EXPECT_EQ(*decoded, text);
    }
  }
}

}  // namespace
}  // namespace orvan::editor
