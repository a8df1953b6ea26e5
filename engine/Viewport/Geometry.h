#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <glm/glm.hpp>

namespace orvan::engine {

// Triangles in a prim's own space: one normal per position, three indices per triangle, and
// either no colours (the prim's one colour) or one per position.
struct TriangleMesh {
  std::vector<glm::vec3> positions;
  std::vector<glm::vec3> normals;
  std::vector<std::uint32_t> indices;
  std::vector<glm::vec3> colors;

  std::size_t triangleCount() const { return indices.size() / 3; }
};

struct Bounds {
  glm::vec3 min{std::numeric_limits<float>::max()};
  glm::vec3 max{std::numeric_limits<float>::lowest()};

  bool empty() const { return min.x > max.x; }
  void add(const glm::vec3& point) {
    min = glm::min(min, point);
    max = glm::max(max, point);
  }
  void add(const Bounds& other) {
    if (!other.empty()) {
      add(other.min);
      add(other.max);
    }
  }
  glm::vec3 centre() const { return (min + max) * 0.5f; }
};

// The axis a round shape or a plane is built along (its height, or its normal for a plane).
enum class ShapeAxis : std::uint8_t { X, Y, Z };
std::optional<ShapeAxis> parseShapeAxis(std::string_view token);

// How finely round shapes are cut: segments around the axis and rings from pole to pole.
struct Tessellation {
  int segments = 32;
  int rings = 16;
};

// Finer for a few prims, coarser for many, so that a large scene stays drawable in software:
// 32 × 16 up to 1,000 prims, 16 × 8 up to 10,000, 8 × 4 beyond.
Tessellation tessellationForPrimCount(std::size_t primCount);

TriangleMesh tessellateCube(float size);
TriangleMesh tessellateSphere(float radius, const Tessellation& detail = {});
TriangleMesh tessellateCylinder(float height, float radius, ShapeAxis axis,
                                const Tessellation& detail = {});
TriangleMesh tessellateCone(float height, float radius, ShapeAxis axis,
                            const Tessellation& detail = {});
// A cylinder of `height` capped by two half spheres: the whole shape is height + 2 * radius long.
TriangleMesh tessellateCapsule(float height, float radius, ShapeAxis axis,
                               const Tessellation& detail = {});
// Two-sided: `width` along the first other axis, `length` along the second.
TriangleMesh tessellatePlane(float width, float length, ShapeAxis axis);

// A polygon mesh as authored: faces are fanned into triangles. Normals, when given, are one per
// point or one per face-vertex; otherwise each triangle gets its face normal. Colours, when
// given, are one per point, one per face-vertex or one per face (told apart by their count, in
// that order); any other count leaves the mesh one colour. Fails with the reason on counts and
// indices that do not fit the points.
struct MeshInput {
  std::span<const glm::vec3> points;
  std::span<const int> faceVertexCounts;
  std::span<const int> faceVertexIndices;
  std::span<const glm::vec3> normals;
  std::span<const glm::vec3> colors = {};
};
struct MeshBuildResult {
  TriangleMesh mesh;
  std::string error;  // empty on success
};
MeshBuildResult triangulateMesh(const MeshInput& input);

Bounds meshBounds(const TriangleMesh& mesh, const glm::mat4& transform);

}  // namespace orvan::engine
