// Component operations: each component of the editor is a set of ordinary attributes (see
// engine/README.md, "The component model"), so adding, removing, enabling, setting and resetting
// one writes, removes or changes those attributes of the entity in the active layer.
#include <algorithm>
#include <array>
#include <cctype>

#include "Authoring/LayerFragments.h"
#include "Authoring/PlanContext.h"
#include "Authoring/ValueText.h"
#include "Inspector/ComponentModel.h"
#include "UsdText/ListEdits.h"

namespace orvan::engine {
namespace {

// One component property stored in one attribute.
struct AttributeSlot {
  std::string_view component;
  std::string_view property;
  std::string_view declaration;  // the statement's start, without the name
  std::string_view attribute;
};

constexpr std::array<AttributeSlot, 33> kSlots{{
    {"Name", "name", "custom string", "orvan:name"},
    {"Transform", "translation", "double3", "xformOp:translate"},
    {"Transform", "rotation", "float3", "xformOp:rotateXYZ"},
    {"Transform", "scale", "float3", "xformOp:scale"},
    {"RenderShape", "color", "color3f[]", "primvars:displayColor"},
    {"Light", "color", "color3f", "inputs:color"},
    {"Light", "intensity", "float", "inputs:intensity"},
    {"Light", "castShadows", "custom bool", "orvan:light:castShadows"},
    {"Light", "angle", "float", "inputs:angle"},
    {"Light", "width", "float", "inputs:width"},
    {"Light", "height", "float", "inputs:height"},
    {"Light", "radius", "float", "inputs:radius"},
    {"MaterialBinding", "material", "rel", "material:binding"},
    {"MeshAsset", "proxyDimensions", "custom float3", "orvan:mesh:proxyDimensions"},
    {"AudioSource", "clip", "custom asset", "orvan:audio:clip"},
    {"AudioSource", "volume", "custom float", "orvan:audio:volume"},
    {"AudioSource", "loop", "custom bool", "orvan:audio:loop"},
    {"AudioSource", "spatial", "custom bool", "orvan:audio:spatial"},
    {"Script", "source", "custom asset", "orvan:script:source"},
    {"UiCanvas", "renderMode", "custom token", "orvan:ui:canvas:renderMode"},
    {"UiCanvas", "referenceResolution", "custom float2", "orvan:ui:canvas:referenceResolution"},
    {"UiLayout", "position", "custom token", "orvan:ui:layout:position"},
    {"WorldSettings", "backgroundColor", "custom color3f", "orvan:backgroundColor"},
    {"WorldSettings", "ambientColor", "custom color3f", "orvan:ambientColor"},
    {"WorldSettings", "ambientOcclusionEnabled", "custom bool", "orvan:ambientOcclusionEnabled"},
    {"WorldSettings", "ambientOcclusionStrength", "custom float", "orvan:ambientOcclusionStrength"},
    {"WorldSettings", "shadowsEnabled", "custom bool", "orvan:shadowsEnabled"},
    {"Material", "baseColor", "color3f", "inputs:diffuseColor"},
    {"Material", "roughness", "float", "inputs:roughness"},
    {"Material", "metallic", "float", "inputs:metallic"},
    {"RenderShape", "enabled", "custom bool", "orvan:renderShape:enabled"},
    {"Light", "enabled", "custom bool", "orvan:light:enabled"},
    {"MeshAsset", "enabled", "custom bool", "orvan:mesh:enabled"},
}};

// Where each component keeps its switch and the namespace of its own attributes.
struct ComponentInfo {
  std::string_view type;
  std::string_view label;
  std::string_view enabledAttribute;  // empty: cannot be switched off
  std::string_view prefix;            // attributes removed with the component; empty: none
};

constexpr std::array<ComponentInfo, 12> kComponents{{
    {"Name", "Name", "", ""},
    {"Transform", "Transform", "", ""},
    {"WorldSettings", "World Settings", "", ""},
    {"RenderShape", "Render Shape", "orvan:renderShape:enabled", "orvan:renderShape:"},
    {"Light", "Light", "orvan:light:enabled", "orvan:light:"},
    {"Material", "Material", "orvan:material:enabled", "orvan:material:"},
    {"MaterialBinding", "Material Binding", "orvan:materialBinding:enabled",
     "orvan:materialBinding:"},
    {"MeshAsset", "Mesh", "orvan:mesh:enabled", "orvan:mesh:"},
    {"AudioSource", "Audio Source", "orvan:audio:enabled", "orvan:audio:"},
    {"Script", "Script", "orvan:script:enabled", "orvan:script:"},
    {"UiCanvas", "UI Canvas", "orvan:ui:canvas:enabled", "orvan:ui:canvas:"},
    {"UiLayout", "UI Layout", "orvan:ui:layout:enabled", "orvan:ui:layout:"},
}};

const ComponentInfo* componentInfo(std::string_view type) {
  for (const ComponentInfo& info : kComponents) {
    if (info.type == type)
      return &info;
  }
  return nullptr;
}

constexpr std::array<std::string_view, 6> kShapeTypes{"Cube",     "Sphere",  "Cone",
                                                      "Cylinder", "Capsule", "Plane"};
constexpr std::array<std::string_view, 4> kLightTypes{"DistantLight", "SphereLight", "RectLight",
                                                      "DiskLight"};
constexpr std::array<std::string_view, 6> kShapeAttributes{"size",  "radius", "height",
                                                           "width", "length", "axis"};
constexpr std::array<std::string_view, 3> kXformOps{"xformOp:translate", "xformOp:rotateXYZ",
                                                    "xformOp:scale"};

template <std::size_t N>
bool isOneOf(std::string_view value, const std::array<std::string_view, N>& values) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

// What one operation works on: the entity, its composed type and the layer edits go to.
struct Target {
  std::string path;
  std::string typeName;
  std::vector<std::string> propertyNames;  // every composed property of the entity
};

std::string layerDeclaration(std::string_view declaration, std::string_view attribute) {
  return std::string(declaration) + " " + std::string(attribute);
}

std::string typeOfDeclaration(std::string_view declaration) {
  const std::size_t space = declaration.rfind(' ');
  return std::string(space == std::string_view::npos ? declaration : declaration.substr(space + 1));
}

Refusal setAttribute(PlanContext& context, const Target& target, std::string_view declaration,
                     std::string_view attribute, std::string_view value) {
  const std::string type = typeOfDeclaration(declaration);
  const auto text = layerValueText(type, value);
  if (!text)
    return "'" + std::string(value) + "' is not a " + type + " value for " + std::string(attribute);
  return context.setPropertyValue(context.layerId, target.path, attribute,
                                  layerDeclaration(declaration, attribute), *text);
}

// The transform operations in the order the entity lists them, with `op` added at its place
// (translate, rotate, scale) when it is missing.
Refusal ensureXformOp(PlanContext& context, const Target& target, std::string_view op) {
  std::vector<std::string> order;
  if (const ComposedPrim* prim = context.scene.composedPrim(target.path)) {
    const auto authored = context.scene.keptStage().findProperty(*prim, "xformOpOrder");
    if (authored && authored->value) {
      for (const Value* item : listItems(*authored->value))
        order.push_back(item->decoded());
    }
  }
  if (std::find(order.begin(), order.end(), op) != order.end())
    return std::nullopt;
  const auto rank = [](std::string_view name) {
    const auto at = std::find(kXformOps.begin(), kXformOps.end(), name);
    return at - kXformOps.begin();
  };
  auto at = order.begin();
  while (at != order.end() && rank(*at) <= rank(op))
    ++at;
  order.insert(at, std::string(op));
  std::string value = "[";
  for (std::size_t i = 0; i < order.size(); ++i)
    value += (i > 0 ? ", " : "") + encodeStringLiteral(order[i]);
  value += "]";
  return context.setPropertyValue(context.layerId, target.path, "xformOpOrder",
                                  "uniform token[] xformOpOrder", value);
}

// A prim's type in the active layer: the type of its authored there.
Refusal setPrimType(PlanContext& context, const Target& target, std::string_view type) {
  if (Refusal refused = context.ensureAuthoredPrim(context.layerId, target.path))
    return refused;
  const Layer& layer = context.layerOf(context.layerId);
  const std::uint32_t authored = layer.findPrim(target.path);
  const std::string before = primFieldsText(layer, authored);
  std::string error;
  const std::shared_ptr<Layer> fragment = readFragment(before, error);
  if (!fragment)
    return "The prim " + target.path + " could not be read back: " + error;
  LayerPrim& prim = fragment->prims[fragment->rootPrims[0]];
  prim.typeName = fragment->storeText(std::string(type));
  LayerChange change;
  change.kind = ChangeKind::PrimFields;
  change.layer = context.relative(context.layerId);
  change.path = target.path;
  change.before = before;
  change.after = primFieldsText(*fragment, fragment->rootPrims[0]);
  if (change.before == change.after)
    return std::nullopt;
  return context.emit(std::move(change));
}

// A shape's "dimensions" (width, height, depth) written into its own attributes.
Refusal setDimensions(PlanContext& context, const Target& target, std::string_view value) {
  const auto numbers = parseNumberList(value);
  if (!numbers || numbers->size() != 3 ||
      std::any_of(numbers->begin(), numbers->end(), [](double v) { return v < 0; })) {
    return "'" + std::string(value) + "' is not three sizes for dimensions";
  }
  const double x = (*numbers)[0];
  const double y = (*numbers)[1];
  const double z = (*numbers)[2];
  const std::string_view type = target.typeName;
  const auto put = [&](std::string_view attribute, double number) {
    return context.setPropertyValue(context.layerId, target.path, attribute,
                                    "double " + std::string(attribute), formatNumber(number));
  };
  if (type == "Cube")
    return put("size", std::max({x, y, z}));
  if (type == "Sphere")
    return put("radius", std::max({x, y, z}) / 2);
  if (type == "Plane") {
    if (Refusal refused = put("width", x))
      return refused;
    return put("length", z);
  }
  // Cone, cylinder and capsule stand along Y: the height is y, the radius half the width.
  const double radius = std::max(x, z) / 2;
  const double height = type == "Capsule" ? std::max(0.0, y - 2 * radius) : y;
  if (Refusal refused = put("radius", radius))
    return refused;
  return put("height", height);
}

// The first child Shader of a material, which holds its inputs.
std::optional<std::string> materialShader(const PlanContext& context, const Target& target) {
  const ComposedPrim* prim = context.scene.composedPrim(target.path);
  if (!prim)
    return std::nullopt;
  const Stage& stage = context.scene.keptStage();
  for (const std::uint32_t child : prim->children) {
    if (stage.prims[child].typeName == "Shader")
      return stage.prims[child].path;
  }
  return std::nullopt;
}

const AttributeSlot* slotOf(std::string_view component, std::string_view property) {
  for (const AttributeSlot& slot : kSlots) {
    if (slot.component == component && slot.property == property)
      return &slot;
  }
  return nullptr;
}

bool hasComponent(const Target& target, const ComponentInfo& info) {
  const auto has = [&](std::string_view name) {
    return std::find(target.propertyNames.begin(), target.propertyNames.end(), name) !=
           target.propertyNames.end();
  };
  const auto hasPrefix = [&](std::string_view prefix) {
    return std::any_of(target.propertyNames.begin(), target.propertyNames.end(),
                       [&](const std::string& name) { return name.starts_with(prefix); });
  };
  if (info.type == "RenderShape")
    return isOneOf(target.typeName, kShapeTypes);
  if (info.type == "Light")
    return isOneOf(target.typeName, kLightTypes);
  if (info.type == "Material")
    return target.typeName == "Material";
  if (info.type == "MaterialBinding")
    return has("material:binding");
  if (info.type == "MeshAsset")
    return has("orvan:mesh:proxyDimensions");
  return !info.prefix.empty() && hasPrefix(info.prefix);
}

Refusal setProperty(PlanContext& context, const Target& target, std::string_view component,
                    std::string_view property, std::string_view value) {
  if (component == "RenderShape" && property == "dimensions")
    return setDimensions(context, target, value);
  if ((component == "RenderShape" && property == "shape") ||
      (component == "Light" && property == "type")) {
    return std::string(property) + " of " + std::string(component) + " is read-only";
  }
  if (component == "MeshAsset" && property == "asset") {
    const std::string statement = "prepend references = " + encodeAssetLiteral(value);
    return context.setPrimMetadata(context.layerId, target.path, "prepend references",
                                   value.empty() ? std::optional<std::string>() : statement);
  }
  if (component == "Script" && !slotOf(component, property)) {
    {
      // An exposed script property keeps the type it was declared with.
      const std::string attribute = "orvan:script:prop:" + std::string(property);
      std::string declaration = "custom string";
      if (const ComposedPrim* prim = context.scene.composedPrim(target.path)) {
        if (const auto authored = context.scene.keptStage().findProperty(*prim, attribute))
          declaration = "custom " + std::string(authored->typeName);
      }
      return setAttribute(context, target, declaration, attribute, value);
    }
  }
  if (component == "UiLayout" && property != "position") {
    const std::string attribute = "orvan:ui:layout:" + std::string(property);
    const std::string_view declaration =
        property.ends_with("Unit") ? std::string_view("custom token") : "custom string";
    return setAttribute(context, target, declaration, attribute, value);
  }
  const AttributeSlot* slot = slotOf(component, property);
  if (!slot)
    return std::string(component) + " has no property " + std::string(property);
  if (component == "Material") {
    const auto shader = materialShader(context, target);
    if (!shader)
      return target.path + " has no shader to hold " + std::string(property);
    Target shaderTarget{*shader, "Shader", {}};
    return setAttribute(context, shaderTarget, slot->declaration, slot->attribute, value);
  }
  if (component == "MaterialBinding" && !value.empty() && !context.primExists(value))
    return "No prim at " + std::string(value);
  if (Refusal refused = setAttribute(context, target, slot->declaration, slot->attribute, value))
    return refused;
  if (component == "Transform")
    return ensureXformOp(context, target, slot->attribute);
  return std::nullopt;
}

// Removes what the active layer says of a component property.
Refusal resetProperty(PlanContext& context, const Target& target, std::string_view component,
                      std::string_view property) {
  if (component == "RenderShape" && property == "dimensions") {
    for (const std::string_view attribute : kShapeAttributes) {
      if (Refusal refused = context.removeProperty(context.layerId, target.path, attribute))
        return refused;
    }
    return std::nullopt;
  }
  if (component == "MeshAsset" && property == "asset")
    return context.setPrimMetadata(context.layerId, target.path, "prepend references",
                                   std::nullopt);
  std::string attribute;
  if (const AttributeSlot* slot = slotOf(component, property)) {
    attribute = std::string(slot->attribute);
  } else if (component == "Script") {
    attribute = "orvan:script:prop:" + std::string(property);
  } else if (component == "UiLayout") {
    attribute = "orvan:ui:layout:" + std::string(property);
  } else {
    return std::string(component) + " has no property " + std::string(property);
  }
  std::string path = target.path;
  if (component == "Material") {
    const auto shader = materialShader(context, target);
    if (!shader)
      return std::nullopt;
    path = *shader;
  }
  return context.removeProperty(context.layerId, path, attribute);
}

Refusal addComponent(PlanContext& context, const Target& target, const ComponentInfo& info) {
  if (hasComponent(target, info))
    return target.path + " has " + std::string(info.label) + " already";
  if (info.type == "RenderShape" || info.type == "Light") {
    const bool shape = info.type == "RenderShape";
    if (!target.typeName.empty() && target.typeName != "Xform")
      return std::string(info.label) + " needs an Xform, and " + target.path + " is a " +
             target.typeName;
    if (Refusal refused = setPrimType(context, target, shape ? "Cube" : "SphereLight"))
      return refused;
    Target typed = target;
    typed.typeName = shape ? "Cube" : "SphereLight";
    if (shape) {
      if (Refusal refused = setDimensions(context, typed, "1,1,1"))
        return refused;
    }
  }
  if (info.type == "Material" || info.type == "Name" || info.type == "Transform" ||
      info.type == "WorldSettings") {
    return std::string(info.label) + " cannot be added";
  }
  // The catalogue's defaults, property by property.
  for (const editor::UsdComponent& entry : componentCatalog()) {
    if (entry.type != info.type)
      continue;
    for (const editor::ComponentProperty& property : entry.properties) {
      if (property.name == "shape" || property.name == "type" || property.name == "dimensions")
        continue;
      if (info.type == "MeshAsset" && property.name == "asset")
        continue;
      if (info.type == "MaterialBinding") {
        // A binding without a target yet: the relationship declared, nothing bound.
        if (Refusal refused = context.ensureAuthoredPrim(context.layerId, target.path))
          return refused;
        return context.putProperty(
            context.layerId, target.path, "material:binding",
            canonicalLayerText("#usda 1.0\nover \"_\" {\nrel material:binding\n}\n"));
      }
      if (Refusal refused = setProperty(context, target, info.type, property.name, property.value))
        return refused;
    }
    return std::nullopt;
  }
  return std::string(info.label) + " cannot be added";
}

Refusal removeComponent(PlanContext& context, const Target& target, const ComponentInfo& info) {
  if (info.type == "Name" || info.type == "Transform" || info.type == "WorldSettings" ||
      info.type == "Material") {
    return std::string(info.label) + " cannot be removed";
  }
  std::vector<std::string> attributes;
  for (const AttributeSlot& slot : kSlots) {
    if (slot.component == info.type)
      attributes.emplace_back(slot.attribute);
  }
  if (info.type == "RenderShape" || info.type == "Light") {
    if (Refusal refused = setPrimType(context, target, "Xform"))
      return refused;
    if (info.type == "RenderShape")
      attributes.insert(attributes.end(), kShapeAttributes.begin(), kShapeAttributes.end());
  }
  if (info.type == "MeshAsset") {
    if (Refusal refused = context.setPrimMetadata(context.layerId, target.path,
                                                  "prepend references", std::nullopt))
      return refused;
  }
  for (const std::string& name : target.propertyNames) {
    if (!info.prefix.empty() && name.starts_with(info.prefix))
      attributes.push_back(name);
  }
  for (const std::string& attribute : attributes) {
    if (Refusal refused = context.removeProperty(context.layerId, target.path, attribute))
      return refused;
  }
  return std::nullopt;
}

Refusal reorderComponents(PlanContext& context, const Target& target, std::string_view value) {
  std::string list = "[";
  std::size_t start = 0;
  while (start <= value.size()) {
    const std::size_t comma = value.find(',', start);
    std::string_view piece = value.substr(start, comma - start);
    while (!piece.empty() && piece.front() == ' ')
      piece.remove_prefix(1);
    while (!piece.empty() && piece.back() == ' ')
      piece.remove_suffix(1);
    if (!piece.empty()) {
      if (!componentInfo(piece))
        return "Unknown component '" + std::string(piece) + "'";
      list += (list.size() > 1 ? ", " : "") + encodeStringLiteral(piece);
    }
    if (comma == std::string_view::npos)
      break;
    start = comma + 1;
  }
  list += "]";
  return context.setPropertyValue(context.layerId, target.path, "orvan:componentOrder",
                                  "custom token[] orvan:componentOrder", list);
}

}  // namespace

Refusal planComponentOperation(PlanContext& context, const EditOperation& operation,
                               std::string& message) {
  if (Refusal refused = context.activeLayerWritable())
    return refused;
  const std::string& path = operation.entityPath;
  const ComposedPrim* prim = context.scene.composedPrim(path);
  if (!prim)
    return "No prim at " + (path.empty() ? std::string("(empty path)") : path);
  if (Refusal refused = context.instanceProxyRefusal(path))
    return refused;
  Target target{path, std::string(prim->typeName), {}};
  bool entity = path == "/World";
  for (const ComposedProperty& property : context.scene.keptStage().composeProperties(*prim)) {
    target.propertyNames.emplace_back(property.name);
    entity = entity || property.name == "orvan:entityId";
  }
  if (!entity)
    return path + " is not an entity";
  const auto kind = operation.kindAs<ComponentOperationKind>();
  if (kind == ComponentOperationKind::Reorder) {
    if (Refusal refused = reorderComponents(context, target, operation.value))
      return refused;
    message = "Reordered the components of " + path;
    return std::nullopt;
  }
  const ComponentInfo* info = componentInfo(operation.componentType);
  if (!info)
    return "Unknown component '" + operation.componentType + "'";
  if ((info->type == "WorldSettings") != (path == "/World"))
    return std::string(info->label) +
           (path == "/World" ? " is not a component of /World" : " belongs to /World only");
  const std::string label(info->label);
  switch (kind) {
    case ComponentOperationKind::Add:
      message = "Added " + label;
      return addComponent(context, target, *info);
    case ComponentOperationKind::Remove:
      message = "Removed " + label;
      return removeComponent(context, target, *info);
    case ComponentOperationKind::Enable: {
      if (info->enabledAttribute.empty())
        return label + " cannot be switched off";
      if (operation.value != "true" && operation.value != "false")
        return "'" + operation.value + "' is not true or false";
      message = (operation.value == "true" ? "Enabled " : "Disabled ") + label;
      return setAttribute(context, target, "custom bool", info->enabledAttribute, operation.value);
    }
    case ComponentOperationKind::Set:
      message = "Set " + label + " " + operation.propertyName;
      return setProperty(context, target, info->type, operation.propertyName, operation.value);
    case ComponentOperationKind::Reset:
      message = "Reset " + label + " " + operation.propertyName;
      return resetProperty(context, target, info->type, operation.propertyName);
    case ComponentOperationKind::Reorder:
      break;
  }
  return std::nullopt;
}

}  // namespace orvan::engine
