#include "Viewport/Geometry.h"

#include <cmath>
#include <numbers>

namespace orvan::engine {
namespace {

// One point of a profile turned around the Y axis: distance from the axis, height, and the
// normal's (outward, up) parts.
struct ProfilePoint {
  float radius;
  float y;
  float normalOut;
  float normalUp;
};

// Turns a profile around Y: consecutive points make a band, counter-clockwise seen from outside
// when the profile runs upward on the outside.
void addRevolution(TriangleMesh& mesh, const std::vector<ProfilePoint>& profile, int segments) {
  const auto first = static_cast<std::uint32_t>(mesh.positions.size());
  const auto columns = static_cast<std::uint32_t>(segments + 1);
  for (const ProfilePoint& point : profile) {
    for (int j = 0; j <= segments; ++j) {
      const float phi =
          2.0f * std::numbers::pi_v<float> * static_cast<float>(j) / static_cast<float>(segments);
      const float s = std::sin(phi);
      const float c = std::cos(phi);
      mesh.positions.emplace_back(point.radius * s, point.y, point.radius * c);
      mesh.normals.push_back(
          glm::normalize(glm::vec3(point.normalOut * s, point.normalUp, point.normalOut * c)));
    }
  }
  for (std::uint32_t i = 0; i + 1 < profile.size(); ++i) {
    for (std::uint32_t j = 0; j < static_cast<std::uint32_t>(segments); ++j) {
      const std::uint32_t a = first + i * columns + j;
      const std::uint32_t b = a + 1;
      const std::uint32_t c = a + columns;
      const std::uint32_t d = c + 1;
      mesh.indices.insert(mesh.indices.end(), {a, b, c, b, d, c});
    }
  }
}

// A shape built along Y, turned so that Y becomes the given axis (a cyclic swap, so the winding
// stays as it was).
glm::vec3 alongAxis(const glm::vec3& v, ShapeAxis axis) {
  switch (axis) {
    case ShapeAxis::X:
      return {v.y, v.z, v.x};
    case ShapeAxis::Y:
      return v;
    case ShapeAxis::Z:
      return {v.z, v.x, v.y};
  }
  return v;
}

TriangleMesh turnedTo(TriangleMesh mesh, ShapeAxis axis) {
  for (glm::vec3& p : mesh.positions) {
    p = alongAxis(p, axis);
  }
  for (glm::vec3& n : mesh.normals) {
    n = alongAxis(n, axis);
  }
  return mesh;
}

std::vector<ProfilePoint> disc(float y, float radius, bool facingUp) {
  if (facingUp) {
    return {{radius, y, 0, 1}, {0, y, 0, 1}};
  }
  return {{0, y, 0, -1}, {radius, y, 0, -1}};
}

// Rings of a sphere of `radius` from latitude `from` to `to` (radians), centred at height `y`.
void addArc(std::vector<ProfilePoint>& profile, float radius, float y, float from, float to,
            int rings) {
  for (int i = 0; i <= rings; ++i) {
    const float t = from + (to - from) * static_cast<float>(i) / static_cast<float>(rings);
    profile.push_back({radius * std::cos(t), y + radius * std::sin(t), std::cos(t), std::sin(t)});
  }
}

}  // namespace

std::optional<ShapeAxis> parseShapeAxis(std::string_view token) {
  if (token == "X") {
    return ShapeAxis::X;
  }
  if (token == "Y") {
    return ShapeAxis::Y;
  }
  if (token == "Z") {
    return ShapeAxis::Z;
  }
  return std::nullopt;
}

Tessellation tessellationForPrimCount(std::size_t primCount) {
  if (primCount <= 1'000) {
    return {32, 16};
  }
  if (primCount <= 10'000) {
    return {16, 8};
  }
  return {8, 4};
}

TriangleMesh tessellateCube(float size) {
  TriangleMesh mesh;
  const float h = size * 0.5f;
  const glm::vec3 axes[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  for (int face = 0; face < 6; ++face) {
    const float sign = face < 3 ? 1.0f : -1.0f;
    const glm::vec3 n = axes[face % 3] * sign;
    const glm::vec3 u = axes[(face + 1) % 3] * sign;
    const glm::vec3 v = glm::cross(n, u);
    const auto first = static_cast<std::uint32_t>(mesh.positions.size());
    for (const glm::vec2 corner :
         {glm::vec2(-1, -1), glm::vec2(1, -1), glm::vec2(1, 1), glm::vec2(-1, 1)}) {
      mesh.positions.push_back((n + u * corner.x + v * corner.y) * h);
      mesh.normals.push_back(n);
    }
    mesh.indices.insert(mesh.indices.end(),
                        {first, first + 1, first + 2, first, first + 2, first + 3});
  }
  return mesh;
}

TriangleMesh tessellateSphere(float radius, const Tessellation& detail) {
  TriangleMesh mesh;
  std::vector<ProfilePoint> profile;
  addArc(profile, radius, 0, -std::numbers::pi_v<float> / 2, std::numbers::pi_v<float> / 2,
         detail.rings);
  addRevolution(mesh, profile, detail.segments);
  return mesh;
}

TriangleMesh tessellateCylinder(float height, float radius, ShapeAxis axis,
                                const Tessellation& detail) {
  TriangleMesh mesh;
  const float h = height * 0.5f;
  addRevolution(mesh, {{radius, -h, 1, 0}, {radius, h, 1, 0}}, detail.segments);
  addRevolution(mesh, disc(-h, radius, false), detail.segments);
  addRevolution(mesh, disc(h, radius, true), detail.segments);
  return turnedTo(std::move(mesh), axis);
}

TriangleMesh tessellateCone(float height, float radius, ShapeAxis axis,
                            const Tessellation& detail) {
  TriangleMesh mesh;
  const float h = height * 0.5f;
  // The side's normal leans up by the slope: perpendicular to (−radius, height) in (out, up).
  const float length = std::hypot(height, radius);
  const float out = length > 0 ? height / length : 1.0f;
  const float up = length > 0 ? radius / length : 0.0f;
  addRevolution(mesh, {{radius, -h, out, up}, {0, h, out, up}}, detail.segments);
  addRevolution(mesh, disc(-h, radius, false), detail.segments);
  return turnedTo(std::move(mesh), axis);
}

TriangleMesh tessellateCapsule(float height, float radius, ShapeAxis axis,
                               const Tessellation& detail) {
  TriangleMesh mesh;
  const float h = height * 0.5f;
  const int half = std::max(1, detail.rings / 2);
  std::vector<ProfilePoint> profile;
  addArc(profile, radius, -h, -std::numbers::pi_v<float> / 2, 0, half);
  addArc(profile, radius, h, 0, std::numbers::pi_v<float> / 2, half);
  addRevolution(mesh, profile, detail.segments);
  return turnedTo(std::move(mesh), axis);
}

TriangleMesh tessellatePlane(float width, float length, ShapeAxis axis) {
  // Built facing +Y (width along X, length along Z), then turned to face the axis.
  TriangleMesh mesh;
  const float w = width * 0.5f;
  const float l = length * 0.5f;
  mesh.positions = {{-w, 0, l}, {w, 0, l}, {w, 0, -l}, {-w, 0, -l}};
  mesh.normals.assign(4, glm::vec3(0, 1, 0));
  mesh.indices = {0, 1, 2, 0, 2, 3};
  switch (axis) {
    case ShapeAxis::X:  // width along Z, length along Y
      for (glm::vec3& p : mesh.positions) {
        p = {0, -p.z, p.x};
      }
      mesh.normals.assign(4, glm::vec3(1, 0, 0));
      break;
    case ShapeAxis::Y:
      break;
    case ShapeAxis::Z:  // width along X, length along Y
      for (glm::vec3& p : mesh.positions) {
        p = {p.x, -p.z, 0};
      }
      mesh.normals.assign(4, glm::vec3(0, 0, 1));
      break;
  }
  return mesh;
}

MeshBuildResult triangulateMesh(const MeshInput& input) {
  MeshBuildResult result;
  std::size_t total = 0;
  for (const int count : input.faceVertexCounts) {
    if (count < 3) {
      result.error = "a face has " + std::to_string(count) + " vertices; at least 3 are needed";
      return result;
    }
    total += static_cast<std::size_t>(count);
  }
  if (total != input.faceVertexIndices.size()) {
    result.error = "the face counts add up to " + std::to_string(total) + " vertices but " +
                   std::to_string(input.faceVertexIndices.size()) + " indices are given";
    return result;
  }
  for (const int index : input.faceVertexIndices) {
    if (index < 0 || static_cast<std::size_t>(index) >= input.points.size()) {
      result.error = "the vertex index " + std::to_string(index) + " is outside the " +
                     std::to_string(input.points.size()) + " points";
      return result;
    }
  }
  const bool perPoint = !input.normals.empty() && input.normals.size() == input.points.size();
  const bool perCorner = !input.normals.empty() && !perPoint && input.normals.size() == total;
  const std::size_t colorCount = input.colors.size();
  const bool colorPerPoint = colorCount > 1 && colorCount == input.points.size();
  const bool colorPerCorner = colorCount > 1 && !colorPerPoint && colorCount == total;
  const bool colorPerFace = colorCount > 1 && !colorPerPoint && !colorPerCorner &&
                            colorCount == input.faceVertexCounts.size();
  TriangleMesh& mesh = result.mesh;
  std::size_t corner = 0;
  std::size_t face = 0;
  for (const int count : input.faceVertexCounts) {
    const auto first = static_cast<std::uint32_t>(mesh.positions.size());
    for (int k = 0; k < count; ++k) {
      const auto index = static_cast<std::size_t>(input.faceVertexIndices[corner + k]);
      mesh.positions.push_back(input.points[index]);
      if (colorPerPoint) {
        mesh.colors.push_back(input.colors[index]);
      } else if (colorPerCorner) {
        mesh.colors.push_back(input.colors[corner + k]);
      } else if (colorPerFace) {
        mesh.colors.push_back(input.colors[face]);
      }
      if (perPoint) {
        mesh.normals.push_back(input.normals[index]);
      } else if (perCorner) {
        mesh.normals.push_back(input.normals[corner + k]);
      }
    }
    if (!perPoint && !perCorner) {
      // Newell's normal: right for any planar polygon, sensible for a bent one.
      glm::vec3 normal(0);
      for (int k = 0; k < count; ++k) {
        const glm::vec3& a = mesh.positions[first + k];
        const glm::vec3& b = mesh.positions[first + (k + 1) % count];
        normal += glm::vec3((a.y - b.y) * (a.z + b.z), (a.z - b.z) * (a.x + b.x),
                            (a.x - b.x) * (a.y + b.y));
      }
      const float length = glm::length(normal);
      mesh.normals.insert(mesh.normals.end(), static_cast<std::size_t>(count),
                          length > 0 ? normal / length : glm::vec3(0, 1, 0));
    }
    for (int k = 1; k + 1 < count; ++k) {
      mesh.indices.insert(mesh.indices.end(), {first, first + static_cast<std::uint32_t>(k),
                                               first + static_cast<std::uint32_t>(k + 1)});
    }
    corner += static_cast<std::size_t>(count);
    ++face;
  }
  return result;
}

Bounds meshBounds(const TriangleMesh& mesh, const glm::mat4& transform) {
  Bounds bounds;
  for (const glm::vec3& p : mesh.positions) {
    bounds.add(glm::vec3(transform * glm::vec4(p, 1.0f)));
  }
  return bounds;
}

}  // namespace orvan::engine
