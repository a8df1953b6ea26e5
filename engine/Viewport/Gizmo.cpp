#include "Viewport/Gizmo.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace orvan::engine {
namespace {

constexpr double kHitPx = 8.0;       // how near the pointer must come to a handle
constexpr double kCentrePx = 10.0;   // radius of the centre handle
constexpr double kAxisStart = 0.15;  // axis handles run from here to 1 (× size)
constexpr double kPlaneFrom = 0.25;  // plane handles span this square (× size)
constexpr double kPlaneTo = 0.45;
constexpr double kAxisTowardEyeLimit = 0.98;  // |cos| beyond which an axis points at the eye
constexpr double kPlaneEdgeOnLimit = 0.15;    // |cos| below which a plane is seen edge-on
constexpr double kRingEdgeOnLimit = 0.2;
constexpr int kRingSamples = 96;
constexpr double kMinScaleRatio = 0.01;

glm::dmat4 viewProjection(const OrbitCamera& camera, int widthPx, int heightPx) {
  const float aspect = static_cast<float>(widthPx) / static_cast<float>(std::max(heightPx, 1));
  return glm::dmat4(projectionMatrix(camera, aspect)) * glm::dmat4(viewMatrix(camera));
}

glm::dmat3 orthonormalised(const glm::dmat3& m) {
  const glm::dvec3 x = glm::normalize(m[0]);
  const glm::dvec3 y = glm::normalize(m[1] - x * glm::dot(x, m[1]));
  glm::dvec3 z = glm::cross(x, y);
  if (glm::dot(z, m[2]) < 0) {
    z = -z;
  }
  return {x, y, z};
}

glm::dmat3 axisRotation(const glm::dvec3& axis, double radians) {
  const double c = std::cos(radians);
  const double s = std::sin(radians);
  const glm::dvec3 a = glm::normalize(axis);
  const double t = 1 - c;
  // Columns of the rotation about `a` (right-handed).
  return {glm::dvec3(t * a.x * a.x + c, t * a.x * a.y + s * a.z, t * a.x * a.z - s * a.y),
          glm::dvec3(t * a.x * a.y - s * a.z, t * a.y * a.y + c, t * a.y * a.z + s * a.x),
          glm::dvec3(t * a.x * a.z + s * a.y, t * a.y * a.z - s * a.x, t * a.z * a.z + c)};
}

double distanceToSegment(const glm::dvec2& p, const glm::dvec2& a, const glm::dvec2& b) {
  const glm::dvec2 ab = b - a;
  const double length2 = glm::dot(ab, ab);
  const double t = length2 > 0 ? std::clamp(glm::dot(p - a, ab) / length2, 0.0, 1.0) : 0.0;
  return glm::length(p - (a + ab * t));
}

bool insideQuad(const glm::dvec2& p, const std::array<glm::dvec2, 4>& quad) {
  bool positive = false;
  bool negative = false;
  for (std::size_t i = 0; i < 4; ++i) {
    const glm::dvec2 a = quad[i];
    const glm::dvec2 b = quad[(i + 1) % 4];
    const double cross = (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
    positive = positive || cross > 0;
    negative = negative || cross < 0;
  }
  return !(positive && negative);
}

int axisIndex(GizmoHandle handle) {
  switch (handle) {
    case GizmoHandle::x:
      return 0;
    case GizmoHandle::y:
      return 1;
    case GizmoHandle::z:
      return 2;
    case GizmoHandle::xy:
    case GizmoHandle::yz:
    case GizmoHandle::xz:
    case GizmoHandle::centre:
      return -1;
  }
  return -1;
}

// The two axes of a plane handle and the one normal to it.
std::array<int, 3> planeAxes(GizmoHandle handle) {
  switch (handle) {
    case GizmoHandle::xy:
      return {0, 1, 2};
    case GizmoHandle::yz:
      return {1, 2, 0};
    case GizmoHandle::xz:
      return {0, 2, 1};
    case GizmoHandle::x:
    case GizmoHandle::y:
    case GizmoHandle::z:
    case GizmoHandle::centre:
      break;
  }
  return {0, 1, 2};
}

constexpr GizmoHandle kAxes[] = {GizmoHandle::x, GizmoHandle::y, GizmoHandle::z};
constexpr GizmoHandle kPlanes[] = {GizmoHandle::xy, GizmoHandle::yz, GizmoHandle::xz};

// A point of the ring about axis `k` at `angle`, starting from the next axis.
glm::dvec3 ringPoint(const GizmoFrame& frame, int k, double angle) {
  const glm::dvec3& u = frame.axes[static_cast<std::size_t>((k + 1) % 3)];
  const glm::dvec3& v = frame.axes[static_cast<std::size_t>((k + 2) % 3)];
  return frame.origin + (u * std::cos(angle) + v * std::sin(angle)) * frame.size;
}

double wrapNear(double angle, double near) {
  return angle + 360.0 * std::round((near - angle) / 360.0);
}

}  // namespace

DRay pixelRayAt(const OrbitCamera& camera, int widthPx, int heightPx, double xPx, double yPx) {
  const glm::dmat4 inverse = glm::inverse(viewProjection(camera, widthPx, heightPx));
  const double ndcX = 2.0 * xPx / std::max(widthPx, 1) - 1.0;
  const double ndcY = 1.0 - 2.0 * yPx / std::max(heightPx, 1);
  const glm::dvec4 farPoint = inverse * glm::dvec4(ndcX, ndcY, 1.0, 1.0);
  const glm::dvec3 eye(eyePosition(camera));
  return {eye, glm::normalize(glm::dvec3(farPoint) / farPoint.w - eye)};
}

std::optional<glm::dvec2> projectToPixel(const OrbitCamera& camera, int widthPx, int heightPx,
                                         const glm::dvec3& world) {
  const glm::dvec4 clip = viewProjection(camera, widthPx, heightPx) * glm::dvec4(world, 1.0);
  if (clip.w <= 1e-9) {
    return std::nullopt;
  }
  const glm::dvec3 ndc = glm::dvec3(clip) / clip.w;
  return glm::dvec2((ndc.x + 1.0) * 0.5 * widthPx, (1.0 - ndc.y) * 0.5 * heightPx);
}

glm::dmat3 rotationMatrixXYZ(const glm::dvec3& degrees) {
  const glm::dvec3 r = glm::radians(degrees);
  return axisRotation({0, 0, 1}, r.z) * axisRotation({0, 1, 0}, r.y) * axisRotation({1, 0, 0}, r.x);
}

glm::dvec3 anglesXYZNear(const glm::dmat3& m, const glm::dvec3& near) {
  // m = Rz · Ry · Rx; m[column][row].
  const double sinY = std::clamp(-m[0][2], -1.0, 1.0);
  const double y = std::asin(sinY);
  double x = 0;
  double z = 0;
  if (std::abs(std::cos(y)) > 1e-9) {
    x = std::atan2(m[1][2], m[2][2]);
    z = std::atan2(m[0][1], m[0][0]);
  } else {
    // Gimbal lock: only x - z (y = 90°) or x + z (y = -90°) is fixed; x keeps its nearby value.
    x = glm::radians(near.x);
    z = sinY > 0 ? x - std::atan2(m[1][0], m[1][1]) : std::atan2(-m[1][0], m[1][1]) - x;
  }
  const glm::dvec3 first = glm::degrees(glm::dvec3(x, y, z));
  const glm::dvec3 second(first.x + 180.0, 180.0 - first.y, first.z + 180.0);
  const auto wrapped = [&](const glm::dvec3& a) {
    return glm::dvec3(wrapNear(a.x, near.x), wrapNear(a.y, near.y), wrapNear(a.z, near.z));
  };
  const glm::dvec3 a = wrapped(first);
  const glm::dvec3 b = wrapped(second);
  return glm::dot(a - near, a - near) <= glm::dot(b - near, b - near) ? a : b;
}

std::optional<GizmoFrame> gizmoFrame(const OrbitCamera& camera, int heightPx,
                                     const GizmoTarget& target, GizmoTool tool, GizmoSpace space) {
  const glm::dmat3 parentLinear(target.parentWorld);
  if (std::abs(glm::determinant(parentLinear)) < 1e-12 || heightPx <= 0) {
    return std::nullopt;
  }
  GizmoFrame frame;
  frame.origin = glm::dvec3(target.parentWorld * glm::dvec4(target.translation, 1.0));
  if (tool == GizmoTool::scale || space == GizmoSpace::local) {
    const glm::dmat3 own = parentLinear * rotationMatrixXYZ(target.rotation);
    for (int k = 0; k < 3; ++k) {
      frame.axes[static_cast<std::size_t>(k)] = glm::normalize(own[k]);
    }
  }
  const glm::dvec3 eye(eyePosition(camera));
  const glm::dvec3 forward = glm::normalize(glm::dvec3(camera.target) - eye);
  const double depth = glm::dot(frame.origin - eye, forward);
  const double nearPlane = std::max(camera.distance * 0.001, 1e-4);
  if (!(depth > nearPlane)) {
    return std::nullopt;
  }
  frame.sizePx = std::clamp(0.18 * heightPx, 48.0, 140.0);
  const double unitsPerPixel =
      2.0 * depth * std::tan(glm::radians(static_cast<double>(camera.fovYDegrees)) * 0.5) /
      heightPx;
  frame.size = frame.sizePx * unitsPerPixel;
  frame.towardEye = glm::normalize(eye - frame.origin);
  return frame;
}

bool isGizmoHandleUsable(const GizmoFrame& frame, GizmoTool tool, GizmoHandle handle) {
  const int k = axisIndex(handle);
  if (k >= 0) {
    const double facing =
        std::abs(glm::dot(frame.axes[static_cast<std::size_t>(k)], frame.towardEye));
    // A ring is usable from every side; an arrow or shaft pointing at the eye is a dot.
    return tool == GizmoTool::rotate || facing < kAxisTowardEyeLimit;
  }
  if (handle == GizmoHandle::centre) {
    return tool != GizmoTool::rotate;
  }
  if (tool != GizmoTool::translate) {
    return false;
  }
  const glm::dvec3& normal = frame.axes[static_cast<std::size_t>(planeAxes(handle)[2])];
  return std::abs(glm::dot(normal, frame.towardEye)) > kPlaneEdgeOnLimit;
}

std::optional<GizmoHandle> hitGizmoHandle(const OrbitCamera& camera, int widthPx, int heightPx,
                                          double xPx, double yPx, const GizmoTarget& target,
                                          GizmoTool tool, GizmoSpace space) {
  const auto frame = gizmoFrame(camera, heightPx, target, tool, space);
  if (!frame) {
    return std::nullopt;
  }
  const auto project = [&](const glm::dvec3& p) {
    return projectToPixel(camera, widthPx, heightPx, p);
  };
  const glm::dvec2 pointer(xPx, yPx);
  const auto origin = project(frame->origin);
  if (!origin) {
    return std::nullopt;
  }
  if (isGizmoHandleUsable(*frame, tool, GizmoHandle::centre) &&
      glm::length(pointer - *origin) <= kCentrePx) {
    return GizmoHandle::centre;
  }
  if (tool == GizmoTool::translate) {
    for (const GizmoHandle plane : kPlanes) {
      if (!isGizmoHandleUsable(*frame, tool, plane)) {
        continue;
      }
      const auto axes = planeAxes(plane);
      const glm::dvec3 u = frame->axes[static_cast<std::size_t>(axes[0])] * frame->size;
      const glm::dvec3 v = frame->axes[static_cast<std::size_t>(axes[1])] * frame->size;
      std::array<glm::dvec2, 4> quad;
      const double corners[4][2] = {{kPlaneFrom, kPlaneFrom},
                                    {kPlaneTo, kPlaneFrom},
                                    {kPlaneTo, kPlaneTo},
                                    {kPlaneFrom, kPlaneTo}};
      bool visible = true;
      for (std::size_t i = 0; i < 4; ++i) {
        const auto p = project(frame->origin + u * corners[i][0] + v * corners[i][1]);
        visible = visible && p.has_value();
        quad[i] = p.value_or(glm::dvec2(0));
      }
      if (visible && insideQuad(pointer, quad)) {
        return plane;
      }
    }
  }
  std::optional<GizmoHandle> best;
  double bestDistance = kHitPx;
  for (const GizmoHandle axis : kAxes) {
    if (!isGizmoHandleUsable(*frame, tool, axis)) {
      continue;
    }
    const int k = axisIndex(axis);
    double distance = std::numeric_limits<double>::max();
    if (tool == GizmoTool::rotate) {
      std::optional<glm::dvec2> previous;
      for (int i = 0; i <= kRingSamples; ++i) {
        const double angle = 2.0 * std::numbers::pi * i / kRingSamples;
        const auto p = project(ringPoint(*frame, k, angle));
        if (p && previous) {
          distance = std::min(distance, distanceToSegment(pointer, *previous, *p));
        }
        previous = p;
      }
    } else {
      const glm::dvec3& a = frame->axes[static_cast<std::size_t>(k)];
      const auto from = project(frame->origin + a * (frame->size * kAxisStart));
      const auto to = project(frame->origin + a * frame->size);
      if (from && to) {
        distance = distanceToSegment(pointer, *from, *to);
      }
    }
    if (distance <= bestDistance) {
      bestDistance = distance;
      best = axis;
    }
  }
  return best;
}

std::optional<GizmoDrag> GizmoDrag::begin(const OrbitCamera& camera, int widthPx, int heightPx,
                                          double xPx, double yPx, const GizmoTarget& target,
                                          GizmoTool tool, GizmoSpace space) {
  if (widthPx <= 0 || heightPx <= 0) {
    return std::nullopt;
  }
  const auto handle = hitGizmoHandle(camera, widthPx, heightPx, xPx, yPx, target, tool, space);
  if (!handle) {
    return std::nullopt;
  }
  GizmoDrag drag;
  drag.camera_ = camera;
  drag.widthPx_ = widthPx;
  drag.heightPx_ = heightPx;
  drag.target_ = target;
  drag.tool_ = tool;
  drag.space_ = space;
  drag.handle_ = *handle;
  drag.frame_ = *gizmoFrame(camera, heightPx, target, tool, space);
  drag.pressPx_ = {xPx, yPx};
  const int k = axisIndex(*handle);
  if (tool == GizmoTool::rotate) {
    const glm::dvec3& axis = drag.frame_.axes[static_cast<std::size_t>(k)];
    const DRay ray = pixelRayAt(camera, widthPx, heightPx, xPx, yPx);
    const auto onPlane = drag.planePoint(axis, xPx, yPx);
    drag.ringEdgeOn_ = std::abs(glm::dot(ray.direction, axis)) < kRingEdgeOnLimit || !onPlane;
    if (!drag.ringEdgeOn_) {
      drag.pressPoint_ = *onPlane;
      return drag;
    }
    // Seen edge-on, the ring's plane gives no angle: the pointer's travel along the ring's
    // direction of positive turn at the grabbed point does.
    double nearest = std::numeric_limits<double>::max();
    glm::dvec3 grabbed = ringPoint(drag.frame_, k, 0);
    for (int i = 0; i < kRingSamples; ++i) {
      const glm::dvec3 p = ringPoint(drag.frame_, k, 2.0 * std::numbers::pi * i / kRingSamples);
      const auto px = projectToPixel(camera, widthPx, heightPx, p);
      if (px && glm::length(*px - drag.pressPx_) < nearest) {
        nearest = glm::length(*px - drag.pressPx_);
        grabbed = p;
      }
    }
    const glm::dvec3 tangent = glm::cross(axis, grabbed - drag.frame_.origin);
    const auto a = projectToPixel(camera, widthPx, heightPx, grabbed);
    const auto b = projectToPixel(camera, widthPx, heightPx, grabbed + tangent * 0.01);
    if (a && b && glm::length(*b - *a) > 1e-9) {
      drag.ringTangentPx_ = glm::normalize(*b - *a);
    }
    return drag;
  }
  if (k >= 0) {
    drag.pressParameter_ =
        drag.axisParameter(drag.frame_.axes[static_cast<std::size_t>(k)], xPx, yPx);
  } else if (*handle == GizmoHandle::centre) {
    drag.pressPoint_ =
        drag.planePoint(drag.frame_.towardEye, xPx, yPx).value_or(drag.frame_.origin);
  } else {
    const glm::dvec3& normal = drag.frame_.axes[static_cast<std::size_t>(planeAxes(*handle)[2])];
    drag.pressPoint_ = drag.planePoint(normal, xPx, yPx).value_or(drag.frame_.origin);
  }
  return drag;
}

std::string GizmoDrag::propertyName() const {
  switch (tool_) {
    case GizmoTool::translate:
      return "translation";
    case GizmoTool::rotate:
      return "rotation";
    case GizmoTool::scale:
      return "scale";
  }
  return "translation";
}

double GizmoDrag::axisParameter(const glm::dvec3& axis, double xPx, double yPx) const {
  // The point of the axis line nearest to the pointer's ray.
  const DRay ray = pixelRayAt(camera_, widthPx_, heightPx_, xPx, yPx);
  const glm::dvec3 w = frame_.origin - ray.origin;
  const double b = glm::dot(axis, ray.direction);
  const double denominator = 1.0 - b * b;
  if (denominator < 1e-9) {
    return pressParameter_;  // the ray runs along the axis: no movement can be read
  }
  const double t = (b * glm::dot(ray.direction, w) - glm::dot(axis, w)) / denominator;
  // Near the axis's vanishing point the nearest point runs off to infinity; a drag never
  // moves further than a thousand handle lengths.
  const double limit = 1000.0 * frame_.size;
  return std::clamp(t, -limit, limit);
}

std::optional<glm::dvec3> GizmoDrag::planePoint(const glm::dvec3& normal, double xPx,
                                                double yPx) const {
  const DRay ray = pixelRayAt(camera_, widthPx_, heightPx_, xPx, yPx);
  const double facing = glm::dot(ray.direction, normal);
  if (std::abs(facing) < 1e-9) {
    return std::nullopt;
  }
  const double t = glm::dot(frame_.origin - ray.origin, normal) / facing;
  if (t <= 0) {
    return std::nullopt;  // the plane is behind the eye along this ray
  }
  const glm::dvec3 point = ray.origin + ray.direction * t;
  const glm::dvec3 offset = point - frame_.origin;
  const double limit = 1000.0 * frame_.size;
  return glm::length(offset) > limit ? frame_.origin + glm::normalize(offset) * limit : point;
}

std::array<double, 3> GizmoDrag::valuesAt(double xPx, double yPx) const {
  switch (tool_) {
    case GizmoTool::translate:
      return translationAt(xPx, yPx);
    case GizmoTool::rotate:
      return rotationAt(xPx, yPx);
    case GizmoTool::scale:
      return scaleAt(xPx, yPx);
  }
  return {};
}

std::array<double, 3> GizmoDrag::translationAt(double xPx, double yPx) const {
  glm::dvec3 worldDelta(0.0);
  const int k = axisIndex(handle_);
  if (k >= 0) {
    const glm::dvec3& axis = frame_.axes[static_cast<std::size_t>(k)];
    worldDelta = axis * (axisParameter(axis, xPx, yPx) - pressParameter_);
  } else {
    const glm::dvec3 normal = handle_ == GizmoHandle::centre
                                  ? frame_.towardEye
                                  : frame_.axes[static_cast<std::size_t>(planeAxes(handle_)[2])];
    const auto point = planePoint(normal, xPx, yPx);
    worldDelta = point ? *point - pressPoint_ : glm::dvec3(0.0);
    // What is left off the plane by rounding must not creep in.
    worldDelta -= normal * glm::dot(worldDelta, normal);
  }
  const glm::dvec3 delta = glm::inverse(glm::dmat3(target_.parentWorld)) * worldDelta;
  const glm::dvec3 value = target_.translation + delta;
  return {value.x, value.y, value.z};
}

std::array<double, 3> GizmoDrag::rotationAt(double xPx, double yPx) const {
  const int k = axisIndex(handle_);
  const glm::dvec3& axis = frame_.axes[static_cast<std::size_t>(k)];
  double radians = 0.0;
  if (ringEdgeOn_) {
    radians = glm::dot(glm::dvec2(xPx, yPx) - pressPx_, ringTangentPx_) / frame_.sizePx;
  } else if (const auto point = planePoint(axis, xPx, yPx)) {
    const glm::dvec3 from = pressPoint_ - frame_.origin;
    const glm::dvec3 to = *point - frame_.origin;
    radians = std::atan2(glm::dot(glm::cross(from, to), axis), glm::dot(from, to));
  }
  // The turn happens about a world axis; in the parent's space that axis is the parent's
  // rotation undone (its scale left out).
  const glm::dmat3 parentRotation = orthonormalised(glm::dmat3(target_.parentWorld));
  const glm::dvec3 parentAxis = glm::normalize(glm::transpose(parentRotation) * axis);
  const glm::dmat3 start = rotationMatrixXYZ(target_.rotation);
  const glm::dmat3 turned = axisRotation(parentAxis, radians) * start;
  // Small turns change the angles at these rates; following them keeps a long turn about one
  // axis counting past 180° instead of jumping to the other side.
  const glm::dvec3 r = glm::radians(target_.rotation);
  const glm::dmat3 rz = axisRotation({0, 0, 1}, r.z);
  const glm::dmat3 rates(rz * axisRotation({0, 1, 0}, r.y) * glm::dvec3(1, 0, 0),
                         rz * glm::dvec3(0, 1, 0), glm::dvec3(0, 0, 1));
  glm::dvec3 near = target_.rotation;
  if (std::abs(glm::determinant(rates)) > 1e-6) {
    near += glm::inverse(rates) * parentAxis * glm::degrees(radians);
  }
  const glm::dvec3 angles = anglesXYZNear(turned, near);
  return {angles.x, angles.y, angles.z};
}

std::array<double, 3> GizmoDrag::scaleAt(double xPx, double yPx) const {
  glm::dvec3 value = target_.scale;
  if (handle_ == GizmoHandle::centre) {
    const glm::dvec2 travel = glm::dvec2(xPx, yPx) - pressPx_;
    // Right or up grows, left or down shrinks: one handle length doubles the size.
    const double ratio = std::max(1.0 + (travel.x - travel.y) / frame_.sizePx, kMinScaleRatio);
    value *= ratio;
    return {value.x, value.y, value.z};
  }
  const int k = axisIndex(handle_);
  const glm::dvec3& axis = frame_.axes[static_cast<std::size_t>(k)];
  const double now = axisParameter(axis, xPx, yPx);
  const double ratio =
      std::abs(pressParameter_) > 1e-12 ? std::max(now / pressParameter_, kMinScaleRatio) : 1.0;
  value[k] *= ratio;
  return {value.x, value.y, value.z};
}

}  // namespace orvan::engine
