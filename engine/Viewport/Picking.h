#pragma once

#include <optional>
#include <string>

#include "Viewport/Camera.h"
#include "Viewport/SceneModel.h"

namespace orvan::engine {

struct PickHit {
  std::string path;
  float distance = 0.0f;  // along the ray, in world units
};

// The nearest drawn triangle a ray meets (either side), or nothing.
std::optional<PickHit> pickRay(const Scene& scene, const Ray& ray);
// The prim seen at pixel (x, y) of a width × height view, y from the top.
std::optional<PickHit> pickPixel(const Scene& scene, const OrbitCamera& camera, int width,
                                 int height, int x, int y);

// Where a ray enters a box, or nullopt when it misses; 0 when it starts inside.
std::optional<float> rayBoxEntry(const Ray& ray, const Bounds& bounds);
// The distance along a ray to a triangle, either side; nullopt when it misses.
std::optional<float> rayTriangle(const glm::vec3& origin, const glm::vec3& direction,
                                 const glm::vec3& a, const glm::vec3& b, const glm::vec3& c);

}  // namespace orvan::engine
