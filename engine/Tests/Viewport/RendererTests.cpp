#include <gtest/gtest.h>

#include <cstdlib>

#include "StageText.h"
#include "Viewport/Gizmo.h"
#include "Viewport/Picking.h"
#include "Viewport/ViewportRenderer.h"

namespace orvan::engine {
namespace {

using testing::cubeText;
using testing::stageOf;
using testing::worldText;

constexpr int kWidth = 128;
constexpr int kHeight = 96;

RenderOverlays noGrid() {
  RenderOverlays overlays;
  overlays.grid = false;
  return overlays;
}

// One context for the whole suite: making one costs more than drawing. A machine without a
// software or hardware EGL fails every test here with the reason, never skips them.
class ViewportRendering : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ViewportRenderer::CreateResult created = ViewportRenderer::create();
    renderer_ = created.renderer.release();
    error_ = new std::string(created.error);
  }
  static void TearDownTestSuite() {
    delete renderer_;
    renderer_ = nullptr;
    delete error_;
  }
  void SetUp() override {
    ASSERT_NE(renderer_, nullptr)
        << *error_ << " — the viewport tests need an EGL driver (Mesa's libegl-mesa0 and "
        << "libgl1-mesa-dri give a software one)";
  }

  Frame draw(const Scene& scene, const OrbitCamera& camera, RenderOverlays overlays = noGrid()) {
    renderer_->setScene(scene);
    RenderResult result = renderer_->render(camera, kWidth, kHeight, overlays);
    EXPECT_TRUE(result.error.empty()) << result.error;
    EXPECT_EQ(result.frame.rgba.size(), static_cast<std::size_t>(kWidth * kHeight * 4));
    return std::move(result.frame);
  }

  static ViewportRenderer* renderer_;
  static std::string* error_;
};

ViewportRenderer* ViewportRendering::renderer_ = nullptr;
std::string* ViewportRendering::error_ = nullptr;

std::string describe(const glm::u8vec4& p) {
  return "(" + std::to_string(p.r) + ", " + std::to_string(p.g) + ", " + std::to_string(p.b) +
         ", " + std::to_string(p.a) + ")";
}

bool isBackground(const glm::u8vec4& p) {
  // The background (0.05, 0.05, 0.05) is 12 or 13 in 8 bits.
  return p.r >= 11 && p.r <= 14 && p.g >= 11 && p.g <= 14 && p.b >= 11 && p.b <= 14 && p.a == 255;
}

// Colours are linear and the frame is sRGB: a linear (0.9, 0.1, 0.1) shows as about
// (240, 90, 90), and lighting lifts the low channels further.
bool isRed(const glm::u8vec4& p) {
  return p.r > 150 && p.g + 80 < p.r && p.b + 80 < p.r;
}

const OrbitCamera kFront{glm::vec3(0.0f), 4.0f};

TEST_F(ViewportRendering, ARedCubeShowsRedAtTheCentreOnTheBackgroundColour) {
  const Scene scene = buildScene(*stageOf(worldText(cubeText("Cube", "(0, 0, 0)"))));
  const Frame frame = draw(scene, kFront);
  ASSERT_EQ(frame.width, kWidth);
  ASSERT_EQ(frame.height, kHeight);
  EXPECT_TRUE(isRed(frame.pixel(kWidth / 2, kHeight / 2))) << describe(frame.pixel(64, 48));
  for (const auto& [x, y] : {std::pair{0, 0}, std::pair{kWidth - 1, 0}, std::pair{0, kHeight - 1},
                             std::pair{kWidth - 1, kHeight - 1}}) {
    EXPECT_TRUE(isBackground(frame.pixel(x, y)))
        << x << ", " << y << ": " << describe(frame.pixel(x, y));
  }
  // What is drawn and what is picked agree: the cube at the centre, nothing in a corner.
  const auto hit = pickPixel(scene, kFront, kWidth, kHeight, kWidth / 2, kHeight / 2);
  ASSERT_TRUE(hit);
  EXPECT_EQ(hit->path, "/World/Cube");
  EXPECT_FALSE(pickPixel(scene, kFront, kWidth, kHeight, 0, 0));
}

