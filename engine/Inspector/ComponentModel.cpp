#include "Inspector/ComponentModel.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>

namespace orvan::engine {
namespace {

using editor::ComponentProperty;
using editor::ComponentPropertyOption;
using editor::UsdComponent;

// How one component property is shown and where it lives. `attribute` is empty for properties
// derived from several attributes or from the prim itself.
struct PropertyDescriptor {
  std::string_view name;
  std::string_view kind;
  std::string_view attribute;
  std::string_view defaultValue;
  std::string_view control = {};
  std::vector<ComponentPropertyOption> options = {};
  std::optional<double> min = {};
  std::optional<double> max = {};
  std::optional<double> step = {};
  std::string_view unit = {};
};

ComponentProperty makeProperty(const PropertyDescriptor& descriptor, std::string value,
                               bool withOptions = true) {
  ComponentProperty property;
  property.name = std::string(descriptor.name);
  property.kind = std::string(descriptor.kind);
  property.value = std::move(value);
  if (!descriptor.control.empty())
    property.control = std::string(descriptor.control);
  if (withOptions)
    property.options = descriptor.options;
  property.min = descriptor.min;
  property.max = descriptor.max;
  property.step = descriptor.step;
  if (!descriptor.unit.empty())
    property.unit = std::string(descriptor.unit);
  return property;
}

// The shape of a shape and the type of a light are the prim's type: the catalogue offers the
// choice when a component is added, an existing prim shows it without one.
ComponentProperty readOnly(const PropertyDescriptor& descriptor, std::string value) {
  ComponentProperty property = makeProperty(descriptor, std::move(value), false);
  property.control = "readonly";
  return property;
}

std::vector<ComponentPropertyOption> optionsOf(std::initializer_list<std::string_view> values) {
  std::vector<ComponentPropertyOption> options;
  for (const std::string_view value : values) {
    std::string label(value);
    if (!label.empty())
      label[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(label[0])));
    options.push_back({std::string(value), std::move(label)});
  }
  return options;
}

const PropertyDescriptor kName{"name", "string", "orvan:name", ""};

const std::array<PropertyDescriptor, 3> kTransform{{
    {"translation", "vector3", "xformOp:translate", "0,0,0", {}, {}, {}, {}, 0.1, "m"},
    {"rotation", "vector3", "xformOp:rotateXYZ", "0,0,0", {}, {}, -360, 360, 1, "deg"},
    {"scale", "vector3", "xformOp:scale", "1,1,1", {}, {}, {}, {}, 0.1},
}};

const std::array<std::string_view, 6> kShapeTypes{"Cube",     "Sphere",  "Cone",
                                                  "Cylinder", "Capsule", "Plane"};
const std::array<std::string_view, 4> kLightTypes{"DistantLight", "SphereLight", "RectLight",
                                                  "DiskLight"};

const std::vector<PropertyDescriptor>& renderShapeProperties() {
  static const std::vector<PropertyDescriptor> properties{
      {"shape", "string", "", "cube", "picker",
       optionsOf({"cube", "sphere", "cone", "cylinder", "capsule", "plane"})},
      {"color", "color", "primvars:displayColor", "0.8,0.8,0.8", "color"},
      {"dimensions", "vector3", "", "1,1,1", {}, {}, 0, {}, 0.1, "m"},
  };
  return properties;
}

const std::vector<PropertyDescriptor>& lightProperties() {
  static const std::vector<PropertyDescriptor> properties{
      {"type", "string", "", "sphere", "picker", optionsOf({"distant", "sphere", "rect", "disk"})},
      {"color", "color", "inputs:color", "1,1,1", "color"},
      {"intensity", "number", "inputs:intensity", "1", "slider", {}, 0, 100, 0.1},
      {"castShadows", "bool", "orvan:light:castShadows", "true", "toggle"},
  };
  return properties;
}

// Shape inputs of each light type, after the common ones.
std::vector<PropertyDescriptor> lightShapeProperties(std::string_view typeName) {
  if (typeName == "DistantLight")
    return {{"angle", "number", "inputs:angle", "0.53", {}, {}, 0, 180, 0.01, "deg"}};
  if (typeName == "RectLight") {
    return {{"width", "number", "inputs:width", "1", {}, {}, 0, {}, 0.1, "m"},
            {"height", "number", "inputs:height", "1", {}, {}, 0, {}, 0.1, "m"}};
  }
  return {{"radius", "number", "inputs:radius", "0.5", {}, {}, 0, {}, 0.05, "m"}};
}

const std::vector<PropertyDescriptor>& materialProperties() {
  static const std::vector<PropertyDescriptor> properties{
      {"baseColor", "color", "inputs:diffuseColor", "0.18,0.18,0.18", "color"},
      {"roughness", "number", "inputs:roughness", "0.5", "slider", {}, 0, 1, 0.01},
      {"metallic", "number", "inputs:metallic", "0", "slider", {}, 0, 1, 0.01},
  };
  return properties;
}

const std::vector<PropertyDescriptor>& worldProperties() {
  static const std::vector<PropertyDescriptor> properties{
      {"backgroundColor", "color", "orvan:backgroundColor", "0.03,0.035,0.045", "color"},
      {"ambientColor", "color", "orvan:ambientColor", "0.2,0.2,0.2", "color"},
      {"ambientOcclusionEnabled", "bool", "orvan:ambientOcclusionEnabled", "false", "toggle"},
      {"ambientOcclusionStrength",
       "number",
       "orvan:ambientOcclusionStrength",
       "0.5",
       "slider",
       {},
       0,
       1,
       0.01},
      {"shadowsEnabled", "bool", "orvan:shadowsEnabled", "true", "toggle"},
  };
  return properties;
}

// Components whose properties are plain attributes in their own namespace.
struct AttributeComponent {
  std::string_view type;
  std::string_view label;
  std::string_view prefix;  // every attribute of the component starts with it
  std::vector<PropertyDescriptor> properties;
};

std::vector<PropertyDescriptor> uiLayoutProperties() {
  const auto units = optionsOf({"pixels", "percent", "auto"});
  std::vector<PropertyDescriptor> properties{{"position", "string", "orvan:ui:layout:position",
                                              "relative", "picker",
                                              optionsOf({"relative", "absolute"})}};
  const std::array<std::string_view, 6> edges{"left", "right", "top", "bottom", "width", "height"};
  const std::array<std::string_view, 6> attributes{
      "orvan:ui:layout:left",   "orvan:ui:layout:right", "orvan:ui:layout:top",
      "orvan:ui:layout:bottom", "orvan:ui:layout:width", "orvan:ui:layout:height"};
  const std::array<std::string_view, 6> unitNames{"leftUnit",   "rightUnit", "topUnit",
                                                  "bottomUnit", "widthUnit", "heightUnit"};
  const std::array<std::string_view, 6> unitAttributes{
      "orvan:ui:layout:leftUnit",   "orvan:ui:layout:rightUnit", "orvan:ui:layout:topUnit",
      "orvan:ui:layout:bottomUnit", "orvan:ui:layout:widthUnit", "orvan:ui:layout:heightUnit"};
  for (std::size_t i = 0; i < edges.size(); ++i) {
    properties.push_back({edges[i], "string", attributes[i], "auto"});
    properties.push_back({unitNames[i], "string", unitAttributes[i], "auto", "picker", units});
  }
  return properties;
}

const std::vector<AttributeComponent>& attributeComponents() {
  static const std::vector<AttributeComponent> components{
      {"AudioSource",
       "Audio Source",
       "orvan:audio:",
       {{"clip", "sound", "orvan:audio:clip", ""},
        {"volume", "number", "orvan:audio:volume", "1", "slider", {}, 0, 1, 0.05},
        {"loop", "bool", "orvan:audio:loop", "false", "toggle"},
        {"spatial", "bool", "orvan:audio:spatial", "true", "toggle"}}},
      {"Script", "Script", "orvan:script:", {{"source", "asset", "orvan:script:source", ""}}},
      {"UiCanvas",
       "UI Canvas",
       "orvan:ui:canvas:",
       {{"renderMode", "string", "orvan:ui:canvas:renderMode", "screen", "picker",
         optionsOf({"screen", "world"})},
        {"referenceResolution",
         "vector2",
         "orvan:ui:canvas:referenceResolution",
         "1920,1080",
         {},
         {},
         1,
         {},
         1,
         "px"}}},
      {"UiLayout", "UI Layout", "orvan:ui:layout:", uiLayoutProperties()},
  };
  return components;
}

const PropertyDescriptor kMeshAsset{"asset", "mesh", "", ""};
const PropertyDescriptor kProxyDimensions{
    "proxyDimensions", "vector3", "orvan:mesh:proxyDimensions", "1,1,1", {}, {}, 0, {}, 0.1, "m"};
const PropertyDescriptor kBinding{"material", "material", "material:binding", ""};

bool isNumericKind(std::string_view kind) {
  return kind == "number" || kind == "vector2" || kind == "vector3" || kind == "color";
}

// The text of an authored value in a property's kind; nullopt when the value does not fit.
std::optional<std::string> textOf(const ComposedProperty& property, std::string_view kind) {
  if (property.kind == PropertyKind::Relationship) {
    if (property.targets.empty())
      return std::string();
    return property.targets.front();
  }
  if (!property.value || property.value->isNone())
    return std::nullopt;
  const Value& value = *property.value;
  if (isNumericKind(kind)) {
    const std::vector<double> numbers = numbersOf(value);
    if (numbers.empty())
      return std::nullopt;
    return formatNumbers(numbers);
  }
  if (kind == "bool") {
    const auto flag = value.toBool();
    if (!flag)
      return std::nullopt;
    return std::string(*flag ? "true" : "false");
  }
  if (const auto asset = value.assetPath())
    return *asset;
  return value.decoded();
}

struct Builder {
  const ComponentSource& source;

