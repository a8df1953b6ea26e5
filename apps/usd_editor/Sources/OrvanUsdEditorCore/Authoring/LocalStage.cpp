#include "Authoring/LocalStage.h"

#include <algorithm>
#include <array>

#include "Authoring/ComponentEditing.h"
#include "Authoring/PrimNames.h"
#include "orvan/wire/Numbers.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

constexpr std::array<std::string_view, 8> kShapeKinds{"cube",    "sphere", "cone",  "cylinder",
                                                      "capsule", "plane",  "torus", "disk"};

bool isInSubtree(std::string_view path, std::string_view root) {
  return path == root ||
         (path.size() > root.size() && path[root.size()] == '/' && hasPrefix(path, root));
}

// `text` with its leading `from` (a whole path element prefix) replaced by `to`.
void rewritePrefix(std::string& text, std::string_view from, std::string_view to) {
  if (!isInSubtree(text, from))
    return;
  text = std::string(to) + text.substr(from.size());
}

void collectSubtreePaths(const UsdPrimNode& node, std::vector<std::string>& paths) {
  paths.push_back(node.path);
  for (const UsdPrimNode& child : node.children)
    collectSubtreePaths(child, paths);
}

void rewriteNode(UsdPrimNode& node, std::string_view from, std::string_view to) {
  rewritePrefix(node.path, from, to);
  rewritePrefix(node.parent, from, to);
  for (UsdPrimNode& child : node.children)
    rewriteNode(child, from, to);
}

void rewritePrim(UsdPrimDetail& prim, std::string_view from, std::string_view to) {
  rewritePrefix(prim.path, from, to);
  rewritePrefix(prim.parent, from, to);
  rewritePrefix(prim.entityPath, from, to);
}

ComponentProperty vectorProperty(std::string name, std::string value) {
  ComponentProperty property;
  property.name = std::move(name);
  property.kind = "vector3";
  property.value = std::move(value);
  return property;
}

const UsdComponent* catalogComponent(const StageInspection& stage, std::string_view type) {
  for (const UsdComponent& component : stage.catalog) {
    if (component.type == type)
      return &component;
  }
  return nullptr;
}

std::string_view componentForPrimitiveKind(std::string_view kind) {
  if (std::find(kShapeKinds.begin(), kShapeKinds.end(), kind) != kShapeKinds.end())
    return "RenderShape";
  if (kind == "sphereLight")
    return "Light";
  if (kind == "audioSource")
    return "AudioSource";
  return {};
}

template <class Prim>
void setInstanceBadge(Prim& prim, bool instanceable) {
  std::erase_if(prim.badges,
                [](const std::string& badge) { return badge == "instance" || badge == "loading"; });
  if (instanceable)
    prim.badges.emplace_back("instance");
}

}  // namespace

std::size_t layerAwareInsertionIndex(const std::vector<UsdPrimNode>& siblings,
                                     const std::vector<UsdLayerInfo>& layers,
                                     std::string_view authoringLayerIdentifier) {
  auto positionOf = [&](std::string_view identifier) -> std::optional<std::size_t> {
    for (std::size_t i = 0; i < layers.size(); ++i) {
      if (layers[i].identifier == identifier)
        return i;
    }
    return std::nullopt;
  };
  if (authoringLayerIdentifier.empty())
    return siblings.size();
  const std::optional<std::size_t> own = positionOf(authoringLayerIdentifier);
  if (!own)
    return siblings.size();
  for (std::size_t i = 0; i < siblings.size(); ++i) {
    const UsdPrimNode& sibling = siblings[i];
    std::string_view layer;
    if (sibling.definingLayer && !sibling.definingLayer->empty())
      layer = *sibling.definingLayer;
    else if (sibling.overrideLayer && !sibling.overrideLayer->empty())
      layer = *sibling.overrideLayer;
    if (layer.empty())
      continue;
    const std::optional<std::size_t> position = positionOf(layer);
    if (position && *position < *own)
      return i;
  }
  return siblings.size();
}

LocalStage::LocalStage(StageInspection& stage, std::string authoringLayerIdentifier, TimingLog log,
                       std::shared_ptr<const PreparedStage> origin)
    : stage_(stage),
      authoringLayer_(std::move(authoringLayerIdentifier)),
      log_(std::move(log)),
      origin_(std::move(origin)),
      removed_(stage.prims.size(), 0) {
  // An origin of another length is not what the stage was copied from.
  if (origin_ && origin_->stage().prims.size() != stage_.prims.size())
    origin_.reset();
}

LocalStage::~LocalStage() {
  finish();
}

