#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonFields.h"
#include "orvan/wire/JsonValue.h"

// Small records in the shape of the stage records, exercising every field kind and container.
namespace orvan::editor::testing {

struct TestAttribute {
  std::string name;
  std::string type;
  JsonValue value;

  bool operator==(const TestAttribute&) const = default;
  static auto jsonFields() {
    return std::tuple{json::required("name", &TestAttribute::name),
                      json::required("type", &TestAttribute::type),
                      json::required("value", &TestAttribute::value)};
  }
};

struct TestPrim {
  std::string path;
  std::string name;
  bool active = false;
  std::optional<bool> defined;
  std::optional<std::int32_t> depth;
  std::uint64_t entityId = 0;
  std::vector<std::string> badges;
  std::vector<TestAttribute> attributes;
  std::map<std::string, std::vector<double>> metrics;
  std::vector<TestPrim> children;

  bool operator==(const TestPrim&) const = default;
  static auto jsonFields() {
    return std::tuple{
        json::required("path", &TestPrim::path),
        json::required("name", &TestPrim::name),
        json::required("active", &TestPrim::active),
        json::optional("defined", &TestPrim::defined),
        json::optional("depth", &TestPrim::depth),
        json::required("entityId", &TestPrim::entityId),
        json::defaulted("badges", &TestPrim::badges, std::vector<std::string>{}),
        json::defaulted("attributes", &TestPrim::attributes, std::vector<TestAttribute>{}),
        json::defaulted("metrics", &TestPrim::metrics,
                        std::map<std::string, std::vector<double>>{}),
        json::defaulted("children", &TestPrim::children, std::vector<TestPrim>{})};
  }
};

// Derives hasBoundsMetadata from the presence of both bounds keys, and refuses a negative
// roughness, to exercise both sides of the post-decode hook.
struct TestAsset {
  std::uint64_t id = 0;
  std::string shaderModel;
  double roughness = 0;
  std::vector<double> boundsCenter;
  std::vector<double> boundsDimensions;
  std::optional<std::string> label;
  bool hasBoundsMetadata = false;

  bool operator==(const TestAsset&) const = default;
  static auto jsonFields() {
    return std::tuple{
        json::required("id", &TestAsset::id),
        json::defaulted("shaderModel", &TestAsset::shaderModel, "pbr"),
        json::defaulted("roughness", &TestAsset::roughness, 0.55),
        json::defaulted("boundsCenter", &TestAsset::boundsCenter, std::vector{0.0, 0.0, 0.0}),
        json::defaulted("boundsDimensions", &TestAsset::boundsDimensions,
                        std::vector{0.75, 0.75, 0.75}),
        json::optional("label", &TestAsset::label)};
  }
  void afterDecode(JsonDecodeContext& context) {
    hasBoundsMetadata = context.has("boundsCenter") && context.has("boundsDimensions");
    if (roughness < 0) {
      context.fail("negative roughness");
    }
  }
};

struct TestStage {
  std::uint64_t revision = 0;
  std::string sceneUri;
  std::vector<TestPrim> prims;
  std::vector<TestAsset> assets;
  std::map<std::string, JsonValue> customData;

  bool operator==(const TestStage&) const = default;
  static auto jsonFields() {
    return std::tuple{
        json::required("revision", &TestStage::revision),
        json::required("sceneUri", &TestStage::sceneUri),
        json::required("prims", &TestStage::prims),
        json::defaulted("assets", &TestStage::assets, std::vector<TestAsset>{}),
        json::defaulted("customData", &TestStage::customData, std::map<std::string, JsonValue>{})};
  }
};

}  // namespace orvan::editor::testing
