#include <gtest/gtest.h>

#include "StageText.h"
#include "Viewport/Camera.h"
#include "Viewport/Picking.h"

namespace orvan::engine {
namespace {

using testing::cubeText;
using testing::stageOf;
using testing::worldText;

constexpr int kWidth = 160;
constexpr int kHeight = 90;

// Where a world point lands in a kWidth × kHeight image, y from the top.
glm::vec2 project(const OrbitCamera& camera, const glm::vec3& point) {
  const glm::vec4 clip = projectionMatrix(camera, static_cast<float>(kWidth) / kHeight) *
                         viewMatrix(camera) * glm::vec4(point, 1.0f);
  const glm::vec3 ndc = glm::vec3(clip) / clip.w;
  return {(ndc.x + 1.0f) * 0.5f * kWidth, (1.0f - ndc.y) * 0.5f * kHeight};
}

TEST(ViewportCamera, OrbitCirclesTheTargetAndNeverFlips) {
  const OrbitCamera start;
  const glm::vec3 eye = eyePosition(start);
  EXPECT_NEAR(eye.z, 5.0f, 1e-5f);
  const OrbitCamera turned = orbit(start, 90, 0);
  EXPECT_NEAR(eyePosition(turned).x, 5.0f, 1e-4f);
  EXPECT_NEAR(glm::length(eyePosition(turned) - turned.target), 5.0f, 1e-4f);
  EXPECT_FLOAT_EQ(orbit(start, 0, 200).pitchDegrees, 89.0f);
  EXPECT_FLOAT_EQ(orbit(start, 0, -200).pitchDegrees, -89.0f);
  EXPECT_GT(eyePosition(orbit(start, 0, 30)).y, 0.0f);
}

TEST(ViewportCamera, FlyingMovesEyeAndTargetTogetherAndLookingAroundKeepsTheEye) {
  const OrbitCamera start = orbit(OrbitCamera{glm::vec3(1, 0, 0), 5.0f}, 90, 30);
  const glm::vec3 eye = eyePosition(start);
  const glm::vec3 ahead = glm::normalize(start.target - eye);
  const OrbitCamera forward = fly(start, 2, 0, 0);
  EXPECT_NEAR(glm::length(eyePosition(forward) - (eye + ahead * 2.0f)), 0.0f, 1e-4f);
  EXPECT_NEAR(glm::length(forward.target - (start.target + ahead * 2.0f)), 0.0f, 1e-4f);
  // Right is across the view and level; up is the world's up.
  const glm::vec3 right = fly(start, 0, 1, 0).target - start.target;
  EXPECT_NEAR(glm::dot(right, ahead), 0.0f, 1e-5f);
  EXPECT_NEAR(right.y, 0.0f, 1e-6f);
  EXPECT_NEAR(glm::length(right), 1.0f, 1e-5f);
  // Seen from above, right is clockwise of ahead.
  EXPECT_LT(glm::cross(glm::vec3(ahead.x, 0, ahead.z), right).y, 0.0f);
  EXPECT_NEAR(fly(start, 0, 0, 3).target.y - start.target.y, 3.0f, 1e-6f);

  const OrbitCamera turned = lookAround(start, 40, -10);
  EXPECT_NEAR(glm::length(eyePosition(turned) - eye), 0.0f, 1e-4f);
  EXPECT_FLOAT_EQ(turned.yawDegrees, start.yawDegrees + 40);
  EXPECT_FLOAT_EQ(turned.pitchDegrees, start.pitchDegrees - 10);
  EXPECT_GT(glm::length(turned.target - start.target), 1.0f);
}

TEST(ViewportCamera, FramingFitsTheBoundsInANarrowViewToo) {
  Bounds bounds;
  bounds.add(glm::vec3(-3, -1, -1));
  bounds.add(glm::vec3(5, 1, 1));
  for (const float aspect : {static_cast<float>(kWidth) / kHeight, 0.4f}) {
    const OrbitCamera framed = frameBounds(orbit(OrbitCamera{}, 20, 15), bounds, aspect);
    EXPECT_NEAR(glm::length(framed.target - glm::vec3(1, 0, 0)), 0.0f, 1e-5f);
    const glm::mat4 viewProjection = projectionMatrix(framed, aspect) * viewMatrix(framed);
    for (int corner = 0; corner < 8; ++corner) {
      const glm::vec3 p((corner & 1) != 0 ? 5 : -3, (corner & 2) != 0 ? 1 : -1,
                        (corner & 4) != 0 ? 1 : -1);
      const glm::vec4 clip = viewProjection * glm::vec4(p, 1.0f);
      EXPECT_LE(std::abs(clip.x / clip.w), 1.0f) << aspect << " " << corner;
      EXPECT_LE(std::abs(clip.y / clip.w), 1.0f) << aspect << " " << corner;
    }
  }
  // Nothing to frame: the camera stays.
  EXPECT_FLOAT_EQ(frameBounds(OrbitCamera{}, Bounds{}).distance, OrbitCamera{}.distance);
}

TEST(ViewportCamera, ZoomKeepsADistanceAndPanKeepsThePointUnderTheCursor) {
  const OrbitCamera start = orbit(OrbitCamera{}, 30, 20);
  EXPECT_FLOAT_EQ(zoom(start, 0.5f).distance, 2.5f);
  EXPECT_GT(zoom(start, 0.0f).distance, 0.0f);
  EXPECT_GT(zoom(zoom(start, 1e-9f), 1e-9f).distance, 0.0f);

  // A point at the target's depth moves with the drag, pixel for pixel.
  const OrbitCamera moved = pan(start, 20, -10, kHeight);
  const glm::vec2 before = project(start, start.target);
  const glm::vec2 after = project(moved, start.target);
  EXPECT_NEAR(after.x - before.x, 20.0f, 0.05f);
  EXPECT_NEAR(after.y - before.y, -10.0f, 0.05f);
}

TEST(ViewportCamera, FramingPutsTheWholeBoundsInView) {
  Bounds bounds;
  bounds.add(glm::vec3(10, -1, 4));
  bounds.add(glm::vec3(14, 3, 5));
  const OrbitCamera framed = frameBounds(orbit(OrbitCamera{}, 40, 25), bounds);
  for (int corner = 0; corner < 8; ++corner) {
    const glm::vec3 point((corner & 1) ? bounds.max.x : bounds.min.x,
                          (corner & 2) ? bounds.max.y : bounds.min.y,
                          (corner & 4) ? bounds.max.z : bounds.min.z);
    const glm::vec2 at = project(framed, point);
    EXPECT_GE(at.y, 0.0f);
    EXPECT_LE(at.y, static_cast<float>(kHeight));
    EXPECT_GE(at.x, 0.0f);
    EXPECT_LE(at.x, static_cast<float>(kWidth));
  }
  const glm::vec2 centre = project(framed, bounds.centre());
  EXPECT_NEAR(centre.x, kWidth / 2.0f, 0.01f);
  // Empty bounds leave the camera where it was.
  EXPECT_EQ(frameBounds(framed, Bounds{}).target, framed.target);
}

TEST(ViewportPicking, ThePixelRayHitsTheNearestPrimOrNothing) {
  // Two cubes on the line of sight, one behind the other, and one off to the side.
  const auto stage =
      stageOf(worldText(cubeText("Front", "(0, 0, 1)") + cubeText("Back", "(0, 0, -2)") +
                        cubeText("Side", "(3, 0, 0)")));
  const Scene scene = buildScene(*stage);
  const OrbitCamera camera{glm::vec3(0.0f), 8.0f};
  const std::optional<PickHit> centre = pickPixel(scene, camera, kWidth, kHeight, 80, 45);
  ASSERT_TRUE(centre);
  EXPECT_EQ(centre->path, "/World/Front");
  EXPECT_NEAR(centre->distance, 6.5f, 1e-3f);  // the eye at z 8, the front face at z 1.5
  const glm::vec2 side = project(camera, glm::vec3(3, 0, 0));
  const auto sideHit =
      pickPixel(scene, camera, kWidth, kHeight, static_cast<int>(side.x), static_cast<int>(side.y));
  ASSERT_TRUE(sideHit);
  EXPECT_EQ(sideHit->path, "/World/Side");
  EXPECT_FALSE(pickPixel(scene, camera, kWidth, kHeight, 0, 0));
  EXPECT_FALSE(pickPixel(scene, camera, kWidth, kHeight, kWidth, 0));  // outside the view
  EXPECT_FALSE(pickPixel(scene, camera, kWidth, kHeight, -1, 10));

  // Seen from behind, the other cube is in front.
  const auto fromBehind = pickPixel(scene, orbit(camera, 180, 0), kWidth, kHeight, 80, 45);
  ASSERT_TRUE(fromBehind);
  EXPECT_EQ(fromBehind->path, "/World/Back");
}

TEST(ViewportPicking, TrianglesAreHitInsideAndOnEitherSideOnly) {
  const glm::vec3 a(0, 0, 0), b(1, 0, 0), c(0, 1, 0);
  EXPECT_NEAR(*rayTriangle({0.2f, 0.2f, 5}, {0, 0, -1}, a, b, c), 5.0f, 1e-5f);
  EXPECT_NEAR(*rayTriangle({0.2f, 0.2f, -5}, {0, 0, 1}, a, b, c), 5.0f, 1e-5f);
  EXPECT_FALSE(rayTriangle({0.6f, 0.6f, 5}, {0, 0, -1}, a, b, c));
  EXPECT_FALSE(rayTriangle({0.2f, 0.2f, 5}, {0, 0, 1}, a, b, c));  // behind the ray
  EXPECT_FALSE(rayTriangle({0.2f, 0.2f, 5}, {1, 0, 0}, a, b, c));  // parallel

  Bounds box;
  box.add(glm::vec3(-1));
  box.add(glm::vec3(1));
  EXPECT_NEAR(*rayBoxEntry({{0, 0, 5}, {0, 0, -1}}, box), 4.0f, 1e-5f);
  EXPECT_FLOAT_EQ(*rayBoxEntry({{0, 0, 0}, {0, 0, -1}}, box), 0.0f);
  EXPECT_FALSE(rayBoxEntry({{2, 0, 5}, {0, 0, -1}}, box));
  EXPECT_FALSE(rayBoxEntry({{0, 0, 5}, {0, 0, 1}}, box));
}

}  // namespace
}  // namespace orvan::engine