void LocalStage::log(const std::string& text) const {
  if (log_)
    log_(text);
}

void LocalStage::buildIndex() {
  if (indexed_ || origin_)
    return;
  indexed_ = true;
  index_.reserve(stage_.prims.size() + 64);
  for (std::size_t i = 0; i < stage_.prims.size(); ++i) {
    if (!removed_[i])
      index_.emplace(stage_.prims[i].path, i);
  }
}

void LocalStage::indexPrim(std::size_t position) {
  removed_.resize(stage_.prims.size(), 0);
  index_.insert_or_assign(stage_.prims[position].path, position);
}

void LocalStage::markRemoved(std::size_t position) {
  removed_[position] = 1;
  ++removedCount_;
  index_.erase(stage_.prims[position].path);
}

std::optional<std::size_t> LocalStage::positionOf(std::string_view path) {
  buildIndex();
  if (const auto found = index_.find(std::string(path)); found != index_.end())
    return found->second;
  if (!origin_)
    return std::nullopt;
  const UsdPrimDetail* known = origin_->prim(path);
  if (!known)
    return std::nullopt;
  const auto position = static_cast<std::size_t>(known - origin_->stage().prims.data());
  // A prim that was removed or moved here no longer answers to its old path.
  if (removed_[position] || stage_.prims[position].path != path)
    return std::nullopt;
  return position;
}

UsdPrimDetail* LocalStage::findPrim(std::string_view path) {
  const std::optional<std::size_t> position = positionOf(path);
  return position ? &stage_.prims[*position] : nullptr;
}

// ---- Components

namespace {

constexpr std::string_view kNameComponent = "Name";
constexpr std::string_view kDisplayNameAttribute = "orvan:name";

bool inLayerStack(const StageInspection& stage, std::string_view identifier) {
  return std::any_of(stage.layers.begin(), stage.layers.end(),
                     [&](const UsdLayerInfo& layer) { return layer.identifier == identifier; });
}

// Whether a prim or one of its parts is defined in a file outside the scene's own layer stack.
bool definedOutsideStack(const StageInspection& stage, const UsdPrimNode& node) {
  if (node.definingLayer && !node.definingLayer->empty() &&
      !inLayerStack(stage, *node.definingLayer)) {
    return true;
  }
  return std::any_of(node.children.begin(), node.children.end(),
                     [&](const UsdPrimNode& child) { return definedOutsideStack(stage, child); });
}

}  // namespace

std::string LocalStage::activeLayerIdentifier() const {
  if (!authoringLayer_.empty())
    return authoringLayer_;
  for (const UsdLayerInfo& layer : stage_.layers) {
    if (layer.root)
      return layer.identifier;
  }
  return {};
}

bool LocalStage::applyComponentChange(const ComponentAtomicOperation& operation) {
  UsdPrimDetail* entity = findPrim(operation.entityPath);
  if (!entity)
    return false;
  applyComponentOperationToPrim(*entity, operation, stage_.catalog);
  if (operation.kind != ComponentOperationKind::set)
    return true;
  if (operation.componentType == kNameComponent) {
    // The name the inspector and the hierarchy show; the prim's path stays.
    for (UsdAttribute& attribute : entity->attributes) {
      if (attribute.name == kDisplayNameAttribute)
        attribute.value = operation.value;
    }
  }
  markPropertyOverridesIfReferenced(*entity, operation);
  return true;
}

void LocalStage::markPropertyOverridesIfReferenced(UsdPrimDetail& entity,
                                                   const ComponentAtomicOperation& operation) {
  const UsdPrimNode* node = findNode(entity.path).node();
  if (!node)
    return;
  const std::string active = activeLayerIdentifier();
  const bool definedElsewhere =
      node->definingLayer && !node->definingLayer->empty() && *node->definingLayer != active;
  if (!definedElsewhere && !definedOutsideStack(stage_, *node))
    return;
  std::string activeName;
  for (const UsdLayerInfo& layer : stage_.layers) {
    if (layer.identifier == active)
      activeName = layer.name;
  }
  for (UsdComponent& component : entity.components) {
    if (component.type != operation.componentType)
      continue;
    for (ComponentProperty& property : component.properties) {
      if (property.name != operation.propertyName)
        continue;
      property.overridden = true;
      property.overriddenInActiveLayer = true;
      property.overrideLayer = active;
      property.overrideLayerName = activeName;
    }
  }
}

bool LocalStage::hasPrim(std::string_view path) {
  return findPrim(path) != nullptr;
}

