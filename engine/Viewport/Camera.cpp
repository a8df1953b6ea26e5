#include "Viewport/Camera.h"

#include <algorithm>
#include <cmath>

#include <glm/gtc/matrix_transform.hpp>

namespace orvan::engine {
namespace {

constexpr float kMaxPitch = 89.0f;
constexpr float kMinDistance = 1e-3f;

glm::vec3 viewDirectionToEye(const OrbitCamera& camera) {
  const float yaw = glm::radians(camera.yawDegrees);
  const float pitch = glm::radians(camera.pitchDegrees);
  return {std::cos(pitch) * std::sin(yaw), std::sin(pitch), std::cos(pitch) * std::cos(yaw)};
}

}  // namespace

glm::vec3 eyePosition(const OrbitCamera& camera) {
  return camera.target + viewDirectionToEye(camera) * camera.distance;
}

glm::mat4 viewMatrix(const OrbitCamera& camera) {
  return glm::lookAt(eyePosition(camera), camera.target, glm::vec3(0, 1, 0));
}

glm::mat4 projectionMatrix(const OrbitCamera& camera, float aspect) {
  const float nearPlane = std::max(camera.distance * 0.001f, 1e-4f);
  const float farPlane = camera.distance * 1000.0f + 100.0f;
  return glm::perspective(glm::radians(camera.fovYDegrees), aspect, nearPlane, farPlane);
}

OrbitCamera orbit(OrbitCamera camera, float yawDegrees, float pitchDegrees) {
  camera.yawDegrees = std::fmod(camera.yawDegrees + yawDegrees, 360.0f);
  camera.pitchDegrees = std::clamp(camera.pitchDegrees + pitchDegrees, -kMaxPitch, kMaxPitch);
  return camera;
}

OrbitCamera pan(OrbitCamera camera, float dx, float dy, int viewportHeight) {
  if (viewportHeight <= 0) {
    return camera;
  }
  const float unitsPerPixel = 2.0f * camera.distance *
                              std::tan(glm::radians(camera.fovYDegrees) * 0.5f) /
                              static_cast<float>(viewportHeight);
  const glm::vec3 forward = -viewDirectionToEye(camera);
  const glm::vec3 right = glm::normalize(glm::cross(forward, glm::vec3(0, 1, 0)));
  const glm::vec3 up = glm::cross(right, forward);
  // Dragging right moves the scene right, so the target goes left.
  camera.target += (-right * dx + up * dy) * unitsPerPixel;
  return camera;
}

OrbitCamera zoom(OrbitCamera camera, float factor) {
  if (!(factor > 0.0f)) {
    return camera;
  }
  camera.distance = std::max(camera.distance * factor, kMinDistance);
  return camera;
}

OrbitCamera frameBounds(OrbitCamera camera, const Bounds& bounds, float aspect) {
  if (bounds.empty()) {
    return camera;
  }
  const float radius = std::max(glm::length(bounds.max - bounds.min) * 0.5f, kMinDistance);
  const float halfY = glm::radians(camera.fovYDegrees) * 0.5f;
  const float halfX = aspect > 0.0f ? std::atan(std::tan(halfY) * aspect) : halfY;
  camera.target = bounds.centre();
  camera.distance = radius / std::sin(std::min(halfX, halfY)) * 1.05f;
  return camera;
}

OrbitCamera fly(OrbitCamera camera, float forward, float right, float up) {
  const glm::vec3 ahead = -viewDirectionToEye(camera);
  const glm::vec3 across = glm::normalize(glm::cross(ahead, glm::vec3(0, 1, 0)));
  camera.target += ahead * forward + across * right + glm::vec3(0, up, 0);
  return camera;
}

OrbitCamera lookAround(OrbitCamera camera, float yawDegrees, float pitchDegrees) {
  const glm::vec3 eye = eyePosition(camera);
  camera = orbit(camera, yawDegrees, pitchDegrees);
  // The eye sits behind the target along the new direction; put the target in front of the eye.
  camera.target = eye - viewDirectionToEye(camera) * camera.distance;
  return camera;
}

Ray pixelRay(const OrbitCamera& camera, int width, int height, int x, int y) {
  const float aspect = static_cast<float>(width) / static_cast<float>(std::max(height, 1));
  const glm::mat4 inverse = glm::inverse(projectionMatrix(camera, aspect) * viewMatrix(camera));
  const float ndcX = 2.0f * (static_cast<float>(x) + 0.5f) / static_cast<float>(width) - 1.0f;
  const float ndcY = 1.0f - 2.0f * (static_cast<float>(y) + 0.5f) / static_cast<float>(height);
  const glm::vec4 farPoint = inverse * glm::vec4(ndcX, ndcY, 1.0f, 1.0f);
  // Every ray of a perspective view starts at the eye, so hit distances are from the eye.
  const glm::vec3 eye = eyePosition(camera);
  return {eye, glm::normalize(glm::vec3(farPoint) / farPoint.w - eye)};
}

}  // namespace orvan::engine