  ComponentProperty fromAttribute(const PropertyDescriptor& descriptor) const {
    const ComposedProperty* authored = source.properties.find(descriptor.attribute);
    std::optional<std::string> text;
    if (authored)
      text = textOf(*authored, descriptor.kind);
    ComponentProperty property =
        makeProperty(descriptor, text.value_or(std::string(descriptor.defaultValue)));
    if (authored)
      source.mark(*authored, property);
    return property;
  }

  // A property derived from several attributes: marked as overridden when any of them is.
  ComponentProperty derived(const PropertyDescriptor& descriptor, std::string value,
                            std::initializer_list<std::string_view> attributes) const {
    ComponentProperty property = makeProperty(descriptor, std::move(value));
    for (const std::string_view name : attributes) {
      const ComposedProperty* authored = source.properties.find(name);
      if (!authored)
        continue;
      ComponentProperty marks;
      source.mark(*authored, marks);
      if (marks.overridden && !property.overridden) {
        property.overridden = true;
        property.overrideLayer = marks.overrideLayer;
        property.overrideLayerName = marks.overrideLayerName;
      }
      property.overriddenInActiveLayer =
          property.overriddenInActiveLayer || marks.overriddenInActiveLayer;
    }
    return property;
  }

  double number(std::string_view attribute, double fallback) const {
    const ComposedProperty* authored = source.properties.find(attribute);
    if (!authored || !authored->value)
      return fallback;
    return authored->value->toNumber().value_or(fallback);
  }

