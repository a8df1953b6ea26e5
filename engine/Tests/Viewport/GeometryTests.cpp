#include <gtest/gtest.h>

#include <glm/gtc/matrix_transform.hpp>

#include "Viewport/Geometry.h"
#include "Viewport/Transform.h"

namespace orvan::engine {
namespace {

void expectNear(const glm::vec3& actual, const glm::vec3& expected, float tolerance = 1e-4f) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

// Every triangle of a closed shape around its centre: wound counter-clockwise seen from outside,
// and its vertex normals unit length and pointing the way the triangle faces.
void expectOutwardAndConsistent(const TriangleMesh& mesh, const std::string& name) {
  ASSERT_EQ(mesh.positions.size(), mesh.normals.size()) << name;
  ASSERT_EQ(mesh.indices.size() % 3, 0u) << name;
  const glm::vec3 centre = meshBounds(mesh, glm::mat4(1.0f)).centre();
  int checked = 0;
  for (std::size_t i = 0; i < mesh.indices.size(); i += 3) {
    const glm::vec3& a = mesh.positions[mesh.indices[i]];
    const glm::vec3& b = mesh.positions[mesh.indices[i + 1]];
    const glm::vec3& c = mesh.positions[mesh.indices[i + 2]];
    const glm::vec3 face = glm::cross(b - a, c - a);
    if (glm::length(face) < 1e-7f) {
      continue;  // the degenerate triangles at a pole
    }
    ++checked;
    const glm::vec3 middle = (a + b + c) / 3.0f;
    ASSERT_GT(glm::dot(face, middle - centre), 0.0f) << name << ": triangle " << i / 3;
    for (std::size_t k = 0; k < 3; ++k) {
      const glm::vec3& n = mesh.normals[mesh.indices[i + k]];
      ASSERT_NEAR(glm::length(n), 1.0f, 1e-4f) << name;
      ASSERT_GT(glm::dot(n, face), 0.0f) << name << ": triangle " << i / 3;
    }
  }
  EXPECT_GT(checked, 0) << name;
}

TEST(ViewportTessellation, ClosedShapesFaceOutwardWithMatchingNormals) {
  const Tessellation detail{12, 8};
  expectOutwardAndConsistent(tessellateCube(2), "cube");
  expectOutwardAndConsistent(tessellateSphere(1, detail), "sphere");
  for (const ShapeAxis axis : {ShapeAxis::X, ShapeAxis::Y, ShapeAxis::Z}) {
    const std::string suffix = " axis " + std::to_string(static_cast<int>(axis));
    expectOutwardAndConsistent(tessellateCylinder(2, 0.5f, axis, detail), "cylinder" + suffix);
    expectOutwardAndConsistent(tessellateCone(2, 0.5f, axis, detail), "cone" + suffix);
    expectOutwardAndConsistent(tessellateCapsule(2, 0.5f, axis, detail), "capsule" + suffix);
  }
}

TEST(ViewportTessellation, LargerScenesGetCoarserRoundShapes) {
  const std::size_t counts[] = {1, 1'000, 1'001, 10'000, 10'001, 5'000'000};
  std::size_t previous = tessellateSphere(1, tessellationForPrimCount(0)).triangleCount();
  for (const std::size_t count : counts) {
    const Tessellation detail = tessellationForPrimCount(count);
    const std::size_t triangles = tessellateSphere(1, detail).triangleCount();
    EXPECT_LE(triangles, previous) << count;
    EXPECT_GE(detail.segments, 8) << count;  // still round enough to read as a sphere
    EXPECT_GE(detail.rings, 4) << count;
    previous = triangles;
  }
  EXPECT_LT(previous, tessellateSphere(1, tessellationForPrimCount(1)).triangleCount());
}

TEST(ViewportTessellation, ShapesHaveTheirAuthoredExtentsAlongTheirAxis) {
  const Bounds cube = meshBounds(tessellateCube(3), glm::mat4(1.0f));
  expectNear(cube.min, glm::vec3(-1.5f));
  expectNear(cube.max, glm::vec3(1.5f));
  EXPECT_EQ(tessellateCube(1).triangleCount(), 12u);

  const Bounds sphere = meshBounds(tessellateSphere(0.75f), glm::mat4(1.0f));
  expectNear(sphere.min, glm::vec3(-0.75f), 1e-3f);
  expectNear(sphere.max, glm::vec3(0.75f), 1e-3f);

  // Height 4 along the axis, radius 1 across it; a capsule adds its caps' radius at each end.
  const Bounds cylinderX = meshBounds(tessellateCylinder(4, 1, ShapeAxis::X), glm::mat4(1.0f));
  expectNear(cylinderX.min, glm::vec3(-2, -1, -1), 1e-3f);
  expectNear(cylinderX.max, glm::vec3(2, 1, 1), 1e-3f);
  const Bounds coneZ = meshBounds(tessellateCone(4, 1, ShapeAxis::Z), glm::mat4(1.0f));
  expectNear(coneZ.min, glm::vec3(-1, -1, -2), 1e-3f);
  expectNear(coneZ.max, glm::vec3(1, 1, 2), 1e-3f);
  const Bounds capsuleY = meshBounds(tessellateCapsule(4, 1, ShapeAxis::Y), glm::mat4(1.0f));
  expectNear(capsuleY.min, glm::vec3(-1, -3, -1), 1e-3f);
  expectNear(capsuleY.max, glm::vec3(1, 3, 1), 1e-3f);

  // A plane: width along the first other axis, length along the second, flat on its axis.
  struct PlaneCase {
    ShapeAxis axis;
    glm::vec3 half;
    glm::vec3 normal;
  };
  for (const PlaneCase& c : {PlaneCase{ShapeAxis::X, {0, 2, 1}, {1, 0, 0}},
                             PlaneCase{ShapeAxis::Y, {1, 0, 2}, {0, 1, 0}},
                             PlaneCase{ShapeAxis::Z, {1, 2, 0}, {0, 0, 1}}}) {
    const TriangleMesh plane = tessellatePlane(2, 4, c.axis);
    const Bounds bounds = meshBounds(plane, glm::mat4(1.0f));
    expectNear(bounds.max, c.half);
    expectNear(bounds.min, -c.half);
    expectNear(plane.normals.front(), c.normal);
  }
}

TEST(ViewportTessellation, MeshesAreFannedIntoTrianglesWithTheirNormals) {
  const std::vector<glm::vec3> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}};
  const std::vector<int> counts = {4, 3};
  const std::vector<int> indices = {0, 1, 2, 3, 1, 4, 2};

