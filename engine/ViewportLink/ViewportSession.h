#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <glm/glm.hpp>

#include "Viewport/Camera.h"
#include "Viewport/ViewportRenderer.h"
#include "ViewportLink/SceneFeed.h"
#include "ViewportLink/SurfacePool.h"
#include "ViewportLink/ViewportInwardLine.h"
#include "orvan/wire/records/ViewportClientLine.h"

namespace orvan::engine {

// A property value shown in place of the scene's while the editor drags it (nothing is written).
struct PrimPreview {
  std::optional<glm::dvec3> translation;
  std::optional<glm::dvec3> rotation;  // degrees about X, then Y, then Z
  std::optional<glm::dvec3> scale;
  std::optional<glm::vec3> color;
};

// Reads a preview line into `previews`: sets or (with `clear`) removes one value. False when the
// line names nothing the viewport shows or its value is not three numbers.
bool applyPreviewLine(std::map<std::string, PrimPreview>& previews,
                      const ViewportPropertyPreview& line);

// How a drawn object looks before previews.
struct ObjectLook {
  glm::mat4 world{1.0f};
  glm::vec3 color{0.5f};
  Bounds bounds;
};
std::vector<ObjectLook> looksOf(const Scene& scene);

// Puts the drawn objects back to `base` and applies the previews: a transform moves the prim and
// everything below it, a colour recolours the prim. Bounds follow.
void showPreviews(Scene& scene, const std::vector<ObjectLook>& base, const Stage& stage,
                  const std::vector<glm::mat4>& worlds,
                  const std::map<std::string, PrimPreview>& previews);

// One runtime's viewport: the scene it shows, the camera, the editor's settings, and the frames
// it writes. Commands come from the client link; answers go out through `send`. Everything but
// `sceneArrived` runs on the thread that owns the GL context.
class ViewportSession {
 public:
  using Send = std::function<void(const editor::ViewportClientLine&)>;
  // `wake` is called (on any thread) when a loaded scene waits for `update`.
  ViewportSession(Send send, std::function<void()> wake);
  ~ViewportSession();

  void handle(const ViewportCommand& command);
  // The client went away: its frames will never be acknowledged.
  void clientGone();
  // Takes a loaded scene, if one came, and renders when something changed and a surface is
  // free. Returns true when a frame went out.
  bool update();
  bool wantsFrame() const;
  std::size_t outstandingFrames() const { return pool_.outstanding(); }

 private:
  void open(const ViewportOpen& open);
  void close();
  void sceneArrived(std::uint64_t generation, LoadedScene loaded);
  void takeLoadedScene();
  void pointer(const ViewportPointer& pointer);
  void gesture(const ViewportGesture& gesture);
  void frameTarget(bool all);
  void dropHover(const ViewportDropHover& hover);
  void cameraQuery();
  void key(const ViewportKey& key);
  void previewsChanged();
  // Where a left press on the selection starts a gizmo drag; true when it did.
  bool beginGizmoDrag(double xPx, double yTopPx);
  void status(std::string message);
  std::optional<std::string> pick(double xPx, double yTopPx) const;
  bool renderFrame();
  void logAcknowledged(std::uint64_t frameIndex);

  Send send_;
  std::function<void()> wake_;
  SurfacePool pool_;
  std::unique_ptr<ViewportRenderer> renderer_;
  bool rendererFailed_ = false;

  // The open scene and its feed.
  std::optional<ViewportOpen> open_;
  std::unique_ptr<SceneFeed> feed_;
  std::uint64_t generation_ = 0;
  std::mutex inboxMutex_;
  std::optional<std::pair<std::uint64_t, LoadedScene>> inbox_;

  // What is shown.
  LoadedScene shown_;
  std::vector<ObjectLook> base_;  // the objects as the scene says, before previews
  bool hasScene_ = false;
  bool sceneUploaded_ = false;
  bool cameraPlaced_ = false;
  OrbitCamera camera_;
  int widthPx_ = 0;
  int heightPx_ = 0;
  double scale_ = 1.0;
  bool dirty_ = false;
  std::uint64_t frameIndex_ = 0;

  // The editor's settings.
  std::string cameraMode_ = "free";
  std::string tool_ = "translate";
  std::string space_ = "world";
  std::vector<std::string> selection_;
  std::map<std::string, PrimPreview> previews_;
  bool gridVisible_ = true;

  // A pointer drag.
  struct Press {
    int button = 0;
    double x = 0.0, y = 0.0;  // where it went down, y from the top
    double lastX = 0.0, lastY = 0.0;
    bool dragging = false;
    bool gizmo = false;
  };
  std::optional<Press> press_;

  // With ORVAN_VIEWPORT_TIMING set, each acknowledged frame is logged on standard error with how
  // long it took to draw and how long its surface was out.
  bool timing_ = false;
  std::map<std::uint64_t, std::pair<std::chrono::steady_clock::time_point, double>> written_;
};

}  // namespace orvan::engine
