#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include <glm/gtc/matrix_transform.hpp>

#include "Viewport/Gizmo.h"

namespace orvan::engine {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;

const OrbitCamera kCamera{glm::vec3(0.0f), 10.0f, 30.0f, 20.0f};

glm::dvec2 pixelOf(const glm::dvec3& world, const OrbitCamera& camera = kCamera) {
  const auto pixel = projectToPixel(camera, kWidth, kHeight, world);
  EXPECT_TRUE(pixel.has_value());
  return pixel.value_or(glm::dvec2(-1e6));
}

std::optional<GizmoDrag> press(const glm::dvec3& world, const GizmoTarget& target, GizmoTool tool,
                               GizmoSpace space, const OrbitCamera& camera = kCamera) {
  const glm::dvec2 at = pixelOf(world, camera);
  return GizmoDrag::begin(camera, kWidth, kHeight, at.x, at.y, target, tool, space);
}

glm::dvec3 valuesAt(const GizmoDrag& drag, const glm::dvec3& world,
                    const OrbitCamera& camera = kCamera) {
  const glm::dvec2 at = pixelOf(world, camera);
  const auto values = drag.valuesAt(at.x, at.y);
  return {values[0], values[1], values[2]};
}

void expectNear(const glm::dvec3& actual, const glm::dvec3& expected, double tolerance = 1e-6) {
  EXPECT_NEAR(actual.x, expected.x, tolerance) << "x";
  EXPECT_NEAR(actual.y, expected.y, tolerance) << "y";
  EXPECT_NEAR(actual.z, expected.z, tolerance) << "z";
}

GizmoFrame frameOf(const GizmoTarget& target, GizmoTool tool, GizmoSpace space,
                   const OrbitCamera& camera = kCamera) {
  const auto frame = gizmoFrame(camera, kHeight, target, tool, space);
  EXPECT_TRUE(frame.has_value());
  return frame.value_or(GizmoFrame{});
}

glm::dvec3 ry(double degrees, const glm::dvec3& v) {
  return rotationMatrixXYZ({0, degrees, 0}) * v;
}

// The point of ring `k` at `degrees` from the next axis towards the one after: a positive turn
// about axis k carries the ring's points that way. At 45° no other ring passes.
glm::dvec3 ringAt(const GizmoFrame& frame, int k, double degrees) {
  const double a = glm::radians(degrees);
  return frame.origin + (frame.axes[static_cast<std::size_t>((k + 1) % 3)] * std::cos(a) +
                         frame.axes[static_cast<std::size_t>((k + 2) % 3)] * std::sin(a)) *
                            frame.size;
}

TEST(GizmoTranslate, AnArrowMovesAlongItsAxisOnlyByTheDraggedDistance) {
  const GizmoTarget target{"/World/Box", glm::dmat4(1.0), {1, 2, 3}, {}, {1, 1, 1}};
  const GizmoFrame frame = frameOf(target, GizmoTool::translate, GizmoSpace::world);
  expectNear(frame.origin, {1, 2, 3});
  const GizmoHandle handles[] = {GizmoHandle::x, GizmoHandle::y, GizmoHandle::z};
  for (int k = 0; k < 3; ++k) {
    const glm::dvec3 axis = frame.axes[static_cast<std::size_t>(k)];
    const auto drag = press(frame.origin + axis * (0.6 * frame.size), target, GizmoTool::translate,
                            GizmoSpace::world);
    ASSERT_TRUE(drag) << k;
    EXPECT_EQ(drag->handle(), handles[k]);
    EXPECT_EQ(drag->propertyName(), "translation");
    glm::dvec3 expected(1, 2, 3);
    expected[k] += 2.0;
    expectNear(valuesAt(*drag, frame.origin + axis * (0.6 * frame.size + 2.0)), expected, 1e-5);
    // A pointer beside the axis moves the prim along the axis alone.
    const glm::dvec3 beside = valuesAt(
        *drag, frame.origin + axis * 1.5 + frame.axes[static_cast<std::size_t>((k + 1) % 3)]);
    for (int other = 0; other < 3; ++other) {
      if (other != k) {
        EXPECT_DOUBLE_EQ(beside[other], target.translation[other]) << k << " " << other;
      }
    }
    EXPECT_NE(beside[k], target.translation[k]);
    // Back at the press, back at the start.
    expectNear(valuesAt(*drag, frame.origin + axis * (0.6 * frame.size)), {1, 2, 3}, 1e-5);
  }
}

TEST(GizmoTranslate, APlaneHandleMovesInItsPlaneAndTheCentreInTheViewPlane) {
  const GizmoTarget target{"/World/Box", glm::dmat4(1.0), {0, 0, 0}, {}, {1, 1, 1}};
  const GizmoFrame frame = frameOf(target, GizmoTool::translate, GizmoSpace::world);
  const auto plane = press(glm::dvec3(0.35, 0, 0.35) * frame.size, target, GizmoTool::translate,
                           GizmoSpace::world);
  ASSERT_TRUE(plane);
  EXPECT_EQ(plane->handle(), GizmoHandle::xz);
  expectNear(valuesAt(*plane, glm::dvec3(0.35, 0, 0.35) * frame.size + glm::dvec3(1.5, 0, -2)),
             {1.5, 0, -2}, 1e-5);

  const auto centre = press(frame.origin, target, GizmoTool::translate, GizmoSpace::world);
  ASSERT_TRUE(centre);
  EXPECT_EQ(centre->handle(), GizmoHandle::centre);
  const auto moved = centre->valuesAt(kWidth / 2.0 + 40, kHeight / 2.0 - 25);
  const glm::dvec3 delta(moved[0], moved[1], moved[2]);
  EXPECT_GT(glm::length(delta), 0.1);
  EXPECT_NEAR(glm::dot(delta, frame.towardEye), 0.0, 1e-9);
  // Pressing nowhere near a handle starts nothing.
  EXPECT_FALSE(GizmoDrag::begin(kCamera, kWidth, kHeight, 5, 5, target, GizmoTool::translate,
                                GizmoSpace::world));
}

TEST(GizmoTranslate, AxesPointingAtTheEyeAndPlanesSeenEdgeOnCannotBeTaken) {
  const GizmoTarget target{"/World/Box", glm::dmat4(1.0), {0, 0, 0}, {}, {1, 1, 1}};
  // Looking along -X: the X arrow is a dot, the XY and XZ planes are lines.
  const OrbitCamera alongX{glm::vec3(0.0f), 10.0f, 90.0f, 0.0f};
  const GizmoFrame frame = frameOf(target, GizmoTool::translate, GizmoSpace::world, alongX);
  EXPECT_FALSE(isGizmoHandleUsable(frame, GizmoTool::translate, GizmoHandle::x));
  EXPECT_TRUE(isGizmoHandleUsable(frame, GizmoTool::translate, GizmoHandle::y));
  EXPECT_TRUE(isGizmoHandleUsable(frame, GizmoTool::translate, GizmoHandle::yz));
  EXPECT_FALSE(isGizmoHandleUsable(frame, GizmoTool::translate, GizmoHandle::xy));
  EXPECT_FALSE(isGizmoHandleUsable(frame, GizmoTool::translate, GizmoHandle::xz));
  // Just beside the centre, where the X arrow's dot lies, the centre handle answers.
  const glm::dvec2 centre = pixelOf(frame.origin, alongX);
  const auto hit = hitGizmoHandle(alongX, kWidth, kHeight, centre.x + 4, centre.y, target,
                                  GizmoTool::translate, GizmoSpace::world);
  EXPECT_EQ(hit, GizmoHandle::centre);

  // Dragging an arrow past the horizon stays finite and bounded.
  const OrbitCamera low{glm::vec3(0.0f), 10.0f, 0.0f, 15.0f};
  const GizmoFrame lowFrame = frameOf(target, GizmoTool::translate, GizmoSpace::world, low);
  const auto drag = press(glm::dvec3(0, 0, 0.6) * lowFrame.size, target, GizmoTool::translate,
                          GizmoSpace::world, low);
  ASSERT_TRUE(drag);
  ASSERT_EQ(drag->handle(), GizmoHandle::z);
  // The -Z axis vanishes 15° above the centre, near y = 85.
  for (const double y : {0.0, 85.0, 150.0}) {
    const auto values = drag->valuesAt(kWidth / 2.0, y);
    EXPECT_TRUE(std::isfinite(values[2])) << y;
    EXPECT_LE(std::abs(values[2]), 1001.0 * lowFrame.size) << y;
    EXPECT_EQ(values[0], 0.0);
    EXPECT_EQ(values[1], 0.0);
  }
}

TEST(GizmoTranslate, WorldAndLocalAxesUnderARotatedScaledParent) {
  // The parent turns a quarter about Z (its X is the world's Y) and doubles.
  const glm::dmat4 parent = glm::scale(
      glm::rotate(glm::dmat4(1.0), glm::radians(90.0), glm::dvec3(0, 0, 1)), glm::dvec3(2.0));
  const GizmoTarget target{"/World/Group/Box", parent, {1, 0, 0}, {}, {1, 1, 1}};
  const GizmoFrame world = frameOf(target, GizmoTool::translate, GizmoSpace::world);
  expectNear(world.origin, {0, 2, 0});
  const auto worldDrag = press(world.origin + glm::dvec3(0.6 * world.size, 0, 0), target,
                               GizmoTool::translate, GizmoSpace::world);
  ASSERT_TRUE(worldDrag);
  EXPECT_EQ(worldDrag->handle(), GizmoHandle::x);
  // Two world units along X are one parent unit along its -Y.
  expectNear(valuesAt(*worldDrag, world.origin + glm::dvec3(0.6 * world.size + 2, 0, 0)),
             {1, -1, 0}, 1e-5);

  const GizmoFrame local = frameOf(target, GizmoTool::translate, GizmoSpace::local);
  expectNear(local.axes[0], {0, 1, 0});
  expectNear(local.axes[1], {-1, 0, 0});
  const auto localDrag = press(local.origin + local.axes[0] * (0.6 * local.size), target,
                               GizmoTool::translate, GizmoSpace::local);
  ASSERT_TRUE(localDrag);
  EXPECT_EQ(localDrag->handle(), GizmoHandle::x);
  expectNear(valuesAt(*localDrag, local.origin + local.axes[0] * (0.6 * local.size + 2)), {2, 0, 0},
             1e-5);

  // A parent that flattens everything cannot be dragged under.
  GizmoTarget flat = target;
  flat.parentWorld = glm::scale(glm::dmat4(1.0), glm::dvec3(1, 0, 1));
  EXPECT_FALSE(gizmoFrame(kCamera, kHeight, flat, GizmoTool::translate, GizmoSpace::world));
  // A prim behind the camera has no gizmo.
  GizmoTarget behind = target;
  behind.parentWorld = glm::dmat4(1.0);
  behind.translation = glm::dvec3(eyePosition(kCamera)) * 2.0;
  EXPECT_FALSE(gizmoFrame(kCamera, kHeight, behind, GizmoTool::translate, GizmoSpace::world));
}

TEST(GizmoRotate, TurningARingCounterClockwiseAboutItsAxisIsPositive) {
  const GizmoTarget target{"/World/Box", glm::dmat4(1.0), {0, 0, 0}, {0, 0, 0}, {1, 1, 1}};
  const GizmoFrame frame = frameOf(target, GizmoTool::rotate, GizmoSpace::world);
  struct Case {
    GizmoHandle handle;
    int axis;
    double turn;
    glm::dvec3 expected;
  };
  for (const Case& test :
       {Case{GizmoHandle::x, 0, 30, {30, 0, 0}}, Case{GizmoHandle::y, 1, 30, {0, 30, 0}},
        Case{GizmoHandle::z, 2, 30, {0, 0, 30}}, Case{GizmoHandle::y, 1, -30, {0, -30, 0}}}) {
    const auto drag =
        press(ringAt(frame, test.axis, 45), target, GizmoTool::rotate, GizmoSpace::world);
    ASSERT_TRUE(drag);
    EXPECT_EQ(drag->handle(), test.handle);
    EXPECT_EQ(drag->propertyName(), "rotation");
    expectNear(valuesAt(*drag, ringAt(frame, test.axis, 45 + test.turn)), test.expected, 1e-4);
  }
}

TEST(GizmoRotate, AStartingRotationAndARotatedParentComposeTheTurn) {
  // From (10, 20, 30), a world turn of 25° about Y: the new angles give Ry(25) · R(start).
  const GizmoTarget target{"/World/Box", glm::dmat4(1.0), {0, 0, 0}, {10, 20, 30}, {1, 1, 1}};
  const GizmoFrame frame = frameOf(target, GizmoTool::rotate, GizmoSpace::world);
  const auto drag =
      press(glm::dvec3(0, 0, 1) * frame.size, target, GizmoTool::rotate, GizmoSpace::world);
  ASSERT_TRUE(drag);
  ASSERT_EQ(drag->handle(), GizmoHandle::y);
  const glm::dvec3 angles = valuesAt(*drag, ry(25, {0, 0, 1}) * frame.size);
  const glm::dmat3 expected = rotationMatrixXYZ({0, 25, 0}) * rotationMatrixXYZ({10, 20, 30});
  const glm::dmat3 actual = rotationMatrixXYZ(angles);
  for (int i = 0; i < 3; ++i) {
    expectNear(actual[i], expected[i], 1e-5);
  }
  // A small turn keeps the angles near where they were.
  EXPECT_LT(glm::length(angles - glm::dvec3(10, 20, 30)), 40.0);

  // Under a parent turned a quarter about Z: the local X ring turns the prim's own X; the world
  // X ring turns about the parent's -Y.
  const glm::dmat4 parent = glm::rotate(glm::dmat4(1.0), glm::radians(90.0), glm::dvec3(0, 0, 1));
  const GizmoTarget child{"/World/Group/Box", parent, {0, 0, 0}, {0, 0, 0}, {1, 1, 1}};
  const GizmoFrame local = frameOf(child, GizmoTool::rotate, GizmoSpace::local);
  expectNear(local.axes[0], {0, 1, 0});
  const auto localDrag = press(ringAt(local, 0, 45), child, GizmoTool::rotate, GizmoSpace::local);
  ASSERT_TRUE(localDrag);
  ASSERT_EQ(localDrag->handle(), GizmoHandle::x);
  // Turning about world Y (the local X) carries the ring's points along.
  expectNear(valuesAt(*localDrag, ry(30, ringAt(local, 0, 45))), {30, 0, 0}, 1e-4);

  const GizmoFrame world = frameOf(child, GizmoTool::rotate, GizmoSpace::world);
  const auto worldDrag = press(ringAt(world, 0, 45), child, GizmoTool::rotate, GizmoSpace::world);
  ASSERT_TRUE(worldDrag);
  ASSERT_EQ(worldDrag->handle(), GizmoHandle::x);
  expectNear(valuesAt(*worldDrag, ringAt(world, 0, 75)), {0, -30, 0}, 1e-4);
}

TEST(GizmoRotate, ARingSeenEdgeOnTurnsWithThePointersTravelAlongIt) {
  // At eye height the Y ring is a line; its front point moves right under a positive turn.
  const OrbitCamera level{glm::vec3(0.0f), 10.0f, 0.0f, 0.0f};
  const GizmoTarget target{"/World/Box", glm::dmat4(1.0), {0, 0, 0}, {0, 0, 0}, {1, 1, 1}};
  const GizmoFrame frame = frameOf(target, GizmoTool::rotate, GizmoSpace::world, level);
  const glm::dvec2 front = pixelOf(glm::dvec3(0, 0, 1) * frame.size, level);
  const auto drag = GizmoDrag::begin(level, kWidth, kHeight, front.x, front.y, target,
                                     GizmoTool::rotate, GizmoSpace::world);
  ASSERT_TRUE(drag);
  ASSERT_EQ(drag->handle(), GizmoHandle::y);
  const double travel = frame.sizePx * std::numbers::pi / 6.0;  // a handle's length is a radian
  const auto right = drag->valuesAt(front.x + travel, front.y);
  EXPECT_NEAR(right[1], 30.0, 1e-6);
  EXPECT_NEAR(right[0], 0.0, 1e-6);
  const auto left = drag->valuesAt(front.x - travel, front.y + 3);
  EXPECT_NEAR(left[1], -30.0, 1e-6);
}

TEST(GizmoScale, AShaftScalesByTheRatioOfDistancesAlongThePrimsOwnAxis) {
  // The prim is turned a quarter about Y: its own X is the world's -Z, in world space too.
  const GizmoTarget target{"/World/Box", glm::dmat4(1.0), {0, 0, 0}, {0, 90, 0}, {1.5, 1, 1}};
  const GizmoFrame frame = frameOf(target, GizmoTool::scale, GizmoSpace::world);
  expectNear(frame.axes[0], {0, 0, -1});
  const auto drag =
      press(glm::dvec3(0, 0, -0.5) * frame.size, target, GizmoTool::scale, GizmoSpace::world);
  ASSERT_TRUE(drag);
  EXPECT_EQ(drag->handle(), GizmoHandle::x);
  EXPECT_EQ(drag->propertyName(), "scale");
  expectNear(valuesAt(*drag, glm::dvec3(0, 0, -1.0) * frame.size), {3, 1, 1}, 1e-5);
  expectNear(valuesAt(*drag, glm::dvec3(0, 0, -0.25) * frame.size), {0.75, 1, 1}, 1e-5);
  // Through the centre and out the other side the scale stays small and positive.
  const auto flipped = valuesAt(*drag, glm::dvec3(0, 0, 0.5) * frame.size);
  EXPECT_NEAR(flipped.x, 1.5 * 0.01, 1e-9);

  const auto uniform = press(frame.origin, target, GizmoTool::scale, GizmoSpace::world);
  ASSERT_TRUE(uniform);
  EXPECT_EQ(uniform->handle(), GizmoHandle::centre);
  const glm::dvec2 centre = pixelOf(frame.origin);
  const auto doubled = uniform->valuesAt(centre.x + frame.sizePx, centre.y);
  expectNear({doubled[0], doubled[1], doubled[2]}, {3, 2, 2}, 1e-9);
  const auto shrunk = uniform->valuesAt(centre.x - 10 * frame.sizePx, centre.y);
  EXPECT_GT(shrunk[0], 0.0);
}

TEST(GizmoAngles, AnglesReadBackFromAMatrixAndStayNearTheirReference) {
  for (const glm::dvec3 angles :
       {glm::dvec3(10, 20, 30), glm::dvec3(-170, 45, 100), glm::dvec3(30, 90, 10),
        glm::dvec3(-20, -90, 40), glm::dvec3(0, 0, 0)}) {
    const glm::dmat3 m = rotationMatrixXYZ(angles);
    const glm::dvec3 back = anglesXYZNear(m, angles);
    const glm::dmat3 again = rotationMatrixXYZ(back);
    for (int i = 0; i < 3; ++i) {
      expectNear(again[i], m[i], 1e-9);
    }
    expectNear(back, angles, 1e-6);
  }
  // Whole turns follow the reference.
  expectNear(anglesXYZNear(rotationMatrixXYZ({0, 0, 350}), {0, 0, 0}), {0, 0, -10}, 1e-9);
  expectNear(anglesXYZNear(rotationMatrixXYZ({0, 0, 10}), {0, 0, 700}), {0, 0, 730}, 1e-9);
  // (180, 180 - y, 180) is the same turn as (0, y, 0): the nearer one is chosen.
  expectNear(anglesXYZNear(rotationMatrixXYZ({0, 100, 0}), {0, 100, 0}), {0, 100, 0}, 1e-9);
}

}  // namespace
}  // namespace orvan::engine