  // Without normals each face gets its own, from its winding: counter-clockwise seen from +Z.
  const MeshBuildResult flat = triangulateMesh({points, counts, indices, {}});
  ASSERT_TRUE(flat.error.empty()) << flat.error;
  EXPECT_EQ(flat.mesh.triangleCount(), 3u);
  ASSERT_EQ(flat.mesh.normals.size(), 7u);
  for (const glm::vec3& n : flat.mesh.normals) {
    expectNear(n, glm::vec3(0, 0, 1));
  }
  expectNear(flat.mesh.positions[flat.mesh.indices[8]], glm::vec3(1, 1, 0));

  // One normal per point follows the point; one per face-vertex follows the corner.
  std::vector<glm::vec3> perPoint(points.size(), glm::vec3(0, 0, -1));
  perPoint[4] = glm::vec3(1, 0, 0);
  const MeshBuildResult byPoint = triangulateMesh({points, counts, indices, perPoint});
  ASSERT_TRUE(byPoint.error.empty());
  expectNear(byPoint.mesh.normals[5], glm::vec3(1, 0, 0));
  expectNear(byPoint.mesh.normals[0], glm::vec3(0, 0, -1));
  std::vector<glm::vec3> perCorner(indices.size(), glm::vec3(0, 1, 0));
  perCorner[6] = glm::vec3(0, -1, 0);
  const MeshBuildResult byCorner = triangulateMesh({points, counts, indices, perCorner});
  expectNear(byCorner.mesh.normals[6], glm::vec3(0, -1, 0));
  expectNear(byCorner.mesh.normals[5], glm::vec3(0, 1, 0));
}

