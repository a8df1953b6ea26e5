#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <glm/glm.hpp>

#include "Viewport/Camera.h"
#include "Viewport/Gizmo.h"
#include "Viewport/SceneModel.h"
#include "Viewport/ViewportRenderer.h"
#include "ViewportLink/SceneFeed.h"
#include "ViewportLink/SurfacePool.h"
#include "ViewportLink/ViewportInwardLine.h"
#include "orvan/wire/records/ViewportClientLine.h"

namespace orvan::engine {

// An editor preview line as the scene model takes it: `displayColor` (or the attribute's own name)
// and a `color` outside the components that have one are a shape's colour, and a value in
// parentheses ("(1, 2, 3)") loses them.
ViewportPropertyPreview normalisedPreview(ViewportPropertyPreview line);

// The transformCommit line of one step of a gizmo drag.
editor::ViewportClientLine transformCommitLine(const std::string& path, const std::string& property,
                                               const std::array<double, 3>& values,
                                               const std::string& sessionId, bool final,
                                               bool duplicate);

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
  void preview(const ViewportPropertyPreview& line);
  // Where a left press on a handle of the selected prim's gizmo starts a drag; true when it did.
  // `modifiers` are the press's (option asks for a duplicate).
  bool beginGizmoDrag(double xPx, double yTopPx, unsigned modifiers);
  void dragGizmo(double xPx, double yTopPx);
  void endGizmoDrag(double xPx, double yTopPx, double pressX, double pressY);
  void hover(double xPx, double yTopPx);
  // The selected prim's gizmo (the first of several), as the tool line asks for it.
  std::optional<GizmoOverlay> gizmo() const;
  GizmoTool gizmoTool() const;
  GizmoSpace gizmoSpace() const;
  void select(std::vector<std::string> paths);
  void status(std::string message);
  std::optional<std::string> pick(double xPx, double yTopPx);
  // Sends the newest value of a gizmo drag that has not gone out yet.
  void sendDragValue();
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

  // What is shown: the scene with the editor's previews and the gizmo's over it.
  SceneModel model_;
  bool hasScene_ = false;
  bool sceneUploaded_ = false;  // the renderer holds the model's scene at `uploadedRevision_`
  std::uint64_t uploadedRevision_ = 0;
  std::uint64_t uploadedMoveRevision_ = 0;
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
  // The editor's previews by (path, component, property), applied again to each new state.
  std::map<std::tuple<std::string, std::string, std::string>, std::string> previews_;
  bool gridVisible_ = true;
  std::optional<GizmoHandle> hovered_;

  // A gizmo drag: its values go out as transformCommit lines, at most one a frame, and show as a
  // preview until the scene's next state after the release.
  struct Drag {
    GizmoDrag drag;
    std::string sessionId;
    bool duplicate = false;
    std::optional<std::array<double, 3>> values;  // the newest, once the pointer moved
    bool unsent = false;                          // newer than the last line sent
  };
  std::optional<Drag> drag_;
  struct Settling {
    std::string path;
    std::string property;
  };
  std::vector<Settling> settling_;  // released drags whose preview waits for the scene's answer
  std::uint64_t dragCount_ = 0;
  std::uint32_t sessionSeed_ = 0;

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