  std::string axis() const {
    const ComposedProperty* authored = source.properties.find("axis");
    if (!authored || !authored->value)
      return "Y";
    return authored->value->decoded();
  }

  bool enabled(std::string_view attribute) const {
    const ComposedProperty* authored = source.properties.find(attribute);
    if (!authored || !authored->value)
      return true;
    return authored->value->toBool().value_or(true);
  }

  UsdComponent component(std::string_view type, std::string_view label,
                         std::string_view enabledAttribute) const {
    UsdComponent component;
    component.type = std::string(type);
    component.label = std::string(label);
    component.enabled = enabledAttribute.empty() || enabled(enabledAttribute);
    return component;
  }

  // Width, height and depth of a shape from its own attributes, the axis along Y.
  std::string shapeDimensions() const {
    const std::string_view type = source.prim.typeName;
    double x = 1, y = 1, z = 1;
    if (type == "Cube") {
      x = y = z = number("size", 2);
    } else if (type == "Sphere") {
      x = y = z = 2 * number("radius", 1);
    } else if (type == "Plane") {
      x = number("width", 2);
      y = 0;
      z = number("length", 2);
    } else {
      const double radius = number("radius", 1);
      double height = number("height", 2);
      if (type == "Capsule")
        height += 2 * radius;
      x = z = 2 * radius;
      y = height;
    }
    std::string along = axis();
    if (along == "X")
      std::swap(x, y);
    else if (along == "Z")
      std::swap(y, z);
    return formatNumbers({x, y, z});
  }

