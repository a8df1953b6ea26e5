#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/Executors.h"
#include "Foundation/Task.h"
#include "Launch/EditorConfiguration.h"
#include "Platform/ProcessLauncher.h"
#include "Platform/SharedSurfaceLookup.h"
#include "Viewport/ViewportProtocol.h"

namespace orvan::editor {

class ThreadPool;

// What the editor tells the viewport host on every update: the scope, the mirrored view state and
// the callbacks through which the viewport talks back. The UI fills it from the model.
struct RuntimeViewportState {
  EditorConfiguration configuration;
  std::string projectId, authToken;
  bool sceneLoading = false, preserveLastFrameDuringLoading = false;
  bool simulationPlaying = false;
  bool simulationReset = false;
  std::uint64_t simulationCommandSerial = 0;
  std::string cameraMode = "free";
  std::string transformTool = "translate", transformSpace = "world";
  bool rigidBodyShapes = false, gridVisible = true;
  std::string snapSettingsLine;
  std::vector<std::string> selectedPaths, instancedPrimPaths;
  std::uint64_t frameSerial = 0;
  std::string frameTarget = "selection";
  std::uint64_t propertyPreviewSerial = 0;
  std::vector<ViewportPropertyPreview> propertyPreviews;
  std::vector<ReviewCommentAnchor> commentAnchors;
  bool commentToolActive = false;
  std::function<void(bool)> onConnectionChanged;
  std::function<void(std::vector<std::string>)> onSelection;
  std::function<void(ViewportTransformCommit)> onTransformCommit;
  std::function<void(std::vector<ReviewCommentMarker>)> onReviewCommentMarkers;
  std::function<void(std::string payload, ViewportDropPlacement)> onSceneDrop;
};

// The widget that shows the frames (a port; the UI implements it). Main thread only, but for the
// `presented` callback.
class ViewportSurfaceView {
 public:
  virtual ~ViewportSurfaceView() = default;
  virtual bool hasWindow() const = 0;
  virtual bool isVisible() const = 0;
  virtual double widthPoints() const = 0;
  virtual double heightPoints() const = 0;
  // The window's device pixel ratio.
  virtual std::optional<double> backingScale() const = 0;
  virtual bool inLiveResize() const = 0;
  virtual std::optional<double> screenFramesPerSecond() const = 0;
  virtual std::optional<std::string> screenIdentifier() const = 0;
  // Shows the surface. `completed` (main thread) once its pixels were copied out; `presented`
  // (any thread) once it reached the screen. Each runs at most once. False: the surface cannot be
  // shown now; then neither callback runs, and the host skips and acknowledges the frame.
  virtual bool present(std::shared_ptr<const SharedSurface> surface, double scale,
                       std::function<void()> presented, std::function<void()> completed) = 0;
  // Blanks the view (black).
  virtual void clear() = 0;
  // The comment tool's cursor changed; the view refreshes its cursor.
  virtual void invalidateCursor() {}
};

// Frames handed to the view but not yet on screen. Presented callbacks come on any thread, so
// this holds its own lock.
class OutstandingDrawableCounter {
 public:
  int value() const;
  void increment();
  void decrementClampedAtZero();
  void set(int value);

 private:
  mutable std::mutex lock_;
  int value_ = 0;
};

using ViewportLogSink = std::function<void(std::string_view)>;

struct RuntimeViewportHostOptions {
  // Where log lines go; empty: the system log.
  ViewportLogSink log;
  // The serial writer of the client's standard input; empty: the host's own thread
  // ("OrvanUsdEditor.viewportInput"). Tests pass an inline one.
  BackgroundExecutor* inputQueue = nullptr;
  // The pid the runtime watches (--parent-pid); empty: this process.
  std::optional<int> parentProcessId;
  // Reads this process's environment; empty: getenv.
  std::function<std::optional<std::string>(const std::string&)> environmentLookup;
  // Timing logs of the display path and of pointer writes; empty: ORVAN_GIZMO_TIMING.
  std::optional<bool> timingLogsEnabled;
  // "first-frame-presented" lines of play timing; empty: ORVAN_PLAY_TIMING.
  std::optional<bool> playTimingEnabled;
};

// Owns the viewport's two processes (the runtime renders, the client bridges it to the editor),
// speaks the client's line protocol and shows the frames it hands over. One per editor window,
// main thread only; it outlives view rebuilds and is attached to whichever view shows it.
class RuntimeViewportHostView {
 public:
  RuntimeViewportHostView(MainExecutor& main, ProcessLauncher& launcher,
                          SharedSurfaceLookup& surfaces, RuntimeViewportHostOptions options = {});
  ~RuntimeViewportHostView();
  RuntimeViewportHostView(const RuntimeViewportHostView&) = delete;
  RuntimeViewportHostView& operator=(const RuntimeViewportHostView&) = delete;

