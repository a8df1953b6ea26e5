#include "Authoring/EditableScene.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <functional>

#include "Authoring/LayerFragments.h"
#include "UsdText/LayerReader.h"
#include "UsdText/LayerWriter.h"
#include "UsdText/PathMapping.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

std::string normalised(const std::string& path) {
  std::error_code error;
  fs::path absolute = fs::absolute(fs::path(path), error);
  if (error)
    absolute = fs::path(path);
  return absolute.lexically_normal().string();
}

bool isInside(const std::string& root, const std::string& path) {
  const fs::path relative = fs::path(path).lexically_relative(root);
  return !relative.empty() && *relative.begin() != "..";
}

bool fileWritable(const std::string& path) {
  return ::access(path.c_str(), W_OK) == 0;
}

std::optional<std::uint64_t> entityIdOf(const LayerProperty& property) {
  if (property.name != "orvan:entityId")
    return std::nullopt;
  const PropertyField* field = property.findField("");
  if (!field || !field->hasValue || field->value.kind != ValueKind::Number)
    return std::nullopt;
  std::uint64_t id = 0;
  const std::string_view text = field->value.text;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc() || end != text.data() + text.size())
    return std::nullopt;
  return id;
}

std::string mismatch(const LayerChange& change, std::string_view what) {
  return "The change of " + change.path + " in " + change.layer +
         " does not fit the scene: " + std::string(what);
}

// The first metadata entry a change names, in a list of entries.
std::vector<MetadataEntry>::iterator findNamed(std::vector<MetadataEntry>& entries,
                                               std::string_view name) {
  return std::find_if(entries.begin(), entries.end(),
                      [&](const MetadataEntry& entry) { return metadataName(entry) == name; });
}

}  // namespace

EditableScene::~EditableScene() = default;

std::variant<std::unique_ptr<EditableScene>, std::string> EditableScene::load(
    const std::string& rootLayerPath, const std::string& projectRoot, const ComposeLimits& limits) {
  std::unique_ptr<EditableScene> scene(new EditableScene());
  scene->rootIdentifier_ = normalised(rootLayerPath);
  scene->projectRoot_ = normalised(projectRoot);
  scene->limits_ = limits;
  if (!isInside(scene->projectRoot_, scene->rootIdentifier_))
    return rootLayerPath + ": the scene is outside the project folder";
  LayerReadResult root = readLayerFile(scene->rootIdentifier_, limits.maxLayerBytes);
  if (!root.ok()) {
    root.error->file = rootLayerPath;
    return root.error->describe();
  }
  LayerEntry& entry = scene->layers_[scene->rootIdentifier_];
  entry.layer = std::move(root.layer);
  entry.writable = fileWritable(scene->rootIdentifier_);
  // Sublayers that read are held in memory too; the others stay problems of the stage.
  std::vector<std::string> pending{scene->rootIdentifier_};
  while (!pending.empty()) {
    const std::string identifier = std::move(pending.back());
    pending.pop_back();
    const Layer& layer = *scene->layers_.at(identifier).layer;
    scene->noteEntityIds(layer);
    const fs::path folder = fs::path(identifier).parent_path();
    for (const std::string& sub : layer.subLayerPaths()) {
      const std::string path = (folder / sub).lexically_normal().string();
      if (scene->layers_.count(path) != 0)
        continue;
      if (scene->loadKnownLayer(path))
        pending.push_back(path);
    }
  }
  return scene;
}

bool EditableScene::loadKnownLayer(const std::string& identifier) {
  if (const auto found = layers_.find(identifier); found != layers_.end())
    return found->second.layer != nullptr;
  if (!isInside(projectRoot_, identifier))
    return false;
  std::error_code error;
  const fs::path real = fs::weakly_canonical(identifier, error);
  if (error || !isInside(fs::weakly_canonical(projectRoot_, error).string(), real.string()))
    return false;
  LayerReadResult read = readLayerFile(identifier, limits_.maxLayerBytes);
  if (!read.ok())
    return false;
  LayerEntry& entry = layers_[identifier];
  entry.layer = std::move(read.layer);
  entry.writable = fileWritable(identifier);
  noteEntityIds(*entry.layer);
  return true;
}