TEST(ViewportTessellation, MeshColoursFollowPointsCornersOrFacesByTheirCount) {
  const std::vector<glm::vec3> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}};
  const std::vector<int> counts = {4, 3};
  const std::vector<int> indices = {0, 1, 2, 3, 1, 4, 2};
  const glm::vec3 red(1, 0, 0);
  const glm::vec3 blue(0, 0, 1);
  // Per face: the quad's four corners red, the triangle's three blue.
  const std::vector<glm::vec3> perFace = {red, blue};
  const MeshBuildResult byFace = triangulateMesh({points, counts, indices, {}, perFace});
  ASSERT_EQ(byFace.mesh.colors.size(), 7u);
  expectNear(byFace.mesh.colors[3], red);
  expectNear(byFace.mesh.colors[4], blue);
  // Per point: the triangle's second corner is point 4.
  std::vector<glm::vec3> perPoint(points.size(), red);
  perPoint[4] = blue;
  const MeshBuildResult byPoint = triangulateMesh({points, counts, indices, {}, perPoint});
  expectNear(byPoint.mesh.colors[5], blue);
  expectNear(byPoint.mesh.colors[4], red);  // point 1 again
  // Per corner.
  std::vector<glm::vec3> perCorner(indices.size(), red);
  perCorner[6] = blue;
  const MeshBuildResult byCorner = triangulateMesh({points, counts, indices, {}, perCorner});
  expectNear(byCorner.mesh.colors[6], blue);
  expectNear(byCorner.mesh.colors[2], red);
  // One colour, or a count that fits nothing: the prim's one colour.
  const std::vector<glm::vec3> one = {red};
  EXPECT_TRUE(triangulateMesh({points, counts, indices, {}, one}).mesh.colors.empty());
  const std::vector<glm::vec3> three = {red, red, blue};
  EXPECT_TRUE(triangulateMesh({points, counts, indices, {}, three}).mesh.colors.empty());
}

TEST(ViewportTessellation, MeshesThatDoNotFitTheirPointsAreRefusedWithTheReason) {
  const std::vector<glm::vec3> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}};
  struct Case {
    std::vector<int> counts;
    std::vector<int> indices;
    std::string reason;
  };
  for (const Case& c : {Case{{3}, {0, 1, 3}, "the vertex index 3 is outside the 3 points"},
                        Case{{3}, {0, -1, 2}, "the vertex index -1 is outside the 3 points"},
                        Case{{4}, {0, 1, 2}, "the face counts add up to 4 vertices but 3"},
                        Case{{2, 1}, {0, 1, 2}, "a face has 2 vertices"}}) {
    const MeshBuildResult result = triangulateMesh({points, c.counts, c.indices, {}});
    EXPECT_NE(result.error.find(c.reason), std::string::npos) << result.error;
    EXPECT_TRUE(result.mesh.indices.empty());
  }
}

TEST(ViewportTransform, RotationTurnsAboutXThenYThenZ) {
  // (0, 1, 0) about X by 90 goes to +Z, then about Y by 90 to +X. The other order keeps it at +Z.
  const glm::vec3 turned = glm::vec3(rotationXYZ({90, 90, 0}) * glm::vec4(0, 1, 0, 1));
  expectNear(turned, glm::vec3(1, 0, 0));
  const glm::vec3 aboutZ = glm::vec3(rotationXYZ({0, 0, 90}) * glm::vec4(1, 0, 0, 1));
  expectNear(aboutZ, glm::vec3(0, 1, 0));
}

TEST(ViewportTransform, OperationsApplyInTheirListedOrder) {
  TransformOps ops;
  ops.translate = {10, 0, 0};
  ops.rotateXYZ = {0, 90, 0};
  ops.scale = {2, 2, 2};
  // Default order: scale, then rotate, then translate the point.
  const glm::vec3 standard = glm::vec3(localTransform(ops, {}) * glm::vec4(1, 0, 0, 1));
  expectNear(standard, glm::vec3(10, 0, -2));
  // Listed as scale then translate, the translation is scaled too.
  const TransformOp scaleFirst[] = {TransformOp::Scale, TransformOp::Translate};
  const glm::vec3 scaled = glm::vec3(localTransform(ops, scaleFirst) * glm::vec4(1, 0, 0, 1));
  expectNear(scaled, glm::vec3(22, 0, 0));
}

}  // namespace
}  // namespace orvan::engine
