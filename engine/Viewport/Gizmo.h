#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include <glm/glm.hpp>

#include "Viewport/Camera.h"

namespace orvan::engine {

enum class GizmoTool : std::uint8_t { translate, rotate, scale };
// The axes the handles follow: the world's, or the prim's own (scale always uses the prim's own).
enum class GizmoSpace : std::uint8_t { world, local };
// An axis handle (arrow, ring or scale shaft), a plane handle of two axes (translate), or the
// centre handle (translate in the view plane, scale all axes alike).
enum class GizmoHandle : std::uint8_t { x, y, z, xy, yz, xz, centre };

// The prim being moved: its parent's world matrix and its own transform values, as the editor's
// Transform properties hold them (translation in scene units, rotation in degrees turned about X,
// then Y, then Z, scale factors), applied translate, rotate, scale.
struct GizmoTarget {
  std::string path;
  glm::dmat4 parentWorld{1.0};
  glm::dvec3 translation{0.0};
  glm::dvec3 rotation{0.0};
  glm::dvec3 scale{1.0};
};

// Where the handles of a target are drawn: the prim's origin, three unit axes (world space) and
// the world length of an axis handle, which keeps the gizmo one size on screen.
struct GizmoFrame {
  glm::dvec3 origin{0.0};
  std::array<glm::dvec3, 3> axes{glm::dvec3(1, 0, 0), glm::dvec3(0, 1, 0), glm::dvec3(0, 0, 1)};
  double size = 1.0;
  double sizePx = 1.0;
  glm::dvec3 towardEye{0, 0, 1};  // unit, from the origin to the eye
};

// The frame of the handles; nullopt when the origin is behind the camera or the parent's matrix
// cannot be inverted.
std::optional<GizmoFrame> gizmoFrame(const OrbitCamera& camera, int heightPx,
                                     const GizmoTarget& target, GizmoTool tool, GizmoSpace space);
// An axis that points at the eye, or a plane seen edge-on, cannot be dragged: it is neither
// drawn nor picked.
bool isGizmoHandleUsable(const GizmoFrame& frame, GizmoTool tool, GizmoHandle handle);
// The handle under pixel (xPx, yPx) (top-left origin), nearest first.
std::optional<GizmoHandle> hitGizmoHandle(const OrbitCamera& camera, int widthPx, int heightPx,
                                          double xPx, double yPx, const GizmoTarget& target,
                                          GizmoTool tool, GizmoSpace space);

// One drag of a handle, from the press to the pixel the pointer is at now. Pure: the values at a
// pixel depend only on the press and that pixel.
class GizmoDrag {
 public:
  // nullopt when the press misses every handle.
  static std::optional<GizmoDrag> begin(const OrbitCamera& camera, int widthPx, int heightPx,
                                        double xPx, double yPx, const GizmoTarget& target,
                                        GizmoTool tool, GizmoSpace space);
  // The new value of the dragged property: translation, rotation (degrees) or scale.
  std::array<double, 3> valuesAt(double xPx, double yPx) const;
  // "translation", "rotation" or "scale".
  std::string propertyName() const;
  GizmoTool tool() const { return tool_; }
  GizmoHandle handle() const { return handle_; }
  const GizmoTarget& target() const { return target_; }

 private:
  GizmoDrag() = default;
  double axisParameter(const glm::dvec3& axis, double xPx, double yPx) const;
  std::optional<glm::dvec3> planePoint(const glm::dvec3& normal, double xPx, double yPx) const;
  std::array<double, 3> translationAt(double xPx, double yPx) const;
  std::array<double, 3> rotationAt(double xPx, double yPx) const;
  std::array<double, 3> scaleAt(double xPx, double yPx) const;

  OrbitCamera camera_;
  int widthPx_ = 1;
  int heightPx_ = 1;
  GizmoTarget target_;
  GizmoTool tool_ = GizmoTool::translate;
  GizmoSpace space_ = GizmoSpace::world;
  GizmoHandle handle_ = GizmoHandle::x;
  GizmoFrame frame_;
  glm::dvec2 pressPx_{0.0};
  double pressParameter_ = 0.0;         // along the axis, at the press
  glm::dvec3 pressPoint_{0.0};          // on the dragged plane, at the press
  bool ringEdgeOn_ = false;             // a ring seen edge-on turns with the pointer's travel
  glm::dvec2 ringTangentPx_{1.0, 0.0};  // screen direction of a positive turn at the press
};

// The ray through a pixel given in continuous coordinates (top-left origin, pixel i spans
// [i, i + 1)), and a world point's place in those coordinates (nullopt behind the eye).
struct DRay {
  glm::dvec3 origin;
  glm::dvec3 direction;
};
DRay pixelRayAt(const OrbitCamera& camera, int widthPx, int heightPx, double xPx, double yPx);
std::optional<glm::dvec2> projectToPixel(const OrbitCamera& camera, int widthPx, int heightPx,
                                         const glm::dvec3& world);

// The rotation matrix of XYZ angles in degrees, and the angles of a rotation matrix nearest to
// `near` (each angle may differ by whole turns, and both solutions of a rotation are weighed).
glm::dmat3 rotationMatrixXYZ(const glm::dvec3& degrees);
glm::dvec3 anglesXYZNear(const glm::dmat3& rotation, const glm::dvec3& near);

}  // namespace orvan::engine
