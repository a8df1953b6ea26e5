#include "Viewport/Picking.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvan::engine {

std::optional<float> rayBoxEntry(const Ray& ray, const Bounds& bounds) {
  if (bounds.empty()) {
    return std::nullopt;
  }
  float entry = 0.0f;
  float exit = std::numeric_limits<float>::max();
  for (int axis = 0; axis < 3; ++axis) {
    const float d = ray.direction[axis];
    const float o = ray.origin[axis];
    if (std::abs(d) < 1e-12f) {
      if (o < bounds.min[axis] || o > bounds.max[axis]) {
        return std::nullopt;
      }
      continue;
    }
    float t0 = (bounds.min[axis] - o) / d;
    float t1 = (bounds.max[axis] - o) / d;
    if (t0 > t1) {
      std::swap(t0, t1);
    }
    entry = std::max(entry, t0);
    exit = std::min(exit, t1);
    if (entry > exit) {
      return std::nullopt;
    }
  }
  return entry;
}

std::optional<float> rayTriangle(const glm::vec3& origin, const glm::vec3& direction,
                                 const glm::vec3& a, const glm::vec3& b, const glm::vec3& c) {
  const glm::vec3 edge1 = b - a;
  const glm::vec3 edge2 = c - a;
  const glm::vec3 p = glm::cross(direction, edge2);
  const float determinant = glm::dot(edge1, p);
  if (std::abs(determinant) < 1e-12f) {
    return std::nullopt;  // parallel to the triangle, or a degenerate one
  }
  const float inverse = 1.0f / determinant;
  const glm::vec3 s = origin - a;
  const float u = glm::dot(s, p) * inverse;
  if (u < 0.0f || u > 1.0f) {
    return std::nullopt;
  }
  const glm::vec3 q = glm::cross(s, edge1);
  const float v = glm::dot(direction, q) * inverse;
  if (v < 0.0f || u + v > 1.0f) {
    return std::nullopt;
  }
  const float t = glm::dot(edge2, q) * inverse;
  if (t < 0.0f) {
    return std::nullopt;
  }
  return t;
}

std::optional<PickHit> pickRay(const Scene& scene, const Ray& ray) {
  std::optional<PickHit> best;
  for (const SceneObject& object : scene.objects) {
    const std::optional<float> entry = rayBoxEntry(ray, object.bounds);
    if (!entry || (best && *entry > best->distance)) {
      continue;
    }
    // In the object's own space the ray's parameter is the same, so distances stay comparable.
    const glm::mat4 toObject = glm::inverse(object.world);
    const glm::vec3 origin = glm::vec3(toObject * glm::vec4(ray.origin, 1.0f));
    const glm::vec3 direction = glm::vec3(toObject * glm::vec4(ray.direction, 0.0f));
    const TriangleMesh& mesh = object.mesh;
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
      const std::optional<float> t =
          rayTriangle(origin, direction, mesh.positions[mesh.indices[i]],
                      mesh.positions[mesh.indices[i + 1]], mesh.positions[mesh.indices[i + 2]]);
      if (t && (!best || *t < best->distance)) {
        best = PickHit{object.path, *t};
      }
    }
  }
  return best;
}

std::optional<PickHit> pickPixel(const Scene& scene, const OrbitCamera& camera, int width,
                                 int height, int x, int y) {
  if (width <= 0 || height <= 0 || x < 0 || y < 0 || x >= width || y >= height) {
    return std::nullopt;
  }
  return pickRay(scene, pixelRay(camera, width, height, x, y));
}

}  // namespace orvan::engine
