#include "Foundation/JsonDecoder.h"
#include "Foundation/JsonEncoder.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <unordered_map>

#include "OrvanUsdEditorCore/Foundation/JsonTestRecords.h"

namespace orvan::editor {
namespace {

using testing::TestAsset;
using testing::TestPrim;
using testing::TestStage;
using testing::TestStageResponse;

// The description of the error a document gives, or "ok" when it decodes.
template <class T>
std::string problemOf(std::string_view json, std::string_view rootPath = "") {
  const Result<T> result = decodeJson<T>(json, rootPath);
  if (result.ok()) {
    return "ok";
  }
  EXPECT_EQ(result.error().domain, Error::kJsonDomain);
  return result.error().description;
}

constexpr std::string_view kMinimalPrim =
    R"({"path":"/World","name":"World","active":true,"entityId":7})";

TEST(JsonDecoderFieldKinds, MissingOptionalAndDefaultedKeysTakeTheirStatedValues) {
  const Result<TestPrim> prim = decodeJson<TestPrim>(kMinimalPrim);
  ASSERT_TRUE(prim.ok()) << prim.error().description;
  EXPECT_EQ(prim->path, "/World");
  EXPECT_TRUE(prim->active);
  EXPECT_EQ(prim->entityId, 7u);
  EXPECT_EQ(prim->defined, std::nullopt);
  EXPECT_TRUE(prim->badges.empty());

  const Result<TestAsset> asset = decodeJson<TestAsset>(R"({"id":1})");
  ASSERT_TRUE(asset.ok()) << asset.error().description;
  EXPECT_EQ(asset->shaderModel, "pbr");
  EXPECT_EQ(asset->roughness, 0.55);
  EXPECT_EQ(asset->boundsDimensions, (std::vector{0.75, 0.75, 0.75}));
  EXPECT_FALSE(asset->label.has_value());
}

TEST(JsonDecoderFieldKinds, NullMeansMissingForOptionalAndDefaultedKeys) {
  const Result<TestAsset> asset = decodeJson<TestAsset>(
      R"({"id":1,"shaderModel":null,"roughness":null,"label":null,"boundsCenter":null})");
  ASSERT_TRUE(asset.ok()) << asset.error().description;
  EXPECT_EQ(asset->shaderModel, "pbr");
  EXPECT_EQ(asset->roughness, 0.55);
  EXPECT_FALSE(asset->label.has_value());
  EXPECT_EQ(asset->boundsCenter, (std::vector{0.0, 0.0, 0.0}));

  // A required key is not optional just because its value is null.
  EXPECT_EQ(problemOf<TestAsset>(R"({"id":null})"), "expected unsigned integer at id");
}

TEST(JsonDecoderFieldKinds, KeysAreMatchedInAnyOrderAndUnknownKeysAreSkipped) {
  const Result<TestPrim> prim = decodeJson<TestPrim>(
      R"({"future":{"deep":[1,{"x":[null,"}"]}],"more":"]"},"entityId":7,"depth":-3,)"
      R"("name":"World","surprise":[[[]]],"active":false,"path":"/World","defined":false})");
  ASSERT_TRUE(prim.ok()) << prim.error().description;
  EXPECT_EQ(prim->name, "World");
  EXPECT_EQ(prim->path, "/World");
  EXPECT_FALSE(prim->active);
  EXPECT_EQ(prim->defined, false);
  EXPECT_EQ(prim->depth, -3);
  EXPECT_EQ(prim->entityId, 7u);
}

TEST(JsonDecoderFieldKinds, EscapedKeysMatchAndARepeatedKeyTakesTheLastValue) {
  const Result<TestPrim> prim =
      decodeJson<TestPrim>(R"({"p\u0061th":"/A","name":"A","active":true,"entityId":1,)"
                           R"("badges":["x","y"],"badges":["z"],"defined":true,"defined":null})");
  ASSERT_TRUE(prim.ok()) << prim.error().description;
  EXPECT_EQ(prim->path, "/A");
  EXPECT_EQ(prim->badges, std::vector<std::string>{"z"});
  EXPECT_FALSE(prim->defined.has_value());
}

struct LongKeyRecord {
  std::string value;
  std::int64_t n = 0;
  static constexpr std::string_view kLongKey =
      "aKeyLongerThanTheParserPaddingSoThatItCannotBeComparedInPlaceWithoutReadingTooFar";
  static auto jsonFields() {
    return std::tuple{json::required(kLongKey, &LongKeyRecord::value),
                      json::defaulted("n", &LongKeyRecord::n, 0)};
  }
};