TEST_F(ViewportRendering, MovingTheCubeMovesItsPixels) {
  const Frame before = draw(buildScene(*stageOf(worldText(cubeText("Cube", "(0, 0, 0)")))), kFront);
  // One unit up: at a distance of 4 with a 45° view that is well over a quarter of the height.
  const Frame after =
      draw(buildScene(*stageOf(worldText(cubeText("Cube", "(0, 1.2, 0)")))), kFront);
  EXPECT_NE(before.rgba, after.rgba);
  EXPECT_TRUE(isBackground(after.pixel(kWidth / 2, kHeight - 20)))
      << describe(after.pixel(kWidth / 2, kHeight - 20));
  EXPECT_TRUE(isRed(after.pixel(kWidth / 2, 15))) << describe(after.pixel(kWidth / 2, 15));
  EXPECT_TRUE(isBackground(before.pixel(kWidth / 2, 15))) << describe(before.pixel(kWidth / 2, 15));
}

TEST_F(ViewportRendering, TheNearerPrimHidesTheFartherAndLightsShadeTheFaces) {
  // A green cube in front of a red one: depth testing shows green. A light from +X lights the
  // cube's +X face and leaves the -X face at the ambient level.
  // The near one is drawn first, so only the depth test keeps it in front.
  const std::string scene = worldText(cubeText("Near", "(0, 0, 0)", "(0.1, 0.9, 0.1)") +
                                      cubeText("Far", "(0, 0, -2)") + R"(
  def DistantLight "Key" {
    float inputs:intensity = 1
    float3 xformOp:rotateXYZ = (0, 90, 0)
    uniform token[] xformOpOrder = ["xformOp:rotateXYZ"]
  }
)");
  const OrbitCamera camera = orbit(kFront, 0, 0);
  const Frame front = draw(buildScene(*stageOf(scene)), camera);
  const glm::u8vec4 centre = front.pixel(kWidth / 2, kHeight / 2);
  EXPECT_GT(centre.g, centre.r * 2) << describe(centre);

  const Frame lit = draw(buildScene(*stageOf(scene)), orbit(camera, 90, 0));
  const Frame dark = draw(buildScene(*stageOf(scene)), orbit(camera, -90, 0));
  const glm::u8vec4 litFace = lit.pixel(kWidth / 2, kHeight / 2);
  const glm::u8vec4 darkFace = dark.pixel(kWidth / 2, kHeight / 2);
  EXPECT_GT(litFace.g, darkFace.g + 50) << describe(litFace) << " vs " << describe(darkFace);
  EXPECT_GT(litFace.r + litFace.g + litFace.b, darkFace.r + darkFace.g + darkFace.b + 120)
      << describe(litFace) << " vs " << describe(darkFace);
}

TEST_F(ViewportRendering, AnImpossibleSizeIsRefusedAndTheNextFrameStillRenders) {
  renderer_->setScene(buildScene(*stageOf(worldText(cubeText("Cube", "(0, 0, 0)")))));
  const RenderResult empty = renderer_->render(kFront, 0, 10);
  EXPECT_NE(empty.error.find("cannot be rendered"), std::string::npos) << empty.error;
  EXPECT_TRUE(empty.frame.rgba.empty());
  const RenderResult huge = renderer_->render(kFront, 1 << 20, 10);
  EXPECT_FALSE(huge.error.empty());
  const RenderResult tooMany = renderer_->render(kFront, 8192, 8192);
  EXPECT_NE(tooMany.error.find("8192×8192"), std::string::npos) << tooMany.error;
  const RenderResult fine = renderer_->render(kFront, 32, 24);
  ASSERT_TRUE(fine.error.empty()) << fine.error;
  EXPECT_TRUE(isRed(fine.frame.pixel(16, 12))) << describe(fine.frame.pixel(16, 12));
}

TEST_F(ViewportRendering, AnEmptySceneIsAllBackground) {
  Scene scene;
  scene.background = glm::vec3(0.05f);
  const Frame frame = draw(scene, kFront);
  for (int y = 0; y < kHeight; y += 7) {
    for (int x = 0; x < kWidth; x += 7) {
      ASSERT_TRUE(isBackground(frame.pixel(x, y))) << x << ", " << y;
    }
  }
  EXPECT_NE(renderer_->describe().find("OpenGL"), std::string::npos);
}

// A stage with no ambient light and a black background, so that only the lights given count.
std::string darkWorld(const std::string& children) {
  return "def Xform \"World\" {\n custom color3f orvan:backgroundColor = (0, 0, 0)\n"
         " custom color3f orvan:ambientColor = (0, 0, 0)\n" +
         children + "}\n";
}

int brightness(const glm::u8vec4& p) {
  return p.r + p.g + p.b;
}

