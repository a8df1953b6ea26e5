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
  EXPECT_FLOAT_EQ(cube->roughness, 0.3f);
  EXPECT_FLOAT_EQ(cube->metallic, 0.0f);
  EXPECT_NE(objectAt(scene, "/World/Ground"), nullptr);
  EXPECT_NE(objectAt(scene, "/World/BlueSphere"), nullptr);
  // The lamp post's parts come in through its reference; its glow is a point light at the bulb.
  EXPECT_NE(objectAt(scene, "/World/LampPost/Pole"), nullptr);
  EXPECT_NE(objectAt(scene, "/World/LampPost/Bulb"), nullptr);
  ASSERT_EQ(scene.lights.size(), 2u);
  EXPECT_EQ(scene.lights[0].kind, LightKind::distant);
  EXPECT_EQ(scene.lights[1].kind, LightKind::point);
  expectNear(scene.lights[1].position, glm::vec3(4.5f, 3.1f, -2.5f));
  expectNear(scene.lights[1].radiance, glm::vec3(20, 17, 12), 1e-3f);
  for (const SceneObject& object : scene.objects) {
    EXPECT_FALSE(object.path.starts_with("/World/OrvanAssets")) << object.path;
  }
}

TEST(ViewportScene, SurfacesComeFromTheNearestBoundMaterialsConnectedShader) {
  const auto stage = stageOf(worldText(R"(
  def Xform "Group" {
    rel material:binding = </Looks/Gold>
    def Sphere "Inherits" { color3f[] primvars:displayColor = [(0, 0, 1)] }
    def Sphere "Own" { rel material:binding = </Looks/Plastic> }
    def Sphere "Unbound" { rel material:binding = None }
  }
)") + R"(
def Scope "Looks" {
  def Material "Gold" {
    token outputs:surface.connect = </Looks/Gold/Preview.outputs:surface>
    def Shader "Unused" { color3f inputs:diffuseColor = (0, 1, 0) }
    def Shader "Preview" {
      color3f inputs:diffuseColor = (1, 0.8, 0.3)
      float inputs:roughness = 0.2
      float inputs:metallic = 1
    }
  }
  def Material "Plastic" {
    def Shader "Surface" {
      color3f inputs:diffuseColor = (0.1, 0.2, 0.3)
      float inputs:roughness = 7
    }
  }
}
)");
  const Scene scene = buildScene(*stage);
  const SceneObject* inherits = objectAt(scene, "/World/Group/Inherits");
  ASSERT_NE(inherits, nullptr);
  expectNear(inherits->color, glm::vec3(1, 0.8f, 0.3f));
  EXPECT_FLOAT_EQ(inherits->roughness, 0.2f);
  EXPECT_FLOAT_EQ(inherits->metallic, 1.0f);
  const SceneObject* own = objectAt(scene, "/World/Group/Own");
  expectNear(own->color, glm::vec3(0.1f, 0.2f, 0.3f));
  EXPECT_FLOAT_EQ(own->roughness, 1.0f);  // kept within 0..1
  EXPECT_FLOAT_EQ(own->metallic, 0.0f);
  // A binding to nothing stops the inherited one: grey.
  expectNear(objectAt(scene, "/World/Group/Unbound")->color, glm::vec3(0.5f));
}

TEST(ViewportScene, PointAreaAndDomeLightsAreReadWithExposure) {
  const auto stage = stageOf(worldText(R"(
  def Xform "Rig" {
    double3 xformOp:translate = (0, 2, 0)
    uniform token[] xformOpOrder = ["xformOp:translate"]
    def SphereLight "Bulb" {
      color3f inputs:color = (1, 0.5, 0.5)
      float inputs:intensity = 4
      float inputs:exposure = 1
      float inputs:radius = 0.25
      double3 xformOp:translate = (1, 0, 0)
      uniform token[] xformOpOrder = ["xformOp:translate"]
    }
    def RectLight "Panel" { float inputs:intensity = 2 }
  }
  def DomeLight "Sky" { color3f inputs:color = (0.2, 0.3, 0.4) }
  def SphereLight "Off" { custom bool orvan:light:enabled = false }
)"));
  const Scene scene = buildScene(*stage);
  ASSERT_EQ(scene.lights.size(), 3u);
  EXPECT_EQ(scene.lights[0].kind, LightKind::point);
  expectNear(scene.lights[0].position, glm::vec3(1, 2, 0));
  expectNear(scene.lights[0].radiance, glm::vec3(8, 4, 4));
  EXPECT_FLOAT_EQ(scene.lights[0].radius, 0.25f);
  EXPECT_EQ(scene.lights[1].kind, LightKind::point);
  expectNear(scene.lights[1].position, glm::vec3(0, 2, 0));
  EXPECT_EQ(scene.lights[2].kind, LightKind::dome);
  expectNear(scene.lights[2].radiance, glm::vec3(0.2f, 0.3f, 0.4f));
}

TEST(ViewportScene, PreviewsShowOverTheStageUntilCleared) {
  const auto stage = stageOf(worldText(cubeText("Box", "(1, 0, 0)") + R"(
  def Sphere "Ball" {
    rel material:binding = </World/Looks/Red>
  }
  def Cone "Spike" { }
  def Xform "Plain" { def Cube "Child" { double size = 1 } }
  def Scope "Looks" {
    def Material "Red" { def Shader "Surface" { color3f inputs:diffuseColor = (1, 0, 0) } }
    def Material "Blue" { def Shader "Surface" { color3f inputs:diffuseColor = (0, 0, 1) } }
  }
)"));
  SceneModel model(stage);
  EXPECT_EQ(model.scene().objects.size(), 4u);
  const std::uint64_t first = model.revision();
  model.scene();
  EXPECT_EQ(model.revision(), first);  // nothing changed: not rebuilt

  EXPECT_FALSE(model.applyPreview("/World/Box", "Transform", "translation", "3,2,1"));
  EXPECT_FALSE(model.applyPreview("/World/Box", "RenderShape", "color", "0, 1, 0"));
  EXPECT_FALSE(model.applyPreview("/World/Looks/Red", "Material", "roughness", "0.9"));
  EXPECT_FALSE(model.applyPreview("/World/Spike", "RenderShape", "dimensions", "4,3,2"));
  // An operation the prim does not list yet takes its place in the order, as saving it will.
  EXPECT_FALSE(model.applyPreview("/World/Plain", "Transform", "scale", "2,2,2"));
  const Scene& previewed = model.scene();
  EXPECT_GT(model.revision(), first);
  const SceneObject* box = objectAt(previewed, "/World/Box");
  expectNear(glm::vec3(box->world[3]), glm::vec3(3, 2, 1));
  expectNear(box->color, glm::vec3(0, 1, 0));
  EXPECT_FLOAT_EQ(objectAt(previewed, "/World/Ball")->roughness, 0.9f);
  const SceneObject* spike = objectAt(previewed, "/World/Spike");
  expectNear(spike->bounds.max - spike->bounds.min, glm::vec3(4, 3, 4));
  const SceneObject* child = objectAt(previewed, "/World/Plain/Child");
  expectNear(child->bounds.max - child->bounds.min, glm::vec3(2, 2, 2));

  EXPECT_FALSE(
      model.applyPreview("/World/Ball", "MaterialBinding", "material", "/World/Looks/Blue"));
  expectNear(objectAt(model.scene(), "/World/Ball")->color, glm::vec3(0, 0, 1));

  // Refused with the reason, and nothing else changes.
  const std::uint64_t before = model.revision();
  EXPECT_NE(
      model.applyPreview("/World/Box", "Transform", "translation", "1,2")->find("not a value"),
      std::string::npos);
  EXPECT_NE(model.applyPreview("/World/Gone", "Transform", "translation", "1,2,3")->find("no prim"),
            std::string::npos);
  EXPECT_NE(model.applyPreview("/World/Box", "Transform", "translation", "1,x,3"), std::nullopt);
  EXPECT_NE(model.applyPreview("/World/Box", "Transform", "translation", "nan,0,0"), std::nullopt);
  EXPECT_NE(model.applyPreview("/World/Box", "AudioSource", "volume", "1"), std::nullopt);
  EXPECT_NE(model.applyPreview("/World/Spike", "RenderShape", "dimensions", "1,-1,1"),
            std::nullopt);
  model.scene();
  EXPECT_EQ(model.revision(), before);

  model.clearPreview("/World/Box", "Transform", "translation");
  model.clearPreview("/World/Spike", "RenderShape", "dimensions");
  model.clearPreview("/World/Looks/Red", "Material", "roughness");
  const Scene& cleared = model.scene();
  expectNear(glm::vec3(objectAt(cleared, "/World/Box")->world[3]), glm::vec3(1, 0, 0));
  expectNear(objectAt(cleared, "/World/Box")->color, glm::vec3(0, 1, 0));  // still previewed
  EXPECT_FLOAT_EQ(objectAt(cleared, "/World/Ball")->roughness, 0.5f);      // the shader's default
  EXPECT_FLOAT_EQ(objectAt(cleared, "/World/Box")->roughness, 0.8f);       // no material: matte
  const SceneObject* plainSpike = objectAt(cleared, "/World/Spike");
  expectNear(plainSpike->bounds.max - plainSpike->bounds.min, glm::vec3(2, 2, 2));

  // A new revision of the stage keeps the previews; clearing them all brings the stage back.
  model.setStage(stage, {});
  expectNear(objectAt(model.scene(), "/World/Box")->color, glm::vec3(0, 1, 0));
  model.clearPreviews();
  expectNear(objectAt(model.scene(), "/World/Box")->color, glm::vec3(0.9f, 0.1f, 0.1f));
}

TEST(ViewportScene, TheGizmoTargetHoldsTheParentChainAndThePrimsOwnValues) {
  const auto stage = stageOf(worldText(R"(
  def Xform "Group" {
    double3 xformOp:translate = (1, 2, 3)
    float3 xformOp:rotateXYZ = (0, 0, 90)
    uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:rotateXYZ"]
    def Cube "Box" {
      double3 xformOp:translate = (4, 0, 0)
      float3 xformOp:scale = (2, 2, 2)
      uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:scale"]
    }
  }
)"));
  SceneModel model(stage);
  ASSERT_FALSE(model.applyPreview("/World/Group/Box", "Transform", "rotation", "0,45,0"));
  const auto target = model.gizmoTarget("/World/Group/Box");
  ASSERT_TRUE(target);
  EXPECT_EQ(target->translation, glm::dvec3(4, 0, 0));
  EXPECT_EQ(target->rotation, glm::dvec3(0, 45, 0));
  EXPECT_EQ(target->scale, glm::dvec3(2, 2, 2));
  // The gizmo's origin is where the box is drawn.
  const glm::dvec3 origin(target->parentWorld * glm::dvec4(target->translation, 1.0));
  expectNear(glm::vec3(origin), glm::vec3(1, 6, 3));
  expectNear(glm::vec3(objectAt(model.scene(), "/World/Group/Box")->world[3]), glm::vec3(1, 6, 3));
  EXPECT_FALSE(model.gizmoTarget("/World/Nothing"));
}

TEST(ViewportScene, ATransformPreviewMovesTheSubtreeWithoutARebuild) {
  const auto stage = stageOf(worldText(cubeText("Still", "(5, 0, 0)") + R"(
  def Xform "Group" {
    float3 xformOp:rotateXYZ = (0, 0, 90)
    uniform token[] xformOpOrder = ["xformOp:rotateXYZ"]
)" + cubeText("Box", "(1, 0, 0)") + R"(
    def Xform "Inner" {
      def Sphere "Ball" { double radius = 0.5 }
    }
  }
  def Xform "Rig" { def SphereLight "Lamp" { } def Cube "Shade" { } }
)"));
  SceneModel model(stage);
  model.scene();
  const std::uint64_t built = model.revision();
  ASSERT_FALSE(model.applyPreview("/World/Group", "Transform", "translation", "0,3,0"));
  ASSERT_FALSE(model.applyPreview("/World/Group/Box", "Transform", "scale", "2,2,2"));
  const Scene& moved = model.scene();
  EXPECT_EQ(model.revision(), built);
  EXPECT_EQ(model.moveRevision(), 1u);
  // What a rebuild with the same previews gives, object for object.
  PreviewValues previews;
  previews.numbers[{"/World/Group", "xformOp:translate"}] = {0, 3, 0};
  previews.numbers[{"/World/Group/Box", "xformOp:scale"}] = {2, 2, 2};
  const Scene rebuilt = buildScene(*stage, {}, previews);
  ASSERT_EQ(moved.objects.size(), rebuilt.objects.size());
  for (std::size_t i = 0; i < moved.objects.size(); ++i) {
    for (int column = 0; column < 4; ++column) {
      expectNear(glm::vec3(moved.objects[i].world[column]),
                 glm::vec3(rebuilt.objects[i].world[column]));
    }
    expectNear(moved.objects[i].bounds.min, rebuilt.objects[i].bounds.min);
  }
  expectNear(moved.bounds.max, rebuilt.bounds.max);
  std::vector<std::string> movedPaths;
  for (const std::size_t i : model.movedObjects()) {
    movedPaths.push_back(moved.objects[i].path);
  }
  EXPECT_EQ(movedPaths, (std::vector<std::string>{"/World/Group/Box", "/World/Group/Inner/Ball"}));
  expectNear(glm::vec3(objectAt(moved, "/World/Group/Box")->world[3]), glm::vec3(0, 4, 0));

  // Clearing the preview moves it back, still without a rebuild.
  model.clearPreview("/World/Group", "Transform", "translation");
  expectNear(glm::vec3(objectAt(model.scene(), "/World/Group/Box")->world[3]), glm::vec3(0, 1, 0));
  EXPECT_EQ(model.revision(), built);
  EXPECT_EQ(model.moveRevision(), 2u);
  // A light moves only with a rebuild, which starts the moves over.
  ASSERT_FALSE(model.applyPreview("/World/Rig", "Transform", "translation", "0,1,0"));
  model.scene();
  EXPECT_EQ(model.revision(), built + 1);
  EXPECT_EQ(model.moveRevision(), 0u);
  EXPECT_TRUE(model.movedObjects().empty());
  // A value that is not finite is refused before it moves anything.
  EXPECT_TRUE(model.applyPreview("/World/Group", "Transform", "translation", "inf,0,0"));
}

TEST(ViewportScene, BoundsOfPathsTakeTheWholeSubtreeAndNothingElse) {
  const auto stage = stageOf(worldText(cubeText("A", "(0, 0, 0)") + cubeText("AB", "(5, 0, 0)") +
                                       R"(
  def Xform "Group" {
    double3 xformOp:translate = (0, 10, 0)
    uniform token[] xformOpOrder = ["xformOp:translate"]
    def Cube "One" { double size = 1 }
    def Cube "Two" { double size = 1
      double3 xformOp:translate = (2, 0, 0)
      uniform token[] xformOpOrder = ["xformOp:translate"] }
  }
)"));
  const Scene scene = buildScene(*stage);
  const std::vector<std::string> a{"/World/A"};
  const Bounds justA = boundsOfPaths(scene, a);
  expectNear(justA.min, glm::vec3(-0.5f));
  expectNear(justA.max, glm::vec3(0.5f));  // "/World/AB" is not below "/World/A"
  const std::vector<std::string> group{"/World/Group"};
  const Bounds both = boundsOfPaths(scene, group);
  expectNear(both.min, glm::vec3(-0.5f, 9.5f, -0.5f));
  expectNear(both.max, glm::vec3(2.5f, 10.5f, 0.5f));
  const std::vector<std::string> none{"/World/Missing"};
  EXPECT_TRUE(boundsOfPaths(scene, none).empty());
  EXPECT_TRUE(isSameOrBelow("/World/A", "/World/A"));
  EXPECT_TRUE(isSameOrBelow("/World/A/B", "/"));
  EXPECT_FALSE(isSameOrBelow("/World/AB", "/World/A"));
}

}  // namespace
}  // namespace orvan::engine
