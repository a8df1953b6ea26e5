// Unsaved values the editor previews over the stage: each component property maps onto the
// attributes the scene reads, the way saving it would write them.
#include <algorithm>
#include <charconv>
#include <cmath>

#include "Viewport/SceneModel.h"

namespace orvan::engine {
namespace {

std::optional<std::vector<double>> numberList(std::string_view text) {
  std::vector<double> numbers;
  while (true) {
    const std::size_t comma = text.find(',');
    std::string_view piece = text.substr(0, comma);
    while (!piece.empty() && piece.front() == ' ') {
      piece.remove_prefix(1);
    }
    while (!piece.empty() && piece.back() == ' ') {
      piece.remove_suffix(1);
    }
    double value = 0;
    const auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), value);
    if (piece.empty() || error != std::errc() || end != piece.data() + piece.size() ||
        !std::isfinite(value)) {
      return std::nullopt;
    }
    numbers.push_back(value);
    if (comma == std::string_view::npos) {
      return numbers;
    }
    text.remove_prefix(comma + 1);
  }
}

// Where one component property lands: attributes of a prim and how many numbers each takes.
struct Slot {
  std::string_view component;
  std::string_view property;
  std::string_view attribute;
  std::size_t count;
};

constexpr Slot kSlots[] = {
    {"Transform", "translation", "xformOp:translate", 3},
    {"Transform", "rotation", "xformOp:rotateXYZ", 3},
    {"Transform", "scale", "xformOp:scale", 3},
    {"RenderShape", "color", "primvars:displayColor", 3},
    {"Light", "color", "inputs:color", 3},
    {"Light", "intensity", "inputs:intensity", 1},
    {"Light", "radius", "inputs:radius", 1},
    {"Material", "baseColor", "inputs:diffuseColor", 3},
    {"Material", "roughness", "inputs:roughness", 1},
    {"Material", "metallic", "inputs:metallic", 1},
    {"WorldSettings", "backgroundColor", "orvan:backgroundColor", 3},
    {"WorldSettings", "ambientColor", "orvan:ambientColor", 3},
};

constexpr std::string_view kShapeAttributes[] = {"size", "radius", "height", "width", "length"};

const Slot* slotOf(std::string_view component, std::string_view property) {
  const auto found = std::find_if(std::begin(kSlots), std::end(kSlots), [&](const Slot& slot) {
    return slot.component == component && slot.property == property;
  });
  return found != std::end(kSlots) ? &*found : nullptr;
}

// The prim that holds a material's inputs: its first Shader child.
std::optional<std::string> shaderOf(const Stage& stage, const ComposedPrim& material) {
  for (const std::uint32_t child : material.children) {
    if (stage.prims[child].typeName == "Shader") {
      return stage.prims[child].path;
    }
  }
  return std::nullopt;
}

// A shape's (width, height, depth) as its own attributes, as saving "dimensions" writes them.
std::vector<std::pair<std::string_view, double>> dimensionAttributes(std::string_view type,
                                                                     const glm::dvec3& size) {
  if (type == "Cube") {
    return {{"size", std::max({size.x, size.y, size.z})}};
  }
  if (type == "Sphere") {
    return {{"radius", std::max({size.x, size.y, size.z}) / 2}};
  }
  if (type == "Plane") {
    return {{"width", size.x}, {"length", size.z}};
  }
  const double radius = std::max(size.x, size.z) / 2;
  const double height = type == "Capsule" ? std::max(0.0, size.y - 2 * radius) : size.y;
  return {{"radius", radius}, {"height", height}};
}

}  // namespace

SceneModel::SceneModel(std::shared_ptr<const Stage> stage, Tessellation detail)
    : stage_(std::move(stage)), detail_(detail) {}

void SceneModel::setStage(std::shared_ptr<const Stage> stage, Tessellation detail) {
  stage_ = std::move(stage);
  detail_ = detail;
  dirty_ = true;
}

void SceneModel::setStage(std::shared_ptr<const Stage> stage, Tessellation detail, Scene built) {
  stage_ = std::move(stage);
  detail_ = detail;
  const bool onlyTransforms =
      previews_.bindings.empty() &&
      std::all_of(previews_.numbers.begin(), previews_.numbers.end(), [](const auto& entry) {
        return slotOf("Transform", "translation")->attribute == entry.first.second ||
               slotOf("Transform", "rotation")->attribute == entry.first.second ||
               slotOf("Transform", "scale")->attribute == entry.first.second;
      });
  if (!onlyTransforms) {
    dirty_ = true;
    return;
  }
  scene_ = std::move(built);
  dirty_ = false;
  ++revision_;
  objectByPath_.clear();
  for (std::size_t i = 0; i < scene_.objects.size(); ++i) {
    objectByPath_.emplace(scene_.objects[i].path, i);
  }
  movedObjects_.clear();
  moveRevision_ = 0;
  movedPrims_.clear();
  for (const auto& entry : previews_.numbers) {
    movedPrims_.insert(entry.first.first);
  }
}

