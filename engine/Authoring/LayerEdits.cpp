// Layer operations: the root layer stack's sublayer lists, new layer files, muting (workspace
// state), clearing and merging a layer into the one below it.
#include <algorithm>
#include <filesystem>

#include "Authoring/LayerFragments.h"
#include "Authoring/PlanContext.h"
#include "UsdText/LayerWriter.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

// Where a layer is listed: the layer whose subLayers name it, and its place there.
struct Listing {
  std::string parent;
  std::size_t index = 0;
  std::vector<std::string> entries;  // the parent's sublayer paths as written
};

std::optional<Listing> listingOf(const EditableScene& scene, const std::string& identifier) {
  for (const std::string& candidate : scene.layerStack()) {
    const Layer* layer = scene.findLayer(candidate);
    const std::vector<std::string> entries = layer->subLayerPaths();
    const fs::path folder = fs::path(candidate).parent_path();
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if ((folder / entries[i]).lexically_normal().string() == identifier)
        return Listing{candidate, i, entries};
    }
  }
  return std::nullopt;
}

// Sets (or, for an empty list, removes) a layer's subLayers.
Refusal setSubLayers(PlanContext& context, const std::string& layer,
                     const std::vector<std::string>& entries) {
  const Layer& target = context.layerOf(layer);
  const auto existing =
      std::find_if(target.metadata.begin(), target.metadata.end(),
                   [](const MetadataEntry& entry) { return metadataName(entry) == "subLayers"; });
  LayerChange change;
  change.kind = ChangeKind::LayerMetadata;
  change.layer = context.relative(layer);
  change.name = "subLayers";
  change.index = static_cast<std::uint32_t>(existing - target.metadata.begin());
  if (existing != target.metadata.end())
    change.before = layerMetadataText(*existing);
  if (!entries.empty()) {
    std::string text = "#usda 1.0\n(\nsubLayers = [";
    for (std::size_t i = 0; i < entries.size(); ++i)
      text += (i > 0 ? ", " : "") + encodeAssetLiteral(entries[i]);
    text += "]\n)\n";
    change.after = canonicalLayerText(text);
  }
  if (change.before == change.after)
    return std::nullopt;
  return context.emit(std::move(change));
}