TEST(JsonDecoderFieldKinds, LongAndShortKeysMatchWhereverTheyEndInTheInput) {
  const std::string longKey(LongKeyRecord::kLongKey);
  const Result<LongKeyRecord> record =
      decodeJson<LongKeyRecord>(R"({"n":1,")" + longKey + R"(":"v","a":{"n":2}})");
  ASSERT_TRUE(record.ok()) << record.error().description;
  EXPECT_EQ(record->value, "v");
  EXPECT_EQ(record->n, 1);
  EXPECT_EQ(problemOf<LongKeyRecord>(R"({"n":1})"), "missing required key at " + longKey);
  EXPECT_EQ(problemOf<LongKeyRecord>(R"({"n")"),
            "malformed JSON at (root) (JSON document ended "
            "early in the middle of an object or array.)");
}

// An acknowledgement without fields still has to be an object.
struct EmptyRecord {
  bool operator==(const EmptyRecord&) const = default;
  static auto jsonFields() { return std::tuple{}; }
};

TEST(JsonDecoderFieldKinds, ARecordWithoutFieldsAcceptsAnyObject) {
  EXPECT_EQ(problemOf<EmptyRecord>(R"({"ok":true,"x":[1]})"), "ok");
  EXPECT_EQ(problemOf<EmptyRecord>(R"([])", "reply"), "expected object at reply");
  EXPECT_EQ(encodeJson(EmptyRecord{}), "{}");
}

TEST(JsonDecoderFieldKinds, NestedListsDictionariesAndFreeFormValuesDecode) {
  const Result<TestStage> stage = decodeJson<TestStage>(R"({
    "sceneUri": "scene.usda",
    "prims": [{"path":"/A","name":"A","active":true,"entityId":2,
               "metrics":{"b":[1,2.5],"a":[]},
               "attributes":[{"name":"size","type":"double","value":2.0},
                             {"name":"tags","type":"token[]","value":["x",{"k":null}]}],
               "children":[{"path":"/A/B","name":"B","active":false,"entityId":3}]}],
    "customData": {"z": 1, "a": {"nested": [true, -1, 1.5e300]}}
  })");
  ASSERT_TRUE(stage.ok()) << stage.error().description;
  const TestPrim& prim = stage->prims.at(0);
  EXPECT_EQ(prim.metrics.at("b"), (std::vector{1.0, 2.5}));
  EXPECT_TRUE(prim.metrics.at("a").empty());
  EXPECT_EQ(prim.attributes.at(0).value, JsonValue(2.0));
  EXPECT_EQ(prim.attributes.at(1).value,
            JsonValue(JsonValue::Array{"x", JsonValue::Object{{"k", nullptr}}}));
  EXPECT_EQ(prim.children.at(0).path, "/A/B");
  EXPECT_EQ(stage->customData.at("z"), JsonValue(1));
  EXPECT_EQ(*stage->customData.at("a").find("nested"),
            JsonValue(JsonValue::Array{true, -1, 1.5e300}));
}

TEST(JsonDecoderErrors, WrongTypesNameTheFullPath) {
  const std::string prims = R"({"revision":1,"stage":{"sceneUri":"s","prims":[)" +
                            std::string(kMinimalPrim) + "," + std::string(kMinimalPrim) + "," +
                            std::string(kMinimalPrim) + ",";
  EXPECT_EQ(problemOf<TestStageResponse>(prims +
                                         R"({"path":"/x","name":5,"active":true,"entityId":1}]}})"),
            "expected string at stage.prims[3].name");
  EXPECT_EQ(problemOf<TestStageResponse>(
                prims + R"({"path":"/x","name":"x","active":"yes","entityId":1}]}})"),
            "expected boolean at stage.prims[3].active");
  EXPECT_EQ(problemOf<TestStageResponse>(
                prims + R"({"path":"/x","name":"x","active":true,"entityId":1,)"
                        R"("children":[{"path":"/x/y","name":"y","active":true,"entityId":2,)"
                        R"("attributes":[{"name":"a","type":"b"}]}]}]}})"),
            "missing required key at stage.prims[3].children[0].attributes[0].value");
  EXPECT_EQ(
      problemOf<TestStageResponse>(prims + R"({"path":"/x","name":"x","active":true,"entityId":1,)"
                                           R"("metrics":{"weights":[1,"2"]}}]}})"),
      "expected number at stage.prims[3].metrics.weights[1]");
  EXPECT_EQ(problemOf<TestStageResponse>(prims + R"("not a prim"]}})"),
            "expected object at stage.prims[3]");
  EXPECT_EQ(problemOf<TestStageResponse>(R"({"revision":1,"stage":{"sceneUri":"s","prims":{}}})"),
            "expected array at stage.prims");
  EXPECT_EQ(problemOf<TestStageResponse>(R"({"revision":1,"stage":{"sceneUri":"s","prims":[],)"
                                         R"("customData":[]}})"),
            "expected object at stage.customData");
}

