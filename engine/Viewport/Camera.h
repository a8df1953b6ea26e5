#pragma once

#include <glm/glm.hpp>

#include "Viewport/Geometry.h"

namespace orvan::engine {

// A camera that circles a target point. With yaw and pitch 0 it sits on +Z of the target and
// looks down -Z; a positive pitch lifts it above the target.
struct OrbitCamera {
  glm::vec3 target{0.0f};
  float distance = 5.0f;
  float yawDegrees = 0.0f;
  float pitchDegrees = 0.0f;  // kept within ±89 so that the view never flips
  float fovYDegrees = 45.0f;
};

struct Ray {
  glm::vec3 origin;
  glm::vec3 direction;  // normalised
};

glm::vec3 eyePosition(const OrbitCamera& camera);
glm::mat4 viewMatrix(const OrbitCamera& camera);
// Near and far planes follow the distance, so a close-up and a far view both keep their depth.
glm::mat4 projectionMatrix(const OrbitCamera& camera, float aspect);

OrbitCamera orbit(OrbitCamera camera, float yawDegrees, float pitchDegrees);
// Moves the target in the view plane by a drag of (dx, dy) pixels (y down) in a viewport of
// `viewportHeight` pixels: what was under the cursor stays under it at the target's depth.
OrbitCamera pan(OrbitCamera camera, float dx, float dy, int viewportHeight);
// factor < 1 moves closer, > 1 away; the distance never reaches zero.
OrbitCamera zoom(OrbitCamera camera, float factor);
// Looks at the bounds from the current direction, close enough that they fill the view: "frame
// selected" with the selection's bounds, "frame all" with the scene's. `aspect` (width / height)
// below 1 backs off so that the bounds fit across too.
OrbitCamera frameBounds(OrbitCamera camera, const Bounds& bounds, float aspect = 1.0f);
// A step of flying: eye and target move together, `forward` along the view, `right` across it
// (level with the ground) and `up` along the world's up, all in world units.
OrbitCamera fly(OrbitCamera camera, float forward, float right, float up);
// Turns the view about the eye instead of the target: the eye stays where it is.
OrbitCamera lookAround(OrbitCamera camera, float yawDegrees, float pitchDegrees);

// The ray from the eye through the centre of pixel (x, y) of a width × height image, y counted
// from the top.
Ray pixelRay(const OrbitCamera& camera, int width, int height, int x, int y);

}  // namespace orvan::engine
