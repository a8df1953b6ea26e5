#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonFields.h"

// The composed stage as the server and the local inspector describe it. Plain values with
// structural equality: the refresh compares them, and they cross threads by copy.
namespace orvan::editor {

class JsonDecodeContext;

// How deep prims may nest in a scene. The engine's reader refuses deeper scenes, and the stage
// record of any scene it reads must decode here: each prim is two levels of JSON (its object and
// its children list), under at most a few levels of the records around the tree.
inline constexpr std::size_t kMaxPrimNesting = 256;
inline constexpr std::size_t kStageRecordEnvelopeDepth = 4;

struct UsdLayerInfo {
  std::string identifier;
  std::string name;
  std::string path;
  std::optional<std::int64_t> depth;
  bool root = false;
  bool muted = false;
  bool writable = false;
  std::optional<bool> system;

  bool operator==(const UsdLayerInfo&) const = default;
  static auto jsonFields() {
    using T = UsdLayerInfo;
    return std::tuple{json::required("identifier", &T::identifier),
                      json::required("name", &T::name),
                      json::required("path", &T::path),
                      json::optional("depth", &T::depth),
                      json::required("root", &T::root),
                      json::required("muted", &T::muted),
                      json::required("writable", &T::writable),
                      json::optional("system", &T::system)};
  }
};

struct UsdPrimNode {
  std::string path;
  std::string name;
  std::string typeName;
  std::string parent;
  bool active = true;
  std::optional<bool> defined;
  std::optional<bool> overridden;
  std::optional<bool> overriddenInActiveLayer;
  std::optional<std::string> overrideLayer;
  std::optional<std::string> overrideLayerName;
  std::optional<std::string> definingLayer;
  std::vector<std::string> badges;
  std::optional<bool> instanceProxy;
  std::vector<UsdPrimNode> children;

  bool operator==(const UsdPrimNode&) const = default;
  static auto jsonFields() {
    using T = UsdPrimNode;
    return std::tuple{json::required("path", &T::path),
                      json::required("name", &T::name),
                      json::required("typeName", &T::typeName),
                      json::required("parent", &T::parent),
                      json::required("active", &T::active),
                      json::optional("defined", &T::defined),
                      json::optional("overridden", &T::overridden),
                      json::optional("overriddenInActiveLayer", &T::overriddenInActiveLayer),
                      json::optional("overrideLayer", &T::overrideLayer),
                      json::optional("overrideLayerName", &T::overrideLayerName),
                      json::optional("definingLayer", &T::definingLayer),
                      json::required("badges", &T::badges),
                      json::optional("instanceProxy", &T::instanceProxy),
                      json::required("children", &T::children)};
  }
};

struct ComponentPropertyOption {
  std::string value;
  std::string label;

  bool operator==(const ComponentPropertyOption&) const = default;
  static auto jsonFields() {
    using T = ComponentPropertyOption;
    return std::tuple{json::required("value", &T::value), json::required("label", &T::label)};
  }
};

struct ComponentProperty {
  std::string name;
  std::string kind;
  std::string value;  // text in every kind
  bool overridden = false;
  bool overriddenInActiveLayer = false;
  std::string overrideLayer;
  std::string overrideLayerName;
  std::optional<std::string> control;
  std::vector<ComponentPropertyOption> options;
  std::optional<double> min;
  std::optional<double> max;
  std::optional<double> step;
  std::optional<std::string> unit;

  bool operator==(const ComponentProperty&) const = default;
  static auto jsonFields() {
    using T = ComponentProperty;
    return std::tuple{
        json::required("name", &T::name),
        json::required("kind", &T::kind),
        json::required("value", &T::value),
        json::defaulted("overridden", &T::overridden, false),
        json::defaulted("overriddenInActiveLayer", &T::overriddenInActiveLayer, false),
        json::defaulted("overrideLayer", &T::overrideLayer, ""),
        json::defaulted("overrideLayerName", &T::overrideLayerName, ""),
        json::optional("control", &T::control),
        json::defaulted("options", &T::options, std::vector<ComponentPropertyOption>{}),
        json::optional("min", &T::min),
        json::optional("max", &T::max),
        json::optional("step", &T::step),
        json::optional("unit", &T::unit)};
  }
};

struct UsdComponent {
  std::string type;
  std::optional<std::string> label;
  bool enabled = true;
  std::vector<ComponentProperty> properties;