  UsdComponent renderShape() const {
    UsdComponent shape = component("RenderShape", "Render Shape", "orvan:renderShape:enabled");
    const auto& descriptors = renderShapeProperties();
    std::string kind(source.prim.typeName);
    for (char& c : kind)
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    shape.properties.push_back(readOnly(descriptors[0], kind));
    shape.properties.push_back(fromAttribute(descriptors[1]));
    shape.properties.push_back(derived(descriptors[2], shapeDimensions(),
                                       {"size", "radius", "height", "width", "length", "axis"}));
    return shape;
  }

  UsdComponent light() const {
    UsdComponent light = component("Light", "Light", "orvan:light:enabled");
    const auto& descriptors = lightProperties();
    std::string type(source.prim.typeName.substr(0, source.prim.typeName.size() - 5));
    for (char& c : type)
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    light.properties.push_back(readOnly(descriptors[0], type));
    for (std::size_t i = 1; i < descriptors.size(); ++i)
      light.properties.push_back(fromAttribute(descriptors[i]));
    for (const PropertyDescriptor& descriptor : lightShapeProperties(source.prim.typeName))
      light.properties.push_back(fromAttribute(descriptor));
    return light;
  }

  // A material keeps its inputs on its surface shader, the first child prim that has them.
  UsdComponent material() const {
    UsdComponent material = component("Material", "Material", "orvan:material:enabled");
    for (const std::uint32_t child : source.prim.children) {
      const ComposedPrim& shader = source.stage.prims[child];
      if (shader.typeName != "Shader")
        continue;
      const PrimProperties properties(source.stage, shader);
      if (!properties.find("inputs:diffuseColor") && !properties.find("inputs:roughness"))
        continue;
      const ComponentSource shaderSource{source.stage, shader, properties, source.mark};
      const Builder shaderBuilder{shaderSource};
      for (const PropertyDescriptor& descriptor : materialProperties())
        material.properties.push_back(shaderBuilder.fromAttribute(descriptor));
      return material;
    }
    for (const PropertyDescriptor& descriptor : materialProperties())
      material.properties.push_back(makeProperty(descriptor, std::string(descriptor.defaultValue)));
    return material;
  }

  UsdComponent meshAsset() const {
    UsdComponent mesh = component("MeshAsset", "Mesh", "orvan:mesh:enabled");
    std::string asset;
    if (const MetadataEntry* references = source.stage.findMetadata(source.prim, "references")) {
      if (references->value.kind == ValueKind::List && references->value.itemCount > 0)
        asset = references->value.items()[0].assetPath().value_or("");
      else
        asset = references->value.assetPath().value_or("");
    }
    mesh.properties.push_back(makeProperty(kMeshAsset, asset));
    mesh.properties.push_back(fromAttribute(kProxyDimensions));
    return mesh;
  }