std::vector<std::string> EditableScene::layerStack() const {
  std::vector<std::string> stack;
  std::function<void(const std::string&)> visit = [&](const std::string& identifier) {
    if (std::find(stack.begin(), stack.end(), identifier) != stack.end())
      return;
    const Layer* layer = findLayer(identifier);
    if (!layer)
      return;
    stack.push_back(identifier);
    const fs::path folder = fs::path(identifier).parent_path();
    for (const std::string& sub : layer->subLayerPaths())
      visit((folder / sub).lexically_normal().string());
  };
  visit(rootIdentifier_);
  return stack;
}

const Layer* EditableScene::findLayer(std::string_view identifier) const {
  const auto found = layers_.find(identifier);
  return found == layers_.end() ? nullptr : found->second.layer.get();
}

Layer* EditableScene::mutableLayer(std::string_view identifier) {
  const auto found = layers_.find(identifier);
  return found == layers_.end() ? nullptr : found->second.layer.get();
}

bool EditableScene::isWritable(std::string_view identifier) const {
  const auto found = layers_.find(identifier);
  return found != layers_.end() && found->second.layer && found->second.writable;
}

void EditableScene::setWritable(std::string_view identifier, bool writable) {
  if (const auto found = layers_.find(identifier); found != layers_.end())
    found->second.writable = writable;
}

bool EditableScene::isMuted(std::string_view identifier) const {
  return muted_.find(identifier) != muted_.end();
}

std::vector<std::string> EditableScene::mutedLayers() const {
  return {muted_.begin(), muted_.end()};
}

std::string EditableScene::layerText(std::string_view identifier) const {
  const Layer* layer = findLayer(identifier);
  return layer ? writeLayer(*layer) : std::string();
}

std::vector<std::string> EditableScene::dirtyLayers() const {
  std::vector<std::string> dirty;
  for (const auto& [identifier, entry] : layers_) {
    if (entry.dirty)
      dirty.push_back(identifier);
  }
  return dirty;
}

void EditableScene::markWritten(std::string_view identifier) {
  if (const auto found = layers_.find(identifier); found != layers_.end())
    found->second.dirty = false;
}

StageOpenResult EditableScene::compose() const {
  ComposeOptions options;
  options.limits = limits_;
  options.confinementRoot = projectRoot_;
  options.mutedLayers.assign(muted_.begin(), muted_.end());
  options.layerProvider = [this](const std::string& identifier) -> std::shared_ptr<const Layer> {
    const auto found = layers_.find(identifier);
    if (found == layers_.end())
      return nullptr;
    return found->second.layer;
  };
  return composeStage(layers_.at(rootIdentifier_).layer, options);
}

void EditableScene::recompose() const {
  ++compositions_;
  StageOpenResult composed = compose();
  // A stage beyond its limits keeps the last one; questions then see the scene as it was, and
  // whoever shows the stage learns why it is not the current one.
  composeFailure_ = composed.ok()    ? std::string()
                    : composed.error ? composed.error->describe()
                                     : std::string("the scene could not be composed");
  if (composed.ok())
    stage_ = std::move(composed.stage);
  if (!stage_)
    stage_ = std::make_shared<Stage>();
  stageStale_ = false;
  touched_.clear();
}

const Stage& EditableScene::currentStage() const {
  if (stageStale_ || !touched_.empty())
    recompose();
  return *stage_;
}

const ComposedPrim* EditableScene::composedPrim(std::string_view path) const {
  if (stageStale_ || !stage_) {
    recompose();
  } else {
    for (const std::string& touched : touched_) {
      if (hasPrefixPath(path, touched)) {
        recompose();
        break;
      }
    }
  }
  return stage_->findPrim(path);
}

void EditableScene::markStructural(std::string_view path) {
  if (stageStale_ || !stage_)
    return;
  // A subtree that arcs point at shows up elsewhere too: then nothing of the kept stage holds.
  for (const OpinionSite& site : stage_->sites) {
    if (hasPrefixPath(site.path, path) || hasPrefixPath(path, site.path)) {
      markAllStale();
      return;
    }
  }
  if (touched_.size() >= 1024) {
    markAllStale();
    return;
  }
  touched_.emplace_back(path);
}

void EditableScene::markAllStale() {
  stageStale_ = true;
  touched_.clear();
}

void EditableScene::noteEntityIds(const Layer& layer) {
  for (const LayerPrim& prim : layer.prims) {
    for (const LayerProperty& property : prim.properties) {
      if (const auto id = entityIdOf(property))
        maxEntityId_ = std::max(maxEntityId_, *id);
    }
  }
}

std::string EditableScene::relativeIdentifier(std::string_view identifier) const {
  return fs::path(identifier).lexically_relative(projectRoot_).string();
}

