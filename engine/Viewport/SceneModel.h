#pragma once

#include <string>
#include <vector>

#include <glm/glm.hpp>

#include "UsdText/Stage.h"
#include "Viewport/Geometry.h"

namespace orvan::engine {

// One drawable prim: its triangles in its own space, where it sits in the world, and its colour.
struct SceneObject {
  std::string path;
  TriangleMesh mesh;
  glm::mat4 world{1.0f};
  glm::vec3 color{0.5f};
  Bounds bounds;  // in world space
};

// A light from far away: the direction its light travels, and colour times intensity.
struct SceneLight {
  glm::vec3 direction{0, -1, 0};
  glm::vec3 radiance{1.0f};
};

struct SceneProblem {
  std::string primPath;
  std::string message;
};

// What the viewport draws of a composed stage. Built once per revision of the stage.
struct Scene {
  std::vector<SceneObject> objects;
  std::vector<SceneLight> lights;  // empty: the renderer lights the scene from the camera
  glm::vec3 background{0.1f, 0.105f, 0.12f};
  glm::vec3 ambient{0.15f};
  Bounds bounds;
  std::vector<SceneProblem> problems;  // prims that could not be drawn, and why
};

// Reads the drawable prims of a stage: the shape prims and meshes that are defined, active,
// visible and outside the engine's asset and helper folders; distant lights; the world settings
// for the background and ambient colours. Colour: a bound preview surface's diffuse colour, else
// the constant display colour, else grey.
Scene buildScene(const Stage& stage, const Tessellation& detail = {});

// The world transform of every prim of the stage, indexed like Stage::prims.
std::vector<glm::mat4> worldTransforms(const Stage& stage);

}  // namespace orvan::engine