  UsdComponent fromAttributes(const AttributeComponent& kind) const {
    std::string enabledName(kind.prefix);
    enabledName += "enabled";
    UsdComponent component = this->component(kind.type, kind.label, enabledName);
    for (const PropertyDescriptor& descriptor : kind.properties)
      component.properties.push_back(fromAttribute(descriptor));
    return component;
  }

  // A script's exposed properties are attributes "orvan:script:prop:<name>", shown in a kind that
  // fits their type.
  void addScriptProperties(UsdComponent& script) const {
    constexpr std::string_view kPrefix = "orvan:script:prop:";
    for (const ComposedProperty& authored : source.properties.all()) {
      if (!authored.name.starts_with(kPrefix))
        continue;
      const std::string_view type = authored.typeName;
      std::string_view kind = "string";
      if (type == "bool")
        kind = "bool";
      else if (type == "float" || type == "double" || type == "int" || type == "half" ||
               type == "uint" || type == "int64" || type == "uint64")
        kind = "number";
      else if (type == "float2" || type == "double2" || type == "int2")
        kind = "vector2";
      else if (type == "float3" || type == "double3" || type == "int3" || type == "point3f" ||
               type == "vector3f")
        kind = "vector3";
      else if (type == "color3f" || type == "color3d")
        kind = "color";
      else if (type == "asset")
        kind = "asset";
      const PropertyDescriptor descriptor{authored.name.substr(kPrefix.size()), kind, authored.name,
                                          ""};
      script.properties.push_back(fromAttribute(descriptor));
    }
  }
};

// An author's order of the components (`custom token[] orvan:componentOrder`): the listed ones
// first, in that order; World Settings, Name and Transform always lead.
void applyComponentOrder(const PrimProperties& properties, std::vector<UsdComponent>& components) {
  const ComposedProperty* order = properties.find("orvan:componentOrder");
  if (!order || !order->value || order->value->kind != ValueKind::List)
    return;
  std::vector<std::string> types;
  for (const Value& item : order->value->items())
    types.push_back(item.decoded());
  const auto fixed = [](const UsdComponent& component) {
    return component.type == "WorldSettings" || component.type == "Name" ||
           component.type == "Transform";
  };
  const auto rank = [&](const UsdComponent& component) -> std::size_t {
    if (fixed(component))
      return 0;
    const auto at = std::find(types.begin(), types.end(), component.type);
    return 1 + static_cast<std::size_t>(at - types.begin());
  };
  std::stable_sort(components.begin(), components.end(),
                   [&](const UsdComponent& a, const UsdComponent& b) { return rank(a) < rank(b); });
}

}  // namespace

const ComposedProperty* PrimProperties::find(std::string_view name) const {
  for (const ComposedProperty& property : all_) {
    if (property.name == name)
      return &property;
  }
  return nullptr;
}

bool PrimProperties::anyWithPrefix(std::string_view prefix) const {
  return std::any_of(all_.begin(), all_.end(), [&](const ComposedProperty& property) {
    return property.name.starts_with(prefix);
  });
}

std::vector<double> numbersOf(const Value& value) {
  std::vector<double> numbers;
  const Value* source = &value;
  if (value.kind == ValueKind::List) {
    if (value.itemCount == 0)
      return numbers;
    source = &value.items()[0];
  }
  if (source->kind == ValueKind::Tuple) {
    for (const Value& item : source->items()) {
      const auto number = item.toNumber();
      if (!number)
        return {};
      numbers.push_back(*number);
    }
    return numbers;
  }
  if (source->kind == ValueKind::Number) {
    if (const auto number = source->toNumber())
      numbers.push_back(*number);
  }
  return numbers;
}