std::string EditableScene::absoluteIdentifier(std::string_view relative) const {
  return (fs::path(projectRoot_) / fs::path(relative)).lexically_normal().string();
}

std::optional<std::string> EditableScene::resolveLayerName(std::string_view name) const {
  if (name.empty())
    return rootIdentifier_;
  const fs::path folder = fs::path(rootIdentifier_).parent_path();
  const std::string absolute = normalised(std::string(name));
  for (const std::string& identifier : layerStack()) {
    const fs::path path(identifier);
    if (identifier == name || identifier == absolute ||
        path.lexically_relative(folder).string() == name || path.filename().string() == name ||
        relativeIdentifier(identifier) == name) {
      return identifier;
    }
  }
  return std::nullopt;
}

// ---- applying one change ----

std::optional<std::string> EditableScene::applyChange(const LayerChange& change) {
  switch (change.kind) {
    case ChangeKind::LayerFile:
      return applyLayerFile(change);
    case ChangeKind::LayerMute:
      return applyLayerMute(change);
    case ChangeKind::PrimSubtree:
    case ChangeKind::PrimFields:
    case ChangeKind::PrimMove:
    case ChangeKind::Property:
    case ChangeKind::PrimMetadata:
    case ChangeKind::LayerMetadata:
      break;
  }
  const std::string identifier = absoluteIdentifier(change.layer);
  Layer* layer = mutableLayer(identifier);
  if (!layer)
    return "The change names the layer " + change.layer + ", which the scene does not hold";
  std::optional<std::string> error;
  switch (change.kind) {
    case ChangeKind::PrimSubtree:
      error = applyPrimSubtree(*layer, change);
      break;
    case ChangeKind::PrimFields:
      error = applyPrimFields(*layer, change);
      break;
    case ChangeKind::PrimMove:
      error = applyPrimMove(*layer, change);
      break;
    case ChangeKind::Property:
      error = applyProperty(*layer, change);
      break;
    case ChangeKind::PrimMetadata:
      error = applyPrimMetadata(*layer, change);
      break;
    case ChangeKind::LayerMetadata:
      error = applyLayerMetadata(*layer, change);
      break;
    case ChangeKind::LayerFile:
    case ChangeKind::LayerMute:
      break;
  }
  if (!error)
    layers_.at(identifier).dirty = true;
  return error;
}

std::optional<std::string> EditableScene::applyPrimSubtree(Layer& layer,
                                                           const LayerChange& change) {
  const std::uint32_t existing = layer.findPrim(change.path);
  if (change.before) {
    if (existing == kNoPrim)
      return mismatch(change, "the prim is not there");
    if (subtreeText(layer, existing) != *change.before)
      return mismatch(change, "the prim has changed since");
  } else if (existing != kNoPrim) {
    return mismatch(change, "a prim is there already");
  }
  bool parentFound = false;
  const std::uint32_t parent = parentIndexForPath(layer, change.path, parentFound);
  if (!parentFound)
    return mismatch(change, "its parent is not there");
  std::shared_ptr<Layer> fragment;
  if (change.after) {
    std::string error;
    fragment = readFragment(*change.after, error);
    if (!fragment)
      return mismatch(change, error);
    if (fragment->rootPrims.size() != 1 ||
        fragment->prims[fragment->rootPrims[0]].name != nameOf(change.path)) {
      return mismatch(change, "the new prim's text does not hold that prim");
    }
  }
  std::uint32_t position = change.index;
  if (existing != kNoPrim)
    position = detachPrim(layer, existing);
  if (fragment) {
    const std::uint32_t grafted = graftSubtree(layer, *fragment, fragment->rootPrims[0], parent);
    attachPrim(layer, grafted, parent, position);
    noteEntityIds(*fragment);
  }
  markStructural(change.path);
  return std::nullopt;
}

