#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <unordered_map>

#include "OrvanWire/JsonTestRecords.h"

namespace orvan::editor {
namespace {

using testing::TestAsset;
using testing::TestPrim;
using testing::TestStage;

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

// A prim with every required key; `more` goes in before the closing brace.
std::string prim(std::string_view more = "") {
  return R"({"path":"/A","name":"A","active":true,"entityId":7)" + std::string(more) + "}";
}

std::string stage(std::string_view prims, std::string_view more = "") {
  return R"({"revision":1,"sceneUri":"s","prims":[)" + std::string(prims) + "]" +
         std::string(more) + "}";
}

TEST(JsonDecoderFieldKinds, MissingOrNullOptionalAndDefaultedKeysTakeTheirStatedValues) {
  for (std::string_view json :
       {R"({"id":1})",
        R"({"id":1,"shaderModel":null,"roughness":null,"label":null,"boundsCenter":null})"}) {
    SCOPED_TRACE(json);
    const Result<TestAsset> asset = decodeJson<TestAsset>(json);
    ASSERT_TRUE(asset.ok()) << asset.error().description;
    EXPECT_EQ(asset->shaderModel, "pbr");
    EXPECT_EQ(asset->roughness, 0.55);
    EXPECT_EQ(asset->boundsCenter, (std::vector{0.0, 0.0, 0.0}));
    EXPECT_FALSE(asset->label.has_value());
  }
  // A required key is not optional just because its value is null.
  EXPECT_EQ(problemOf<TestAsset>(R"({"id":null})"), "expected unsigned integer at id");
}

TEST(JsonDecoderFieldKinds, KeysMatchInAnyOrderOrEscapedTheLastRepeatWinsUnknownOnesAreSkipped) {
  const Result<TestPrim> prim = decodeJson<TestPrim>(
      R"({"future":{"deep":[1,{"x":[null,"}"]}],"more":"]"},"entityId":18446744073709551615,)"
      R"("depth":-3,"name":"World","surprise":[[[]]],"active":false,"p\u0061th":"/World",)"
      R"("badges":["x","y"],"badges":["z"],"defined":true,"defined":null})");
  ASSERT_TRUE(prim.ok()) << prim.error().description;
  EXPECT_EQ(prim->name, "World");
  EXPECT_EQ(prim->path, "/World");
  EXPECT_FALSE(prim->active);
  EXPECT_EQ(prim->depth, -3);
  EXPECT_EQ(prim->entityId, std::numeric_limits<std::uint64_t>::max());
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
    "revision": 1, "sceneUri": "scene.usda",
    "prims": [{"path":"/A","name":"A","active":true,"entityId":2,
               "metrics":{"b":[1,2.5],"a":[]},
               "attributes":[{"name":"size","type":"double","value":2.0},
                             {"name":"tags","type":"token[]","value":["x",{"k":null}]}],
               "children":[{"path":"/A/B","name":"B","active":false,"entityId":3}]}],
    "assets": [{"id":1,"roughness":1}],
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
  EXPECT_EQ(stage->assets.at(0).roughness, 1.0) << "doubles accept integers";
  EXPECT_EQ(stage->customData.at("z"), JsonValue(1));
  EXPECT_EQ(*stage->customData.at("a").find("nested"),
            JsonValue(JsonValue::Array{true, -1, 1.5e300}));
}

TEST(JsonDecoderErrors, NameTheProblemAndTheFullPath) {
  struct Case {
    std::string json;
    std::string_view rootPath;
    std::string_view problem;
  };
  const std::string first = prim() + ",";
  const Case cases[] = {
      {stage(first + R"({"path":"/x","name":5,"active":true,"entityId":1})"), "",
       "expected string at prims[1].name"},
      {stage(first + prim(R"(,"active":"yes")")), "", "expected boolean at prims[1].active"},
      {stage(first + prim(R"(,"metrics":{"w":[1,"2"]})")), "stage",
       "expected number at stage.prims[1].metrics.w[1]"},
      {stage(first + R"("not a prim")"), "", "expected object at prims[1]"},
      {R"({"revision":1,"sceneUri":"s","prims":{}})", "", "expected array at prims"},
      {stage("", R"(,"customData":[])"), "", "expected object at customData"},
      {stage(prim(R"(,"children":[)" + prim(R"(,"attributes":[{"name":"a","type":"b"}])") + "]")),
       "stage", "missing required key at stage.prims[0].children[0].attributes[0].value"},
      {R"({"prims":[],"sceneUri":"s"})", "stage", "missing required key at stage.revision"},
      {R"([])", "", "expected object at (root)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    EXPECT_EQ(problemOf<TestStage>(c.json, c.rootPath), c.problem);
  }
  EXPECT_EQ(problemOf<std::vector<TestPrim>>(R"([{}])"), "missing required key at [0].path");
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
    return problemOf<TestPrim>(prim(",\"depth\":" + std::string(value)));
  };
  EXPECT_EQ(depth("-2147483648"), "ok");
  EXPECT_EQ(depth("2147483648"), "integer out of range at depth");
  EXPECT_EQ(depth("9223372036854775808"), "integer out of range at depth");
  EXPECT_EQ(depth("0.5"), "expected integer at depth");
}

