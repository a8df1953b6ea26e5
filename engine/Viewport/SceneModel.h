#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include <glm/glm.hpp>

#include "UsdText/Stage.h"
#include "Viewport/Geometry.h"
#include "Viewport/Gizmo.h"

namespace orvan::engine {

// One drawable prim: its triangles in its own space, where it sits in the world, and its
// surface: base colour (linear), roughness and metallic, as a preview surface describes them;
// matte (roughness 0.8) without a material.
struct SceneObject {
  std::string path;
  TriangleMesh mesh;
  glm::mat4 world{1.0f};
  glm::vec3 color{0.5f};
  Bounds bounds;  // in world space
  float roughness = 0.8f;
  float metallic = 0.0f;
};

enum class LightKind : std::uint8_t { distant, point, dome };

// A light of the scene. Distant: light travelling along `direction`. Point: light from
// `position` falling off with the square of the distance (never closer than `radius`). Dome:
// light from the whole sky, brighter from above than from below. `radiance` is colour ×
// intensity × 2^exposure.
struct SceneLight {
  glm::vec3 direction{0, -1, 0};
  glm::vec3 radiance{1.0f};
  LightKind kind = LightKind::distant;
  glm::vec3 position{0.0f};
  float radius = 0.5f;
};

struct SceneProblem {
  std::string primPath;
  std::string message;
};

// What the viewport draws of a composed stage. Built once per revision of the stage.
struct Scene {
  std::vector<SceneObject> objects;
  // Empty, or holding no distant or point light and no dome: the renderer lights the scene from
  // the camera.
  std::vector<SceneLight> lights;
  glm::vec3 background{0.1f, 0.105f, 0.12f};  // a display colour, shown as it is
  glm::vec3 ambient{0.15f};
  Bounds bounds;
  std::vector<SceneProblem> problems;  // prims that could not be drawn, and why
};

// Values shown instead of what the stage says, while a change is previewed and not yet saved:
// attribute values by prim path and attribute name, and material bindings by prim path.
struct PreviewValues {
  std::map<std::pair<std::string, std::string>, std::vector<double>> numbers;
  std::map<std::string, std::string> bindings;

  bool empty() const { return numbers.empty() && bindings.empty(); }
};

// Reads the drawable prims of a stage: the shape prims and meshes that are defined, active,
// visible and outside the engine's asset and helper folders; distant, sphere (point), rect and
// disk (as points) and dome lights; the world settings for the background and ambient colours.
// Surface: the preview surface of the material bound to the prim or its nearest bound ancestor
// (diffuse colour, roughness, metallic), else the constant display colour, else grey.
Scene buildScene(const Stage& stage, const Tessellation& detail = {},
                 const PreviewValues& previews = {});

// The world transform of every prim of the stage, indexed like Stage::prims.
std::vector<glm::mat4> worldTransforms(const Stage& stage, const PreviewValues& previews = {});

// What the gizmo of the prim at `path` works from: its parent's world matrix and its own
// translation, rotation and scale (previews included; missing ones are identity). nullopt when
// there is no such prim.
std::optional<GizmoTarget> gizmoTargetOf(const Stage& stage, const std::string& path,
                                         const PreviewValues& previews = {});

// The pieces a move of a prim recomputes without rebuilding the scene: a prim's own transform
// (previews included), whether a type is a light, whether an object can be drawn (finite numbers).
glm::mat4 localTransformOf(const Stage& stage, const ComposedPrim& prim,
                           const PreviewValues& previews);
bool isLightType(std::string_view typeName);
bool isDrawable(const SceneObject& object);

// Whether `path` is `ancestor` or lies below it.
bool isSameOrBelow(std::string_view path, std::string_view ancestor);
// The world bounds of the drawn prims at or below any of `paths` (empty when none is drawn): what
// "frame selected" frames.
Bounds boundsOfPaths(const Scene& scene, std::span<const std::string> paths);

// A composed stage with the editor's unsaved previews over it, and the scene drawn of both.
class SceneModel {
 public:
  explicit SceneModel(std::shared_ptr<const Stage> stage = nullptr, Tessellation detail = {});

  // A new revision of the stage; the previews stay until they are cleared.
  void setStage(std::shared_ptr<const Stage> stage, Tessellation detail);
  // The same with `built`, the scene of `stage` without previews, drawn up elsewhere (on a thread
  // that reads scenes): it is taken as it is when only transforms are previewed (they move their
  // objects), else the scene is rebuilt with the previews.
  void setStage(std::shared_ptr<const Stage> stage, Tessellation detail, Scene built);
  // Shows `valueText` (the editor's form: "1.5", "0.2,0.4,1", a path for a binding) for a
  // component property of the prim at `path` until it is cleared. The reason when it cannot be
  // shown: an unknown property, a value that does not read, no such prim.
  std::optional<std::string> applyPreview(const std::string& path, std::string_view componentType,
                                          std::string_view propertyName,
                                          std::string_view valueText);
  void clearPreview(const std::string& path, std::string_view componentType,
                    std::string_view propertyName);
  void clearPreviews();

  // The scene, rebuilt when the stage or a preview changed since the last call. A previewed
  // transform (a gizmo drag) only moves the prims below it: their objects get new world matrices
  // and bounds, and the scene is not rebuilt.
  const Scene& scene();
  // Counts rebuilds: a caller uploads the scene again only when it changed.
  std::uint64_t revision() const { return revision_; }
  // Counts moves since the last rebuild, and the objects (indices into Scene::objects) they
  // moved: a caller sends those again (ViewportRenderer::moveObjects) when the count changed.
  std::uint64_t moveRevision() const { return moveRevision_; }
  const std::vector<std::size_t>& movedObjects() const { return movedObjects_; }
  const Stage* stage() const { return stage_.get(); }
  const PreviewValues& previews() const { return previews_; }
  std::optional<GizmoTarget> gizmoTarget(const std::string& path) const {
    return stage_ != nullptr ? gizmoTargetOf(*stage_, path, previews_) : std::nullopt;
  }

 private:
  std::shared_ptr<const Stage> stage_;
  Tessellation detail_;
  void rebuild();
  // False when the moves reach something only a rebuild shows (a light, a number that is not
  // finite).
  bool moveObjects();

  PreviewValues previews_;
  Scene scene_;
  bool dirty_ = true;
  std::uint64_t revision_ = 0;
  std::set<std::string> movedPrims_;  // prims whose transform preview changed since scene()
  std::unordered_map<std::string, std::size_t> objectByPath_;
  std::vector<std::size_t> movedObjects_;
  std::uint64_t moveRevision_ = 0;
};

}  // namespace orvan::engine
