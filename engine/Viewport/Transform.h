#pragma once

#include <span>
#include <string_view>

#include <glm/glm.hpp>

namespace orvan::engine {

// The local transform of a prim from its transform operations. `rotateXYZ` is in degrees and
// turns about X first, then Y, then Z. Operations apply in `order` (the first is outermost, as
// xformOpOrder lists them); with an empty order, translate then rotate then scale.
struct TransformOps {
  glm::dvec3 translate{0.0};
  glm::vec3 rotateXYZ{0.0f};
  glm::vec3 scale{1.0f};
};
enum class TransformOp : std::uint8_t { Translate, RotateXYZ, Scale };

glm::mat4 rotationXYZ(const glm::vec3& degrees);
glm::mat4 localTransform(const TransformOps& ops, std::span<const TransformOp> order);

}  // namespace orvan::engine