std::string trimmed(std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
  while (!text.empty() && blank(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && blank(text.back()))
    text.remove_suffix(1);
  return std::string(text);
}

std::optional<std::string> layerFileName(std::string_view name) {
  std::string file = trimmed(name);
  if (file.empty() || file.find('/') != std::string::npos || file.find('\\') != std::string::npos ||
      file.front() == '.' || file.size() > 200) {
    return std::nullopt;
  }
  for (const char c : file) {
    if (static_cast<unsigned char>(c) < 0x20 || c == '@' || c == '"')
      return std::nullopt;
  }
  if (!file.ends_with(".usda"))
    file += ".usda";
  return file;
}

// Creates a layer file holding `text`.
Refusal createLayerFile(PlanContext& context, const std::string& identifier,
                        const std::string& text) {
  LayerChange change;
  change.kind = ChangeKind::LayerFile;
  change.layer = context.relative(identifier);
  change.after = text;
  return context.emit(std::move(change));
}

// The root's prims move into a new base.usda below the root, which keeps its metadata.
Refusal moveRootContentToBase(PlanContext& context, std::string& baseEntry) {
  const std::string& root = context.scene.rootIdentifier();
  const std::string base = (fs::path(root).parent_path() / "base.usda").string();
  if (context.scene.findLayer(base) || fs::exists(base))
    return std::string("base.usda exists already");
  const Layer& rootLayer = context.layerOf(root);
  Layer scratch;
  for (const std::uint32_t prim : rootLayer.rootPrims)
    scratch.rootPrims.push_back(copySubtreeShallow(rootLayer, prim, scratch, kNoPrim));
  if (Refusal refused = createLayerFile(context, base, writeLayer(scratch)))
    return refused;
  std::vector<std::string> names;
  for (const std::uint32_t prim : rootLayer.rootPrims)
    names.emplace_back(rootLayer.prims[prim].name);
  for (const std::string& name : names) {
    if (Refusal refused = context.removePrim(root, "/" + name))
      return refused;
  }
  baseEntry = "./base.usda";
  return std::nullopt;
}

Refusal addLayer(PlanContext& context, const EditOperation& operation, std::string& message) {
  if (trimmed(operation.name).empty())
    return std::string("Layer name required");
  const auto file = layerFileName(operation.name);
  if (!file)
    return "'" + trimmed(operation.name) + "' cannot be a layer file name";
  const std::string& root = context.scene.rootIdentifier();
  if (!context.scene.isWritable(root))
    return context.layerName(root) + " is not writable";
  const std::string identifier = (fs::path(root).parent_path() / *file).lexically_normal().string();
  const std::vector<std::string> stack = context.scene.layerStack();
  if (std::find(stack.begin(), stack.end(), identifier) != stack.end())
    return "The layer " + *file + " is in the stack already";
  std::vector<std::string> entries = context.layerOf(root).subLayerPaths();
  std::string baseEntry;
  if (operation.moveRootContentToBaseLayer && entries.empty() &&
      !context.layerOf(root).rootPrims.empty()) {
    if (*file == "base.usda")
      return std::string("base.usda is the name the scene's content moves to; choose another");
    if (Refusal refused = moveRootContentToBase(context, baseEntry))
      return refused;
  }
  // A layer file of the project that is not in the stack (one removed before) is added as it is.
  const bool known =
      context.scene.findLayer(identifier) || context.scene.loadKnownLayer(identifier);
  if (!known && fs::exists(identifier))
    return "'" + *file + "' exists but is not a layer that can be read";
  if (!known) {
    if (Refusal refused = createLayerFile(context, identifier, "#usda 1.0\n"))
      return refused;
  }
  entries.insert(entries.begin(), "./" + *file);
  if (!baseEntry.empty())
    entries.push_back(baseEntry);
  if (Refusal refused = setSubLayers(context, root, entries))
    return refused;
  message = "Added layer " + *file;
  return std::nullopt;
}

// The layer an operation names, from the stack: by identifier, relative path or file name.
std::optional<std::string> namedLayer(const PlanContext& context, const EditOperation& operation) {
  const std::string& name = operation.identifier.empty() ? operation.name : operation.identifier;
  if (name.empty())
    return std::nullopt;
  return context.scene.resolveLayerName(name);
}

Refusal removeLayer(PlanContext& context, const std::string& layer, std::string& message) {
  if (layer == context.scene.rootIdentifier())
    return std::string("Root layer cannot be removed");
  const auto listing = listingOf(context.scene, layer);
  if (!listing)
    return "The layer " + context.layerName(layer) + " is not in the stack";
  if (!context.scene.isWritable(listing->parent))
    return context.layerName(listing->parent) + " is not writable";
  std::vector<std::string> entries = listing->entries;
  entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(listing->index));
  if (Refusal refused = setSubLayers(context, listing->parent, entries))
    return refused;
  message = "Removed layer " + context.layerName(layer);
  return std::nullopt;
}

Refusal moveLayer(PlanContext& context, const std::string& layer, std::string_view direction,
                  std::string& message) {
  if (layer == context.scene.rootIdentifier() || !context.scene.isWritable(layer))
    return std::string("Root layer cannot be moved");
  const auto listing = listingOf(context.scene, layer);
  if (!listing)
    return "The layer " + context.layerName(layer) + " is not in the stack";
  std::vector<std::string> entries = listing->entries;
  const auto count = static_cast<long>(entries.size());
  long target = static_cast<long>(listing->index);
  if (direction == "up") {
    target -= 1;
  } else if (direction == "down") {
    target += 1;
  } else if (direction.starts_with("index:")) {
    // The index counts in the whole stack, the root first; among the root's own sublayers
    // that is the place one before it.
    long index = 0;
    const std::string digits(direction.substr(6));
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos ||
        digits.size() > 9)
      return "'" + std::string(direction) + "' is not a direction";
    index = std::stol(digits);
    target = listing->parent == context.scene.rootIdentifier() ? index - 1 : index;
  } else {
    return "'" + std::string(direction) + "' is not a direction";
  }
  target = std::clamp(target, 0L, count - 1);
  if (target == static_cast<long>(listing->index)) {
    message = "Nothing to move";
    return std::nullopt;
  }
  if (!context.scene.isWritable(listing->parent))
    return context.layerName(listing->parent) + " is not writable";
  const std::string entry = entries[listing->index];
  entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(listing->index));
  entries.insert(entries.begin() + target, entry);
  if (Refusal refused = setSubLayers(context, listing->parent, entries))
    return refused;
  message = "Moved layer " + context.layerName(layer);
  return std::nullopt;
}

