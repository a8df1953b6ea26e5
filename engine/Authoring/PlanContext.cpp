#include "Authoring/PlanContext.h"

#include <algorithm>
#include <filesystem>

#include "Authoring/LayerFragments.h"
#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"

namespace orvan::engine {

std::string canonicalLayerText(const std::string& text) {
  std::string error;
  const std::shared_ptr<Layer> layer = readFragment(text, error);
  return layer ? writeLayer(*layer) : std::string();
}

std::string declarationOf(const LayerProperty& property) {
  std::string out;
  if (property.custom)
    out += "custom ";
  if (property.variability == Variability::Uniform)
    out += "uniform ";
  if (property.variability == Variability::Config)
    out += "config ";
  out += property.kind == PropertyKind::Relationship ? std::string_view("rel") : property.typeName;
  out += ' ';
  out += property.name;
  return out;
}

Refusal PlanContext::emit(LayerChange change) {
  if (Refusal error = scene.applyChange(change))
    return error;
  applied.changes.push_back(std::move(change));
  return std::nullopt;
}

std::string PlanContext::layerName(std::string_view identifier) const {
  return std::filesystem::path(identifier).filename().string();
}

Refusal PlanContext::activeLayerWritable() const {
  if (layerId.empty())
    return "No layer " + requestedLayer + " in the scene's layer stack";
  if (!scene.findLayer(layerId))
    return "The layer " + layerName(layerId) + " is not in the scene";
  if (!scene.isWritable(layerId))
    return layerName(layerId) + " is not writable";
  if (scene.isMuted(layerId))
    return "Enable " + layerName(layerId) + " before editing it";
  return std::nullopt;
}

Refusal PlanContext::ensureAuthoredPrim(const std::string& layer, std::string_view path) {
  if (path == "/" || path.empty())
    return std::nullopt;
  const Layer& target = layerOf(layer);
  if (target.findPrim(path) != kNoPrim)
    return std::nullopt;
  // The deepest ancestor the layer holds, then overs for the rest of the way.
  std::vector<std::string_view> missing;
  std::string_view at = path;
  while (at != "/" && target.findPrim(at) == kNoPrim) {
    missing.push_back(nameOf(at));
    at = parentPathOf(at);
  }
  std::string text = "#usda 1.0\n";
  for (auto it = missing.rbegin(); it != missing.rend(); ++it)
    text += "over \"" + std::string(*it) + "\" {\n";
  for (std::size_t i = 0; i < missing.size(); ++i)
    text += "}\n";
  return insertPrim(layer, childPath(at, missing.back()), canonicalLayerText(text));
}

Refusal PlanContext::insertPrim(const std::string& layer, std::string_view path,
                                const std::string& text) {
  if (text.empty())
    return "The new prim " + std::string(path) + " could not be written";
  const Layer& target = layerOf(layer);
  bool parentFound = false;
  const std::uint32_t parent = parentIndexForPath(target, path, parentFound);
  if (!parentFound)
    return "No prim at " + std::string(parentPathOf(path));
  const std::size_t siblings =
      parent == kNoPrim ? target.rootPrims.size() : target.prims[parent].children.size();
  LayerChange change;
  change.kind = ChangeKind::PrimSubtree;
  change.layer = relative(layer);
  change.path = std::string(path);
  change.index = static_cast<std::uint32_t>(siblings);
  change.after = text;
  return emit(std::move(change));
}

Refusal PlanContext::removePrim(const std::string& layer, std::string_view path) {
  const Layer& target = layerOf(layer);
  const std::uint32_t prim = target.findPrim(path);
  if (prim == kNoPrim)
    return std::nullopt;
  const std::uint32_t parent = target.prims[prim].parent;
  const std::vector<std::uint32_t>& siblings =
      parent == kNoPrim ? target.rootPrims : target.prims[parent].children;
  LayerChange change;
  change.kind = ChangeKind::PrimSubtree;
  change.layer = relative(layer);
  change.path = std::string(path);
  change.index = static_cast<std::uint32_t>(std::find(siblings.begin(), siblings.end(), prim) -
                                            siblings.begin());
  change.before = subtreeText(target, prim);
  return emit(std::move(change));
}

Refusal PlanContext::putProperty(const std::string& layer, std::string_view primPath,
                                 std::string_view name, std::optional<std::string> text) {
  const Layer& target = layerOf(layer);
  const std::uint32_t prim = target.findPrim(primPath);
  if (prim == kNoPrim)
    return "No prim at " + std::string(primPath);
  const std::vector<LayerProperty>& properties = target.prims[prim].properties;
  const auto existing = std::find_if(properties.begin(), properties.end(),
                                     [&](const LayerProperty& p) { return p.name == name; });
  LayerChange change;
  change.kind = ChangeKind::Property;
  change.layer = relative(layer);
  change.path = std::string(primPath);
  change.name = std::string(name);
  change.index = static_cast<std::uint32_t>(existing - properties.begin());
  if (existing != properties.end())
    change.before = propertyText(*existing);
  change.after = std::move(text);
  if (change.before == change.after)
    return std::nullopt;
  if (!change.before && !change.after)
    return std::nullopt;
  return emit(std::move(change));
}

Refusal PlanContext::setPropertyValue(const std::string& layer, std::string_view primPath,
                                      std::string_view name, std::string_view declaration,
                                      std::string_view value) {
  if (Refusal refused = ensureAuthoredPrim(layer, primPath))
    return refused;
  const std::string statement =
      "#usda 1.0\nover \"_\" {\n" + std::string(declaration) + " = " + std::string(value) + "\n}\n";
  std::string error;
  const std::shared_ptr<Layer> fragment = readFragment(statement, error);
  if (!fragment || fragment->prims.empty() || fragment->prims[0].properties.size() != 1)
    return "The value " + std::string(value) + " does not fit " + std::string(name);
  const LayerProperty& made = fragment->prims[0].properties[0];
  const Layer& target = layerOf(layer);
  const std::uint32_t prim = target.findPrim(primPath);
  const std::vector<LayerProperty>& properties = target.prims[prim].properties;
  const auto existing = std::find_if(properties.begin(), properties.end(),
                                     [&](const LayerProperty& p) { return p.name == name; });
  if (existing == properties.end())
    return putProperty(layer, primPath, name, propertyText(made));
  // Keep what the layer says of the property beyond its default: metadata, time samples, ...
  LayerProperty updated = *existing;
  const PropertyField& field = made.fields.front();
  const auto current = std::find_if(updated.fields.begin(), updated.fields.end(),
                                    [](const PropertyField& f) { return f.suffix.empty(); });
  if (current != updated.fields.end()) {
    current->hasValue = true;
    current->op = field.op;
    current->value = field.value;
  } else {
    updated.fields.insert(updated.fields.begin(), field);
  }
  return putProperty(layer, primPath, name, propertyText(updated));
}

Refusal PlanContext::removeProperty(const std::string& layer, std::string_view primPath,
                                    std::string_view name) {
  if (layerOf(layer).findPrim(primPath) == kNoPrim)
    return std::nullopt;
  return putProperty(layer, primPath, name, std::nullopt);
}

Refusal PlanContext::setPrimMetadata(const std::string& layer, std::string_view primPath,
                                     std::string_view name, std::optional<std::string> statement) {
  if (statement) {
    if (Refusal refused = ensureAuthoredPrim(layer, primPath))
      return refused;
  }
  const Layer& target = layerOf(layer);
  const std::uint32_t prim = target.findPrim(primPath);
  if (prim == kNoPrim)
    return std::nullopt;
  const std::vector<MetadataEntry>& entries = target.prims[prim].metadata;
  const auto existing = std::find_if(entries.begin(), entries.end(), [&](const MetadataEntry& e) {
    return metadataName(e) == name;
  });
  LayerChange change;
  change.kind = ChangeKind::PrimMetadata;
  change.layer = relative(layer);
  change.path = std::string(primPath);
  change.name = std::string(name);
  change.index = static_cast<std::uint32_t>(existing - entries.begin());
  if (existing != entries.end())
    change.before = primMetadataText(*existing);
  if (statement) {
    change.after = canonicalLayerText("#usda 1.0\nover \"_\" (\n" + *statement + "\n)\n{\n}\n");
    if (change.after->empty())
      return "The value of " + std::string(name) + " could not be written";
  }
  if (change.before == change.after || (!change.before && !change.after))
    return std::nullopt;
  return emit(std::move(change));
}

bool PlanContext::primExists(std::string_view path) const {
  return scene.composedPrim(path) != nullptr;
}

namespace {

// The name of the instance that holds a proxy: its nearest ancestor that is an instance.
std::string instanceRootName(const EditableScene& scene, std::string_view path) {
  for (std::string_view at = parentPathOf(path); at != "/"; at = parentPathOf(at)) {
    const ComposedPrim* prim = scene.composedPrim(at);
    if (prim && prim->isInstance)
      return std::string(nameOf(at));
  }
  return {};
}

}  // namespace

Refusal PlanContext::instanceProxyRefusal(std::string_view path) const {
  const ComposedPrim* prim = scene.composedPrim(path);
  if (!prim || !prim->instanceProxy)
    return std::nullopt;
  const std::string root = instanceRootName(scene, path);
  if (root.empty())
    return "Part of an instance and read-only";
  return "Part of an instance \xE2\x80\x94 disable Instance on " + root + " to edit it";
}

Refusal PlanContext::instanceInsertRefusal(std::string_view parentPath) const {
  if (parentPath == "/" || parentPath.empty())
    return std::nullopt;
  const ComposedPrim* parent = scene.composedPrim(parentPath);
  if (!parent)
    return std::nullopt;
  std::string root;
  if (parent->isInstance) {
    root = std::string(nameOf(parentPath));
  } else if (parent->instanceProxy) {
    root = instanceRootName(scene, parentPath);
  } else {
    return std::nullopt;
  }
  if (root.empty())
    return "Can't add inside an instance";
  return "Can't add inside an instance \xE2\x80\x94 disable Instance on " + root + " first";
}

}  // namespace orvan::engine