  // nullptr: detached (no window). Call viewDidMoveToWindow after a change.
  void attach(ViewportSurfaceView* view);
  void updateHost(RuntimeViewportState state);
  void viewDidMoveToWindow();
  void viewSizeChanged();
  void liveResizeStarted();
  void liveResizeEnded();

  // Input in view points, top-left origin (the host converts to bottom-left pixels, clamped).
  void sendPointer(PointerPhase phase, double x, double y, int button, unsigned modifiers);
  void sendKey(bool down, std::uint16_t keyCode, std::string characters, unsigned modifiers);
  // Dropped unless both deltas are finite and |dx| + |dy| > 0.0001.
  void sendCameraGesture(std::string_view kind, double dx, double dy);
  bool sendFrameImmediately(std::string_view target);
  void sendTransformToolImmediately(std::string tool, std::string space);
  void sendPropertyPreviewsImmediately(std::vector<ViewportPropertyPreview> previews);
  // Resolves with the camera of the next "freeCameraState" line, or nothing after 0.3 s.
  void requestCurrentFreeCamera(std::function<void(std::optional<FreeCameraState>)> completion);

  // Drops of a text payload. `bounds` are the payload's centre and size (normalised by the
  // caller); `requestId` empty for a plain hover.
  void dragUpdated(std::string payload, double x, double y, const ViewportDropHover& bounds);
  void performDrop(std::string payload, double x, double y, const ViewportDropHover& bounds);
  void dragExited();

  void restartAuthoritativeScope(EditorConfiguration configuration, std::string projectId,
                                 std::string authToken);
  void shutdown();

  std::uint64_t displayedFrameCount() const { return displayedFrameCount_; }
  bool isConnected() const { return isConnected_; }
  bool hasSentOpen() const { return hasSentOpen_; }

 private:
  struct Child;
  struct SentSize {
    int widthPx = 0;
    int heightPx = 0;
    double scale = 1.0;
    bool operator==(const SentSize&) const = default;
  };

  // Supervision.
  bool hasWindow() const;
  void launchIfNeeded();
  void startViewportProcess();
  void markViewportRuntimeReady(std::uint64_t processId);
  void queueViewportClientLaunchWhenRuntimeReady();
  void startClientProcess();
  void handleRuntimeExit(std::uint64_t processId, ExitStatus status);
  void handleClientExit(std::uint64_t processId, ExitStatus status);
  bool viewportTransportReady() const;
  bool canSend() const { return viewportTransportReady() && hasSentOpen_; }
  void prepareViewportForSceneSwitch(bool sendClose, bool preserveDisplayedSurface);
  void restartViewportClientForSceneChange();
  void restartViewportRuntimeForRecovery();
  void startFrameWatchdog();
  void stopFrameWatchdog();
  void scheduleWatchdogTick();
  Duration elapsedSince(TimePoint then) const;
  void checkViewportFrameHealth();
  void scheduleCoalescedResize();
  void sizeChanged();
  void setConnected(bool connected);
  void logViewportDiagnostic(const std::string& key, int limit, std::string_view message);
  void log(std::string_view message) const;
  std::function<void(std::string)> threadSafeLog() const;
  bool isRunning(const std::unique_ptr<Child>& child) const;

  // Sending.
  void sendLine(std::string line);
  void sendOpenOrResize(bool force);
  void sendAuthToken();
  void sendCameraMode();
  void sendTransformTool();
  void sendSimulationState();
  void sendRigidBodyDebugState();
  void sendViewportGridState();
  void sendSnapSettings();
  void sendSelectionPaths(bool force);
  void sendInstancedPrimPaths(bool force);
  void sendFrameCommand();
  void sendPropertyPreviews(bool force);
  void sendReviewCommentAnchors(bool force);
  void sendDropHover(const std::string& requestId, bool force);
  void completePendingDrop();

