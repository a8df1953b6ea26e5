#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "StageText.h"
#include "UsdText/StageComposer.h"
#include "Viewport/SceneModel.h"

namespace orvan::engine {
namespace {

using testing::cubeText;
using testing::stageOf;
using testing::worldText;

const SceneObject* objectAt(const Scene& scene, std::string_view path) {
  const auto found = std::find_if(scene.objects.begin(), scene.objects.end(),
                                  [&](const SceneObject& o) { return o.path == path; });
  return found != scene.objects.end() ? &*found : nullptr;
}

void expectNear(const glm::vec3& actual, const glm::vec3& expected, float tolerance = 1e-4f) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

TEST(ViewportScene, WorldTransformsFollowTheParentChain) {
  const auto stage = stageOf(R"(
def Xform "World" {
  def Xform "Group" {
    double3 xformOp:translate = (1, 2, 3)
    float3 xformOp:scale = (2, 2, 2)
    uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:scale"]
    def Cube "Box" {
      double size = 1
      double3 xformOp:translate = (1, 0, 0)
      float3 xformOp:rotateXYZ = (0, 0, 90)
      uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:rotateXYZ"]
    }
  }
}
)");
  const Scene scene = buildScene(*stage);
  const SceneObject* box = objectAt(scene, "/World/Group/Box");
  ASSERT_NE(box, nullptr);
  // The box's origin: (1, 0, 0) scaled by 2 and moved by (1, 2, 3).
  expectNear(glm::vec3(box->world * glm::vec4(0, 0, 0, 1)), glm::vec3(3, 2, 3));
  // Its local +X turns to +Y, then doubles.
  expectNear(glm::vec3(box->world * glm::vec4(1, 0, 0, 0)), glm::vec3(0, 2, 0));
  expectNear(box->bounds.min, glm::vec3(2, 1, 2));
  expectNear(box->bounds.max, glm::vec3(4, 3, 4));
  expectNear(scene.bounds.max, glm::vec3(4, 3, 4));
}

TEST(ViewportScene, ColourComesFromTheBoundSurfaceThenTheDisplayColourThenGrey) {
  const auto stage = stageOf(worldText(R"(
  def Sphere "Bound" {
    color3f[] primvars:displayColor = [(1, 0, 0)]
    rel material:binding = </Looks/Green>
  }
  def Sphere "BindingOff" {
    color3f[] primvars:displayColor = [(1, 0, 0)]
    rel material:binding = </Looks/Green>
    custom bool orvan:materialBinding:enabled = false
  }
  def Sphere "Coloured" {
    color3f[] primvars:displayColor = [(0, 0, 1)]
  }
  def Sphere "Plain" {
  }
  def Sphere "BrokenBinding" {
    color3f[] primvars:displayColor = [(0, 1, 1)]
    rel material:binding = </Looks/Missing>
  }
)") + R"(
def Scope "Looks" {
  def Material "Green" {
    def Shader "Surface" {
      color3f inputs:diffuseColor = (0, 0.8, 0)
    }
  }
}
)");
  const Scene scene = buildScene(*stage);
  ASSERT_EQ(scene.objects.size(), 5u);
  expectNear(objectAt(scene, "/World/Bound")->color, glm::vec3(0, 0.8f, 0));
  expectNear(objectAt(scene, "/World/BindingOff")->color, glm::vec3(1, 0, 0));
  expectNear(objectAt(scene, "/World/Coloured")->color, glm::vec3(0, 0, 1));
  expectNear(objectAt(scene, "/World/Plain")->color, glm::vec3(0.5f));
  expectNear(objectAt(scene, "/World/BrokenBinding")->color, glm::vec3(0, 1, 1));
  expectNear(scene.background, glm::vec3(0.05f));
  expectNear(scene.ambient, glm::vec3(0.3f));
}

TEST(ViewportScene, HiddenInactiveAbstractAndEngineOnlyPrimsAreNotDrawn) {
  const auto stage = stageOf(worldText(cubeText("Shown", "(0, 0, 0)") + R"(
  def Xform "Hidden" {
    token visibility = "invisible"
    def Cube "Inside" { }
  }
  def Cube "Inactive" (active = false) { }
  def Cube "ShapeOff" { custom bool orvan:renderShape:enabled = false }
  def Xform "Entity" {
    def Xform "OrvanComponents" { def Cube "Collider" { } }
  }
  def Scope "OrvanAssets" { def Scope "Meshes" { def Cube "Proxy" { } } }
  over "OnlyAnOver" { }
)") + R"(
class Xform "Template" { def Cube "Part" { } }
over "Elsewhere" { def Cube "UnderAnOver" { } }
)");
  const Scene scene = buildScene(*stage);
  ASSERT_EQ(scene.objects.size(), 1u);
  EXPECT_EQ(scene.objects.front().path, "/World/Shown");
}

TEST(ViewportScene, AMeshThatCannotBeBuiltIsAProblemAndTheRestIsDrawn) {
  const auto stage = stageOf(worldText(cubeText("Fine", "(0, 0, 0)") + R"(
  def Mesh "Broken" {
    point3f[] points = [(0, 0, 0), (1, 0, 0), (0, 1, 0)]
    int[] faceVertexCounts = [3]
    int[] faceVertexIndices = [0, 1, 7]
  }
  def Mesh "NoPoints" {
    int[] faceVertexCounts = [3]
  }
  def Mesh "Triangle" {
    point3f[] points = [(0, 0, 0), (1, 0, 0), (0, 1, 0)]
    int[] faceVertexCounts = [3]
    int[] faceVertexIndices = [0, 1, 2]
    color3f[] primvars:displayColor = [(0.2, 0.3, 0.4)]
  }
)"));
  const Scene scene = buildScene(*stage);
  EXPECT_NE(objectAt(scene, "/World/Fine"), nullptr);
  const SceneObject* triangle = objectAt(scene, "/World/Triangle");
  ASSERT_NE(triangle, nullptr);
  EXPECT_EQ(triangle->mesh.triangleCount(), 1u);
  ASSERT_EQ(scene.problems.size(), 2u);
  EXPECT_EQ(scene.problems[0].primPath, "/World/Broken");
  EXPECT_NE(scene.problems[0].message.find("the vertex index 7"), std::string::npos);
  EXPECT_EQ(scene.problems[1].primPath, "/World/NoPoints");
}

TEST(ViewportScene, NumbersThatAreNotFiniteLeaveThePrimOutWithAProblem) {
  const auto stage =
      stageOf(worldText(cubeText("Fine", "(0, 0, 0)") + cubeText("Nowhere", "(nan, 0, 0)") + R"(
  def Sphere "Endless" { double radius = inf }
  def Cube "Flat" { float3 xformOp:scale = (1, 0, 1)
                    uniform token[] xformOpOrder = ["xformOp:scale"] }
  def DistantLight "Broken" { float inputs:intensity = nan }
)"));
  const Scene scene = buildScene(*stage);
  ASSERT_EQ(scene.problems.size(), 2u);
  EXPECT_EQ(scene.problems[0].primPath, "/World/Nowhere");
  EXPECT_EQ(scene.problems[1].primPath, "/World/Endless");
  EXPECT_NE(scene.problems[0].message.find("not finite"), std::string::npos);
  // A prim squashed flat is still drawn; the scene's bounds stay usable for framing.
  EXPECT_NE(objectAt(scene, "/World/Flat"), nullptr);
  EXPECT_TRUE(std::isfinite(scene.bounds.max.x) && std::isfinite(scene.bounds.min.x));
  EXPECT_TRUE(scene.lights.empty());
}

TEST(ViewportScene, DistantLightsShineAlongTheirTurnedMinusZ) {
  const auto stage = stageOf(worldText(R"(
  def DistantLight "Sun" {
    color3f inputs:color = (1, 0.5, 0.25)
    float inputs:intensity = 2
    float3 xformOp:rotateXYZ = (-90, 0, 0)
    uniform token[] xformOpOrder = ["xformOp:rotateXYZ"]
  }
  def DistantLight "Off" { custom bool orvan:light:enabled = false }
)"));
  const Scene scene = buildScene(*stage);
  ASSERT_EQ(scene.lights.size(), 1u);
  expectNear(scene.lights[0].direction, glm::vec3(0, -1, 0));
  expectNear(scene.lights[0].radiance, glm::vec3(2, 1, 0.5f));
}

TEST(ViewportScene, TheDemoSceneHasItsShapesMaterialAndSun) {
  const StageOpenResult opened = openStage(ORVAN_DEMO_DIR "/hello_world.usda");
  ASSERT_TRUE(opened.ok());
  const Scene scene = buildScene(*opened.stage);
  EXPECT_TRUE(scene.problems.empty());
  const SceneObject* cube = objectAt(scene, "/World/RedCube");
  ASSERT_NE(cube, nullptr);
  expectNear(cube->color, glm::vec3(0.86f, 0.18f, 0.16f));
  EXPECT_NE(objectAt(scene, "/World/Ground"), nullptr);
  EXPECT_NE(objectAt(scene, "/World/BlueSphere"), nullptr);
  EXPECT_EQ(scene.lights.size(), 1u);
  for (const SceneObject& object : scene.objects) {
    EXPECT_FALSE(object.path.starts_with("/World/OrvanAssets")) << object.path;
  }
}

}  // namespace
}  // namespace orvan::engine
