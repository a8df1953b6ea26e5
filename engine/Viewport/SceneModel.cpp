#include "Viewport/SceneModel.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "Viewport/Transform.h"

namespace orvan::engine {
namespace {

const Value* authoredValue(const Stage& stage, const ComposedPrim& prim, std::string_view name) {
  const std::optional<ComposedProperty> property = stage.findProperty(prim, name);
  if (!property || property->value == nullptr || property->value->isNone()) {
    return nullptr;
  }
  return property->value;
}

std::optional<glm::dvec3> tuple3(const Value& value) {
  if (value.kind != ValueKind::Tuple || value.itemCount != 3) {
    return std::nullopt;
  }
  glm::dvec3 result;
  for (int i = 0; i < 3; ++i) {
    const std::optional<double> part = value.items()[static_cast<std::size_t>(i)].toNumber();
    if (!part) {
      return std::nullopt;
    }
    result[i] = *part;
  }
  return result;
}

// A list of 3-tuples; nullopt when any item is not one.
std::optional<std::vector<glm::vec3>> vectorList(const Value* value) {
  if (value == nullptr || value->kind != ValueKind::List) {
    return std::nullopt;
  }
  std::vector<glm::vec3> result;
  result.reserve(value->itemCount);
  for (const Value& item : value->items()) {
    const std::optional<glm::dvec3> v = tuple3(item);
    if (!v) {
      return std::nullopt;
    }
    result.emplace_back(*v);
  }
  return result;
}

std::optional<std::vector<int>> intList(const Value* value) {
  if (value == nullptr || value->kind != ValueKind::List) {
    return std::nullopt;
  }
  std::vector<int> result;
  result.reserve(value->itemCount);
  for (const Value& item : value->items()) {
    const std::optional<double> n = item.toNumber();
    if (!n || *n != static_cast<double>(static_cast<int>(*n))) {
      return std::nullopt;
    }
    result.push_back(static_cast<int>(*n));
  }
  return result;
}

// Reads attributes of the stage's prims, with previewed values in front of the stage's.
struct Reader {
  const Stage& stage;
  const PreviewValues& previews;

  const std::vector<double>* previewed(const ComposedPrim& prim, std::string_view name) const {
    if (previews.numbers.empty()) {
      return nullptr;
    }
    const auto found = previews.numbers.find({prim.path, std::string(name)});
    return found != previews.numbers.end() ? &found->second : nullptr;
  }

  std::optional<double> number(const ComposedPrim& prim, std::string_view name) const {
    if (const auto* numbers = previewed(prim, name); numbers != nullptr && !numbers->empty()) {
      return numbers->front();
    }
    const Value* value = authoredValue(stage, prim, name);
    return value != nullptr ? value->toNumber() : std::nullopt;
  }

  float numberOr(const ComposedPrim& prim, std::string_view name, double fallback) const {
    return static_cast<float>(number(prim, name).value_or(fallback));
  }

  std::optional<glm::dvec3> vector3(const ComposedPrim& prim, std::string_view name) const {
    if (const auto* numbers = previewed(prim, name); numbers != nullptr && numbers->size() == 3) {
      return glm::dvec3((*numbers)[0], (*numbers)[1], (*numbers)[2]);
    }
    const Value* value = authoredValue(stage, prim, name);
    return value != nullptr ? tuple3(*value) : std::nullopt;
  }

  // The first colour of a colour list.
  std::optional<glm::vec3> firstColor(const ComposedPrim& prim, std::string_view name) const {
    if (const auto* numbers = previewed(prim, name); numbers != nullptr && numbers->size() >= 3) {
      return glm::vec3((*numbers)[0], (*numbers)[1], (*numbers)[2]);
    }
    const auto colors = vectorList(authoredValue(stage, prim, name));
    if (colors && !colors->empty()) {
      return colors->front();
    }
    return std::nullopt;
  }

  std::optional<std::string> token(const ComposedPrim& prim, std::string_view name) const {
    const Value* value = authoredValue(stage, prim, name);
    if (value == nullptr) {
      return std::nullopt;
    }
    return value->decoded();
  }