  bool operator==(const UsdComponent&) const = default;
  static auto jsonFields() {
    using T = UsdComponent;
    return std::tuple{json::required("type", &T::type), json::optional("label", &T::label),
                      json::required("enabled", &T::enabled),
                      json::required("properties", &T::properties)};
  }
};

struct UsdAttribute {
  std::string name;
  std::string type;
  std::string value;
  bool overridden = false;
  bool overriddenInActiveLayer = false;
  std::string overrideLayer;
  std::string overrideLayerName;

  bool operator==(const UsdAttribute&) const = default;
  static auto jsonFields() {
    using T = UsdAttribute;
    return std::tuple{
        json::required("name", &T::name),
        json::required("type", &T::type),
        json::required("value", &T::value),
        json::defaulted("overridden", &T::overridden, false),
        json::defaulted("overriddenInActiveLayer", &T::overriddenInActiveLayer, false),
        json::defaulted("overrideLayer", &T::overrideLayer, ""),
        json::defaulted("overrideLayerName", &T::overrideLayerName, "")};
  }
};

struct UsdPrimDetail {
  std::string path;
  std::string name;
  std::string typeName;
  std::string parent;
  bool active = true;
  std::optional<bool> defined;
  std::optional<bool> overridden;
  std::optional<bool> overriddenInActiveLayer;
  std::optional<std::string> overrideLayer;
  std::optional<std::string> overrideLayerName;
  std::vector<std::string> badges;
  std::optional<bool> instanceable;
  std::optional<bool> instanceProxy;
  std::string entityPath;  // the prim's owning entity
  std::uint64_t entityId = 0;
  std::vector<UsdComponent> components;
  std::vector<UsdAttribute> attributes;

  bool operator==(const UsdPrimDetail&) const = default;
  static auto jsonFields() {
    using T = UsdPrimDetail;
    return std::tuple{json::required("path", &T::path),
                      json::required("name", &T::name),
                      json::required("typeName", &T::typeName),
                      json::required("parent", &T::parent),
                      json::required("active", &T::active),
                      json::optional("defined", &T::defined),
                      json::optional("overridden", &T::overridden),
                      json::optional("overriddenInActiveLayer", &T::overriddenInActiveLayer),
                      json::optional("overrideLayer", &T::overrideLayer),
                      json::optional("overrideLayerName", &T::overrideLayerName),
                      json::required("badges", &T::badges),
                      json::optional("instanceable", &T::instanceable),
                      json::optional("instanceProxy", &T::instanceProxy),
                      json::required("entityPath", &T::entityPath),
                      json::required("entityId", &T::entityId),
                      json::required("components", &T::components),
                      json::required("attributes", &T::attributes)};
  }
};

struct MeshMaterialSlotItem {
  std::string name;
  std::string material;

  bool operator==(const MeshMaterialSlotItem&) const = default;
  static auto jsonFields() {
    using T = MeshMaterialSlotItem;
    return std::tuple{json::required("name", &T::name), json::required("material", &T::material)};
  }
};

// A material, mesh or similar asset of the scene.
struct UsdAsset {
  std::uint64_t id = 0;
  std::string path;
  std::string name;
  std::string kind;
  std::string source;
  std::string storeURI;
  std::string shaderModel = "pbr";
  std::vector<double> baseColor{0.15, 0.55, 1.0, 1.0};
  double roughness = 0.55;
  double metallic = 0.0;
  std::string baseColorTexture;
  std::string normalTexture;
  std::string roughnessTexture;
  std::string metallicTexture;
  std::string emissiveTexture;
  std::vector<double> boundsCenter{0.0, 0.0, 0.0};
  std::vector<double> boundsDimensions{0.75, 0.75, 0.75};
  bool doubleSided = false;
  std::vector<MeshMaterialSlotItem> materialSlots;
  std::vector<ComponentProperty> scriptProperties;
  // No key of its own: true when both bounds keys were present, which tells real bounds from
  // the defaults.
  bool hasBoundsMetadata = false;