std::string formatNumbers(const std::vector<double>& numbers) {
  std::string text;
  char buffer[32];
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (i != 0)
      text += ',';
    // The general format with six digits is "%.6g", without the locale and printf's cost.
    const auto written =
        std::to_chars(buffer, buffer + sizeof buffer, numbers[i], std::chars_format::general, 6);
    text.append(buffer, written.ptr);
  }
  return text;
}

std::vector<UsdComponent> decodeComponents(const ComponentSource& source) {
  std::vector<UsdComponent> components;
  const Builder builder{source};
  const PrimProperties& properties = source.properties;
  const std::string_view type = source.prim.typeName;
  if (source.world) {
    UsdComponent world = builder.component("WorldSettings", "World Settings", "");
    for (const PropertyDescriptor& descriptor : worldProperties())
      world.properties.push_back(builder.fromAttribute(descriptor));
    components.push_back(std::move(world));
  }
  if (source.entity) {
    UsdComponent name = builder.component("Name", "Name", "");
    ComponentProperty property = builder.fromAttribute(kName);
    if (property.value.empty())
      property.value = std::string(source.prim.name);
    name.properties.push_back(std::move(property));
    components.push_back(std::move(name));
    UsdComponent transform = builder.component("Transform", "Transform", "");
    for (const PropertyDescriptor& descriptor : kTransform)
      transform.properties.push_back(builder.fromAttribute(descriptor));
    components.push_back(std::move(transform));
  }
  // Only entities carry the others: an edit goes to the owning entity, so a component shown on a
  // prim inside an entity (a referenced asset's parts) would edit the wrong prim.
  if (!source.entity)
    return components;
  if (std::find(kShapeTypes.begin(), kShapeTypes.end(), type) != kShapeTypes.end())
    components.push_back(builder.renderShape());
  if (std::find(kLightTypes.begin(), kLightTypes.end(), type) != kLightTypes.end())
    components.push_back(builder.light());
  if (type == "Material")
    components.push_back(builder.material());
  if (properties.find("material:binding")) {
    UsdComponent binding =
        builder.component("MaterialBinding", "Material Binding", "orvan:materialBinding:enabled");
    binding.properties.push_back(builder.fromAttribute(kBinding));
    components.push_back(std::move(binding));
  }
  const bool referencesAsset = source.stage.findMetadata(source.prim, "references");
  if (referencesAsset || properties.find("orvan:mesh:proxyDimensions"))
    components.push_back(builder.meshAsset());
  for (const AttributeComponent& kind : attributeComponents()) {
    if (!properties.anyWithPrefix(kind.prefix))
      continue;
    UsdComponent component = builder.fromAttributes(kind);
    if (kind.type == "Script")
      builder.addScriptProperties(component);
    components.push_back(std::move(component));
  }
  applyComponentOrder(properties, components);
  return components;
}

std::vector<UsdComponent> componentCatalog() {
  const auto defaults = [](std::string_view type, std::string_view label,
                           const std::vector<PropertyDescriptor>& descriptors) {
    UsdComponent component;
    component.type = std::string(type);
    component.label = std::string(label);
    for (const PropertyDescriptor& descriptor : descriptors)
      component.properties.push_back(
          makeProperty(descriptor, std::string(descriptor.defaultValue)));
    return component;
  };
  std::vector<UsdComponent> catalog;
  catalog.push_back(defaults("RenderShape", "Render Shape", renderShapeProperties()));
  std::vector<PropertyDescriptor> light = lightProperties();
  for (PropertyDescriptor& shape : lightShapeProperties("SphereLight"))
    light.push_back(std::move(shape));
  catalog.push_back(defaults("Light", "Light", light));
  catalog.push_back(defaults("MaterialBinding", "Material Binding", {kBinding}));
  catalog.push_back(defaults("MeshAsset", "Mesh", {kMeshAsset, kProxyDimensions}));
  for (const AttributeComponent& kind : attributeComponents())
    catalog.push_back(defaults(kind.type, kind.label, kind.properties));
  return catalog;
}

}  // namespace orvan::engine