TEST(JsonDecoderErrors, MissingRequiredKeysFailTheWholeDocument) {
  EXPECT_EQ(problemOf<TestStageResponse>(R"({"stage":{"sceneUri":"s","prims":[]}})"),
            "missing required key at revision");
  EXPECT_EQ(problemOf<TestStage>(R"({"sceneUri":"s"})", "stage"),
            "missing required key at stage.prims");
  EXPECT_EQ(problemOf<TestStageResponse>(R"({"stage":{"prims":[]},"revision":2})", "response"),
            "missing required key at response.stage.sceneUri");
}

TEST(JsonDecoderErrors, TheRootPathPrefixesEveryPathAndNamesAnUnnamedRoot) {
  EXPECT_EQ(problemOf<TestStage>(R"([])"), "expected object at (root)");
  EXPECT_EQ(problemOf<TestStage>(R"("stage")", "stage"), "expected object at stage");
  EXPECT_EQ(problemOf<std::vector<TestPrim>>(R"([{}])"), "missing required key at [0].path");
  EXPECT_EQ(problemOf<std::vector<TestPrim>>(R"([{}])", "prims"),
            "missing required key at prims[0].path");
}

TEST(JsonDecoderIntegers, UnsignedSixtyFourBitValuesKeepAllTheirBits) {
  const Result<TestStageResponse> largest = decodeJson<TestStageResponse>(
      R"({"revision":18446744073709551615,"stage":{"sceneUri":"s","prims":[]}})");
  ASSERT_TRUE(largest.ok()) << largest.error().description;
  EXPECT_EQ(largest->revision, 18446744073709551615ull);

  const Result<TestStageResponse> aboveSigned = decodeJson<TestStageResponse>(
      R"({"revision":9223372036854775809,"stage":{"sceneUri":"s","prims":[]}})");
  ASSERT_TRUE(aboveSigned.ok()) << aboveSigned.error().description;
  EXPECT_EQ(aboveSigned->revision, (1ull << 63) + 1);
}

TEST(JsonDecoderIntegers, ValuesThatAreNotExactIntegersOfTheMemberTypeFail) {
  auto asset = [](std::string_view id) {
    return problemOf<TestAsset>("{\"id\":" + std::string(id) + "}");
  };
  EXPECT_EQ(asset("18446744073709551616"), "integer out of range at id");
  EXPECT_EQ(asset("-1"), "expected unsigned integer at id");
  EXPECT_EQ(asset("1.0"), "expected unsigned integer at id");
  EXPECT_EQ(asset("\"12\""), "expected unsigned integer at id");

  auto depth = [](std::string_view value) {
    return problemOf<TestPrim>(R"({"path":"/A","name":"A","active":true,"entityId":1,"depth":)" +
                               std::string(value) + "}");
  };
  EXPECT_EQ(depth("-2147483648"), "ok");
  EXPECT_EQ(depth("2147483648"), "integer out of range at depth");
  EXPECT_EQ(depth("9223372036854775808"), "integer out of range at depth");
  EXPECT_EQ(depth("0.5"), "expected integer at depth");
}

TEST(JsonDecoderIntegers, DoublesAcceptIntegers) {
  const Result<TestAsset> asset = decodeJson<TestAsset>(R"({"id":1,"roughness":1})");
  ASSERT_TRUE(asset.ok()) << asset.error().description;
  EXPECT_EQ(asset->roughness, 1.0);
}