std::optional<std::string> EditableScene::applyPrimFields(Layer& layer, const LayerChange& change) {
  const std::uint32_t existing = layer.findPrim(change.path);
  if (existing == kNoPrim)
    return mismatch(change, "the prim is not there");
  if (!change.before || !change.after)
    return mismatch(change, "a change of a prim's opinions needs both texts");
  if (primFieldsText(layer, existing) != *change.before)
    return mismatch(change, "the prim has changed since");
  std::string error;
  const std::shared_ptr<Layer> fragment = readFragment(*change.after, error);
  if (!fragment)
    return mismatch(change, error);
  if (fragment->rootPrims.size() != 1 ||
      fragment->prims[fragment->rootPrims[0]].name != nameOf(change.path) ||
      !fragment->prims[fragment->rootPrims[0]].children.empty()) {
    return mismatch(change, "the new text does not hold that prim alone");
  }
  const std::uint32_t grafted =
      graftSubtree(layer, *fragment, fragment->rootPrims[0], kDetachedPrim);
  LayerPrim& target = layer.prims[existing];
  LayerPrim& source = layer.prims[grafted];
  target.specifier = source.specifier;
  target.typeName = source.typeName;
  target.metadata = std::move(source.metadata);
  target.properties = std::move(source.properties);
  target.reorders = std::move(source.reorders);
  target.comments = std::move(source.comments);
  target.trailingComments = std::move(source.trailingComments);
  target.variantSets = std::move(source.variantSets);
  for (const LayerVariantSet& set : target.variantSets) {
    for (const LayerVariant& variant : set.variants) {
      if (variant.body != kNoPrim)
        layer.prims[variant.body].parent = existing;
    }
  }
  source.variantSets.clear();
  noteEntityIds(*fragment);
  markStructural(change.path);
  return std::nullopt;
}

std::optional<std::string> EditableScene::applyPrimMove(Layer& layer, const LayerChange& change) {
  const std::uint32_t existing = layer.findPrim(change.path);
  if (existing == kNoPrim)
    return mismatch(change, "the prim is not there");
  if (layer.findPrim(change.target) != kNoPrim)
    return mismatch(change, "a prim is at " + change.target + " already");
  if (hasPrefixPath(change.target, change.path))
    return mismatch(change, "a prim cannot move below itself");
  bool parentFound = false;
  const std::uint32_t parent = parentIndexForPath(layer, change.target, parentFound);
  if (!parentFound)
    return mismatch(change,
                    "the new parent " + std::string(parentPathOf(change.target)) + " is not there");
  detachPrim(layer, existing);
  const std::string_view name = nameOf(change.target);
  if (layer.prims[existing].name != name)
    layer.prims[existing].name = layer.storeText(std::string(name));
  attachPrim(layer, existing, parent, change.index);
  markStructural(change.path);
  markStructural(change.target);
  return std::nullopt;
}

std::optional<std::string> EditableScene::applyProperty(Layer& layer, const LayerChange& change) {
  const std::uint32_t prim = layer.findPrim(change.path);
  if (prim == kNoPrim)
    return mismatch(change, "the prim is not there");
  std::vector<LayerProperty>& properties = layer.prims[prim].properties;
  auto existing = std::find_if(properties.begin(), properties.end(),
                               [&](const LayerProperty& p) { return p.name == change.name; });
  if (change.before) {
    if (existing == properties.end())
      return mismatch(change, "it has no property " + change.name);
    if (propertyText(*existing) != *change.before)
      return mismatch(change, "the property " + change.name + " has changed since");
  } else if (existing != properties.end()) {
    return mismatch(change, "the property " + change.name + " is there already");
  }
  if (!change.after) {
    properties.erase(existing);
    return std::nullopt;
  }
  std::string error;
  const std::shared_ptr<Layer> fragment = readFragment(*change.after, error);
  if (!fragment)
    return mismatch(change, error);
  if (fragment->rootPrims.size() != 1 ||
      fragment->prims[fragment->rootPrims[0]].properties.size() != 1 ||
      fragment->prims[fragment->rootPrims[0]].properties[0].name != change.name) {
    return mismatch(change, "the new text does not hold the property " + change.name);
  }
  LayerProperty grafted =
      graftProperty(layer, *fragment, fragment->prims[fragment->rootPrims[0]].properties[0]);
  if (const auto id = entityIdOf(grafted))
    maxEntityId_ = std::max(maxEntityId_, *id);
  if (existing != properties.end()) {
    *existing = std::move(grafted);
  } else {
    const std::size_t at = std::min<std::size_t>(change.index, properties.size());
    properties.insert(properties.begin() + static_cast<std::ptrdiff_t>(at), std::move(grafted));
  }
  return std::nullopt;
}

