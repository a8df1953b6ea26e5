#include "ViewportLink/ViewportSession.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>
#include <type_traits>

#include "Viewport/Picking.h"
#include "Viewport/Transform.h"

namespace orvan::engine {
namespace {

constexpr double kDragThresholdPx = 3.0;
constexpr float kOrbitDegreesPerPixel = 0.3f;
constexpr unsigned kOptionModifier = 4;

// Three numbers as the editor writes a Transform value, each read back exactly.
std::string valueText(const std::array<double, 3>& values) {
  char text[96];
  std::snprintf(text, sizeof text, "%.17g,%.17g,%.17g", values[0], values[1], values[2]);
  return text;
}

void retire(std::unique_ptr<SceneFeed> feed) {
  // A feed may be in the middle of a fetch or a stream; it ends on a thread of its own so that
  // the viewport never waits for it.
  if (!feed)
    return;
  feed->stopDelivering();
  std::thread([retired = std::move(feed)]() mutable { retired.reset(); }).detach();
}

}  // namespace

ViewportPropertyPreview normalisedPreview(ViewportPropertyPreview line) {
  const std::string& name = line.propertyName;
  const bool colourOfItsOwn = line.componentType == "Light" || line.componentType == "Material" ||
                              line.componentType == "WorldSettings";
  if (name == "displayColor" || name == "primvars:displayColor" ||
      (name == "color" && !colourOfItsOwn)) {
    line.componentType = "RenderShape";
    line.propertyName = "color";
  }
  std::erase_if(line.value, [](char c) { return c == '(' || c == ')'; });
  return line;
}

editor::ViewportClientLine transformCommitLine(const std::string& path, const std::string& property,
                                               const std::array<double, 3>& values,
                                               const std::string& sessionId, bool final,
                                               bool duplicate) {
  return editor::ViewportClientLine{.type = "transformCommit",
                                    .entityPath = path,
                                    .propertyName = property,
                                    .values = std::vector<double>(values.begin(), values.end()),
                                    .previewSessionId = sessionId,
                                    .final = final,
                                    .duplicateRequested = duplicate};
}

ViewportSession::ViewportSession(Send send, std::function<void()> wake)
    : send_(std::move(send)), wake_(std::move(wake)) {
  sessionSeed_ = std::random_device{}();
  const char* timing = std::getenv("ORVAN_VIEWPORT_TIMING");
  timing_ = timing != nullptr && *timing != '\0' && std::string_view(timing) != "0";
}

ViewportSession::~ViewportSession() {
  retire(std::move(feed_));
}

void ViewportSession::status(std::string message) {
  send_(editor::ViewportClientLine{.type = "status", .message = std::move(message)});
}

void ViewportSession::handle(const ViewportCommand& command) {
  std::visit(
      [this](const auto& c) {
        using T = std::decay_t<decltype(c)>;
        if constexpr (std::is_same_v<T, ViewportOpen>) {
          open(c);
        } else if constexpr (std::is_same_v<T, ViewportResize>) {
          widthPx_ = c.widthPx;
          heightPx_ = c.heightPx;
          scale_ = c.scale;
          dirty_ = true;
          send_(editor::ViewportClientLine{.type = "resizeAck",
                                           .widthPx = static_cast<std::uint32_t>(c.widthPx),
                                           .heightPx = static_cast<std::uint32_t>(c.heightPx),
                                           .scaleFactor = c.scale});
        } else if constexpr (std::is_same_v<T, ViewportClose>) {
          close();
        } else if constexpr (std::is_same_v<T, ViewportAuth>) {
          if (open_)
            open_->authToken = c.token;
          if (feed_)
            feed_->setAuthToken(c.token);
        } else if constexpr (std::is_same_v<T, ViewportCameraMode>) {
          cameraMode_ = c.mode;
        } else if constexpr (std::is_same_v<T, ViewportTool>) {
          tool_ = c.tool;
          space_ = c.space;
          hovered_.reset();
          dirty_ = true;
        } else if constexpr (std::is_same_v<T, ViewportSelection>) {
          select(c.paths);
        } else if constexpr (std::is_same_v<T, ViewportFrameTarget>) {
          frameTarget(c.all);
        } else if constexpr (std::is_same_v<T, ViewportPropertyPreview>) {
          preview(c);
        } else if constexpr (std::is_same_v<T, ViewportDebug>) {
          if (c.name == "viewport-grid" && gridVisible_ != c.on) {
            gridVisible_ = c.on;
            dirty_ = true;
          }
        } else if constexpr (std::is_same_v<T, ViewportPointer>) {
          pointer(c);
        } else if constexpr (std::is_same_v<T, ViewportGesture>) {
          gesture(c);
        } else if constexpr (std::is_same_v<T, ViewportKey>) {
          key(c);
        } else if constexpr (std::is_same_v<T, ViewportDropHover>) {
          dropHover(c);
        } else if constexpr (std::is_same_v<T, ViewportCameraQuery>) {
          cameraQuery();
        } else if constexpr (std::is_same_v<T, ViewportFrameAck>) {
          if (pool_.acknowledge(c.frameIndex, c.surfaceId) && timing_)
            logAcknowledged(c.frameIndex);
        } else {
          // Simulation, instanced prims, review comments, drop commit and clear, and the snap
          // settings change nothing this viewport draws yet.
          static_assert(
              std::is_same_v<T, ViewportSimulation> || std::is_same_v<T, ViewportInstancedPrims> ||
              std::is_same_v<T, ViewportReviewComments> || std::is_same_v<T, ViewportDropCommit> ||
              std::is_same_v<T, ViewportDropClear> || std::is_same_v<T, ViewportSnapSettings>);
        }
      },
      command);
}

void ViewportSession::open(const ViewportOpen& open) {
  const bool sameScope = open_ && feed_ && open_->scene == open.scene &&
                         open_->address == open.address && open_->projectId == open.projectId &&
                         open_->workspace == open.workspace;
  widthPx_ = open.widthPx;
  heightPx_ = open.heightPx;
  scale_ = open.scale;
  dirty_ = true;
  if (sameScope && !open.forceReload) {
    open_ = open;
    feed_->setAuthToken(open.authToken);
    return;
  }
  retire(std::move(feed_));
  open_ = open;
  ++generation_;
  hasScene_ = false;
  cameraPlaced_ = false;
  previews_.clear();
  model_ = SceneModel();
  press_.reset();
  drag_.reset();
  settling_.clear();
  const std::uint64_t generation = generation_;
  feed_ = std::make_unique<SceneFeed>(
      SceneSource{.scene = open.scene,
                  .address = open.address,
                  .authToken = open.authToken,
                  .projectId = open.projectId,
                  .workspace = open.workspace,
                  .clientId = open.clientId},
      [this, generation](LoadedScene loaded) { sceneArrived(generation, std::move(loaded)); });
}

void ViewportSession::close() {
  retire(std::move(feed_));
  open_.reset();
  ++generation_;
  hasScene_ = false;
  previews_.clear();
  model_ = SceneModel();
  press_.reset();
  drag_.reset();
  settling_.clear();
  dirty_ = false;
}

void ViewportSession::clientGone() {
  pool_.releaseAll();
  press_.reset();
  // A drag cut short ends as a release would, without a line: its preview stays until the
  // scene's next state.
  if (drag_ && drag_->values)
    settling_.push_back({drag_->drag.target().path, drag_->drag.propertyName()});
  drag_.reset();
}

void ViewportSession::sceneArrived(std::uint64_t generation, LoadedScene loaded) {
  {
    const std::lock_guard lock(inboxMutex_);
    inbox_.emplace(generation, std::move(loaded));
  }
  wake_();
}

void ViewportSession::takeLoadedScene() {
  std::optional<std::pair<std::uint64_t, LoadedScene>> arrived;
  {
    const std::lock_guard lock(inboxMutex_);
    arrived.swap(inbox_);
  }
  if (!arrived || arrived->first != generation_ || !open_)
    return;
  LoadedScene& loaded = arrived->second;
  if (!loaded.error.empty()) {
    status("cannot show the scene " + open_->scene + ": " + loaded.error);
    if (hasScene_)
      return;  // the last good state stays on screen
    // Nothing to show yet: the background (and the grid) alone.
    model_.setStage(nullptr, {}, Scene{});
  } else {
    const Tessellation detail = tessellationForPrimCount(loaded.stage->prims.size());
    model_.setStage(loaded.stage, detail, std::move(*loaded.scene));
    // The scene's answer to a released drag: its own value shows from now on.
    for (const Settling& settled : settling_) {
      if (!previews_.contains({settled.path, "Transform", settled.property}))
        model_.clearPreview(settled.path, "Transform", settled.property);
    }
    settling_.clear();
    // Previews of prims the last state lacked may show now.
    for (const auto& [key, value] : previews_)
      model_.applyPreview(std::get<0>(key), std::get<1>(key), std::get<2>(key), value);
    if (drag_ && drag_->values) {
      const std::array<double, 3>& v = *drag_->values;
      model_.applyPreview(drag_->drag.target().path, "Transform", drag_->drag.propertyName(),
                          valueText(v));
    }
  }
  hasScene_ = true;
  dirty_ = true;
  const Scene& scene = model_.scene();
  if (!cameraPlaced_ && !scene.bounds.empty()) {
    camera_ = frameBounds(orbit(OrbitCamera{}, 30.0f, 20.0f), scene.bounds);
    cameraPlaced_ = true;
  }
}

void ViewportSession::preview(const ViewportPropertyPreview& line) {
  const ViewportPropertyPreview normal = normalisedPreview(line);
  const auto key = std::make_tuple(normal.entityPath, normal.componentType, normal.propertyName);
  if (normal.clear) {
    previews_.erase(key);
    model_.clearPreview(normal.entityPath, normal.componentType, normal.propertyName);
    dirty_ = true;
    return;
  }
  // Kept for the states to come, which may hold a prim this one lacks.
  previews_[key] = normal.value;
  if (model_.stage() == nullptr || model_.applyPreview(normal.entityPath, normal.componentType,
                                                       normal.propertyName, normal.value))
    return;  // no scene yet, nothing this viewport shows, or not a value
  dirty_ = true;
}

void ViewportSession::select(std::vector<std::string> paths) {
  if (paths == selection_)
    return;
  selection_ = std::move(paths);
  hovered_.reset();
  dirty_ = true;
}

GizmoTool ViewportSession::gizmoTool() const {
  if (tool_ == "rotate")
    return GizmoTool::rotate;
  if (tool_ == "scale")
    return GizmoTool::scale;
  return GizmoTool::translate;
}

GizmoSpace ViewportSession::gizmoSpace() const {
  return space_ == "local" ? GizmoSpace::local : GizmoSpace::world;
}

std::optional<GizmoOverlay> ViewportSession::gizmo() const {
  if (!hasScene_ || selection_.empty())
    return std::nullopt;
  std::optional<GizmoTarget> target = model_.gizmoTarget(selection_.front());
  if (!target)
    return std::nullopt;
  GizmoOverlay overlay{.target = std::move(*target),
                       .tool = gizmoTool(),
                       .space = gizmoSpace(),
                       .highlighted = hovered_};
  if (drag_) {
    overlay.tool = drag_->drag.tool();
    overlay.highlighted = drag_->drag.handle();
  }
  return overlay;
}

std::optional<std::string> ViewportSession::pick(double xPx, double yTopPx) {
  if (!hasScene_ || widthPx_ <= 0 || heightPx_ <= 0)
    return std::nullopt;
  const int x = std::clamp(static_cast<int>(std::floor(xPx)), 0, widthPx_ - 1);
  const int y = std::clamp(static_cast<int>(std::floor(yTopPx)), 0, heightPx_ - 1);
  const std::optional<PickHit> hit = pickPixel(model_.scene(), camera_, widthPx_, heightPx_, x, y);
  if (!hit)
    return std::nullopt;
  return hit->path;
}

bool ViewportSession::beginGizmoDrag(double xPx, double yTopPx, unsigned modifiers) {
  const std::optional<GizmoOverlay> shown = gizmo();
  if (!shown || widthPx_ <= 0 || heightPx_ <= 0)
    return false;
  std::optional<GizmoDrag> started = GizmoDrag::begin(camera_, widthPx_, heightPx_, xPx, yTopPx,
                                                      shown->target, shown->tool, shown->space);
  if (!started)
    return false;
  char session[48];
  std::snprintf(session, sizeof session, "gizmo-%08x-%llu", sessionSeed_,
                static_cast<unsigned long long>(++dragCount_));
  drag_ = Drag{.drag = std::move(*started),
               .sessionId = session,
               .duplicate = (modifiers & kOptionModifier) != 0,
               .values = std::nullopt,
               .unsent = false};
  dirty_ = true;  // the held handle lights up
  return true;
}

void ViewportSession::dragGizmo(double xPx, double yTopPx) {
  const std::array<double, 3> values = drag_->drag.valuesAt(xPx, yTopPx);
  if (drag_->values == values)
    return;
  drag_->values = values;
  drag_->unsent = true;
  model_.applyPreview(drag_->drag.target().path, "Transform", drag_->drag.propertyName(),
                      valueText(values));
  dirty_ = true;
}

void ViewportSession::endGizmoDrag(double xPx, double yTopPx, double pressX, double pressY) {
  Drag ended = std::move(*drag_);
  drag_.reset();
  dirty_ = true;
  const std::array<double, 3> values = ended.drag.valuesAt(xPx, yTopPx);
  // A press and release on a handle that never moved changes nothing.
  if (!ended.values && values == ended.drag.valuesAt(pressX, pressY))
    return;
  const std::string& path = ended.drag.target().path;
  const std::string property = ended.drag.propertyName();
  model_.applyPreview(path, "Transform", property, valueText(values));
  settling_.push_back({path, property});
  send_(transformCommitLine(path, property, values, ended.sessionId, true, ended.duplicate));
}

void ViewportSession::hover(double xPx, double yTopPx) {
  std::optional<GizmoHandle> under;
  if (const std::optional<GizmoOverlay> shown = gizmo())
    under = hitGizmoHandle(camera_, widthPx_, heightPx_, xPx, yTopPx, shown->target, shown->tool,
                           shown->space);
  if (under == hovered_)
    return;
  hovered_ = under;
  dirty_ = true;
}

void ViewportSession::pointer(const ViewportPointer& pointer) {
  // The editor's pixels count from the bottom left; the view's from the top left.
  const double x = pointer.x;
  const double y = static_cast<double>(heightPx_) - pointer.y;
  switch (pointer.phase) {
    case ViewportPointerPhase::down:
      press_ = Press{.button = pointer.button, .x = x, .y = y, .lastX = x, .lastY = y};
      if (pointer.button == 0 && !drag_ && beginGizmoDrag(x, y, pointer.modifiers))
        press_->gizmo = true;
      return;
    case ViewportPointerPhase::move: {
      if (!press_) {
        hover(x, y);
        return;
      }
      const float dx = static_cast<float>(x - press_->lastX);
      const float dy = static_cast<float>(y - press_->lastY);
      press_->lastX = x;
      press_->lastY = y;
      if (!press_->dragging && std::hypot(x - press_->x, y - press_->y) > kDragThresholdPx)
        press_->dragging = true;
      if (press_->gizmo) {
        if (drag_)
          dragGizmo(x, y);
        return;
      }
      if (!press_->dragging || cameraMode_ != "free")
        return;
      const bool panning = press_->button == 1 || (pointer.modifiers & 1u) != 0;
      if (panning && press_->button != 0) {
        camera_ = pan(camera_, dx, dy, heightPx_);
        dirty_ = true;
      } else if (press_->button == 2) {
        camera_ = orbit(camera_, -dx * kOrbitDegreesPerPixel, dy * kOrbitDegreesPerPixel);
        dirty_ = true;
      }
      return;
    }
    case ViewportPointerPhase::up: {
      const std::optional<Press> press = press_;
      press_.reset();
      if (press && press->gizmo) {
        if (drag_)
          endGizmoDrag(x, y, press->x, press->y);
        return;
      }
      if (!press || press->button != 0 || press->dragging || pointer.button != 0)
        return;
      const std::optional<std::string> hit = pick(x, y);
      std::vector<std::string> picked =
          hit ? std::vector<std::string>{*hit} : std::vector<std::string>{};
      select(picked);
      send_(editor::ViewportClientLine{.type = "selection", .entityPaths = std::move(picked)});
      return;
    }
  }
}

void ViewportSession::gesture(const ViewportGesture& gesture) {
  if (cameraMode_ != "free")
    return;
  const auto dx = static_cast<float>(gesture.dx);
  const auto dy = static_cast<float>(gesture.dy);
  if (gesture.kind == "pan") {
    camera_ = pan(camera_, dx, dy, std::max(heightPx_, 1));
  } else if (gesture.kind == "zoom") {
    camera_ = zoom(camera_, std::clamp(std::exp(dy / 180.0f), 0.05f, 20.0f));
  } else if (gesture.kind == "turntable") {
    camera_ = orbit(camera_, dx, 0.0f);
  } else {
    camera_ = orbit(camera_, dx, dy);
  }
  dirty_ = true;
}

void ViewportSession::key(const ViewportKey& key) {
  // While the right button holds the view, W A S D (and Q E for down and up) fly the camera.
  if (!key.down || !press_ || press_->button != 2 || key.characters.size() != 1 ||
      cameraMode_ != "free")
    return;
  const glm::vec3 eye = eyePosition(camera_);
  const glm::vec3 forward = glm::normalize(camera_.target - eye);
  const glm::vec3 right = glm::normalize(glm::cross(forward, glm::vec3(0, 1, 0)));
  const float step = camera_.distance * 0.05f;
  glm::vec3 move{0.0f};
  switch (key.characters[0]) {
    case 'w':
      move = forward;
      break;
    case 's':
      move = -forward;
      break;
    case 'd':
      move = right;
      break;
    case 'a':
      move = -right;
      break;
    case 'e':
      move = glm::vec3(0, 1, 0);
      break;
    case 'q':
      move = glm::vec3(0, -1, 0);
      break;
    default:
      return;
  }
  camera_.target += move * step;
  dirty_ = true;
}

void ViewportSession::frameTarget(bool all) {
  if (!hasScene_)
    return;
  const Scene& scene = model_.scene();
  Bounds bounds;
  if (!all)
    bounds = boundsOfPaths(scene, selection_);
  if (bounds.empty())
    bounds = scene.bounds;
  if (bounds.empty())
    return;
  camera_ = frameBounds(camera_, bounds);
  cameraPlaced_ = true;
  dirty_ = true;
}

void ViewportSession::dropHover(const ViewportDropHover& hover) {
  editor::ViewportClientLine line{.type = "dropTarget", .requestId = hover.requestId};
  line.valid = false;
  if (hasScene_ && widthPx_ > 0 && heightPx_ > 0) {
    const int x = std::clamp(static_cast<int>(hover.x), 0, widthPx_ - 1);
    const int y = std::clamp(heightPx_ - static_cast<int>(hover.y), 0, heightPx_ - 1);
    const Ray ray = pixelRay(camera_, widthPx_, heightPx_, x, y);
    std::optional<glm::vec3> point;
    if (const std::optional<PickHit> hit = pickRay(model_.scene(), ray)) {
      point = ray.origin + ray.direction * hit->distance;
      line.entityPath = hit->path;
    } else if (std::abs(ray.direction.y) > 1e-6f && -ray.origin.y / ray.direction.y > 0.0f) {
      point = ray.origin + ray.direction * (-ray.origin.y / ray.direction.y);  // the ground
    }
    if (point) {
      const std::vector<double> at{point->x, point->y, point->z};
      line.valid = true;
      line.parentPath = "/World";
      line.translation = at;
      line.surfacePosition = at;
      line.surfaceNormal = std::vector<double>{0.0, 1.0, 0.0};
    }
  }
  send_(line);
}

void ViewportSession::cameraQuery() {
  send_(editor::ViewportClientLine{.type = "freeCameraState",
                                   .targetX = camera_.target.x,
                                   .targetY = camera_.target.y,
                                   .targetZ = camera_.target.z,
                                   .yaw = camera_.yawDegrees,
                                   .pitch = camera_.pitchDegrees,
                                   .distance = camera_.distance});
}

void ViewportSession::logAcknowledged(std::uint64_t frameIndex) {
  const auto found = written_.find(frameIndex);
  if (found == written_.end())
    return;
  const double outMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() -
                                                                 found->second.first)
                           .count();
  std::fprintf(stderr, "viewport timing frame=%llu render-ms=%.3f out-ms=%.3f\n",
               static_cast<unsigned long long>(frameIndex), found->second.second, outMs);
  written_.erase(found);
}