TEST(JsonDecoderHook, SeesWhichKeysWerePresentAndCanRejectTheRecord) {
  auto bounds = [](std::string_view json) {
    const Result<TestAsset> asset = decodeJson<TestAsset>(json);
    EXPECT_TRUE(asset.ok()) << asset.error().description;
    return asset.ok() && asset->hasBoundsMetadata;
  };
  EXPECT_TRUE(bounds(R"({"id":1,"boundsCenter":[0,0,0],"boundsDimensions":[1,2,3]})"));
  EXPECT_FALSE(bounds(R"({"id":1,"boundsDimensions":[1,2,3]})"));
  EXPECT_FALSE(bounds(R"({"id":1,"boundsCenter":[0,0,0],"boundsDimensions":null})"));
  EXPECT_FALSE(bounds(R"({"id":1})"));

  EXPECT_EQ(
      problemOf<TestStage>(
          R"({"sceneUri":"s","prims":[],"assets":[{"id":1},{"id":2,"roughness":-1}]})", "stage"),
      "negative roughness at stage.assets[1]");
}

// Whatever the bytes, the decoder answers with an error in the JSON domain, never a crash.
class JsonDecoderMalformed : public ::testing::TestWithParam<std::string_view> {};

TEST_P(JsonDecoderMalformed, GivesAMalformedError) {
  const Result<TestStageResponse> result = decodeJson<TestStageResponse>(GetParam(), "response");
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error().domain, Error::kJsonDomain);
  EXPECT_EQ(result.error().code, kJsonMalformed) << result.error().description;
  EXPECT_TRUE(result.error().description.starts_with("malformed JSON at response") ||
              result.error().description.starts_with("trailing content after the document"))
      << result.error().description;
}

INSTANTIATE_TEST_SUITE_P(
    Documents, JsonDecoderMalformed,
    ::testing::Values("   ", R"({"revision":1,"stage":{"sceneUri":"s","prims":[]}} x)",
                      R"({"revision":1,"stage":{"sceneUri":"s","prims":[]}}{})",
                      R"({"revision":1,"stage":{"sceneUri":"s","prims":[]}}})",
                      "{\"revision\":1,\"stage\":{\"sceneUri\":\"\xC3\x28\",\"prims\":[]}}",
                      "{\"revision\":1,\"stage\":{\"sceneUri\":\"\xED\xA0\x80\",\"prims\":[]}}",
                      R"({"revision":1,"stage":{"sceneUri":"\uD800","prims":[]}})",
                      R"({"revision":1,"stage":{"sceneUri":"s","prims":[],}})",
                      R"({"revision":1 "stage":{}})", R"({"revision":tru})", R"({"revision":01})",
                      R"({revision:1})"));

// Also what the malformed documents above would be: empty, cut inside an object, array or string.
TEST(JsonDecoderMalformedInput, EveryTruncationOfAValidDocumentFails) {
  const std::string document =
      R"({"revision":3,"stage":{"sceneUri":"s","prims":[{"path":"/A","name":"A","active":true,)"
      R"("entityId":2,"attributes":[{"name":"n","type":"t","value":{"k":[1.5,"\u00e9",null]}}]}],)"
      R"("customData":{"a":false}}})";
  ASSERT_TRUE(decodeJson<TestStageResponse>(document).ok());
  for (std::size_t length = 0; length < document.size(); ++length) {
    const Result<TestStageResponse> result =
        decodeJson<TestStageResponse>(std::string_view(document).substr(0, length));
    ASSERT_FALSE(result.ok()) << "length " << length;
    EXPECT_EQ(result.error().domain, Error::kJsonDomain);
    EXPECT_EQ(result.error().code, kJsonMalformed) << result.error().description;
  }
}

TEST(JsonDecoderMalformedInput, RandomlyDamagedDocumentsDecodeOrFailCleanly) {
  const std::string document =
      R"({"revision":3,"stage":{"sceneUri":"s","prims":[{"path":"/A","name":"A","active":true,)"
      R"("entityId":2,"metrics":{"m":[1e3,-0.5]},"attributes":[{"name":"n","type":"t",)"
      R"("value":{"k":[1.5,"\u00e9\n",null,true,18446744073709551615]}}]}]}})";
  std::mt19937 random(7);
  int decoded = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string damaged = document;
    for (int edit = 0; edit < 1 + round % 3; ++edit) {
      const std::size_t at = random() % damaged.size();
      switch (random() % 3) {
        case 0:
          damaged[at] = static_cast<char>(random() % 256);
          break;
        case 1:
          damaged.erase(at, 1 + random() % 4);
          break;
        default:
          damaged.insert(at, 1, "{}[]\",:0e-n\x80"[random() % 13]);
      }
      if (damaged.empty()) {
        damaged = "{";
      }
    }
    const Result<TestStageResponse> result = decodeJson<TestStageResponse>(damaged, "response");
    if (result.ok()) {
      ++decoded;
      continue;
    }
    EXPECT_EQ(result.error().domain, Error::kJsonDomain);
    EXPECT_TRUE(result.error().description.find(" at response") != std::string::npos)
        << result.error().description;
  }
  EXPECT_LT(decoded, 3000);
}

