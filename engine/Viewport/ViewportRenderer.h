#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Viewport/Camera.h"
#include "Viewport/SceneModel.h"

namespace orvan::engine {

// A rendered picture: 8-bit RGBA, rows from the top, 4 * width bytes per row.
struct Frame {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgba;

  // The pixel at (x, y), y from the top.
  glm::u8vec4 pixel(int x, int y) const {
    const std::size_t at = (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                            static_cast<std::size_t>(x)) *
                           4;
    return {rgba[at], rgba[at + 1], rgba[at + 2], rgba[at + 3]};
  }
};

struct RenderResult {
  Frame frame;
  std::string error;  // empty on success
};

// Draws a Scene offscreen with OpenGL 3.3 core in a headless EGL context (no window, no display
// server; software rendering where there is no GPU) and reads the picture back. One renderer
// owns its context and must be used from one thread.
class ViewportRenderer {
 public:
  struct CreateResult {
    std::unique_ptr<ViewportRenderer> renderer;
    std::string error;  // why no context could be had, when renderer is null
  };
  static CreateResult create();

  ~ViewportRenderer();
  ViewportRenderer(const ViewportRenderer&) = delete;
  ViewportRenderer& operator=(const ViewportRenderer&) = delete;

  // Replaces what is drawn: the scene's triangles go to the GPU now, in world space and merged
  // into a few buffers, so a frame costs a few draw calls however many prims there are.
  void setScene(const Scene& scene);
  // A frame of up to 7680 × 4320 pixels (and within the GL's renderbuffer limit).
  RenderResult render(const OrbitCamera& camera, int width, int height);
  // The same frame read straight into `pixels` (blue, green, red, alpha bytes; rows from the top,
  // `rowBytes` apart, at least 4 * width) with no copy on the way: the picture is drawn upside
  // down, so that GL's bottom-up read lands top-down. Empty on success, else why not.
  std::string renderInto(const OrbitCamera& camera, int width, int height, std::uint8_t* pixels,
                         std::size_t rowBytes);
  // The GL_RENDERER and GL_VERSION strings of the context.
  std::string describe() const;

  struct Impl;

 private:
  explicit ViewportRenderer(std::unique_ptr<Impl> impl);
  // Draws into the offscreen framebuffer; `flipRows` mirrors the picture top to bottom.
  std::string draw(const OrbitCamera& camera, int width, int height, bool flipRows);
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvan::engine