  // Reading and frames.
  void deliverClientOutput(const std::shared_ptr<ViewportClientOutputAccumulator>& from);
  void handleClientOutput(std::string_view text);
  void handleClientLine(const ViewportClientLine& line,
                        std::optional<ViewportClientLine>& keptFrame);
  void displaySurface(const ViewportClientLine& frame);
  void acknowledgeViewportFrame(std::optional<std::uint64_t> frameIndex, std::uint32_t surfaceId);
  void clearDisplayedSurface();
  bool acquireDrawableWithoutBlocking();
  void completeSimulationTimingIfNeeded(std::optional<std::uint64_t> serial);
  void recordDisplayedFrameTiming(TimePoint now);

  MainExecutor& main_;
  ProcessLauncher& launcher_;
  SharedSurfaceLookup& surfaces_;
  RuntimeViewportHostOptions options_;
  std::unique_ptr<ThreadPool> ownInputQueue_;
  BackgroundExecutor* inputQueue_ = nullptr;
  ViewportSurfaceView* view_ = nullptr;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  std::uint64_t nextChildId_ = 1;

  // Scope and mirrored state.
  RuntimeViewportState state_;
  // Nothing is launched before the editor has told the host its scope once.
  bool hasReceivedState_ = false;
  bool isConnected_ = false;
  std::unique_ptr<Child> viewportProcess_;
  std::unique_ptr<Child> clientProcess_;
  std::shared_ptr<ChildProcess> clientInput_;
  bool viewportRuntimeReady_ = false;
  bool viewportClientLaunchPending_ = false;
  TaskSlot viewportClientReadinessFallback_;
  TimePoint nextViewportRuntimeLaunchAttemptAt_ = TimePoint::min();
  TimePoint nextViewportClientLaunchAttemptAt_ = TimePoint::min();
  std::shared_ptr<ViewportClientOutputAccumulator> clientOutputAccumulator_;
  std::string clientOutputBuffer_;
  std::uint64_t clientOutputGeneration_ = 0;
  bool hasSentOpen_ = false;
  bool forceScopeReloadOnNextOpen_ = false;
  bool isShuttingDown_ = false;
  std::optional<SentSize> lastSentSize_;
  TimePoint lastOpenSentAt_ = TimePoint::min();
  TimePoint lastFrameReceivedAt_ = TimePoint::min();
  TimePoint lastResizeSentAt_ = TimePoint::min();
  TaskSlot pendingResizeWorkItem_;
  TaskSlot frameWatchdogTimer_;
  std::uint64_t displayedFrameCount_ = 0;
  std::map<std::string, int> viewportDiagnosticCounts_;

  // What was last sent.
  std::optional<std::vector<std::string>> lastSentSelectedPaths_;
  std::optional<std::vector<std::string>> lastSentInstancedPrimPaths_;
  std::optional<std::vector<ReviewCommentAnchor>> lastSentReviewCommentAnchors_;
  std::uint64_t lastSentFrameSerial_ = 0;
  std::uint64_t lastSentPropertyPreviewSerial_ = 0;

  // Drops and the free camera.
  std::optional<std::string> pendingDropPayload_;
  std::string pendingDropRequestId_;
  TaskSlot pendingDropFallback_;
  std::string hoverPayload_;
  ViewportDropHover hoverLine_;
  TimePoint lastDropHoverSentAt_ = TimePoint::min();
  ViewportDropPlacement latestDropPlacement_;
  std::function<void(std::optional<FreeCameraState>)> freeCameraContinuation_;
  TaskSlot freeCameraTimeout_;

  // Frames.
  std::map<std::uint64_t, std::uint32_t> pendingFrameAcknowledgements_;
  std::shared_ptr<const SharedSurface> currentSurface_;
  std::uint64_t frameEpoch_ = 0;
  std::shared_ptr<OutstandingDrawableCounter> drawablesAwaitingPresentation_ =
      std::make_shared<OutstandingDrawableCounter>();
  std::optional<TimePoint> drawablesSaturatedSince_;
  bool timingLogsEnabled_ = false;
  bool playTimingEnabled_ = false;
  struct SimulationTiming {
    std::uint64_t serial = 0;
    TimePoint issuedAt;
    bool playing = false;
  };
  std::optional<SimulationTiming> pendingSimulationTiming_;
  std::optional<TimePoint> displayedFrameTimingWindowStart_;
  std::optional<TimePoint> previousDisplayedFrameTime_;
  std::uint64_t displayedFrameIntervalCount_ = 0;
  std::int64_t displayedFrameIntervalTotal_ = 0;
  std::int64_t displayedFrameIntervalMinimum_ = INT64_MAX;
  std::int64_t displayedFrameIntervalMaximum_ = 0;
};

}  // namespace orvan::editor