TEST(JsonDecoderHook, SeesWhichKeysWerePresentAndCanRejectTheRecord) {
  auto bounds = [](std::string_view json) {
    const Result<TestAsset> asset = decodeJson<TestAsset>(json);
    EXPECT_TRUE(asset.ok()) << asset.error().description;
    return asset.ok() && asset->hasBoundsMetadata;
  };
  EXPECT_TRUE(bounds(R"({"id":1,"boundsCenter":[0,0,0],"boundsDimensions":[1,2,3]})"));
  // A null counts as missing, also after an earlier value of the same key.
  EXPECT_FALSE(
      bounds(R"({"id":1,"boundsCenter":[0],"boundsDimensions":[1],"boundsDimensions":null})"));

  EXPECT_EQ(
      problemOf<TestStage>(stage("", R"(,"assets":[{"id":1},{"id":2,"roughness":-1}])"), "stage"),
      "negative roughness at stage.assets[1]");
}

constexpr std::string_view kEmptyStage = R"({"revision":1,"sceneUri":"s","prims":[]})";

// Whatever the bytes, the decoder answers with an error in the JSON domain, never a crash.
class JsonDecoderMalformed : public ::testing::TestWithParam<std::string> {};

TEST_P(JsonDecoderMalformed, GivesAMalformedError) {
  const Result<TestStage> result = decodeJson<TestStage>(GetParam(), "response");
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error().domain, Error::kJsonDomain);
  EXPECT_EQ(result.error().code, kJsonMalformed) << result.error().description;
  EXPECT_TRUE(result.error().description.starts_with("malformed JSON at response") ||
              result.error().description.starts_with("trailing content after the document"))
      << result.error().description;
}

INSTANTIATE_TEST_SUITE_P(
    Documents, JsonDecoderMalformed,
    ::testing::Values("   ", std::string(kEmptyStage) + " x", std::string(kEmptyStage) + "}",
                      "{\"revision\":1,\"sceneUri\":\"\xC3\x28\"}",
                      R"({"revision":1,"sceneUri":"\uD800"})", R"({"revision":1,"prims":[],})",
                      R"({"revision":1 "sceneUri":"s"})", R"({"revision":tru})",
                      R"({"revision":01})", R"({revision:1})"));

// Cut anywhere or damaged at random, a valid document fails cleanly or still decodes.
TEST(JsonDecoderMalformedInput, TruncatedOrDamagedDocumentsFailCleanly) {
  const std::string document =
      R"({"revision":3,"sceneUri":"s","prims":[{"path":"/A","name":"A","active":true,)"
      R"("entityId":2,"metrics":{"m":[1e3,-0.5]},"attributes":[{"name":"n","type":"t",)"
      R"("value":{"k":[1.5,"\u00e9\n",null,true,18446744073709551615]}}]}],"customData":{}})";
  ASSERT_TRUE(decodeJson<TestStage>(document).ok());
  for (std::size_t length = 0; length < document.size(); ++length) {
    const Result<TestStage> result =
        decodeJson<TestStage>(std::string_view(document).substr(0, length));
    ASSERT_FALSE(result.ok()) << "length " << length;
    EXPECT_EQ(result.error().code, kJsonMalformed) << result.error().description;
  }

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
    const Result<TestStage> result = decodeJson<TestStage>(damaged, "response");
    if (result.ok()) {
      ++decoded;
      continue;
    }
    EXPECT_EQ(result.error().domain, Error::kJsonDomain);
    EXPECT_NE(result.error().description.find(" at response"), std::string::npos)
        << result.error().description;
  }
  EXPECT_LT(decoded, 3000);
}

TEST(JsonDecoderMalformedInput, DeepNestingFailsWithoutExhaustingTheStack) {
  const std::size_t depth = 100000;
  const Result<JsonValue> result =
      decodeJson<JsonValue>(std::string(depth, '[') + std::string(depth, ']'));
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error().code, kJsonMalformed);
  std::string shownPath;
  for (int segment = 0; segment < 32; ++segment) {
    shownPath += "[0]";
  }
  EXPECT_EQ(result.error().description, "nesting too deep at " + shownPath + "...");
  EXPECT_TRUE(decodeJson<JsonValue>(std::string(100, '[') + std::string(100, ']')).ok());
}

TEST(JsonDecoderEntryPoints, PaddedInputAndAReusedDecoderGiveTheSameRecords) {
  const std::string json = R"({"revision":5,"sceneUri":"s","prims":[]})";
  const simdjson::padded_string padded(json);
  const Result<TestStage> fromPadded = decodeJson<TestStage>(padded);
  const Result<TestStage> fromView = decodeJson<TestStage>(json);
  ASSERT_TRUE(fromPadded.ok() && fromView.ok());
  EXPECT_EQ(*fromPadded, *fromView);

  JsonDecoder decoder;
  EXPECT_FALSE(decoder.decode<TestStage>(simdjson::padded_string(std::string_view("{"))).ok());
  const Result<TestStage> again = decoder.decode<TestStage>(padded);
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

  // Scalars are documents too.
  EXPECT_EQ(decodeJson<JsonValue>(" \"x\" ").value(), JsonValue("x"));
  EXPECT_EQ(decodeJson<JsonValue>("null").value(), JsonValue());
  EXPECT_EQ(decodeJson<std::string>("\"a\\nb\"").value(), "a\nb");
  EXPECT_FALSE(decodeJson<JsonValue>("42 43").ok());
}

TEST(JsonDecoderEntryPoints, UnorderedDictionariesDecodeLikeOrderedOnes) {
  using Counts = std::unordered_map<std::string, std::uint64_t>;
  const Result<Counts> counts = decodeJson<Counts>(R"({"b":2,"a":18446744073709551615,"b":3})");
  ASSERT_TRUE(counts.ok()) << counts.error().description;
  EXPECT_EQ(*counts, (Counts{{"a", 18446744073709551615ull}, {"b", 3}}));
  EXPECT_EQ(problemOf<Counts>(R"({"a":true})", "counts"), "expected unsigned integer at counts.a");
}

}  // namespace
}  // namespace orvan::editor