Refusal muteLayer(PlanContext& context, const std::string& layer, bool muted,
                  std::string& message) {
  if (layer == context.scene.rootIdentifier() || !context.scene.isWritable(layer))
    return std::string("Root layer is always enabled");
  message = (muted ? "Disabled layer " : "Enabled layer ") + context.layerName(layer);
  if (context.scene.isMuted(layer) == muted)
    return std::nullopt;
  LayerChange change;
  change.kind = ChangeKind::LayerMute;
  change.layer = context.relative(layer);
  change.before = muted ? "false" : "true";
  change.after = muted ? "true" : "false";
  return context.emit(std::move(change));
}

Refusal clearLayer(PlanContext& context, const std::string& layer, std::string& message) {
  if (!context.scene.isWritable(layer))
    return std::string("That layer cannot be cleared");
  const Layer& target = context.layerOf(layer);
  std::vector<std::string> names;
  for (const std::uint32_t prim : target.rootPrims)
    names.emplace_back(target.prims[prim].name);
  for (const std::string& name : names) {
    if (Refusal refused = context.removePrim(layer, "/" + name))
      return refused;
  }
  message = "Cleared layer " + context.layerName(layer);
  return std::nullopt;
}

Refusal mergeLayerDown(PlanContext& context, const std::string& layer, std::string& message) {
  const std::vector<std::string> stack = context.scene.layerStack();
  const auto at = std::find(stack.begin(), stack.end(), layer);
  if (at == stack.end() || at + 1 == stack.end())
    return std::string("No lower layer to merge into");
  const std::string below = *(at + 1);
  const auto usable = [&](const std::string& identifier) {
    return identifier != context.scene.rootIdentifier() && context.scene.isWritable(identifier) &&
           !context.scene.isMuted(identifier);
  };
  if (!usable(layer) || !usable(below))
    return std::string("No editable layer below to merge into");
  const Layer& upper = context.layerOf(layer);
  if (!upper.subLayerPaths().empty())
    return context.layerName(layer) + " has sublayers of its own; merge those first";
  // Each prim of the upper layer joins its counterpart below, the upper one's opinions winning.
  std::vector<std::string> names;
  for (const std::uint32_t prim : upper.rootPrims)
    names.emplace_back(upper.prims[prim].name);
  for (const std::string& name : names) {
    const std::string path = "/" + name;
    const Layer& top = context.layerOf(layer);
    const Layer& bottom = context.layerOf(below);
    std::vector<AuthoredPrim> authored{{&top, top.findPrim(path)}};
    const std::uint32_t existing = bottom.findPrim(path);
    if (existing != kNoPrim)
      authored.push_back({&bottom, existing});
    Layer scratch;
    scratch.rootPrims.push_back(mergeAuthoredPrims(scratch, authored, kNoPrim));
    const std::string merged = writeLayer(scratch);
    if (existing == kNoPrim) {
      if (Refusal refused = context.insertPrim(below, path, merged))
        return refused;
      continue;
    }
    LayerChange change;
    change.kind = ChangeKind::PrimSubtree;
    change.layer = context.relative(below);
    change.path = path;
    change.before = subtreeText(bottom, existing);
    change.after = merged;
    if (Refusal refused = context.emit(std::move(change)))
      return refused;
  }
  std::string removed;
  if (Refusal refused = removeLayer(context, layer, removed))
    return refused;
  message = "Merged " + context.layerName(layer) + " into " + context.layerName(below);
  return std::nullopt;
}

}  // namespace

Refusal planLayerOperation(PlanContext& context, const EditOperation& operation,
                           std::string& message) {
  const auto kind = operation.kindAs<LayerOperationKind>();
  if (kind == LayerOperationKind::Add)
    return addLayer(context, operation, message);
  const auto layer = namedLayer(context, operation);
  if (!layer) {
    const std::string& name = operation.identifier.empty() ? operation.name : operation.identifier;
    return "No layer " + name + " in the scene's layer stack";
  }
  switch (kind) {
    case LayerOperationKind::Add:
      break;
    case LayerOperationKind::Remove:
      return removeLayer(context, *layer, message);
    case LayerOperationKind::Move:
      return moveLayer(context, *layer, operation.direction, message);
    case LayerOperationKind::Mute:
      return muteLayer(context, *layer, operation.muted, message);
    case LayerOperationKind::Active:
      if (context.scene.isMuted(*layer))
        return std::string("Enable that layer before editing it");
      if (!context.scene.isWritable(*layer))
        return std::string("That layer is read-only");
      message = "Editing " + context.layerName(*layer);
      return std::nullopt;
    case LayerOperationKind::Clear:
      return clearLayer(context, *layer, message);
    case LayerOperationKind::MergeDown:
      return mergeLayerDown(context, *layer, message);
  }
  return std::nullopt;
}

}  // namespace orvan::engine