LocalStage::NodeLocation LocalStage::findNode(std::string_view path) {
  std::vector<UsdPrimNode>* level = &stage_.rootPrims;
  while (true) {
    bool descended = false;
    for (std::size_t i = 0; i < level->size(); ++i) {
      UsdPrimNode& node = (*level)[i];
      if (node.path == path)
        return {level, i};
      if (isInSubtree(path, node.path)) {
        level = &node.children;
        descended = true;
        break;
      }
    }
    if (!descended)
      return {};
  }
}

std::vector<UsdPrimNode>* LocalStage::childrenOf(std::string_view parentPath) {
  if (parentPath == "/")
    return &stage_.rootPrims;
  UsdPrimNode* parent = findNode(parentPath).node();
  return parent ? &parent->children : nullptr;
}

void LocalStage::insertNode(std::vector<UsdPrimNode>& siblings, UsdPrimNode node) {
  const std::size_t at = layerAwareInsertionIndex(siblings, stage_.layers, authoringLayer_);
  siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(at), std::move(node));
}

UsdPrimDetail LocalStage::newLocalPrim(const PrimAtomicOperation& operation,
                                       const std::string& path) const {
  UsdPrimDetail prim;
  prim.path = path;
  prim.name = operation.primName;
  prim.typeName = "Xform";
  prim.parent = operation.parentPath;
  prim.entityPath = path;
  std::string translation = "0,0,0";
  if (const auto values = operation.effectiveTranslation()) {
    translation = formatShortestDouble((*values)[0]) + "," + formatShortestDouble((*values)[1]) +
                  "," + formatShortestDouble((*values)[2]);
  }
  UsdComponent transform;
  transform.type = "Transform";
  transform.properties = {vectorProperty("translation", translation),
                          vectorProperty("rotation", "0,0,0"), vectorProperty("scale", "1,1,1")};
  prim.components.push_back(std::move(transform));
  const std::string_view extra = componentForPrimitiveKind(operation.primitiveKind);
  if (!extra.empty()) {
    if (const UsdComponent* component = catalogComponent(stage_, extra))
      prim.components.push_back(*component);
  }
  return prim;
}

bool LocalStage::insertPrimInLocalStage(const PrimAtomicOperation& operation) {
  if (operation.parentPath.empty() || operation.primName.empty())
    return false;
  const std::string path = operation.createdPath();
  if (hasPrim(path))
    return false;  // already there: replay must be idempotent
  std::vector<UsdPrimNode>* siblings = childrenOf(operation.parentPath);
  if (!siblings)
    return false;
  log("local insert kind=" + std::string(rawWord(operation.kind)) + " path=" + path +
      " prims=" + std::to_string(primCount()));

  const bool copiesSource =
      operation.kind == PrimOperationKind::duplicate && hasPrim(operation.sourcePath);
  if (!copiesSource) {
    stage_.prims.push_back(newLocalPrim(operation, path));
    indexPrim(stage_.prims.size() - 1);
    UsdPrimNode node;
    node.path = path;
    node.name = operation.primName;
    node.typeName = "Xform";
    node.parent = operation.parentPath;
    insertNode(*siblings, std::move(node));
    return true;
  }

  // A copy of the source's subtree, its paths moved under the new one.
  const std::string& source = operation.sourcePath;
  UsdPrimNode clone;
  std::vector<std::string> sourcePaths;
  if (const UsdPrimNode* original = findNode(source).node()) {
    clone = *original;
    collectSubtreePaths(*original, sourcePaths);
  } else {
    const UsdPrimDetail* prim = findPrim(source);
    clone.path = prim->path;
    clone.name = prim->name;
    clone.typeName = prim->typeName;
    sourcePaths.push_back(source);
  }
  rewriteNode(clone, source, path);
  clone.name = operation.primName;
  clone.parent = operation.parentPath;
  for (const std::string& sourcePath : sourcePaths) {
    const UsdPrimDetail* original = findPrim(sourcePath);
    if (!original)
      continue;
    UsdPrimDetail copy = *original;
    rewritePrim(copy, source, path);
    if (copy.path == path) {
      copy.name = operation.primName;
      copy.parent = operation.parentPath;
    }
    copy.entityId = 0;  // the server gives the copy its own identity
    stage_.prims.push_back(std::move(copy));
    indexPrim(stage_.prims.size() - 1);
  }
  // The sibling list may have moved while the source was read; find it again.
  if (std::vector<UsdPrimNode>* target = childrenOf(operation.parentPath))
    insertNode(*target, std::move(clone));
  return true;
}