  bool flagOr(const ComposedPrim& prim, std::string_view name, bool fallback) const {
    const Value* value = authoredValue(stage, prim, name);
    const std::optional<bool> flag = value != nullptr ? value->toBool() : std::nullopt;
    return flag.value_or(fallback);
  }

  bool overridden(const ComposedPrim& prim, std::string_view name) const {
    return previewed(prim, name) != nullptr;
  }
};

glm::mat4 primLocalTransform(const Reader& read, const ComposedPrim& prim) {
  TransformOps ops;
  bool any = false;
  if (const auto t = read.vector3(prim, "xformOp:translate")) {
    ops.translate = *t;
    any = true;
  }
  if (const auto r = read.vector3(prim, "xformOp:rotateXYZ")) {
    ops.rotateXYZ = glm::vec3(*r);
    any = true;
  }
  if (const auto s = read.vector3(prim, "xformOp:scale")) {
    ops.scale = glm::vec3(*s);
    any = true;
  }
  if (!any) {
    return glm::mat4(1.0f);
  }
  std::vector<TransformOp> order;
  if (const Value* listed = authoredValue(read.stage, prim, "xformOpOrder");
      listed != nullptr && listed->kind == ValueKind::List) {
    for (const Value& item : listed->items()) {
      const std::string name = item.decoded();
      if (name == "xformOp:translate") {
        order.push_back(TransformOp::Translate);
      } else if (name == "xformOp:rotateXYZ") {
        order.push_back(TransformOp::RotateXYZ);
      } else if (name == "xformOp:scale") {
        order.push_back(TransformOp::Scale);
      }
    }
  }
  // A previewed operation the order does not list yet takes its usual place, as saving it will.
  const auto ensure = [&](TransformOp op, std::string_view name) {
    if (!read.overridden(prim, name) || order.empty() ||
        std::find(order.begin(), order.end(), op) != order.end()) {
      return;
    }
    auto at = order.begin();
    while (at != order.end() && static_cast<int>(*at) <= static_cast<int>(op)) {
      ++at;
    }
    order.insert(at, op);
  };
  ensure(TransformOp::Translate, "xformOp:translate");
  ensure(TransformOp::RotateXYZ, "xformOp:rotateXYZ");
  ensure(TransformOp::Scale, "xformOp:scale");
  return localTransform(ops, order);
}

bool finite(const glm::vec3& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// NaN slips through min and max, so the bounds alone cannot tell: every number is looked at.
bool finiteObject(const SceneObject& object) {
  for (int column = 0; column < 4; ++column) {
    if (!finite(glm::vec3(object.world[column])) || !std::isfinite(object.world[column].w)) {
      return false;
    }
  }
  return std::all_of(object.mesh.positions.begin(), object.mesh.positions.end(),
                     [](const glm::vec3& p) { return finite(p); }) &&
         finite(object.bounds.min) && finite(object.bounds.max);
}

bool isEngineOnly(std::string_view path) {
  return path.starts_with("/World/OrvanAssets") || path.starts_with("/_OrvanAssets") ||
         path.find("/OrvanComponents") != std::string_view::npos;
}

// Whether a prim and its descendants are left out of the picture.
bool hiddenByItself(const Reader& read, const ComposedPrim& prim) {
  if (!prim.active || !prim.defined || prim.specifier == Specifier::Class ||
      isEngineOnly(prim.path)) {
    return true;
  }
  return read.token(prim, "visibility") == "invisible";
}

// The material a prim binds itself, when it binds one: the target path, or "" for none.
std::optional<std::string> ownBinding(const Reader& read, const ComposedPrim& prim) {
  if (const auto found = read.previews.bindings.find(prim.path);
      found != read.previews.bindings.end()) {
    return found->second;
  }
  const std::optional<ComposedProperty> binding = read.stage.findProperty(prim, "material:binding");
  if (!binding || !binding->hasTargets) {
    return std::nullopt;
  }
  if (!read.flagOr(prim, "orvan:materialBinding:enabled", true)) {
    return std::string();
  }
  return binding->targets.empty() ? std::string() : binding->targets.front();
}

// The shader that holds a material's inputs: the one its surface output connects to, else its
// first Shader child.
const ComposedPrim* surfaceShader(const Stage& stage, const ComposedPrim& material) {
  if (const auto output = stage.findProperty(material, "outputs:surface");
      output && !output->targets.empty()) {
    const std::string& target = output->targets.front();
    const std::string shaderPath = target.substr(0, target.find('.'));
    if (const ComposedPrim* shader = stage.findPrim(shaderPath)) {
      return shader;
    }
  }
  for (const std::uint32_t child : material.children) {
    if (stage.prims[child].typeName == "Shader") {
      return &stage.prims[child];
    }
  }
  return nullptr;
}

// A preview surface's own defaults; a prim without a material reads as matte.
constexpr float kShaderRoughness = 0.5f;
constexpr float kMatteRoughness = 0.8f;

struct Surface {
  glm::vec3 color{0.5f};
  float roughness = kMatteRoughness;
  float metallic = 0.0f;
  bool fromMaterial = false;  // the material's colour wins over a mesh's own colours
};

Surface surfaceOf(const Reader& read, const ComposedPrim& prim, const std::string& materialPath) {
  Surface surface;
  bool colored = false;
  const ComposedPrim* material = materialPath.empty() ? nullptr : read.stage.findPrim(materialPath);
  if (material != nullptr && read.flagOr(*material, "orvan:material:enabled", true)) {
    if (const ComposedPrim* shader = surfaceShader(read.stage, *material)) {
      if (const auto color = read.vector3(*shader, "inputs:diffuseColor")) {
        surface.color = glm::vec3(*color);
        colored = true;
        surface.fromMaterial = true;
      }
      surface.roughness =
          std::clamp(read.numberOr(*shader, "inputs:roughness", kShaderRoughness), 0.0f, 1.0f);
      surface.metallic =
          std::clamp(read.numberOr(*shader, "inputs:metallic", surface.metallic), 0.0f, 1.0f);
    }
  }
  if (!colored) {
    if (const auto display = read.firstColor(prim, "primvars:displayColor")) {
      surface.color = *display;
    }
  }
  if (!finite(surface.color)) {
    surface.color = glm::vec3(0.5f);
  }
  // NaN fails every comparison, and clamp keeps it: it is replaced like any other bad number.
  if (!std::isfinite(surface.roughness)) {
    surface.roughness = kShaderRoughness;
  }
  if (!std::isfinite(surface.metallic)) {
    surface.metallic = 0.0f;
  }
  return surface;
}

ShapeAxis axisOf(const Reader& read, const ComposedPrim& prim) {
  const std::optional<std::string> axis = read.token(prim, "axis");
  return axis ? parseShapeAxis(*axis).value_or(ShapeAxis::Y) : ShapeAxis::Y;
}

struct ShapeResult {
  std::optional<TriangleMesh> mesh;  // nullopt: not a drawable type
  std::string error;
};

ShapeResult meshOfPolygons(const Reader& read, const ComposedPrim& prim) {
  const Stage& stage = read.stage;
  const auto points = vectorList(authoredValue(stage, prim, "points"));
  const auto counts = intList(authoredValue(stage, prim, "faceVertexCounts"));
  const auto indices = intList(authoredValue(stage, prim, "faceVertexIndices"));
  if (!points || !counts || !indices) {
    return {std::nullopt, "the mesh has no readable points, faceVertexCounts or faceVertexIndices"};
  }
  const auto normals = vectorList(authoredValue(stage, prim, "normals"));
  const std::vector<glm::vec3> none;
  // A previewed colour is one colour for the whole mesh.
  const auto colors = read.overridden(prim, "primvars:displayColor")
                          ? std::nullopt
                          : vectorList(authoredValue(stage, prim, "primvars:displayColor"));
  MeshBuildResult built = triangulateMesh(
      {*points, *counts, *indices, normals ? *normals : none, colors ? *colors : none});
  if (!built.error.empty()) {
    return {std::nullopt, built.error};
  }
  return {std::move(built.mesh), {}};
}

ShapeResult shapeMesh(const Reader& read, const ComposedPrim& prim, const Tessellation& detail) {
  const std::string_view type = prim.typeName;
  if (type == "Cube") {
    return {tessellateCube(read.numberOr(prim, "size", 2.0)), {}};
  }
  if (type == "Sphere") {
    return {tessellateSphere(read.numberOr(prim, "radius", 1.0), detail), {}};
  }
  if (type == "Cylinder" || type == "Cone" || type == "Capsule") {
    const float height = read.numberOr(prim, "height", 2.0);
    const float radius = read.numberOr(prim, "radius", type == "Capsule" ? 0.5 : 1.0);
    const ShapeAxis axis = axisOf(read, prim);
    if (type == "Cylinder") {
      return {tessellateCylinder(height, radius, axis, detail), {}};
    }
    if (type == "Cone") {
      return {tessellateCone(height, radius, axis, detail), {}};
    }
    return {tessellateCapsule(height, radius, axis, detail), {}};
  }
  if (type == "Plane") {
    return {tessellatePlane(read.numberOr(prim, "width", 2.0), read.numberOr(prim, "length", 2.0),
                            axisOf(read, prim)),
            {}};
  }
  if (type == "Mesh") {
    return meshOfPolygons(read, prim);
  }
  return {};
}

std::optional<LightKind> lightKind(std::string_view type) {
  if (type == "DistantLight") {
    return LightKind::distant;
  }
  // Area lights are lit as points at their centre: the viewport shows where light comes from,
  // not the shape of soft shadows.
  if (type == "SphereLight" || type == "RectLight" || type == "DiskLight") {
    return LightKind::point;
  }
  if (type == "DomeLight") {
    return LightKind::dome;
  }
  return std::nullopt;
}

void addLight(Scene& scene, const Reader& read, const ComposedPrim& prim, const glm::mat4& world) {
  const std::optional<LightKind> kind = lightKind(prim.typeName);
  if (!kind || !read.flagOr(prim, "orvan:light:enabled", true)) {
    return;
  }
  SceneLight light;
  light.kind = *kind;
  const glm::vec3 color = glm::vec3(read.vector3(prim, "inputs:color").value_or(glm::dvec3(1)));
  const float intensity = read.numberOr(prim, "inputs:intensity", 1.0);
  const float exposure = read.numberOr(prim, "inputs:exposure", 0.0);
  light.radiance = color * intensity * std::exp2(exposure);
  light.direction = glm::vec3(world * glm::vec4(0, 0, -1, 0));
  light.position = glm::vec3(world * glm::vec4(0, 0, 0, 1));
  light.radius = std::max(read.numberOr(prim, "inputs:radius", 0.5), 0.05f);
  if (!finite(light.direction) || !finite(light.position) || !finite(light.radiance) ||
      !std::isfinite(light.radius) || glm::length(light.direction) <= 0.0f) {
    return;
  }
  light.direction = glm::normalize(light.direction);
  scene.lights.push_back(light);
}

void readWorldSettings(Scene& scene, const Reader& read) {
  const ComposedPrim* world = read.stage.findPrim("/World");
  if (world == nullptr) {
    return;
  }
  if (const auto background = read.vector3(*world, "orvan:backgroundColor")) {
    scene.background = glm::vec3(*background);
  }
  if (const auto ambient = read.vector3(*world, "orvan:ambientColor")) {
    scene.ambient = glm::vec3(*ambient);
  }
}

std::vector<glm::mat4> transformsOf(const Reader& read) {
  const Stage& stage = read.stage;
  std::vector<glm::mat4> world(stage.prims.size(), glm::mat4(1.0f));
  // Prims are depth-first: a parent's transform is known before its children's.
  for (std::size_t i = 0; i < stage.prims.size(); ++i) {
    const ComposedPrim& prim = stage.prims[i];
    const glm::mat4 parent = prim.parent == kNoPrim ? glm::mat4(1.0f) : world[prim.parent];
    world[i] = parent * primLocalTransform(read, prim);
  }
  return world;
}

}  // namespace

std::vector<glm::mat4> worldTransforms(const Stage& stage, const PreviewValues& previews) {
  return transformsOf(Reader{stage, previews});
}

Scene buildScene(const Stage& stage, const Tessellation& detail, const PreviewValues& previews) {
  const Reader read{stage, previews};
  Scene scene;
  readWorldSettings(scene, read);
  const std::vector<glm::mat4> world = transformsOf(read);
  std::vector<bool> hidden(stage.prims.size(), false);
  // The material that applies to each prim: its own binding, else its parent's.
  std::vector<std::string> material(stage.prims.size());
  for (std::size_t i = 0; i < stage.prims.size(); ++i) {
    const ComposedPrim& prim = stage.prims[i];
    hidden[i] = (prim.parent != kNoPrim && hidden[prim.parent]) || hiddenByItself(read, prim);
    if (hidden[i]) {
      continue;
    }
    const std::optional<std::string> bound = ownBinding(read, prim);
    material[i] = bound ? *bound : (prim.parent != kNoPrim ? material[prim.parent] : "");
    addLight(scene, read, prim, world[i]);
    if (!read.flagOr(prim, "orvan:renderShape:enabled", true) ||
        !read.flagOr(prim, "orvan:mesh:enabled", true)) {
      continue;
    }
    ShapeResult shape = shapeMesh(read, prim, detail);
    if (!shape.error.empty()) {
      scene.problems.push_back({prim.path, shape.error});
      continue;
    }
    if (!shape.mesh || shape.mesh->indices.empty()) {
      continue;
    }
    const Surface surface = surfaceOf(read, prim, material[i]);
    if (surface.fromMaterial) {
      shape.mesh->colors.clear();
    }
    SceneObject object{prim.path, std::move(*shape.mesh), world[i],        surface.color,
                       {},        surface.roughness,      surface.metallic};
    object.bounds = meshBounds(object.mesh, object.world);
    if (!finiteObject(object)) {
      scene.problems.push_back(
          {prim.path, "its transform or dimensions are not finite numbers; it is not drawn"});
      continue;
    }
    for (glm::vec3& color : object.mesh.colors) {
      color = finite(color) ? color : object.color;
    }
    scene.bounds.add(object.bounds);
    scene.objects.push_back(std::move(object));
  }
  return scene;
}

glm::mat4 localTransformOf(const Stage& stage, const ComposedPrim& prim,
                           const PreviewValues& previews) {
  return primLocalTransform(Reader{stage, previews}, prim);
}

bool isLightType(std::string_view typeName) {
  return lightKind(typeName).has_value();
}

bool isDrawable(const SceneObject& object) {
  return finiteObject(object);
}

std::optional<GizmoTarget> gizmoTargetOf(const Stage& stage, const std::string& path,
                                         const PreviewValues& previews) {
  const ComposedPrim* prim = stage.findPrim(path);
  if (prim == nullptr) {
    return std::nullopt;
  }
  const Reader read{stage, previews};
  GizmoTarget target;
  target.path = path;
  target.translation = read.vector3(*prim, "xformOp:translate").value_or(glm::dvec3(0.0));
  target.rotation = read.vector3(*prim, "xformOp:rotateXYZ").value_or(glm::dvec3(0.0));
  target.scale = read.vector3(*prim, "xformOp:scale").value_or(glm::dvec3(1.0));
  // The parent chain only, outermost first.
  std::vector<const ComposedPrim*> chain;
  for (std::uint32_t at = prim->parent; at != kNoPrim; at = stage.prims[at].parent) {
    chain.push_back(&stage.prims[at]);
  }
  glm::mat4 parent(1.0f);
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    parent = parent * primLocalTransform(read, **it);
  }
  target.parentWorld = glm::dmat4(parent);
  return target;
}

bool isSameOrBelow(std::string_view path, std::string_view ancestor) {
  if (!path.starts_with(ancestor)) {
    return false;
  }
  return path.size() == ancestor.size() || ancestor == "/" || path[ancestor.size()] == '/';
}

Bounds boundsOfPaths(const Scene& scene, std::span<const std::string> paths) {
  Bounds bounds;
  for (const SceneObject& object : scene.objects) {
    if (std::any_of(paths.begin(), paths.end(),
                    [&](const std::string& path) { return isSameOrBelow(object.path, path); })) {
      bounds.add(object.bounds);
    }
  }
  return bounds;
}

}  // namespace orvan::engine
