#pragma once

#include <optional>

#include "Viewport/Geometry.h"
#include "Viewport/Gizmo.h"

namespace orvan::engine {

// Triangles in world space with a colour per vertex.
struct ColoredMesh {
  TriangleMesh mesh;
  std::vector<glm::vec3> colors;
};

// The handles of a gizmo as drawn: arrows and plane squares (translate), rings (rotate), shafts
// ending in cubes (scale), a centre cube; X red, Y green, Z blue, the highlighted handle yellow.
// Handles that cannot be taken from this view are left out, as picking leaves them out.
ColoredMesh buildGizmoMesh(const GizmoFrame& frame, GizmoTool tool,
                           std::optional<GizmoHandle> highlighted);

}  // namespace orvan::engine