glm::ivec2 pixelOf(const OrbitCamera& camera, const glm::dvec3& world) {
  const auto at = projectToPixel(camera, kWidth, kHeight, world);
  EXPECT_TRUE(at.has_value());
  const glm::dvec2 p = at.value_or(glm::dvec2(0));
  return {static_cast<int>(p.x), static_cast<int>(p.y)};
}

// Whether some pixel within `radius` of `at` passes `test`.
template <typename Test>
bool anyNear(const Frame& frame, glm::ivec2 at, int radius, Test test) {
  for (int y = std::max(at.y - radius, 0); y <= std::min(at.y + radius, frame.height - 1); ++y) {
    for (int x = std::max(at.x - radius, 0); x <= std::min(at.x + radius, frame.width - 1); ++x) {
      if (test(frame.pixel(x, y))) {
        return true;
      }
    }
  }
  return false;
}

TEST_F(ViewportRendering, AWhiteSurfaceUnderUnitLightGoesThroughTheToneCurveAndSrgb) {
  // Straight on, radiance 1 on white gives about 0.97 linear: 0.8 after the curve, 230 in sRGB.
  // Radiance 0.18 (mid grey) gives about 0.27 after the curve: 141 in sRGB.
  const auto frameWith = [&](const std::string& intensity) {
    return draw(buildScene(*stageOf(darkWorld(R"(
  def Cube "Card" { double size = 2
    color3f[] primvars:displayColor = [(1, 1, 1)] }
  def DistantLight "Key" { float inputs:intensity = )" +
                                              intensity + R"( }
)"))),
                OrbitCamera{glm::vec3(0.0f), 5.0f});
  };
  const glm::u8vec4 unit = frameWith("1").pixel(kWidth / 2, kHeight / 2);
  EXPECT_GE(unit.r, 215) << describe(unit);
  EXPECT_LE(unit.r, 245) << describe(unit);
  EXPECT_EQ(unit.r, unit.g);
  const glm::u8vec4 grey = frameWith("0.18").pixel(kWidth / 2, kHeight / 2);
  EXPECT_GE(grey.r, 125) << describe(grey);
  EXPECT_LE(grey.r, 160) << describe(grey);
  // Far brighter light compresses towards white instead of clipping at once.
  const glm::u8vec4 bright = frameWith("4").pixel(kWidth / 2, kHeight / 2);
  EXPECT_GT(bright.r, unit.r);
  EXPECT_LT(bright.r, 255);
}

TEST_F(ViewportRendering, ARedMetallicSphereIsRedAndDarkerAwayFromItsHighlightThanPlastic) {
  const auto sphere = [&](const std::string& metallic) {
    return draw(buildScene(*stageOf(darkWorld(R"(
  def Sphere "Ball" { rel material:binding = </World/Looks/Red> }
  def Scope "Looks" { def Material "Red" { def Shader "Surface" {
    color3f inputs:diffuseColor = (0.9, 0.1, 0.1)
    float inputs:roughness = 0.35
    float inputs:metallic = )" + metallic + R"(
  } } }
  def DistantLight "Key" { float inputs:intensity = 2
    float3 xformOp:rotateXYZ = (-20, 20, 0)
    uniform token[] xformOpOrder = ["xformOp:rotateXYZ"] }
)"))),
                OrbitCamera{glm::vec3(0.0f), 4.0f});
  };
  const Frame metal = sphere("1");
  const Frame plastic = sphere("0");
  const glm::u8vec4 centre = metal.pixel(kWidth / 2, kHeight / 2);
  EXPECT_GT(centre.r, 120) << describe(centre);
  EXPECT_GT(centre.r, centre.g + 60) << describe(centre);
  EXPECT_GT(centre.r, centre.b + 60) << describe(centre);
  // On the rim, far from the highlight, a metal has no diffuse light to show.
  const glm::u8vec4 metalRim = metal.pixel(kWidth / 2 - 24, kHeight / 2 + 10);
  const glm::u8vec4 plasticRim = plastic.pixel(kWidth / 2 - 24, kHeight / 2 + 10);
  EXPECT_LT(brightness(metalRim) + 40, brightness(plasticRim))
      << describe(metalRim) << " vs " << describe(plasticRim);
}

TEST_F(ViewportRendering, APointLightBrightensTheSideFacingItAndFallsOffWithDistance) {
  const auto lit =
      [&](const std::string& position) {
        return draw(buildScene(*stageOf(darkWorld(R"(
  def Sphere "Ball" { color3f[] primvars:displayColor = [(0.8, 0.8, 0.8)] }
  def SphereLight "Bulb" { float inputs:intensity = 12
    double3 xformOp:translate = )" + position + R"(
    uniform token[] xformOpOrder = ["xformOp:translate"] }
)"))),
                    OrbitCamera{glm::vec3(0.0f), 4.0f});
      };
  const int left = kWidth / 2 - 20;
  const int right = kWidth / 2 + 20;
  const int y = kHeight / 2;
  const Frame fromRight = lit("(3, 0, 0.5)");
  EXPECT_GT(brightness(fromRight.pixel(right, y)), brightness(fromRight.pixel(left, y)) + 150)
      << describe(fromRight.pixel(right, y)) << " vs " << describe(fromRight.pixel(left, y));
  const Frame fromLeft = lit("(-3, 0, 0.5)");
  EXPECT_GT(brightness(fromLeft.pixel(left, y)), brightness(fromLeft.pixel(right, y)) + 150);
  const Frame farther = lit("(6, 0, 0.5)");
  EXPECT_LT(brightness(farther.pixel(right, y)) + 60, brightness(fromRight.pixel(right, y)))
      << describe(farther.pixel(right, y)) << " vs " << describe(fromRight.pixel(right, y));
}

TEST_F(ViewportRendering, ADomeLightsFromAboveMoreThanFromBelowAndReplacesTheDefaultLight) {
  const std::string ball = R"(
  def Sphere "Ball" { color3f[] primvars:displayColor = [(0.8, 0.8, 0.8)] }
)";
  const Frame dome = draw(buildScene(*stageOf(darkWorld(ball + R"(
  def DomeLight "Sky" { color3f inputs:color = (0.5, 0.7, 1) }
)"))),
                          OrbitCamera{glm::vec3(0.0f), 4.0f});
  const glm::u8vec4 top = dome.pixel(kWidth / 2, kHeight / 2 - 22);
  const glm::u8vec4 bottom = dome.pixel(kWidth / 2, kHeight / 2 + 22);
  EXPECT_GT(brightness(top), brightness(bottom) + 60)
      << describe(top) << " vs " << describe(bottom);
  EXPECT_GT(top.b, top.r) << describe(top);  // the sky's colour
  // Without any light the default one lights the side facing the camera evenly from the left
  // and the right.
  const Frame plain =
      draw(buildScene(*stageOf(darkWorld(ball))), OrbitCamera{glm::vec3(0.0f), 4.0f});
  const glm::u8vec4 left = plain.pixel(kWidth / 2 - 15, kHeight / 2);
  const glm::u8vec4 right = plain.pixel(kWidth / 2 + 15, kHeight / 2);
  EXPECT_GT(brightness(plain.pixel(kWidth / 2, kHeight / 2)), 300);
  EXPECT_NEAR(brightness(left), brightness(right), 6);
}

TEST_F(ViewportRendering, AMeshShowsItsColourPerFaceUnlessAMaterialIsBound) {
  const std::string quads = R"(
    point3f[] points = [(-2, -1, 0), (0, -1, 0), (0, 1, 0), (-2, 1, 0), (2, -1, 0), (2, 1, 0)]
    int[] faceVertexCounts = [4, 4]
    int[] faceVertexIndices = [0, 1, 2, 3, 1, 4, 5, 2]
    color3f[] primvars:displayColor = [(0.9, 0.05, 0.05), (0.05, 0.05, 0.9)] (
      interpolation = "uniform"
    )
)";
  const OrbitCamera camera{glm::vec3(0.0f), 5.0f};
  const Frame own =
      draw(buildScene(*stageOf(worldText("def Mesh \"Panel\" {" + quads + "}\n"))), camera);
  const glm::u8vec4 left = own.pixel(kWidth / 2 - 20, kHeight / 2);
  const glm::u8vec4 right = own.pixel(kWidth / 2 + 20, kHeight / 2);
  EXPECT_TRUE(isRed(left)) << describe(left);
  EXPECT_GT(right.b, right.r + 80) << describe(right);
  const Frame bound =
      draw(buildScene(
               *stageOf(worldText("def Mesh \"Panel\" {" + quads +
                                  " rel material:binding = </World/Looks/Green>\n}\n"
                                  "def Scope \"Looks\" { def Material \"Green\" { def Shader \"S\" "
                                  "{ color3f inputs:diffuseColor = (0.05, 0.9, 0.05) } } }\n"))),
           camera);
  for (const int x : {kWidth / 2 - 20, kWidth / 2 + 20}) {
    const glm::u8vec4 p = bound.pixel(x, kHeight / 2);
    EXPECT_GT(p.g, p.r + 80) << describe(p);
    EXPECT_GT(p.g, p.b + 80) << describe(p);
  }
}

TEST_F(ViewportRendering, MovingObjectsInPlaceDrawsWhatSendingTheWholeSceneDraws) {
  const auto stage = stageOf(worldText(cubeText("Left", "(-1.2, 0, 0)", "(0.2, 0.2, 0.8)") +
                                       cubeText("Right", "(1.2, 0, 0)")));
  SceneModel model(stage);
  renderer_->setScene(model.scene());
  ASSERT_FALSE(model.applyPreview("/World/Right", "Transform", "translation", "0.5,0.8,0.3"));
  const Scene& moved = model.scene();
  ASSERT_EQ(model.movedObjects().size(), 1u);
  renderer_->moveObjects(moved, model.movedObjects());
  const OrbitCamera camera{glm::vec3(0.0f), 5.0f, 20.0f, 15.0f};
  RenderOverlays selected = noGrid();
  selected.selectedPaths = {"/World/Right"};
  const RenderResult inPlace = renderer_->render(camera, kWidth, kHeight, selected);
  ASSERT_TRUE(inPlace.error.empty());
  const Frame whole = draw(moved, camera, selected);
  EXPECT_EQ(inPlace.frame.rgba, whole.rgba);
  const Frame before = draw(buildScene(*stage), camera, selected);
  EXPECT_NE(before.rgba, whole.rgba);
}

TEST_F(ViewportRendering, TheGridShowsBelowTheOriginAndFadesOutTowardsTheHorizon) {
  Scene scene;
  scene.background = glm::vec3(0.05f);
  const OrbitCamera camera{glm::vec3(0.0f), 10.0f, 20.0f, 10.0f};
  RenderOverlays withGrid;
  const Frame grid = draw(scene, camera, withGrid);
  const Frame none = draw(scene, camera);
  for (int y = 0; y < kHeight; y += 5) {
    for (int x = 0; x < kWidth; x += 5) {
      ASSERT_TRUE(isBackground(none.pixel(x, y))) << x << ", " << y;
    }
  }
  const auto notBackground = [](const glm::u8vec4& p) { return !isBackground(p); };
  // The axes cross below the origin: the X axis red, the Z axis blue.
  EXPECT_TRUE(anyNear(grid, pixelOf(camera, {0, 0, 0}), 1, notBackground));
  EXPECT_TRUE(anyNear(grid, pixelOf(camera, {3, 0, 0}), 1,
                      [](const glm::u8vec4& p) { return p.r > p.b + 20; }));
  EXPECT_TRUE(anyNear(grid, pixelOf(camera, {0, 0, 3}), 1,
                      [](const glm::u8vec4& p) { return p.b > p.r + 20; }));
  // A line of the grid every unit, and nothing in the middle of a cell.
  EXPECT_TRUE(anyNear(grid, pixelOf(camera, {2, 0, 1.5}), 1, notBackground));
  EXPECT_TRUE(
      isBackground(grid.pixel(pixelOf(camera, {1.5, 0, 1.5}).x, pixelOf(camera, {1.5, 0, 1.5}).y)));
  // Just below the horizon the ground is hundreds of units away: faded out entirely.
  const glm::ivec2 farAway = pixelOf(
      camera, {-300 * std::sin(glm::radians(20.0)), 0, -300 * std::cos(glm::radians(20.0))});
  for (int x = 0; x < kWidth; ++x) {
    ASSERT_TRUE(isBackground(grid.pixel(x, farAway.y))) << x << ", " << farAway.y;
  }
}

TEST_F(ViewportRendering, TheSelectionOutlineSurroundsTheSelectedSubtreeOnly) {
  const std::string text = worldText(cubeText("Left", "(-1.2, 0, 0)", "(0.2, 0.2, 0.8)") + R"(
  def Xform "Group" {
    double3 xformOp:translate = (1.2, 0, 0)
    uniform token[] xformOpOrder = ["xformOp:translate"]
)" + cubeText("Right", "(0, 0, 0)", "(0.2, 0.8, 0.2)") +
                                     "  }\n");
  const Scene scene = buildScene(*stageOf(text));
  const OrbitCamera camera{glm::vec3(0.0f), 5.0f};
  const Frame plain = draw(scene, camera);
  RenderOverlays selected = noGrid();
  selected.selectedPaths = {"/World/Group"};
  const Frame outlined = draw(scene, camera, selected);
  const auto isOutline = [](const glm::u8vec4& p) {
    return p.r > 230 && p.g > 130 && p.g < 190 && p.b < 60;
  };
  int changed = 0;
  int changedNearLeft = 0;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      if (plain.pixel(x, y) == outlined.pixel(x, y)) {
        continue;
      }
      ++changed;
      EXPECT_TRUE(isOutline(outlined.pixel(x, y))) << x << ", " << y;
      changedNearLeft += x < kWidth / 2 - 4 ? 1 : 0;
    }
  }
  EXPECT_GT(changed, 100);
  EXPECT_EQ(changedNearLeft, 0);
  // Just outside the right cube's right edge: outline; its middle stays the cube's colour.
  const glm::ivec2 edge = pixelOf(camera, {1.2 + 0.5, 0, 0.5});
  EXPECT_TRUE(anyNear(outlined, {edge.x + 1, edge.y}, 1, isOutline));
  const glm::ivec2 middle = pixelOf(camera, {1.2, 0, 0.5});
  EXPECT_EQ(outlined.pixel(middle.x, middle.y), plain.pixel(middle.x, middle.y));
  // A path that is not drawn outlines nothing.
  RenderOverlays missing = noGrid();
  missing.selectedPaths = {"/World/Nothing"};
  EXPECT_EQ(draw(scene, camera, missing).rgba, plain.rgba);
}

TEST_F(ViewportRendering, TheGizmoIsDrawnInFrontWhereItsHandlesArePicked) {
  const Scene scene =
      buildScene(*stageOf(worldText(cubeText("Box", "(0, 0, 0)", "(0.2, 0.2, 0.8)"))));
  const OrbitCamera camera{glm::vec3(0.0f), 6.0f, 30.0f, 20.0f};
  GizmoOverlay gizmo;
  gizmo.target.path = "/World/Box";
  RenderOverlays overlays = noGrid();
  overlays.gizmo = gizmo;
  const Frame frame = draw(scene, camera, overlays);
  const auto gizmoFrameNow =
      gizmoFrame(camera, kHeight, gizmo.target, GizmoTool::translate, GizmoSpace::world);
  ASSERT_TRUE(gizmoFrameNow);
  const double size = gizmoFrameNow->size;
  // Inside the cube, the X arrow still shows red, the Y arrow green.
  const auto isRedHandle = [](const glm::u8vec4& p) { return p.r > 110 && p.r > p.b * 2; };
  const auto isGreenHandle = [](const glm::u8vec4& p) { return p.g > 110 && p.g > p.b * 2; };
  const glm::ivec2 onX = pixelOf(camera, {0.3 * size, 0, 0});
  EXPECT_TRUE(anyNear(frame, onX, 1, isRedHandle)) << describe(frame.pixel(onX.x, onX.y));
  const glm::ivec2 onY = pixelOf(camera, {0, 0.3 * size, 0});
  EXPECT_TRUE(anyNear(frame, onY, 1, isGreenHandle)) << describe(frame.pixel(onY.x, onY.y));
  // Where the arrow is drawn, pressing takes it.
  const auto hit = hitGizmoHandle(camera, kWidth, kHeight, onX.x + 0.5, onX.y + 0.5, gizmo.target,
                                  GizmoTool::translate, GizmoSpace::world);
  EXPECT_EQ(hit, GizmoHandle::x);
  // The held handle turns yellow.
  overlays.gizmo->highlighted = GizmoHandle::x;
  const Frame held = draw(scene, camera, overlays);
  EXPECT_TRUE(anyNear(held, onX, 1, [](const glm::u8vec4& p) {
    return p.r > 120 && p.g > 100 && p.b < p.g / 2;
  })) << describe(held.pixel(onX.x, onX.y));
  // Rings for rotation: the Y ring passes through the point one handle length along X.
  overlays.gizmo->tool = GizmoTool::rotate;
  overlays.gizmo->highlighted.reset();
  const Frame rings = draw(scene, camera, overlays);
  EXPECT_TRUE(anyNear(rings, pixelOf(camera, {size * 0.7071, 0, size * 0.7071}), 1, isGreenHandle));
  EXPECT_NE(rings.rgba, frame.rgba);
}

}  // namespace
}  // namespace orvan::engine
