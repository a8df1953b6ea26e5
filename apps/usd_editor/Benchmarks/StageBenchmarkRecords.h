#pragma once

// Stand-in stage records for the decode benchmark: the shape of the stage response (revision,
// layers, the prim tree, flat prim details with components, properties and attributes, assets),
// declared through the same field tables as the real wire records.

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Foundation/JsonDecoder.h"
#include "Foundation/JsonFields.h"

namespace orvan::editor::benchmarks {

struct LayerInfo {
  std::string identifier, name, path;
  std::optional<std::int64_t> depth;
  bool root = false, muted = false, writable = false;
  std::optional<bool> system;

  static auto jsonFields() {
    return std::tuple{json::required("identifier", &LayerInfo::identifier),
                      json::required("name", &LayerInfo::name),
                      json::required("path", &LayerInfo::path),
                      json::optional("depth", &LayerInfo::depth),
                      json::required("root", &LayerInfo::root),
                      json::required("muted", &LayerInfo::muted),
                      json::required("writable", &LayerInfo::writable),
                      json::optional("system", &LayerInfo::system)};
  }
};

struct PrimNode {
  std::string path, name, typeName, parent;
  bool active = false;
  std::optional<bool> defined, overridden;
  std::optional<std::string> overrideLayer;
  std::vector<std::string> badges;
  std::vector<PrimNode> children;

  static auto jsonFields() {
    return std::tuple{json::required("path", &PrimNode::path),
                      json::required("name", &PrimNode::name),
                      json::required("typeName", &PrimNode::typeName),
                      json::required("parent", &PrimNode::parent),
                      json::required("active", &PrimNode::active),
                      json::optional("defined", &PrimNode::defined),
                      json::optional("overridden", &PrimNode::overridden),
                      json::optional("overrideLayer", &PrimNode::overrideLayer),
                      json::required("badges", &PrimNode::badges),
                      json::required("children", &PrimNode::children)};
  }
};

struct PropertyOption {
  std::string value, label;
  static auto jsonFields() {
    return std::tuple{json::required("value", &PropertyOption::value),
                      json::required("label", &PropertyOption::label)};
  }
};

struct ComponentProperty {
  std::string name, kind, value;
  bool overridden = false, overriddenInActiveLayer = false;
  std::string overrideLayer, overrideLayerName;
  std::optional<std::string> control;
  std::vector<PropertyOption> options;
  std::optional<double> min, max, step;
  std::optional<std::string> unit;

  static auto jsonFields() {
    using C = ComponentProperty;
    return std::tuple{
        json::required("name", &C::name),
        json::required("kind", &C::kind),
        json::required("value", &C::value),
        json::defaulted("overridden", &C::overridden, false),
        json::defaulted("overriddenInActiveLayer", &C::overriddenInActiveLayer, false),
        json::defaulted("overrideLayer", &C::overrideLayer, ""),
        json::defaulted("overrideLayerName", &C::overrideLayerName, ""),
        json::optional("control", &C::control),
        json::defaulted("options", &C::options, std::vector<PropertyOption>{}),
        json::optional("min", &C::min),
        json::optional("max", &C::max),
        json::optional("step", &C::step),
        json::optional("unit", &C::unit)};
  }
};

struct Component {
  std::string type;
  std::optional<std::string> label;
  bool enabled = false;
  std::vector<ComponentProperty> properties;

  static auto jsonFields() {
    return std::tuple{json::required("type", &Component::type),
                      json::optional("label", &Component::label),
                      json::required("enabled", &Component::enabled),
                      json::required("properties", &Component::properties)};
  }
};

struct Attribute {
  std::string name, type, value;
  bool overridden = false, overriddenInActiveLayer = false;
  std::string overrideLayer, overrideLayerName;

  static auto jsonFields() {
    return std::tuple{
        json::required("name", &Attribute::name),
        json::required("type", &Attribute::type),
        json::required("value", &Attribute::value),
        json::defaulted("overridden", &Attribute::overridden, false),
        json::defaulted("overriddenInActiveLayer", &Attribute::overriddenInActiveLayer, false),
        json::defaulted("overrideLayer", &Attribute::overrideLayer, ""),
        json::defaulted("overrideLayerName", &Attribute::overrideLayerName, "")};
  }
};

struct PrimDetail {
  std::string path, name, typeName, parent;
  bool active = false;
  std::optional<bool> defined, overridden, instanceable;
  std::vector<std::string> badges;
  std::string entityPath;
  std::uint64_t entityId = 0;
  std::vector<Component> components;
  std::vector<Attribute> attributes;

  static auto jsonFields() {
    using P = PrimDetail;
    return std::tuple{json::required("path", &P::path),
                      json::required("name", &P::name),
                      json::required("typeName", &P::typeName),
                      json::required("parent", &P::parent),
                      json::required("active", &P::active),
                      json::optional("defined", &P::defined),
                      json::optional("overridden", &P::overridden),
                      json::optional("instanceable", &P::instanceable),
                      json::required("badges", &P::badges),
                      json::required("entityPath", &P::entityPath),
                      json::required("entityId", &P::entityId),
                      json::required("components", &P::components),
                      json::required("attributes", &P::attributes)};
  }
};

struct Asset {
  std::uint64_t id = 0;
  std::string path, name, kind, source;
  std::vector<double> baseColor;
  double roughness = 0;
  std::vector<double> boundsCenter, boundsDimensions;
  bool hasBoundsMetadata = false;

  static auto jsonFields() {
    return std::tuple{
        json::required("id", &Asset::id),
        json::defaulted("path", &Asset::path, ""),
        json::required("name", &Asset::name),
        json::required("kind", &Asset::kind),
        json::required("source", &Asset::source),
        json::defaulted("baseColor", &Asset::baseColor, std::vector{0.15, 0.55, 1.0, 1.0}),
        json::defaulted("roughness", &Asset::roughness, 0.55),
        json::defaulted("boundsCenter", &Asset::boundsCenter, std::vector{0.0, 0.0, 0.0}),
        json::defaulted("boundsDimensions", &Asset::boundsDimensions,
                        std::vector{0.75, 0.75, 0.75})};
  }
  void afterDecode(JsonDecodeContext& context) {
    hasBoundsMetadata = context.has("boundsCenter") && context.has("boundsDimensions");
  }
};

struct StageInspection {
  std::string sceneUri;
  bool usdLayersEnabled = true;
  bool requiresLayerStackInitialization = false;
  std::vector<LayerInfo> layers;
  std::vector<PrimNode> rootPrims;
  std::vector<PrimDetail> prims;
  std::vector<Component> catalog;
  std::vector<Asset> assets;

  static auto jsonFields() {
    using S = StageInspection;
    return std::tuple{json::required("sceneUri", &S::sceneUri),
                      json::defaulted("usdLayersEnabled", &S::usdLayersEnabled, true),
                      json::defaulted("requiresLayerStackInitialization",
                                      &S::requiresLayerStackInitialization, false),
                      json::defaulted("layers", &S::layers, std::vector<LayerInfo>{}),
                      json::required("rootPrims", &S::rootPrims),
                      json::required("prims", &S::prims),
                      json::required("catalog", &S::catalog),
                      json::required("assets", &S::assets)};
  }
};

struct RemoteStageResponse {
  std::uint64_t revision = 0;
  StageInspection stage;

  static auto jsonFields() {
    return std::tuple{json::required("revision", &RemoteStageResponse::revision),
                      json::required("stage", &RemoteStageResponse::stage)};
  }
};

}  // namespace orvan::editor::benchmarks
