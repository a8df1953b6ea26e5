#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "Viewport/Camera.h"
#include "Viewport/Gizmo.h"
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

// The gizmo of the prim being edited; `highlighted` is the handle under the pointer or held.
struct GizmoOverlay {
  GizmoTarget target;
  GizmoTool tool = GizmoTool::translate;
  GizmoSpace space = GizmoSpace::world;
  std::optional<GizmoHandle> highlighted;
};

// What is drawn over the scene: the ground grid (lines every unit on y = 0, every ten units
// stronger, fading out with distance), an outline around the selected prims and their subtrees,
// and the gizmo, always in front.
struct RenderOverlays {
  bool grid = true;
  std::vector<std::string> selectedPaths;
  std::optional<GizmoOverlay> gizmo;
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
  // Sends again the triangles of the objects at `objectIndices` of `scene`, which is the scene
  // last given to setScene with only those objects moved (SceneModel::movedObjects). A scene of
  // other objects is sent whole instead.
  void moveObjects(const Scene& scene, std::span<const std::size_t> objectIndices);
  // A frame of up to 7680 × 4320 pixels (and within the GL's renderbuffer limit).
  RenderResult render(const OrbitCamera& camera, int width, int height,
                      const RenderOverlays& overlays = {});
  // The same frame read straight into `pixels` (blue, green, red, alpha bytes; rows from the top,
  // `rowBytes` apart, at least 4 * width) with no copy on the way: the picture is drawn upside
  // down, so that GL's bottom-up read lands top-down. Empty on success, else why not.
  std::string renderInto(const OrbitCamera& camera, int width, int height, std::uint8_t* pixels,
                         std::size_t rowBytes, const RenderOverlays& overlays = {});
  // The GL_RENDERER and GL_VERSION strings of the context.
  std::string describe() const;

  struct Impl;

 private:
  explicit ViewportRenderer(std::unique_ptr<Impl> impl);
  // Draws into the offscreen framebuffer; `flipRows` mirrors the picture top to bottom.
  std::string draw(const OrbitCamera& camera, int width, int height, const RenderOverlays& overlays,
                   bool flipRows);
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvan::engine