bool LocalStage::removePrimFromLocalStage(std::string_view path) {
  if (path.empty() || path == "/World")
    return false;
  log("local remove path=" + std::string(path) + " prims=" + std::to_string(primCount()));
  const NodeLocation location = findNode(path);
  std::vector<std::string> paths;
  if (const UsdPrimNode* node = location.node())
    collectSubtreePaths(*node, paths);
  else
    paths.emplace_back(path);
  const std::size_t before = primCount();
  for (const std::string& each : paths) {
    if (const std::optional<std::size_t> position = positionOf(each))
      markRemoved(*position);
  }
  if (location.siblings)
    location.siblings->erase(location.siblings->begin() +
                             static_cast<std::ptrdiff_t>(location.position));
  return primCount() != before || location.siblings != nullptr;
}

bool LocalStage::movePrimInLocalStage(std::string_view sourcePath, std::string_view parentPath,
                                      std::string_view primName) {
  if (sourcePath.empty() || sourcePath == "/World" || primName.empty())
    return false;
  const std::string source(sourcePath);
  const std::string target = childPrimPath(parentPath, primName);
  if (isInSubtree(target, source))
    return false;
  if (!hasPrim(source))
    return false;
  if (hasPrim(target)) {
    log("local move target-exists source=" + source);
    return false;
  }
  if (!childrenOf(parentPath))
    return false;
  log("local move source=" + source + " target=" + target +
      " prims=" + std::to_string(primCount()));

  std::vector<std::string> paths;
  UsdPrimNode node;
  if (const NodeLocation location = findNode(source); location.node()) {
    node = std::move(*location.node());
    location.siblings->erase(location.siblings->begin() +
                             static_cast<std::ptrdiff_t>(location.position));
    collectSubtreePaths(node, paths);
  } else {
    paths.push_back(source);
    node.path = source;
    node.name = findPrim(source)->name;
    node.typeName = findPrim(source)->typeName;
  }
  for (const std::string& path : paths) {
    const std::optional<std::size_t> found = positionOf(path);
    if (!found)
      continue;
    const std::size_t position = *found;
    index_.erase(path);
    UsdPrimDetail& prim = stage_.prims[position];
    rewritePrim(prim, source, target);
    if (prim.path == target) {
      prim.name = std::string(primName);
      prim.parent = std::string(parentPath);
    }
    indexPrim(position);
  }
  rewriteNode(node, source, target);
  node.name = std::string(primName);
  node.parent = std::string(parentPath);
  insertNode(*childrenOf(parentPath), std::move(node));
  return true;
}

bool LocalStage::applyInstanceableOverride(std::string_view path, bool instanceable) {
  UsdPrimDetail* prim = findPrim(path);
  if (!prim)
    return false;
  setInstanceBadge(*prim, instanceable);
  prim->instanceable = instanceable;
  const std::optional<bool> proxy = instanceable ? std::optional<bool>(true) : std::nullopt;
  UsdPrimNode* node = findNode(path).node();
  if (!node)
    return true;
  setInstanceBadge(*node, instanceable);
  std::vector<std::string> below;
  for (UsdPrimNode& child : node->children)
    collectSubtreePaths(child, below);
  std::function<void(UsdPrimNode&)> mark = [&](UsdPrimNode& each) {
    each.instanceProxy = proxy;
    for (UsdPrimNode& child : each.children)
      mark(child);
  };
  for (UsdPrimNode& child : node->children)
    mark(child);
  for (const std::string& each : below) {
    if (UsdPrimDetail* inside = findPrim(each))
      inside->instanceProxy = proxy;
  }
  return true;
}

bool LocalStage::applyCreatedPrimIdentities(
    const std::vector<EditClientCreatedPrim>& createdPrims) {
  bool changed = false;
  for (const EditClientCreatedPrim& created : createdPrims) {
    if (created.path.empty() || created.entityId == 0)
      continue;
    UsdPrimDetail* prim = findPrim(created.path);
    if (!prim || prim->entityId == created.entityId)
      continue;
    prim->entityId = created.entityId;
    changed = true;
  }
  return changed;
}

void LocalStage::finish() {
  if (removedCount_ == 0)
    return;
  std::size_t write = 0;
  for (std::size_t read = 0; read < stage_.prims.size(); ++read) {
    if (removed_[read])
      continue;
    if (write != read)
      stage_.prims[write] = std::move(stage_.prims[read]);
    ++write;
  }
  stage_.prims.resize(write);
  removedCount_ = 0;
  indexed_ = false;
  origin_.reset();  // the positions no longer match it
  index_.clear();
  removed_.assign(stage_.prims.size(), 0);
}

}  // namespace orvan::editor