  bool operator==(const UsdAsset&) const = default;
  void afterDecode(JsonDecodeContext& context);
  static auto jsonFields() {
    using T = UsdAsset;
    return std::tuple{
        json::required("id", &T::id),
        json::defaulted("path", &T::path, ""),
        json::required("name", &T::name),
        json::required("kind", &T::kind),
        json::required("source", &T::source),
        json::defaulted("storeURI", &T::storeURI, ""),
        json::defaulted("shaderModel", &T::shaderModel, "pbr"),
        json::defaulted("baseColor", &T::baseColor, std::vector<double>{0.15, 0.55, 1.0, 1.0}),
        json::defaulted("roughness", &T::roughness, 0.55),
        json::defaulted("metallic", &T::metallic, 0.0),
        json::defaulted("baseColorTexture", &T::baseColorTexture, ""),
        json::defaulted("normalTexture", &T::normalTexture, ""),
        json::defaulted("roughnessTexture", &T::roughnessTexture, ""),
        json::defaulted("metallicTexture", &T::metallicTexture, ""),
        json::defaulted("emissiveTexture", &T::emissiveTexture, ""),
        json::defaulted("boundsCenter", &T::boundsCenter, std::vector<double>{0.0, 0.0, 0.0}),
        json::defaulted("boundsDimensions", &T::boundsDimensions,
                        std::vector<double>{0.75, 0.75, 0.75}),
        json::defaulted("doubleSided", &T::doubleSided, false),
        json::defaulted("materialSlots", &T::materialSlots, std::vector<MeshMaterialSlotItem>{}),
        json::defaulted("scriptProperties", &T::scriptProperties,
                        std::vector<ComponentProperty>{})};
  }
};

struct StoreCatalogItem {
  std::string uri;
  std::string name;
  std::string kind;
  std::string description;
  std::optional<std::string> source;
  double price = 0.0;

  bool operator==(const StoreCatalogItem&) const = default;
  static auto jsonFields() {
    using T = StoreCatalogItem;
    return std::tuple{
        json::required("uri", &T::uri),       json::required("name", &T::name),
        json::required("kind", &T::kind),     json::required("description", &T::description),
        json::optional("source", &T::source), json::required("price", &T::price)};
  }
};

struct CartItem {
  std::string uri;
  std::string name;
  std::string kind;
  double price = 0.0;
  std::vector<std::string> usages;

  bool operator==(const CartItem&) const = default;
  static auto jsonFields() {
    using T = CartItem;
    return std::tuple{json::required("uri", &T::uri), json::required("name", &T::name),
                      json::required("kind", &T::kind), json::required("price", &T::price),
                      json::required("usages", &T::usages)};
  }
};

struct StageInspection {
  std::string sceneUri;
  bool usdLayersEnabled = true;
  bool requiresLayerStackInitialization = false;
  std::vector<UsdLayerInfo> layers;
  std::vector<UsdPrimNode> rootPrims;
  std::vector<UsdPrimDetail> prims;
  std::vector<UsdComponent> catalog;  // components that can be added
  std::vector<UsdAsset> assets;
  std::vector<StoreCatalogItem> storeCatalog;
  std::vector<CartItem> cartItems;

  // What the editor holds before a first stage arrives.
  static StageInspection empty() { return {}; }

  bool operator==(const StageInspection&) const = default;
  static auto jsonFields() {
    using T = StageInspection;
    return std::tuple{
        json::required("sceneUri", &T::sceneUri),
        json::defaulted("usdLayersEnabled", &T::usdLayersEnabled, true),
        json::defaulted("requiresLayerStackInitialization", &T::requiresLayerStackInitialization,
                        false),
        json::defaulted("layers", &T::layers, std::vector<UsdLayerInfo>{}),
        // The flat list first: a writer that streams the stage learns from it what the tree needs.
        json::required("prims", &T::prims), json::required("rootPrims", &T::rootPrims),
        json::required("catalog", &T::catalog), json::required("assets", &T::assets),
        json::defaulted("storeCatalog", &T::storeCatalog, std::vector<StoreCatalogItem>{}),
        json::defaulted("cartItems", &T::cartItems, std::vector<CartItem>{})};
  }
};

// The stage endpoint's envelope: the revision the stage belongs to, and the stage.
struct RemoteStageResponse {
  std::uint64_t revision = 0;
  StageInspection stage;

  bool operator==(const RemoteStageResponse&) const = default;
  static auto jsonFields() {
    using T = RemoteStageResponse;
    return std::tuple{json::required("revision", &T::revision), json::required("stage", &T::stage)};
  }
};

}  // namespace orvan::editor