bool ViewportSession::wantsFrame() const {
  return dirty_ && open_ && hasScene_;
}

bool ViewportSession::update() {
  takeLoadedScene();
  const bool sent = wantsFrame() && renderFrame();
  // A drag's values go out with the frames that show them: one line a frame at most. With no
  // frame to wait for (nothing changed, or drawing failed) the value goes now.
  if (drag_ && drag_->unsent && (sent || !wantsFrame() || rendererFailed_))
    sendDragValue();
  return sent;
}

void ViewportSession::sendDragValue() {
  drag_->unsent = false;
  send_(transformCommitLine(drag_->drag.target().path, drag_->drag.propertyName(), *drag_->values,
                            drag_->sessionId, false, drag_->duplicate));
}

bool ViewportSession::renderFrame() {
  if (widthPx_ <= 0 || heightPx_ <= 0)
    return false;
  if (!renderer_) {
    if (rendererFailed_)
      return false;
    ViewportRenderer::CreateResult created = ViewportRenderer::create();
    if (!created.renderer) {
      rendererFailed_ = true;
      status("cannot render: " + created.error);
      return false;
    }
    renderer_ = std::move(created.renderer);
  }
  std::string error;
  SharedFrameSurface* surface = pool_.acquire(static_cast<std::uint32_t>(widthPx_),
                                              static_cast<std::uint32_t>(heightPx_), error);
  if (surface == nullptr) {
    if (!error.empty()) {
      status("cannot make a frame surface: " + error);
      dirty_ = false;
    }
    return false;  // every surface is out: the next acknowledgement brings the frame
  }
  const Scene& scene = model_.scene();
  if (!sceneUploaded_ || uploadedRevision_ != model_.revision()) {
    renderer_->setScene(scene);
    sceneUploaded_ = true;
    uploadedRevision_ = model_.revision();
    uploadedMoveRevision_ = model_.moveRevision();
  } else if (uploadedMoveRevision_ != model_.moveRevision()) {
    renderer_->moveObjects(scene, model_.movedObjects());
    uploadedMoveRevision_ = model_.moveRevision();
  }
  RenderOverlays overlays{.grid = gridVisible_, .selectedPaths = selection_, .gizmo = gizmo()};
  const auto started = std::chrono::steady_clock::now();
  error = renderer_->renderInto(camera_, widthPx_, heightPx_, surface->pixels(),
                                surface->rowBytes(), overlays);
  const auto finished = std::chrono::steady_clock::now();
  dirty_ = false;
  if (!error.empty()) {
    status("cannot render: " + error);
    return false;
  }
  pool_.handOut(*surface, ++frameIndex_);
  if (timing_) {
    if (written_.size() > 64)
      written_.erase(written_.begin());
    written_[frameIndex_] = {finished,
                             std::chrono::duration<double, std::milli>(finished - started).count()};
  }
  send_(editor::ViewportClientLine{.type = "frame",
                                   .frameIndex = frameIndex_,
                                   .surfaceId = surface->id(),
                                   .widthPx = static_cast<std::uint32_t>(widthPx_),
                                   .heightPx = static_cast<std::uint32_t>(heightPx_),
                                   .scaleFactor = scale_,
                                   .pixelFormat = "bgra8"});
  return true;
}

}  // namespace orvan::engine
