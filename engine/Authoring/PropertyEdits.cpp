// usdProperty set and reset: one attribute or relationship of one prim, in the active layer.
#include "Authoring/LayerFragments.h"
#include "Authoring/PlanContext.h"
#include "Authoring/ValueText.h"

namespace orvan::engine {
namespace {

struct Declaration {
  PropertyKind kind = PropertyKind::Attribute;
  bool custom = false;
  Variability variability = Variability::Varying;
  std::string typeName;
};

// How the scene declares a property: the composed declaration, else nothing.
std::optional<Declaration> composedDeclaration(const EditableScene& scene, std::string_view path,
                                               std::string_view name) {
  const ComposedPrim* prim = scene.composedPrim(path);
  if (!prim)
    return std::nullopt;
  const auto property = scene.keptStage().findProperty(*prim, name);
  if (!property)
    return std::nullopt;
  return Declaration{property->kind, property->custom, property->variability,
                     std::string(property->typeName)};
}

std::string declarationText(const Declaration& declaration, std::string_view name) {
  std::string out;
  if (declaration.custom)
    out += "custom ";
  if (declaration.variability == Variability::Uniform)
    out += "uniform ";
  out += declaration.kind == PropertyKind::Relationship ? "rel" : declaration.typeName;
  out += ' ';
  out += name;
  return out;
}

bool isPropertyName(std::string_view name) {
  if (name.empty() || name.size() > 1024)
    return false;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    const bool ok = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                    (byte >= '0' && byte <= '9') || byte == '_' || byte == ':' || byte >= 0x80;
    if (!ok)
      return false;
  }
  return name.front() != ':' && name.back() != ':' && !(name.front() >= '0' && name.front() <= '9');
}

}  // namespace

Refusal planPropertyOperation(PlanContext& context, const EditOperation& operation,
                              std::string& message) {
  if (Refusal refused = context.activeLayerWritable())
    return refused;
  const std::string& path = operation.primPath;
  const std::string& name = operation.propertyName;
  if (!context.primExists(path))
    return "No prim at " + (path.empty() ? std::string("(empty path)") : path);
  if (!isPropertyName(name))
    return "'" + name + "' is not a valid property name";
  if (operation.kindAs<UsdPropertyOperationKind>() == UsdPropertyOperationKind::Reset) {
    const Layer& layer = context.layerOf(context.layerId);
    const std::uint32_t prim = layer.findPrim(path);
    bool authored = false;
    if (prim != kNoPrim) {
      for (const LayerProperty& property : layer.prims[prim].properties)
        authored = authored || property.name == name;
    }
    if (!authored) {
      message =
          "Nothing to reset: " + name + " is not set in " + context.layerName(context.layerId);
      return std::nullopt;
    }
    if (Refusal refused = context.removeProperty(context.layerId, path, name))
      return refused;
    message = "Reset " + name;
    return std::nullopt;
  }
  if (Refusal refused = context.instanceProxyRefusal(path))
    return refused;
  const auto declaration = composedDeclaration(context.scene, path, name);
  if (!declaration)
    return path + " has no property " + name;
  const std::string type =
      declaration->kind == PropertyKind::Relationship ? "rel" : declaration->typeName;
  const auto value = layerValueText(type, operation.value);
  if (!value)
    return "'" + operation.value + "' is not a " + type + " value for " + name;
  if (Refusal refused = context.setPropertyValue(context.layerId, path, name,
                                                 declarationText(*declaration, name), *value))
    return refused;
  message = "Set " + name;
  return std::nullopt;
}

}  // namespace orvan::engine
