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

std::optional<double> number(const Stage& stage, const ComposedPrim& prim, std::string_view name) {
  const Value* value = authoredValue(stage, prim, name);
  return value != nullptr ? value->toNumber() : std::nullopt;
}

float numberOr(const Stage& stage, const ComposedPrim& prim, std::string_view name,
               double fallback) {
  return static_cast<float>(number(stage, prim, name).value_or(fallback));
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

std::optional<glm::dvec3> vector3(const Stage& stage, const ComposedPrim& prim,
                                  std::string_view name) {
  const Value* value = authoredValue(stage, prim, name);
  return value != nullptr ? tuple3(*value) : std::nullopt;
}

std::optional<std::string> token(const Stage& stage, const ComposedPrim& prim,
                                 std::string_view name) {
  const Value* value = authoredValue(stage, prim, name);
  if (value == nullptr) {
    return std::nullopt;
  }
  return value->decoded();
}

bool flagOr(const Stage& stage, const ComposedPrim& prim, std::string_view name, bool fallback) {
  const Value* value = authoredValue(stage, prim, name);
  const std::optional<bool> flag = value != nullptr ? value->toBool() : std::nullopt;
  return flag.value_or(fallback);
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

glm::mat4 primLocalTransform(const Stage& stage, const ComposedPrim& prim) {
  TransformOps ops;
  bool any = false;
  if (const auto t = vector3(stage, prim, "xformOp:translate")) {
    ops.translate = *t;
    any = true;
  }
  if (const auto r = vector3(stage, prim, "xformOp:rotateXYZ")) {
    ops.rotateXYZ = glm::vec3(*r);
    any = true;
  }
  if (const auto s = vector3(stage, prim, "xformOp:scale")) {
    ops.scale = glm::vec3(*s);
    any = true;
  }
  if (!any) {
    return glm::mat4(1.0f);
  }
  std::vector<TransformOp> order;
  if (const Value* listed = authoredValue(stage, prim, "xformOpOrder");
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
bool hiddenByItself(const Stage& stage, const ComposedPrim& prim) {
  if (!prim.active || !prim.defined || prim.specifier == Specifier::Class ||
      isEngineOnly(prim.path)) {
    return true;
  }
  return token(stage, prim, "visibility") == "invisible";
}

std::optional<glm::vec3> boundSurfaceColor(const Stage& stage, const ComposedPrim& prim) {
  if (!flagOr(stage, prim, "orvan:materialBinding:enabled", true)) {
    return std::nullopt;
  }
  const std::optional<ComposedProperty> binding = stage.findProperty(prim, "material:binding");
  if (!binding || binding->targets.empty()) {
    return std::nullopt;
  }
  const ComposedPrim* material = stage.findPrim(binding->targets.front());
  if (material == nullptr || !flagOr(stage, *material, "orvan:material:enabled", true)) {
    return std::nullopt;
  }
  for (const std::uint32_t child : material->children) {
    const ComposedPrim& shader = stage.prims[child];
    if (shader.typeName != "Shader") {
      continue;
    }
    if (const auto color = vector3(stage, shader, "inputs:diffuseColor")) {
      return glm::vec3(*color);
    }
  }
  return std::nullopt;
}

glm::vec3 surfaceColor(const Stage& stage, const ComposedPrim& prim) {
  if (const auto bound = boundSurfaceColor(stage, prim)) {
    return *bound;
  }
  const auto colors = vectorList(authoredValue(stage, prim, "primvars:displayColor"));
  if (colors && !colors->empty()) {
    return colors->front();
  }
  return glm::vec3(0.5f);
}

ShapeAxis axisOf(const Stage& stage, const ComposedPrim& prim) {
  const std::optional<std::string> axis = token(stage, prim, "axis");
  return axis ? parseShapeAxis(*axis).value_or(ShapeAxis::Y) : ShapeAxis::Y;
}

struct ShapeResult {
  std::optional<TriangleMesh> mesh;  // nullopt: not a drawable type
  std::string error;
};

ShapeResult meshOfPolygons(const Stage& stage, const ComposedPrim& prim) {
  const auto points = vectorList(authoredValue(stage, prim, "points"));
  const auto counts = intList(authoredValue(stage, prim, "faceVertexCounts"));
  const auto indices = intList(authoredValue(stage, prim, "faceVertexIndices"));
  if (!points || !counts || !indices) {
    return {std::nullopt, "the mesh has no readable points, faceVertexCounts or faceVertexIndices"};
  }
  const auto normals = vectorList(authoredValue(stage, prim, "normals"));
  const std::vector<glm::vec3> noNormals;
  MeshBuildResult built =
      triangulateMesh({*points, *counts, *indices, normals ? *normals : noNormals});
  if (!built.error.empty()) {
    return {std::nullopt, built.error};
  }
  return {std::move(built.mesh), {}};
}

ShapeResult shapeMesh(const Stage& stage, const ComposedPrim& prim, const Tessellation& detail) {
  const std::string_view type = prim.typeName;
  if (type == "Cube") {
    return {tessellateCube(numberOr(stage, prim, "size", 2.0)), {}};
  }
  if (type == "Sphere") {
    return {tessellateSphere(numberOr(stage, prim, "radius", 1.0), detail), {}};
  }
  if (type == "Cylinder" || type == "Cone" || type == "Capsule") {
    const float height = numberOr(stage, prim, "height", 2.0);
    const float radius = numberOr(stage, prim, "radius", type == "Capsule" ? 0.5 : 1.0);
    const ShapeAxis axis = axisOf(stage, prim);
    if (type == "Cylinder") {
      return {tessellateCylinder(height, radius, axis, detail), {}};
    }
    if (type == "Cone") {
      return {tessellateCone(height, radius, axis, detail), {}};
    }
    return {tessellateCapsule(height, radius, axis, detail), {}};
  }
  if (type == "Plane") {
    return {tessellatePlane(numberOr(stage, prim, "width", 2.0),
                            numberOr(stage, prim, "length", 2.0), axisOf(stage, prim)),
            {}};
  }
  if (type == "Mesh") {
    return meshOfPolygons(stage, prim);
  }
  return {};
}

void addLight(Scene& scene, const Stage& stage, const ComposedPrim& prim, const glm::mat4& world) {
  if (prim.typeName != "DistantLight" || !flagOr(stage, prim, "orvan:light:enabled", true)) {
    return;
  }
  const glm::vec3 color = glm::vec3(vector3(stage, prim, "inputs:color").value_or(glm::dvec3(1)));
  const float intensity = numberOr(stage, prim, "inputs:intensity", 1.0);
  const glm::vec3 direction = glm::vec3(world * glm::vec4(0, 0, -1, 0));
  if (!finite(direction) || !finite(color * intensity) || glm::length(direction) <= 0.0f) {
    return;
  }
  scene.lights.push_back({glm::normalize(direction), color * intensity});
}

void readWorldSettings(Scene& scene, const Stage& stage) {
  const ComposedPrim* world = stage.findPrim("/World");
  if (world == nullptr) {
    return;
  }
  if (const auto background = vector3(stage, *world, "orvan:backgroundColor")) {
    scene.background = glm::vec3(*background);
  }
  if (const auto ambient = vector3(stage, *world, "orvan:ambientColor")) {
    scene.ambient = glm::vec3(*ambient);
  }
}

}  // namespace

std::vector<glm::mat4> worldTransforms(const Stage& stage) {
  std::vector<glm::mat4> world(stage.prims.size(), glm::mat4(1.0f));
  // Prims are depth-first: a parent's transform is known before its children's.
  for (std::size_t i = 0; i < stage.prims.size(); ++i) {
    const ComposedPrim& prim = stage.prims[i];
    const glm::mat4 parent = prim.parent == kNoPrim ? glm::mat4(1.0f) : world[prim.parent];
    world[i] = parent * primLocalTransform(stage, prim);
  }
  return world;
}

Scene buildScene(const Stage& stage, const Tessellation& detail) {
  Scene scene;
  readWorldSettings(scene, stage);
  const std::vector<glm::mat4> world = worldTransforms(stage);
  std::vector<bool> hidden(stage.prims.size(), false);
  for (std::size_t i = 0; i < stage.prims.size(); ++i) {
    const ComposedPrim& prim = stage.prims[i];
    hidden[i] = (prim.parent != kNoPrim && hidden[prim.parent]) || hiddenByItself(stage, prim);
    if (hidden[i]) {
      continue;
    }
    addLight(scene, stage, prim, world[i]);
    if (!flagOr(stage, prim, "orvan:renderShape:enabled", true) ||
        !flagOr(stage, prim, "orvan:mesh:enabled", true)) {
      continue;
    }
    ShapeResult shape = shapeMesh(stage, prim, detail);
    if (!shape.error.empty()) {
      scene.problems.push_back({prim.path, shape.error});
      continue;
    }
    if (!shape.mesh || shape.mesh->indices.empty()) {
      continue;
    }
    SceneObject object{prim.path, std::move(*shape.mesh), world[i], surfaceColor(stage, prim), {}};
    object.bounds = meshBounds(object.mesh, object.world);
    if (!finiteObject(object)) {
      scene.problems.push_back(
          {prim.path, "its transform or dimensions are not finite numbers; it is not drawn"});
      continue;
    }
    if (!finite(object.color)) {
      object.color = glm::vec3(0.5f);
    }
    scene.bounds.add(object.bounds);
    scene.objects.push_back(std::move(object));
  }
  return scene;
}

}  // namespace orvan::engine
