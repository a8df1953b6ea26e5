#include "Viewport/GizmoMesh.h"

#include <numbers>

namespace orvan::engine {
namespace {

const glm::vec3 kAxisColors[3] = {{0.93f, 0.22f, 0.2f}, {0.35f, 0.82f, 0.2f}, {0.2f, 0.45f, 1.0f}};
const glm::vec3 kHighlight{1.0f, 0.85f, 0.15f};
const glm::vec3 kCentreColor{0.85f, 0.85f, 0.85f};

// Appends a mesh built along +Y, turned so that +Y runs along `axis`, then moved to `at`.
void addAlong(ColoredMesh& out, const TriangleMesh& part, const glm::dvec3& at,
              const glm::dvec3& axis, const glm::vec3& color) {
  const glm::vec3 y = glm::normalize(glm::vec3(axis));
  const glm::vec3 helper = std::abs(y.x) < 0.9f ? glm::vec3(1, 0, 0) : glm::vec3(0, 0, 1);
  const glm::vec3 x = glm::normalize(glm::cross(helper, y));
  const glm::vec3 z = glm::cross(x, y);
  const glm::mat3 basis(x, y, z);
  const auto first = static_cast<std::uint32_t>(out.mesh.positions.size());
  for (std::size_t i = 0; i < part.positions.size(); ++i) {
    out.mesh.positions.push_back(glm::vec3(at) + basis * part.positions[i]);
    out.mesh.normals.push_back(basis * part.normals[i]);
    out.colors.push_back(color);
  }
  for (const std::uint32_t index : part.indices) {
    out.mesh.indices.push_back(first + index);
  }
}

void addQuad(ColoredMesh& out, const std::array<glm::dvec3, 4>& corners, const glm::vec3& normal,
             const glm::vec3& color) {
  const auto first = static_cast<std::uint32_t>(out.mesh.positions.size());
  for (const glm::dvec3& corner : corners) {
    out.mesh.positions.emplace_back(corner);
    out.mesh.normals.push_back(normal);
    out.colors.push_back(color);
  }
  out.mesh.indices.insert(out.mesh.indices.end(),
                          {first, first + 1, first + 2, first, first + 2, first + 3});
}

// A ring of tube radius `tube` about axis k, through the other two axes.
void addRing(ColoredMesh& out, const GizmoFrame& frame, int k, float tube, const glm::vec3& color) {
  constexpr int kAround = 64;
  constexpr int kTube = 6;
  const glm::vec3 axis(frame.axes[static_cast<std::size_t>(k)]);
  const glm::vec3 u(frame.axes[static_cast<std::size_t>((k + 1) % 3)]);
  const glm::vec3 v(frame.axes[static_cast<std::size_t>((k + 2) % 3)]);
  const auto radius = static_cast<float>(frame.size);
  const auto first = static_cast<std::uint32_t>(out.mesh.positions.size());
  for (int i = 0; i <= kAround; ++i) {
    const float a = 2.0f * std::numbers::pi_v<float> * static_cast<float>(i) / kAround;
    const glm::vec3 out1 = u * std::cos(a) + v * std::sin(a);
    for (int j = 0; j <= kTube; ++j) {
      const float b = 2.0f * std::numbers::pi_v<float> * static_cast<float>(j) / kTube;
      const glm::vec3 normal = out1 * std::cos(b) + axis * std::sin(b);
      out.mesh.positions.push_back(glm::vec3(frame.origin) + out1 * radius + normal * tube);
      out.mesh.normals.push_back(normal);
      out.colors.push_back(color);
    }
  }
  constexpr auto columns = static_cast<std::uint32_t>(kTube + 1);
  for (std::uint32_t i = 0; i < kAround; ++i) {
    for (std::uint32_t j = 0; j < kTube; ++j) {
      const std::uint32_t a = first + i * columns + j;
      const std::uint32_t c = a + columns;
      out.mesh.indices.insert(out.mesh.indices.end(), {a, a + 1, c, a + 1, c + 1, c});
    }
  }
}

glm::vec3 colorOf(GizmoHandle handle, std::optional<GizmoHandle> highlighted,
                  const glm::vec3& color) {
  return highlighted == handle ? kHighlight : color;
}

}  // namespace

ColoredMesh buildGizmoMesh(const GizmoFrame& frame, GizmoTool tool,
                           std::optional<GizmoHandle> highlighted) {
  ColoredMesh out;
  const auto s = static_cast<float>(frame.size);
  const Tessellation detail{12, 2};
  constexpr GizmoHandle kAxes[] = {GizmoHandle::x, GizmoHandle::y, GizmoHandle::z};
  for (int k = 0; k < 3; ++k) {
    const GizmoHandle handle = kAxes[k];
    if (!isGizmoHandleUsable(frame, tool, handle)) {
      continue;
    }
    const glm::vec3 color = colorOf(handle, highlighted, kAxisColors[k]);
    const glm::dvec3& axis = frame.axes[static_cast<std::size_t>(k)];
    switch (tool) {
      case GizmoTool::translate:
        addAlong(out, tessellateCylinder(0.65f * s, 0.018f * s, ShapeAxis::Y, detail),
                 frame.origin + axis * (0.475 * frame.size), axis, color);
        addAlong(out, tessellateCone(0.2f * s, 0.06f * s, ShapeAxis::Y, detail),
                 frame.origin + axis * (0.9 * frame.size), axis, color);
        break;
      case GizmoTool::rotate:
        addRing(out, frame, k, 0.018f * s, color);
        break;
      case GizmoTool::scale:
        addAlong(out, tessellateCylinder(0.75f * s, 0.018f * s, ShapeAxis::Y, detail),
                 frame.origin + axis * (0.525 * frame.size), axis, color);
        addAlong(out, tessellateCube(0.1f * s), frame.origin + axis * (0.95 * frame.size), axis,
                 color);
        break;
    }
  }
  if (tool == GizmoTool::translate) {
    constexpr GizmoHandle kPlanes[] = {GizmoHandle::xy, GizmoHandle::yz, GizmoHandle::xz};
    constexpr int kPlaneAxes[3][3] = {{0, 1, 2}, {1, 2, 0}, {0, 2, 1}};
    for (int p = 0; p < 3; ++p) {
      if (!isGizmoHandleUsable(frame, tool, kPlanes[p])) {
        continue;
      }
      const glm::dvec3 u = frame.axes[static_cast<std::size_t>(kPlaneAxes[p][0])] * frame.size;
      const glm::dvec3 v = frame.axes[static_cast<std::size_t>(kPlaneAxes[p][1])] * frame.size;
      const glm::vec3 normal(frame.axes[static_cast<std::size_t>(kPlaneAxes[p][2])]);
      const glm::vec3 color = colorOf(kPlanes[p], highlighted, kAxisColors[kPlaneAxes[p][2]]);
      addQuad(out,
              {frame.origin + u * 0.25 + v * 0.25, frame.origin + u * 0.45 + v * 0.25,
               frame.origin + u * 0.45 + v * 0.45, frame.origin + u * 0.25 + v * 0.45},
              normal, color);
    }
  }
  if (isGizmoHandleUsable(frame, tool, GizmoHandle::centre)) {
    addAlong(out, tessellateCube(0.09f * s), frame.origin, frame.axes[1],
             colorOf(GizmoHandle::centre, highlighted, kCentreColor));
  }
  return out;
}

}  // namespace orvan::engine
