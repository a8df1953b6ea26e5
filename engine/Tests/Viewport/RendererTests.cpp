#include <gtest/gtest.h>

#include <cstdlib>

#include "StageText.h"
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

}  // namespace
}  // namespace orvan::engine