TEST(JsonDecoderMalformedInput, DeepNestingFailsWithoutExhaustingTheStack) {
  const std::size_t depth = 100000;
  const std::string nested = std::string(depth, '[') + std::string(depth, ']');
  const Result<JsonValue> result = decodeJson<JsonValue>(nested);
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error().code, kJsonMalformed);
  std::string shownPath;
  for (int segment = 0; segment < 32; ++segment) {
    shownPath += "[0]";
  }
  EXPECT_EQ(result.error().description, "nesting too deep at " + shownPath + "...");

  const std::string shallow = std::string(100, '[') + std::string(100, ']');
  EXPECT_TRUE(decodeJson<JsonValue>(shallow).ok());
}

TEST(JsonDecoderEntryPoints, PaddedInputAndAReusedDecoderGiveTheSameRecords) {
  const std::string json = R"({"revision":5,"stage":{"sceneUri":"s","prims":[]}})";
  const simdjson::padded_string padded(json);
  const Result<TestStageResponse> fromPadded = decodeJson<TestStageResponse>(padded);
  const Result<TestStageResponse> fromView = decodeJson<TestStageResponse>(json);
  ASSERT_TRUE(fromPadded.ok() && fromView.ok());
  EXPECT_EQ(*fromPadded, *fromView);

  JsonDecoder decoder;
  EXPECT_FALSE(
      decoder.decode<TestStageResponse>(simdjson::padded_string(std::string_view("{"))).ok());
  const Result<TestStageResponse> again = decoder.decode<TestStageResponse>(padded);
  ASSERT_TRUE(again.ok());
  EXPECT_EQ(again->revision, 5u);
}

TEST(JsonDecoderEntryPoints, FreeFormValuesKeepIntegersExactOrFail) {
  const Result<JsonValue> numbers =
      decodeJson<JsonValue>("[9223372036854775807, 9223372036854775808, -9223372036854775808]");
  ASSERT_TRUE(numbers.ok()) << numbers.error().description;
  const JsonValue::Array& array = *numbers->asArray();
  EXPECT_EQ(*array[0].asInt64(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(*array[1].asUint64(), 9223372036854775808ull);
  EXPECT_EQ(*array[2].asInt64(), std::numeric_limits<std::int64_t>::min());

  EXPECT_EQ(problemOf<JsonValue>(R"({"a":[0, 18446744073709551616]})", "data"),
            "integer out of range at data.a[1]");
  EXPECT_EQ(problemOf<JsonValue>(R"({"a":-9223372036854775809})"), "integer out of range at a");
}

TEST(JsonDecoderEntryPoints, UnorderedDictionariesDecodeLikeOrderedOnes) {
  const Result<std::unordered_map<std::string, std::uint64_t>> counts =
      decodeJson<std::unordered_map<std::string, std::uint64_t>>(
          R"({"b":2,"a":18446744073709551615,"b":3})");
  ASSERT_TRUE(counts.ok()) << counts.error().description;
  EXPECT_EQ(counts->size(), 2u);
  EXPECT_EQ(counts->at("a"), 18446744073709551615ull);
  EXPECT_EQ(counts->at("b"), 3u);
  using Counts = std::unordered_map<std::string, std::uint64_t>;
  EXPECT_EQ(problemOf<Counts>(R"({"a":true})", "counts"), "expected unsigned integer at counts.a");
}

TEST(JsonDecoderEntryPoints, ScalarRootsDecodeIntoFreeFormValues) {
  EXPECT_EQ(decodeJson<JsonValue>("42").value(), JsonValue(42));
  EXPECT_EQ(decodeJson<JsonValue>(" \"x\" ").value(), JsonValue("x"));
  EXPECT_EQ(decodeJson<JsonValue>("null").value(), JsonValue());
  EXPECT_EQ(decodeJson<std::string>("\"a\\nb\"").value(), "a\nb");
  EXPECT_FALSE(decodeJson<JsonValue>("42 43").ok());
}

}  // namespace
}  // namespace orvan::editor
