#include "Viewport/Transform.h"

#include <glm/gtc/matrix_transform.hpp>

namespace orvan::engine {

glm::mat4 rotationXYZ(const glm::vec3& degrees) {
  const glm::mat4 identity(1.0f);
  const glm::mat4 rx = glm::rotate(identity, glm::radians(degrees.x), glm::vec3(1, 0, 0));
  const glm::mat4 ry = glm::rotate(identity, glm::radians(degrees.y), glm::vec3(0, 1, 0));
  const glm::mat4 rz = glm::rotate(identity, glm::radians(degrees.z), glm::vec3(0, 0, 1));
  return rz * ry * rx;
}

namespace {

glm::mat4 opMatrix(const TransformOps& ops, TransformOp op) {
  switch (op) {
    case TransformOp::Translate:
      return glm::translate(glm::mat4(1.0f), glm::vec3(ops.translate));
    case TransformOp::RotateXYZ:
      return rotationXYZ(ops.rotateXYZ);
    case TransformOp::Scale:
      return glm::scale(glm::mat4(1.0f), ops.scale);
  }
  return glm::mat4(1.0f);
}

}  // namespace

glm::mat4 localTransform(const TransformOps& ops, std::span<const TransformOp> order) {
  static constexpr TransformOp kDefaultOrder[] = {TransformOp::Translate, TransformOp::RotateXYZ,
                                                  TransformOp::Scale};
  const std::span<const TransformOp> ordered = order.empty() ? kDefaultOrder : order;
  glm::mat4 result(1.0f);
  for (const TransformOp op : ordered) {
    result = result * opMatrix(ops, op);
  }
  return result;
}

}  // namespace orvan::engine