std::optional<std::string> SceneModel::applyPreview(const std::string& path,
                                                    std::string_view componentType,
                                                    std::string_view propertyName,
                                                    std::string_view valueText) {
  const std::string what = std::string(componentType) + " " + std::string(propertyName);
  const ComposedPrim* prim = stage_ != nullptr ? stage_->findPrim(path) : nullptr;
  if (prim == nullptr) {
    return "no prim at " + path + " to preview " + what + " on";
  }
  if (componentType == "MaterialBinding" && propertyName == "material") {
    previews_.bindings[path] = std::string(valueText);
    dirty_ = true;
    return std::nullopt;
  }
  const auto numbers = numberList(valueText);
  if (componentType == "RenderShape" && propertyName == "dimensions") {
    if (!numbers || numbers->size() != 3 ||
        std::any_of(numbers->begin(), numbers->end(), [](double v) { return v < 0; })) {
      return "'" + std::string(valueText) + "' is not three sizes for " + what;
    }
    clearPreview(path, componentType, propertyName);
    const glm::dvec3 size((*numbers)[0], (*numbers)[1], (*numbers)[2]);
    for (const auto& [attribute, value] : dimensionAttributes(prim->typeName, size)) {
      previews_.numbers[{path, std::string(attribute)}] = {value};
    }
    dirty_ = true;
    return std::nullopt;
  }
  const Slot* slot = slotOf(componentType, propertyName);
  if (slot == nullptr) {
    return "the viewport does not show " + what;
  }
  if (!numbers || numbers->size() != slot->count) {
    return "'" + std::string(valueText) + "' is not a value for " + what;
  }
  std::string holder = path;
  if (componentType == "Material") {
    const auto shader = shaderOf(*stage_, *prim);
    if (!shader) {
      return path + " has no shader to preview " + what + " on";
    }
    holder = *shader;
  }
  previews_.numbers[{holder, std::string(slot->attribute)}] = *numbers;
  if (componentType == "Transform") {
    movedPrims_.insert(path);
  } else {
    dirty_ = true;
  }
  return std::nullopt;
}

void SceneModel::clearPreview(const std::string& path, std::string_view componentType,
                              std::string_view propertyName) {
  const auto erase = [&](const std::string& holder, std::string_view attribute) {
    if (previews_.numbers.erase({holder, std::string(attribute)}) == 0) {
      return;
    }
    if (componentType == "Transform") {
      movedPrims_.insert(path);
    } else {
      dirty_ = true;
    }
  };
  if (componentType == "MaterialBinding" && propertyName == "material") {
    dirty_ = previews_.bindings.erase(path) > 0 || dirty_;
    return;
  }
  if (componentType == "RenderShape" && propertyName == "dimensions") {
    for (const std::string_view attribute : kShapeAttributes) {
      erase(path, attribute);
    }
    return;
  }
  const Slot* slot = slotOf(componentType, propertyName);
  if (slot == nullptr) {
    return;
  }
  std::string holder = path;
  if (componentType == "Material") {
    const ComposedPrim* prim = stage_ != nullptr ? stage_->findPrim(path) : nullptr;
    const auto shader = prim != nullptr ? shaderOf(*stage_, *prim) : std::nullopt;
    if (!shader) {
      return;
    }
    holder = *shader;
  }
  erase(holder, slot->attribute);
}

void SceneModel::clearPreviews() {
  dirty_ = dirty_ || !previews_.empty();
  previews_ = {};
}

const Scene& SceneModel::scene() {
  if (!dirty_ && !movedPrims_.empty() && !moveObjects()) {
    dirty_ = true;
  }
  movedPrims_.clear();
  if (dirty_) {
    rebuild();
  }
  return scene_;
}

void SceneModel::rebuild() {
  scene_ = stage_ != nullptr ? buildScene(*stage_, detail_, previews_) : Scene{};
  dirty_ = false;
  ++revision_;
  objectByPath_.clear();
  for (std::size_t i = 0; i < scene_.objects.size(); ++i) {
    objectByPath_.emplace(scene_.objects[i].path, i);
  }
  movedObjects_.clear();
  moveRevision_ = 0;
}

bool SceneModel::moveObjects() {
  if (stage_ == nullptr) {
    return false;
  }
  const Stage& stage = *stage_;
  std::vector<std::pair<std::size_t, glm::mat4>> updates;
  for (const std::string& path : movedPrims_) {
    const ComposedPrim* moved = stage.findPrim(path);
    if (moved == nullptr) {
      continue;
    }
    // Prims are depth-first: the subtree is the run of prims after it that lie below it.
    const auto first = static_cast<std::size_t>(moved - stage.prims.data());
    const auto target = gizmoTargetOf(stage, path, previews_);
    std::unordered_map<std::uint32_t, glm::mat4> world;
    for (std::size_t i = first; i < stage.prims.size() && isSameOrBelow(stage.prims[i].path, path);
         ++i) {
      const ComposedPrim& prim = stage.prims[i];
      if (isLightType(prim.typeName)) {
        return false;
      }
      const glm::mat4 parent = i == first ? glm::mat4(target->parentWorld) : world.at(prim.parent);
      world[static_cast<std::uint32_t>(i)] = parent * localTransformOf(stage, prim, previews_);
      if (const auto found = objectByPath_.find(prim.path); found != objectByPath_.end()) {
        updates.emplace_back(found->second, world[static_cast<std::uint32_t>(i)]);
      }
    }
  }
  for (const auto& [index, matrix] : updates) {
    SceneObject& object = scene_.objects[index];
    object.world = matrix;
    object.bounds = meshBounds(object.mesh, matrix);
    if (!isDrawable(object)) {
      return false;
    }
    movedObjects_.push_back(index);
  }
  std::sort(movedObjects_.begin(), movedObjects_.end());
  movedObjects_.erase(std::unique(movedObjects_.begin(), movedObjects_.end()), movedObjects_.end());
  scene_.bounds = Bounds{};
  for (const SceneObject& object : scene_.objects) {
    scene_.bounds.add(object.bounds);
  }
  ++moveRevision_;
  return true;
}

}  // namespace orvan::engine