std::optional<std::string> EditableScene::applyPrimMetadata(Layer& layer,
                                                            const LayerChange& change) {
  const std::uint32_t prim = layer.findPrim(change.path);
  if (prim == kNoPrim)
    return mismatch(change, "the prim is not there");
  std::vector<MetadataEntry>& entries = layer.prims[prim].metadata;
  auto existing = findNamed(entries, change.name);
  if (change.before) {
    if (existing == entries.end())
      return mismatch(change, "it has no " + change.name);
    if (primMetadataText(*existing) != *change.before)
      return mismatch(change, change.name + " has changed since");
  } else if (existing != entries.end()) {
    return mismatch(change, change.name + " is there already");
  }
  if (!change.after) {
    entries.erase(existing);
    markStructural(change.path);
    return std::nullopt;
  }
  std::string error;
  const std::shared_ptr<Layer> fragment = readFragment(*change.after, error);
  if (!fragment)
    return mismatch(change, error);
  if (fragment->rootPrims.size() != 1 ||
      fragment->prims[fragment->rootPrims[0]].metadata.size() != 1 ||
      metadataName(fragment->prims[fragment->rootPrims[0]].metadata[0]) != change.name) {
    return mismatch(change, "the new text does not hold " + change.name);
  }
  MetadataEntry grafted =
      graftMetadata(layer, *fragment, fragment->prims[fragment->rootPrims[0]].metadata[0]);
  if (existing != entries.end()) {
    *existing = std::move(grafted);
  } else {
    const std::size_t at = std::min<std::size_t>(change.index, entries.size());
    entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(at), std::move(grafted));
  }
  markStructural(change.path);
  return std::nullopt;
}

std::optional<std::string> EditableScene::applyLayerMetadata(Layer& layer,
                                                             const LayerChange& change) {
  std::vector<MetadataEntry>& entries = layer.metadata;
  auto existing = findNamed(entries, change.name);
  if (change.before) {
    if (existing == entries.end())
      return mismatch(change, "the layer has no " + change.name);
    if (layerMetadataText(*existing) != *change.before)
      return mismatch(change, change.name + " has changed since");
  } else if (existing != entries.end()) {
    return mismatch(change, change.name + " is there already");
  }
  markAllStale();
  if (!change.after) {
    entries.erase(existing);
    return std::nullopt;
  }
  std::string error;
  const std::shared_ptr<Layer> fragment = readFragment(*change.after, error);
  if (!fragment)
    return mismatch(change, error);
  if (fragment->metadata.size() != 1 || metadataName(fragment->metadata[0]) != change.name)
    return mismatch(change, "the new text does not hold " + change.name);
  MetadataEntry grafted = graftMetadata(layer, *fragment, fragment->metadata[0]);
  if (existing != entries.end()) {
    *existing = std::move(grafted);
  } else {
    const std::size_t at = std::min<std::size_t>(change.index, entries.size());
    entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(at), std::move(grafted));
  }
  return std::nullopt;
}

std::optional<std::string> EditableScene::applyLayerFile(const LayerChange& change) {
  const std::string identifier = absoluteIdentifier(change.layer);
  if (!isInside(projectRoot_, identifier))
    return "The layer " + change.layer + " is outside the project folder";
  if (identifier == rootIdentifier_ && !change.after)
    return "The root layer cannot be deleted";
  const auto found = layers_.find(identifier);
  const Layer* current = found == layers_.end() ? nullptr : found->second.layer.get();
  if (change.before) {
    if (!current)
      return "The change expects the layer " + change.layer + ", which the scene does not hold";
    if (writeLayer(*current) != *change.before)
      return "The layer " + change.layer + " has changed since";
  } else if (current) {
    return "The layer " + change.layer + " exists already";
  }
  std::shared_ptr<Layer> created;
  if (change.after) {
    LayerReadResult read = readLayerText(identifier, *change.after);
    if (!read.ok())
      return "The new text of " + change.layer + " does not read: " + read.error->describe();
    created = std::move(read.layer);
  }
  LayerEntry& entry = layers_[identifier];
  if (created)
    noteEntityIds(*created);
  entry.layer = std::move(created);
  entry.dirty = true;
  if (!change.before)
    entry.writable = true;
  markAllStale();
  return std::nullopt;
}

std::optional<std::string> EditableScene::applyLayerMute(const LayerChange& change) {
  const std::string identifier = absoluteIdentifier(change.layer);
  const bool muted = isMuted(identifier);
  if (change.before && (*change.before == "true") != muted)
    return "The layer " + change.layer + " is " + (muted ? "muted" : "not muted") + " already";
  if (change.after && *change.after == "true") {
    muted_.insert(identifier);
  } else {
    muted_.erase(identifier);
  }
  markAllStale();
  return std::nullopt;
}

}  // namespace orvan::engine
