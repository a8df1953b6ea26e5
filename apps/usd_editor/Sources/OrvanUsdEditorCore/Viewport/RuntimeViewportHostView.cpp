#include "Viewport/RuntimeViewportHostView.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <utility>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "Foundation/Logging.h"
#include "Foundation/ThreadPool.h"
#include "orvan/wire/Numbers.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

using namespace std::chrono_literals;

constexpr TimePoint kDistantPast = TimePoint::min();
constexpr Duration kRelaunchDelay = 500ms;
constexpr Duration kMissingExecutableRetry = 10s;
constexpr Duration kReadinessFallback = 1s;
constexpr Duration kWatchdogInterval = 1s;
constexpr Duration kFirstFrameLimit = 20s;
constexpr Duration kStallLimit = 5s;
constexpr Duration kResizeGrace = 10s;
constexpr Duration kDrawableSaturationLimit = 2s;
constexpr Duration kSafetyAcknowledgement = 250ms;
constexpr Duration kFreeCameraTimeout = 300ms;
constexpr Duration kDropFallback = 350ms;
constexpr Duration kDropHoverSpacing = 8ms;
constexpr Duration kSlowDisplay = 8ms;
constexpr Duration kSlowPointerWrite = 8ms;
constexpr Duration kTimingWindow = 2s;
// Resizes during a drag of the window edge go out at most this often.
constexpr auto kResizeUpdateInterval = std::chrono::duration<double>(1.0 / 30.0);

constexpr std::string_view kServerListening = "Viewport server listening";

std::string describeExit(ExitStatus status) {
  switch (status.kind) {
    case ExitStatus::Kind::exited:
      return fmt::format("status={} reason=exit", status.value);
    case ExitStatus::Kind::signalled:
      return fmt::format("status={} reason=uncaughtSignal", status.value);
  }
  return {};
}

std::optional<std::string> readEnvironment(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (!value)
    return std::nullopt;
  return std::string(value);
}

// A fresh identifier for a drop request, in the usual 8-4-4-4-12 hexadecimal form.
std::string makeRequestId() {
  static thread_local std::mt19937_64 generator{std::random_device{}()};
  const std::uint64_t high = generator();
  const std::uint64_t low = generator();
  const std::string hex = fmt::format("{:016X}{:016X}", high, low);
  return hex.substr(0, 8) + '-' + hex.substr(8, 4) + '-' + hex.substr(12, 4) + '-' +
         hex.substr(16, 4) + '-' + hex.substr(20, 12);
}

bool isPointerClassLine(std::string_view line) {
  return hasPrefix(line, "move|") || hasPrefix(line, "down|") || hasPrefix(line, "up|") ||
         hasPrefix(line, "gesture|");
}

std::int64_t microseconds(Duration duration) {
  return std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
}

bool isUsableScale(std::optional<double> scale) {
  return scale && std::isfinite(*scale) && *scale > 0;
}

}  // namespace

// One child process, known by an identity that a replacement never shares, so that a late
// callback of a replaced process is recognised and ignored.
struct RuntimeViewportHostView::Child {
  std::uint64_t id = 0;
  std::shared_ptr<ChildProcess> process;
  std::shared_ptr<ViewportClientOutputAccumulator> output;
};

// --- OutstandingDrawableCounter ---

int OutstandingDrawableCounter::value() const {
  std::lock_guard guard(lock_);
  return value_;
}

void OutstandingDrawableCounter::increment() {
  std::lock_guard guard(lock_);
  ++value_;
}

void OutstandingDrawableCounter::decrementClampedAtZero() {
  std::lock_guard guard(lock_);
  if (value_ > 0)
    --value_;
}

void OutstandingDrawableCounter::set(int value) {
  std::lock_guard guard(lock_);
  value_ = value;
}

// --- Construction ---

RuntimeViewportHostView::RuntimeViewportHostView(MainExecutor& main, ProcessLauncher& launcher,
                                                 SharedSurfaceLookup& surfaces,
                                                 RuntimeViewportHostOptions options)
    : main_(main), launcher_(launcher), surfaces_(surfaces), options_(std::move(options)) {
  if (!options_.environmentLookup)
    options_.environmentLookup = readEnvironment;
  if (options_.inputQueue) {
    inputQueue_ = options_.inputQueue;
  } else {
    // "OrvanUsdEditor.viewportInput": one thread, so lines keep their order.
    ownInputQueue_ = std::make_unique<ThreadPool>(1);
    inputQueue_ = ownInputQueue_.get();
  }
  timingLogsEnabled_ =
      options_.timingLogsEnabled.value_or(isDiagnosticFlagEnabled("ORVAN_GIZMO_TIMING"));
  playTimingEnabled_ =
      options_.playTimingEnabled.value_or(isDiagnosticFlagEnabled("ORVAN_PLAY_TIMING"));
  // Only the out-of-process flow exists on this platform.
  log("OrvanUsdEditor: viewport backend iosurface");
}

RuntimeViewportHostView::~RuntimeViewportHostView() {
  if (!isShuttingDown_)
    shutdown();
  alive_.reset();
}

void RuntimeViewportHostView::log(std::string_view message) const {
  if (options_.log) {
    options_.log(message);
    return;
  }
  spdlog::info("{}", message);
}

std::function<void(std::string)> RuntimeViewportHostView::threadSafeLog() const {
  std::weak_ptr<int> alive = alive_;
  MainExecutor* main = &main_;
  const RuntimeViewportHostView* self = this;
  return [alive, main, self](std::string message) {
    main->post([alive, self, message = std::move(message)] {
      if (alive.lock())
        self->log(message);
    });
  };
}

Duration RuntimeViewportHostView::elapsedSince(TimePoint then) const {
  if (then == kDistantPast)
    return Duration::max();
  return main_.now() - then;
}

bool RuntimeViewportHostView::hasWindow() const {
  return view_ && view_->hasWindow();
}

bool RuntimeViewportHostView::isRunning(const std::unique_ptr<Child>& child) const {
  return child && child->process && child->process->isRunning();
}

void RuntimeViewportHostView::setConnected(bool connected) {
  if (isConnected_ == connected)
    return;
  isConnected_ = connected;
  if (state_.onConnectionChanged)
    state_.onConnectionChanged(connected);
}

void RuntimeViewportHostView::logViewportDiagnostic(const std::string& key, int limit,
                                                    std::string_view message) {
  const int count = ++viewportDiagnosticCounts_[key];
  if (count <= limit || count % 120 == 0)
    log(message);
}

// --- The view ---

void RuntimeViewportHostView::attach(ViewportSurfaceView* view) {
  view_ = view;
  viewDidMoveToWindow();
}

void RuntimeViewportHostView::viewDidMoveToWindow() {
  if (isShuttingDown_)
    return;
  if (!hasWindow()) {
    stopFrameWatchdog();
    return;
  }
  if (state_.sceneLoading) {
    prepareViewportForSceneSwitch(false, state_.preserveLastFrameDuringLoading);
    stopFrameWatchdog();
    return;
  }
  launchIfNeeded();
  sendOpenOrResize(false);
  startFrameWatchdog();
}

void RuntimeViewportHostView::viewSizeChanged() {
  sizeChanged();
}
void RuntimeViewportHostView::liveResizeStarted() {
  sizeChanged();
}
void RuntimeViewportHostView::liveResizeEnded() {
  sizeChanged();
}

void RuntimeViewportHostView::sizeChanged() {
  if (isShuttingDown_ || !view_)
    return;
  if (view_->inLiveResize()) {
    scheduleCoalescedResize();
    return;
  }
  pendingResizeWorkItem_.cancel();
  sendOpenOrResize(false);
}

void RuntimeViewportHostView::scheduleCoalescedResize() {
  pendingResizeWorkItem_.cancel();
  const Duration sinceLast = elapsedSince(lastResizeSentAt_);
  const auto interval = std::chrono::duration_cast<Duration>(kResizeUpdateInterval);
  if (sinceLast >= interval) {
    sendOpenOrResize(false);
    return;
  }
  std::weak_ptr<int> alive = alive_;
  pendingResizeWorkItem_.replace(main_.postAfter(interval - sinceLast, [this, alive] {
    if (!alive.lock())
      return;
    pendingResizeWorkItem_.clear();
    sendOpenOrResize(false);
  }));
}

// --- Supervision ---

void RuntimeViewportHostView::launchIfNeeded() {
  if (!hasWindow() || state_.sceneLoading || isShuttingDown_ || !hasReceivedState_)
    return;
  if (!isRunning(viewportProcess_))
    startViewportProcess();
  if (isRunning(clientProcess_))
    return;
  if (viewportRuntimeReady_) {
    startClientProcess();
    return;
  }
  queueViewportClientLaunchWhenRuntimeReady();
}

void RuntimeViewportHostView::startViewportProcess() {
  const TimePoint now = main_.now();
  if (now < nextViewportRuntimeLaunchAttemptAt_)
    return;
  const std::string path = state_.configuration.resolvedPath(state_.configuration.viewportPath);
  if (!launcher_.isExecutableFile(path)) {
    log("OrvanUsdEditor: viewport runtime missing or not executable: " + path);
    nextViewportRuntimeLaunchAttemptAt_ = now + kMissingExecutableRetry;
    return;
  }
  const std::uint64_t id = nextChildId_++;
  const int parentPid = options_.parentProcessId.value_or(static_cast<int>(::getpid()));
  ProcessLaunchOptions launch;
  launch.executablePath = path;
  launch.arguments = {"--address", state_.configuration.viewportAddress, "--parent-pid",
                      std::to_string(parentPid)};
  if (!options_.environmentLookup("ORVAN_VIEWPORT_FRAME_RATE")) {
    if (const auto rate = view_ ? view_->screenFramesPerSecond() : std::nullopt;
        rate && std::isfinite(*rate) && *rate >= 1)
      launch.environment.emplace_back("ORVAN_VIEWPORT_FRAME_RATE",
                                      std::to_string(std::lround(*rate)));
  }
  if (!options_.environmentLookup("ORVAN_VIEWPORT_DISPLAY_ID")) {
    if (const auto screen = view_ ? view_->screenIdentifier() : std::nullopt;
        screen && !screen->empty())
      launch.environment.emplace_back("ORVAN_VIEWPORT_DISPLAY_ID", *screen);
  }
  std::weak_ptr<int> alive = alive_;
  const auto logLine = threadSafeLog();
  MainExecutor* main = &main_;
  launch.standardOutput = OutputStreamOptions::inLines([=, this](OutputLine line) {
    if (line.text.empty())
      return;
    logLine("Velk viewport runtime: " + line.text);
    if (line.text.find(kServerListening) == std::string::npos)
      return;
    main->post([=, this] {
      if (alive.lock())
        markViewportRuntimeReady(id);
    });
  });
  launch.standardError = OutputStreamOptions::inLines([logLine](OutputLine line) {
    if (!line.text.empty())
      logLine("Velk viewport runtime error: " + line.text);
  });
  launch.onExit = [=, this](ExitStatus status) {
    main->post([=, this] {
      if (alive.lock())
        handleRuntimeExit(id, status);
    });
  };
  auto launched = launcher_.launch(std::move(launch));
  if (!launched) {
    log("OrvanUsdEditor: failed to launch viewport runtime: " + launched.error().description);
    nextViewportRuntimeLaunchAttemptAt_ = now + kMissingExecutableRetry;
    return;
  }
  viewportProcess_ = std::make_unique<Child>(
      Child{id, std::shared_ptr<ChildProcess>(std::move(*launched)), nullptr});
  viewportRuntimeReady_ = false;
  viewportClientLaunchPending_ = false;
  viewportClientReadinessFallback_.cancel();
  nextViewportRuntimeLaunchAttemptAt_ = kDistantPast;
  hasSentOpen_ = false;
}

void RuntimeViewportHostView::markViewportRuntimeReady(std::uint64_t processId) {
  if (!viewportProcess_ || viewportProcess_->id != processId)
    return;
  viewportRuntimeReady_ = true;
  if (!viewportClientLaunchPending_ || isRunning(clientProcess_))
    return;
  viewportClientLaunchPending_ = false;
  viewportClientReadinessFallback_.cancel();
  startClientProcess();
}

void RuntimeViewportHostView::queueViewportClientLaunchWhenRuntimeReady() {
  if (state_.sceneLoading || !hasWindow())
    return;
  if (viewportRuntimeReady_) {
    startClientProcess();
    return;
  }
  viewportClientLaunchPending_ = true;
  if (viewportClientReadinessFallback_.isActive())
    return;
  std::weak_ptr<int> alive = alive_;
  viewportClientReadinessFallback_.replace(main_.postAfter(kReadinessFallback, [this, alive] {
    if (!alive.lock())
      return;
    viewportClientReadinessFallback_.clear();
    if (!viewportClientLaunchPending_ || state_.sceneLoading || !isRunning(viewportProcess_) ||
        isRunning(clientProcess_))
      return;
    log("OrvanUsdEditor: viewport runtime readiness line not observed; starting client after "
        "fallback delay");
    viewportRuntimeReady_ = true;
    viewportClientLaunchPending_ = false;
    startClientProcess();
  }));
}

void RuntimeViewportHostView::startClientProcess() {
  if (state_.sceneLoading || isRunning(clientProcess_))
    return;
  const TimePoint now = main_.now();
  if (now < nextViewportClientLaunchAttemptAt_)
    return;
  const std::string path =
      state_.configuration.resolvedPath(state_.configuration.viewportClientPath);
  if (!launcher_.isExecutableFile(path)) {
    log("OrvanUsdEditor: viewport client missing or not executable: " + path);
    nextViewportClientLaunchAttemptAt_ = now + kMissingExecutableRetry;
    return;
  }
  const std::uint64_t id = nextChildId_++;
  auto accumulator = std::make_shared<ViewportClientOutputAccumulator>();
  std::weak_ptr<int> alive = alive_;
  const auto logLine = threadSafeLog();
  MainExecutor* main = &main_;
  ProcessLaunchOptions launch;
  launch.executablePath = path;
  launch.arguments = {"--address", state_.configuration.viewportAddress, "--json-lines"};
  // The monitor thread gathers lines; only the first of a burst costs a hop to the main thread.
  launch.standardOutput = OutputStreamOptions::inLines([=, this](OutputLine line) {
    if (!line.endedAtEndOfStream)
      line.text += '\n';
    if (!accumulator->append(line.text))
      return;
    main->post([=, this] {
      if (alive.lock())
        deliverClientOutput(accumulator);
    });
  });
  launch.standardError = OutputStreamOptions::inLines([logLine](OutputLine line) {
    if (!line.text.empty())
      logLine("Velk viewport client error: " + line.text);
  });
  launch.onExit = [=, this](ExitStatus status) {
    main->post([=, this] {
      if (alive.lock())
        handleClientExit(id, status);
    });
  };
  auto launched = launcher_.launch(std::move(launch));
  if (!launched) {
    log("OrvanUsdEditor: failed to launch viewport client: " + launched.error().description);
    nextViewportClientLaunchAttemptAt_ = now + kMissingExecutableRetry;
    return;
  }
  clientProcess_ = std::make_unique<Child>(
      Child{id, std::shared_ptr<ChildProcess>(std::move(*launched)), accumulator});
  clientInput_ = clientProcess_->process;
  clientOutputBuffer_.clear();
  ++clientOutputGeneration_;
  viewportClientLaunchPending_ = false;
  viewportClientReadinessFallback_.cancel();
  nextViewportClientLaunchAttemptAt_ = kDistantPast;
  hasSentOpen_ = false;
  sendOpenOrResize(false);
}

void RuntimeViewportHostView::handleRuntimeExit(std::uint64_t processId, ExitStatus status) {
  if (isShuttingDown_ || !viewportProcess_ || viewportProcess_->id != processId)
    return;
  log("OrvanUsdEditor: viewport runtime exited " + describeExit(status));
  viewportProcess_.reset();
  viewportRuntimeReady_ = false;
  viewportClientLaunchPending_ = false;
  viewportClientReadinessFallback_.cancel();
  hasSentOpen_ = false;
  lastSentSize_.reset();
  std::weak_ptr<int> alive = alive_;
  main_.postAfter(kRelaunchDelay, [this, alive] {
    if (alive.lock())
      launchIfNeeded();
  });
}

void RuntimeViewportHostView::handleClientExit(std::uint64_t processId, ExitStatus status) {
  if (isShuttingDown_ || !clientProcess_ || clientProcess_->id != processId)
    return;
  log("OrvanUsdEditor: viewport client exited " + describeExit(status));
  clientProcess_.reset();
  clientInput_.reset();
  hasSentOpen_ = false;
  // Its frames died with it; the next client starts its own count.
  pendingFrameAcknowledgements_.clear();
  std::weak_ptr<int> alive = alive_;
  main_.postAfter(kRelaunchDelay, [this, alive] {
    if (alive.lock())
      launchIfNeeded();
  });
}

bool RuntimeViewportHostView::viewportTransportReady() const {
  return isRunning(clientProcess_) && clientInput_ != nullptr;
}

void RuntimeViewportHostView::prepareViewportForSceneSwitch(bool sendClose,
                                                            bool preserveDisplayedSurface) {
  setConnected(false);
  if (sendClose)
    sendLine(std::string(kViewportCloseLine));
  hasSentOpen_ = false;
  lastSentSize_.reset();
  lastOpenSentAt_ = kDistantPast;
  lastFrameReceivedAt_ = kDistantPast;
  displayedFrameCount_ = 0;
  if (!preserveDisplayedSurface)
    clearDisplayedSurface();
}

void RuntimeViewportHostView::restartViewportClientForSceneChange() {
  prepareViewportForSceneSwitch(true, false);
  clientOutputBuffer_.clear();
  ++clientOutputGeneration_;
  if (clientInput_) {
    std::shared_ptr<ChildProcess> input = std::exchange(clientInput_, nullptr);
    inputQueue_->post([input] { input->closeStdin(); });
  }
  if (isRunning(clientProcess_))
    clientProcess_->process->terminate();
  clientProcess_.reset();
}

void RuntimeViewportHostView::restartViewportRuntimeForRecovery() {
  restartViewportClientForSceneChange();
  if (isRunning(viewportProcess_)) {
    // Its exit handler relaunches the pair.
    viewportProcess_->process->terminate();
    return;
  }
  viewportProcess_.reset();
  viewportRuntimeReady_ = false;
  launchIfNeeded();
}

void RuntimeViewportHostView::restartAuthoritativeScope(EditorConfiguration configuration,
                                                        std::string projectId,
                                                        std::string authToken) {
  state_.configuration = std::move(configuration);
  state_.projectId = std::move(projectId);
  state_.authToken = std::move(authToken);
  lastSentSelectedPaths_.reset();
  lastSentReviewCommentAnchors_.reset();
  forceScopeReloadOnNextOpen_ = true;
  if (isShuttingDown_)
    return;
  restartViewportRuntimeForRecovery();
}

void RuntimeViewportHostView::startFrameWatchdog() {
  if (frameWatchdogTimer_.isActive() || isShuttingDown_)
    return;
  scheduleWatchdogTick();
}

void RuntimeViewportHostView::stopFrameWatchdog() {
  frameWatchdogTimer_.cancel();
}

void RuntimeViewportHostView::scheduleWatchdogTick() {
  std::weak_ptr<int> alive = alive_;
  frameWatchdogTimer_.replace(main_.postAfter(kWatchdogInterval, [this, alive] {
    if (!alive.lock())
      return;
    frameWatchdogTimer_.clear();
    scheduleWatchdogTick();
    checkViewportFrameHealth();
  }));
}

void RuntimeViewportHostView::checkViewportFrameHealth() {
  if (isShuttingDown_ || !hasWindow() || !hasSentOpen_ || state_.sceneLoading)
    return;
  if (!isRunning(viewportProcess_) || !isRunning(clientProcess_)) {
    restartViewportClientForSceneChange();
    launchIfNeeded();
    return;
  }
  if (view_->inLiveResize() || elapsedSince(lastResizeSentAt_) < kResizeGrace ||
      pendingResizeWorkItem_.isActive())
    return;
  if (lastFrameReceivedAt_ == kDistantPast) {
    if (elapsedSince(lastOpenSentAt_) > kFirstFrameLimit) {
      log("Velk viewport: no first frame after 20s, restarting embedded runtime");
      restartViewportRuntimeForRecovery();
    }
    return;
  }
  if (elapsedSince(lastFrameReceivedAt_) > kStallLimit) {
    log("Velk viewport: frame stream stalled, restarting embedded runtime");
    restartViewportRuntimeForRecovery();
  }
}

void RuntimeViewportHostView::shutdown() {
  if (isShuttingDown_)
    return;
  isShuttingDown_ = true;
  stopFrameWatchdog();
  pendingResizeWorkItem_.cancel();
  viewportClientReadinessFallback_.cancel();
  viewportClientLaunchPending_ = false;
  sendLine(std::string(kViewportCloseLine));
  if (clientProcess_ && clientProcess_->output)
    clientProcess_->output->clear();
  clientOutputBuffer_.clear();
  ++clientOutputGeneration_;
  if (clientInput_) {
    std::shared_ptr<ChildProcess> input = std::exchange(clientInput_, nullptr);
    inputQueue_->post([input] { input->closeStdin(); });
  }
  clearDisplayedSurface();
  if (isRunning(clientProcess_))
    clientProcess_->process->terminate();
  if (isRunning(viewportProcess_))
    viewportProcess_->process->terminate();
}

// --- The update flow ---

void RuntimeViewportHostView::updateHost(RuntimeViewportState state) {
  const RuntimeViewportState& old = state_;
  const EditorConfiguration& oldConfiguration = old.configuration;
  const EditorConfiguration& newConfiguration = state.configuration;
  const bool scopeChanged = oldConfiguration.scenePath != newConfiguration.scenePath ||
                            oldConfiguration.address != newConfiguration.address ||
                            oldConfiguration.workspace != newConfiguration.workspace ||
                            old.projectId != state.projectId;
  const bool authChanged = old.authToken != state.authToken;
  const bool simulationChanged = old.simulationCommandSerial != state.simulationCommandSerial;
  const bool cameraChanged = old.cameraMode != state.cameraMode;
  const bool toolChanged =
      old.transformTool != state.transformTool || old.transformSpace != state.transformSpace;
  const bool rigidBodyChanged = old.rigidBodyShapes != state.rigidBodyShapes;
  const bool gridChanged = old.gridVisible != state.gridVisible;
  const bool snapChanged = old.snapSettingsLine != state.snapSettingsLine;
  const bool selectionChanged = old.selectedPaths != state.selectedPaths;
  const bool instancedChanged = old.instancedPrimPaths != state.instancedPrimPaths;
  const bool frameChanged = old.frameSerial != state.frameSerial;
  const bool previewChanged = old.propertyPreviewSerial != state.propertyPreviewSerial;
  const bool anchorsChanged = old.commentAnchors != state.commentAnchors;
  const bool commentToolChanged = old.commentToolActive != state.commentToolActive;
  const bool anythingChanged = scopeChanged || authChanged || simulationChanged || cameraChanged ||
                               toolChanged || rigidBodyChanged || gridChanged || snapChanged ||
                               selectionChanged || instancedChanged || frameChanged ||
                               previewChanged || anchorsChanged;
  state_ = std::move(state);
  hasReceivedState_ = true;
  if (isShuttingDown_)
    return;

  if (commentToolChanged && view_)
    view_->invalidateCursor();

  if (state_.sceneLoading) {
    prepareViewportForSceneSwitch(false, state_.preserveLastFrameDuringLoading);
    stopFrameWatchdog();
    return;
  }
  if (viewportTransportReady() && !anythingChanged && hasSentOpen_)
    return;

  bool openAndFollow = true;
  if (scopeChanged) {
    lastSentSelectedPaths_.reset();
    lastSentReviewCommentAnchors_.reset();
    prepareViewportForSceneSwitch(false, state_.preserveLastFrameDuringLoading);
    launchIfNeeded();
  } else {
    launchIfNeeded();
    openAndFollow = !hasSentOpen_;
  }
  if (openAndFollow) {
    const bool wasOpen = hasSentOpen_;
    sendOpenOrResize(false);
    // An open sent just now has told the grid, snap and rigid-body states already.
    if (wasOpen || !hasSentOpen_) {
      if (state_.gridVisible)
        sendViewportGridState();
      if (canSend())
        sendSnapSettings();
      if (state_.rigidBodyShapes)
        sendRigidBodyDebugState();
    }
  }

  if (authChanged)
    sendAuthToken();
  startFrameWatchdog();
  if (simulationChanged)
    sendSimulationState();
  if (cameraChanged)
    sendCameraMode();
  if (toolChanged)
    sendTransformTool();
  if (rigidBodyChanged)
    sendRigidBodyDebugState();
  if (gridChanged)
    sendViewportGridState();
  if (snapChanged)
    sendSnapSettings();
  sendSelectionPaths(false);
  sendInstancedPrimPaths(false);
  sendFrameCommand();
  sendPropertyPreviews(false);
  sendReviewCommentAnchors(false);
}

// --- Sending ---

void RuntimeViewportHostView::sendLine(std::string line) {
  if (!clientInput_)
    return;
  const bool timed =
      timingLogsEnabled_ && (hasPrefix(line, "simulation|") || isPointerClassLine(line));
  line += '\n';
  const auto logLine = threadSafeLog();
  const auto queuedAt = Clock::now();
  inputQueue_->post([input = clientInput_, line = std::move(line), logLine, timed, queuedAt] {
    const auto startedAt = Clock::now();
    const Status written = input->writeStdin(line);
    if (!written) {
      logLine("OrvanUsdEditor: viewport client input write failed: " + written.error().description);
      return;
    }
    if (!timed)
      return;
    const auto finishedAt = Clock::now();
    if (hasPrefix(line, "simulation|")) {
      const std::string_view text(line);
      const std::string serial(text.substr(text.rfind('|') + 1, text.size() - text.rfind('|') - 2));
      logLine(fmt::format("Velk viewport timing simulation-send serial={} queue={}us write={}us",
                          serial, microseconds(startedAt - queuedAt),
                          microseconds(finishedAt - startedAt)));
      return;
    }
    if (finishedAt - queuedAt > kSlowPointerWrite)
      logLine(fmt::format("Velk viewport timing pointer-send {}us",
                          microseconds(finishedAt - queuedAt)));
  });
}

void RuntimeViewportHostView::sendOpenOrResize(bool force) {
  if (state_.sceneLoading || !viewportTransportReady() || !view_)
    return;
  const double widthPoints = view_->widthPoints();
  const double heightPoints = view_->heightPoints();
  if (!(widthPoints > 4 && heightPoints > 4))
    return;
  const std::optional<double> backing = view_->backingScale();
  const double scale = isUsableScale(backing) ? *backing : 1.0;
  const ViewportPixelSize size = viewportPixelSize(widthPoints, heightPoints, scale);
  const SentSize sent{size.widthPx, size.heightPx, scale};
  if (!force && lastSentSize_ == sent && hasSentOpen_)
    return;
  lastSentSize_ = sent;

  if (hasSentOpen_) {
    // The open line carries the size; a resize before its first frame would disturb it.
    if (displayedFrameCount_ == 0)
      return;
    lastResizeSentAt_ = main_.now();
    sendLine(encodeResizeLine(size));
    return;
  }

  const std::string scenePath = trimmed(state_.configuration.scenePath);
  if (scenePath.empty())
    return;
  const std::string scene = viewportSceneURI(scenePath, state_.configuration.workspaceRoot);
  log("Velk viewport open scene=" + scene + " address=" + state_.configuration.address);
  ViewportOpenFields open;
  open.scene = scene;
  open.address = state_.configuration.address;
  open.clientId = state_.configuration.clientId;
  open.widthPx = size.widthPx;
  open.heightPx = size.heightPx;
  open.scale = scale;
  open.playing = state_.simulationPlaying;
  open.workspace = state_.configuration.workspace;
  open.authToken = state_.authToken;
  open.projectId = state_.projectId;
  open.external = true;
  open.forceReload = forceScopeReloadOnNextOpen_;
  sendLine(encodeOpenLine(open));
  forceScopeReloadOnNextOpen_ = false;
  hasSentOpen_ = true;
  lastOpenSentAt_ = main_.now();
  sendCameraMode();
  sendTransformTool();
  sendRigidBodyDebugState();
  sendSelectionPaths(true);
  sendInstancedPrimPaths(true);
  lastSentPropertyPreviewSerial_ = state_.propertyPreviewSerial;
  sendPropertyPreviews(true);
  sendReviewCommentAnchors(true);
  // A client that opened after the last update learns these here, not from the update flow.
  sendViewportGridState();
  sendSnapSettings();
}

void RuntimeViewportHostView::sendAuthToken() {
  if (canSend())
    sendLine(encodeAuthLine(state_.authToken));
}

void RuntimeViewportHostView::sendCameraMode() {
  if (canSend())
    sendLine(encodeCameraLine(state_.cameraMode));
}

void RuntimeViewportHostView::sendTransformTool() {
  if (canSend())
    sendLine(encodeToolLine(state_.transformTool, state_.transformSpace));
}

void RuntimeViewportHostView::sendSimulationState() {
  if (!canSend())
    return;
  if (playTimingEnabled_)
    pendingSimulationTiming_ =
        SimulationTiming{state_.simulationCommandSerial, main_.now(), state_.simulationPlaying};
  sendLine(encodeSimulationLine(state_.simulationPlaying, state_.simulationReset,
                                state_.simulationCommandSerial));
}

void RuntimeViewportHostView::sendRigidBodyDebugState() {
  if (canSend())
    sendLine(encodeRigidBodyDebugLine(state_.rigidBodyShapes));
}

void RuntimeViewportHostView::sendViewportGridState() {
  if (canSend())
    sendLine(encodeViewportGridLine(state_.gridVisible));
}

void RuntimeViewportHostView::sendSnapSettings() {
  if (canSend() && !state_.snapSettingsLine.empty())
    sendLine(state_.snapSettingsLine);
}

void RuntimeViewportHostView::sendSelectionPaths(bool force) {
  if (!canSend())
    return;
  if (!force && lastSentSelectedPaths_ == state_.selectedPaths)
    return;
  lastSentSelectedPaths_ = state_.selectedPaths;
  sendLine(encodeSelectionLine(state_.selectedPaths));
}

void RuntimeViewportHostView::sendInstancedPrimPaths(bool force) {
  if (!canSend())
    return;
  if (!force && lastSentInstancedPrimPaths_ == state_.instancedPrimPaths)
    return;
  lastSentInstancedPrimPaths_ = state_.instancedPrimPaths;
  sendLine(encodeInstancedPrimsLine(state_.instancedPrimPaths));
}

void RuntimeViewportHostView::sendFrameCommand() {
  if (!canSend() || lastSentFrameSerial_ == state_.frameSerial)
    return;
  lastSentFrameSerial_ = state_.frameSerial;
  sendLine(encodeFrameLine(state_.frameTarget));
}

void RuntimeViewportHostView::sendPropertyPreviews(bool force) {
  if (!canSend())
    return;
  if (!force && lastSentPropertyPreviewSerial_ == state_.propertyPreviewSerial)
    return;
  lastSentPropertyPreviewSerial_ = state_.propertyPreviewSerial;
  for (const ViewportPropertyPreview& preview : state_.propertyPreviews)
    sendLine(encodePropertyPreviewLine(preview));
}

void RuntimeViewportHostView::sendReviewCommentAnchors(bool force) {
  if (!canSend())
    return;
  if (!force && lastSentReviewCommentAnchors_ == state_.commentAnchors)
    return;
  lastSentReviewCommentAnchors_ = state_.commentAnchors;
  sendLine(encodeReviewCommentsLine(state_.commentAnchors));
}

// --- Immediate forms and input ---

bool RuntimeViewportHostView::sendFrameImmediately(std::string_view target) {
  if (!canSend())
    return false;
  if (state_.cameraMode == "game") {
    state_.cameraMode = "free";
    sendLine(encodeCameraLine("free"));
  }
  sendLine(encodeFrameLine(target));
  return true;
}

void RuntimeViewportHostView::sendTransformToolImmediately(std::string tool, std::string space) {
  if (!canSend())
    return;
  state_.transformTool = std::move(tool);
  state_.transformSpace = std::move(space);
  sendTransformTool();
}

void RuntimeViewportHostView::sendPropertyPreviewsImmediately(
    std::vector<ViewportPropertyPreview> previews) {
  if (!canSend())
    return;
  state_.propertyPreviews = std::move(previews);
  for (const ViewportPropertyPreview& preview : state_.propertyPreviews)
    sendLine(encodePropertyPreviewLine(preview));
}

void RuntimeViewportHostView::sendPointer(PointerPhase phase, double x, double y, int button,
                                          unsigned modifiers) {
  if (!canSend() || !view_)
    return;
  const std::optional<double> backing = view_->backingScale();
  const double scale = isUsableScale(backing) ? *backing : 1.0;
  const ViewportPixelPoint point =
      viewportPixelPoint(x, y, view_->widthPoints(), view_->heightPoints(), scale);
  sendLine(encodePointerLine(phase, point, button, modifiers));
}

void RuntimeViewportHostView::sendKey(bool down, std::uint16_t keyCode, std::string characters,
                                      unsigned modifiers) {
  if (canSend())
    sendLine(encodeKeyLine(down, keyCode, characters, modifiers));
}

void RuntimeViewportHostView::sendCameraGesture(std::string_view kind, double dx, double dy) {
  if (!canSend() || state_.cameraMode != "free")
    return;
  if (!std::isfinite(dx) || !std::isfinite(dy) || std::abs(dx) + std::abs(dy) <= 0.0001)
    return;
  sendLine(encodeGestureLine(kind, dx, dy));
}

void RuntimeViewportHostView::requestCurrentFreeCamera(
    std::function<void(std::optional<FreeCameraState>)> completion) {
  if (!canSend()) {
    if (completion)
      completion(std::nullopt);
    return;
  }
  if (freeCameraContinuation_) {
    auto earlier = std::exchange(freeCameraContinuation_, nullptr);
    earlier(std::nullopt);
  }
  freeCameraContinuation_ = std::move(completion);
  std::weak_ptr<int> alive = alive_;
  freeCameraTimeout_.replace(main_.postAfter(kFreeCameraTimeout, [this, alive] {
    if (!alive.lock())
      return;
    freeCameraTimeout_.clear();
    if (auto waiting = std::exchange(freeCameraContinuation_, nullptr))
      waiting(std::nullopt);
  }));
  sendLine(std::string(kViewportCameraQueryLine));
}

void RuntimeViewportHostView::dragUpdated(std::string payload, double x, double y,
                                          const ViewportDropHover& bounds) {
  if (!canSend() || !view_)
    return;
  hoverPayload_ = std::move(payload);
  hoverLine_ = bounds;
  const std::optional<double> backing = view_->backingScale();
  const double scale = isUsableScale(backing) ? *backing : 1.0;
  hoverLine_.point = viewportPixelPoint(x, y, view_->widthPoints(), view_->heightPoints(), scale);
  sendDropHover("", false);
}

void RuntimeViewportHostView::performDrop(std::string payload, double x, double y,
                                          const ViewportDropHover& bounds) {
  if (!canSend() || !view_)
    return;
  dragUpdated(payload, x, y, bounds);
  pendingDropPayload_ = std::move(payload);
  pendingDropRequestId_ = makeRequestId();
  sendDropHover(pendingDropRequestId_, true);
  std::weak_ptr<int> alive = alive_;
  pendingDropFallback_.replace(main_.postAfter(kDropFallback, [this, alive] {
    if (!alive.lock())
      return;
    pendingDropFallback_.clear();
    completePendingDrop();
  }));
}

void RuntimeViewportHostView::dragExited() {
  if (pendingDropPayload_)
    return;
  if (canSend())
    sendLine(std::string(kViewportDropClearLine));
}

void RuntimeViewportHostView::sendDropHover(const std::string& requestId, bool force) {
  if (!canSend())
    return;
  const TimePoint now = main_.now();
  if (requestId.empty() && !force && elapsedSince(lastDropHoverSentAt_) < kDropHoverSpacing)
    return;
  lastDropHoverSentAt_ = now;
  ViewportDropHover line = hoverLine_;
  line.requestId = requestId;
  sendLine(encodeDropHoverLine(line));
}

void RuntimeViewportHostView::completePendingDrop() {
  if (!pendingDropPayload_)
    return;
  const std::string payload = std::exchange(*pendingDropPayload_, std::string());
  pendingDropPayload_.reset();
  pendingDropRequestId_.clear();
  pendingDropFallback_.cancel();
  const ViewportDropPlacement placement = latestDropPlacement_;
  if (state_.onSceneDrop)
    state_.onSceneDrop(payload, placement);
  if (canSend())
    sendLine(std::string(placement.valid ? kViewportDropCommitLine : kViewportDropClearLine));
}

// --- Reading ---

void RuntimeViewportHostView::deliverClientOutput(
    const std::shared_ptr<ViewportClientOutputAccumulator>& from) {
  std::string text = from->take();
  if (!clientProcess_ || clientProcess_->output != from || isShuttingDown_)
    return;
  handleClientOutput(text);
}

void RuntimeViewportHostView::handleClientOutput(std::string_view text) {
  // Callbacks below may restart the client; the buffer is then the new client's.
  std::string buffer = std::exchange(clientOutputBuffer_, std::string());
  buffer.append(text);
  const std::uint64_t generation = clientOutputGeneration_;
  std::optional<ViewportClientLine> keptFrame;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = buffer.find('\n', start);
    if (end == std::string::npos)
      break;
    const std::string_view line = std::string_view(buffer).substr(start, end - start);
    start = end + 1;
    if (trimWhitespaceAndNewlines(line).empty())
      continue;
    auto decoded = decodeViewportClientLine(line);
    if (!decoded) {
      logViewportDiagnostic("decode", 8,
                            "Velk viewport: ignored client output: " + std::string(line));
      continue;
    }
    handleClientLine(*decoded, keptFrame);
    if (generation != clientOutputGeneration_ || isShuttingDown_)
      return;
  }
  clientOutputBuffer_ = buffer.substr(start);
  if (keptFrame)
    displaySurface(*keptFrame);
}

void RuntimeViewportHostView::handleClientLine(const ViewportClientLine& line,
                                               std::optional<ViewportClientLine>& keptFrame) {
  const std::string& type = line.type;
  if (type == "frame") {
    if (!line.surfaceId)
      return;
    if (state_.sceneLoading) {
      if (line.frameIndex) {
        pendingFrameAcknowledgements_[*line.frameIndex] = *line.surfaceId;
        acknowledgeViewportFrame(line.frameIndex, *line.surfaceId);
      }
      return;
    }
    // Only the newest frame of a batch is shown; the older one goes back unseen.
    if (keptFrame)
      acknowledgeViewportFrame(keptFrame->frameIndex, *keptFrame->surfaceId);
    keptFrame = line;
    if (line.frameIndex)
      pendingFrameAcknowledgements_[*line.frameIndex] = *line.surfaceId;
    return;
  }
  if (type == "resizeAck") {
    setConnected(true);
    return;
  }
  if (state_.sceneLoading)
    return;
  if (type == "status") {
    if (line.message)
      log("Velk viewport: " + *line.message);
  } else if (type == "dropTarget") {
    latestDropPlacement_ = dropPlacementFromLine(line);
    if (pendingDropPayload_ && line.requestId && *line.requestId == pendingDropRequestId_)
      completePendingDrop();
  } else if (type == "selection") {
    if (state_.onSelection)
      state_.onSelection(line.entityPaths.value_or(std::vector<std::string>{}));
  } else if (type == "transformCommit") {
    if (!line.entityPath || !line.propertyName || !line.values)
      return;
    if (state_.onTransformCommit)
      state_.onTransformCommit(ViewportTransformCommit{
          *line.entityPath, *line.propertyName, *line.values, line.previewSessionId.value_or(""),
          line.final.value_or(false), line.duplicateRequested.value_or(false)});
  } else if (type == "reviewCommentMarkers") {
    if (state_.onReviewCommentMarkers)
      state_.onReviewCommentMarkers(parseReviewCommentMarkers(line.markers.value_or("")));
  } else if (type == "freeCameraState") {
    freeCameraTimeout_.cancel();
    if (auto waiting = std::exchange(freeCameraContinuation_, nullptr))
      waiting(freeCameraStateFromLine(line));
  }
}

// --- Frames ---

void RuntimeViewportHostView::acknowledgeViewportFrame(std::optional<std::uint64_t> frameIndex,
                                                       std::uint32_t surfaceId) {
  if (!frameIndex)
    return;
  const auto entry = pendingFrameAcknowledgements_.find(*frameIndex);
  if (entry == pendingFrameAcknowledgements_.end() || entry->second != surfaceId)
    return;
  pendingFrameAcknowledgements_.erase(entry);
  sendLine(encodeFrameAckLine(*frameIndex, surfaceId));
}

void RuntimeViewportHostView::displaySurface(const ViewportClientLine& frame) {
  const auto startedAt = Clock::now();
  const std::uint32_t surfaceId = *frame.surfaceId;
  const std::optional<std::uint64_t> frameIndex = frame.frameIndex;
  const std::optional<std::uint64_t> serial = frame.simulationCommandSerial;
  if (state_.sceneLoading) {
    acknowledgeViewportFrame(frameIndex, surfaceId);
    return;
  }
  std::shared_ptr<const SharedSurface> surface = surfaces_.lookup(surfaceId);
  if (!surface) {
    acknowledgeViewportFrame(frameIndex, surfaceId);
    if (!currentSurface_)
      logViewportDiagnostic("surface-lookup", 10,
                            "Velk viewport: IOSurfaceLookup failed before first drawable frame "
                            "for surface " +
                                std::to_string(surfaceId));
    return;
  }
  setConnected(true);
  const TimePoint now = main_.now();
  lastFrameReceivedAt_ = now;
  currentSurface_ = surface;
  ++displayedFrameCount_;

  double scale = 1.0;
  if (isUsableScale(frame.scaleFactor))
    scale = *frame.scaleFactor;
  else if (lastSentSize_)
    scale = lastSentSize_->scale;
  else if (view_ && isUsableScale(view_->backingScale()))
    scale = *view_->backingScale();

  if (displayedFrameCount_ == 1) {
    const auto dimension = [](std::optional<std::uint32_t> value) {
      return value ? std::to_string(*value) : std::string("?");
    };
    log("Velk viewport: first frame displayed scene=" + state_.configuration.scenePath +
        " surface=" + std::to_string(surfaceId) + " size=" + dimension(frame.widthPx) + "x" +
        dimension(frame.heightPx) + " scale=" + formatViewportReal(scale));
    // A resize asked for before this frame goes out now.
    std::weak_ptr<int> alive = alive_;
    main_.post([this, alive] {
      if (alive.lock())
        sendOpenOrResize(true);
    });
  }

  if (!view_ || !view_->hasWindow() || !view_->isVisible()) {
    acknowledgeViewportFrame(frameIndex, surfaceId);
    completeSimulationTimingIfNeeded(serial);
    return;
  }

  std::weak_ptr<int> alive = alive_;
  const auto completion = [this, alive, frameIndex, surfaceId, serial] {
    if (!alive.lock())
      return;
    acknowledgeViewportFrame(frameIndex, surfaceId);
    completeSimulationTimingIfNeeded(serial);
  };
  if (surface->width < 1 || surface->height < 1) {
    completion();
  } else if (!acquireDrawableWithoutBlocking()) {
    completion();
  } else {
    std::weak_ptr<OutstandingDrawableCounter> counter = drawablesAwaitingPresentation_;
    const auto presented = [counter] {
      if (auto held = counter.lock())
        held->decrementClampedAtZero();
    };
    if (!view_->present(surface, scale, presented, completion)) {
      drawablesAwaitingPresentation_->decrementClampedAtZero();
      completion();
    }
  }
  // Whatever the view does with its callbacks, the client gets its surface back.
  const std::uint64_t epoch = frameEpoch_;
  main_.postAfter(kSafetyAcknowledgement, [this, alive, frameIndex, surfaceId, epoch] {
    if (alive.lock() && epoch == frameEpoch_)
      acknowledgeViewportFrame(frameIndex, surfaceId);
  });

  if (!timingLogsEnabled_)
    return;
  recordDisplayedFrameTiming(now);
  const auto took = Clock::now() - startedAt;
  if (took >= kSlowDisplay)
    log(fmt::format("Velk viewport timing display-surface {}us", microseconds(took)));
}

bool RuntimeViewportHostView::acquireDrawableWithoutBlocking() {
  const int value = drawablesAwaitingPresentation_->value();
  if (value >= 2) {
    const TimePoint now = main_.now();
    if (!drawablesSaturatedSince_) {
      drawablesSaturatedSince_ = now;
      return false;
    }
    if (now - *drawablesSaturatedSince_ > kDrawableSaturationLimit) {
      // Presented callbacks were lost; do not let that stop the stream.
      drawablesSaturatedSince_.reset();
      drawablesAwaitingPresentation_->set(1);
      return true;
    }
    return false;
  }
  drawablesSaturatedSince_.reset();
  drawablesAwaitingPresentation_->increment();
  return true;
}

void RuntimeViewportHostView::clearDisplayedSurface() {
  for (const auto& [frameIndex, surfaceId] : pendingFrameAcknowledgements_)
    sendLine(encodeFrameAckLine(frameIndex, surfaceId));
  pendingFrameAcknowledgements_.clear();
  ++frameEpoch_;
  setConnected(false);
  currentSurface_.reset();
  if (view_)
    view_->clear();
}

void RuntimeViewportHostView::completeSimulationTimingIfNeeded(
    std::optional<std::uint64_t> serial) {
  if (!playTimingEnabled_ || !pendingSimulationTiming_ || !serial ||
      pendingSimulationTiming_->serial > *serial)
    return;
  const SimulationTiming timing = *pendingSimulationTiming_;
  pendingSimulationTiming_.reset();
  const double elapsedMs =
      std::chrono::duration<double, std::milli>(main_.now() - timing.issuedAt).count();
  log(fmt::format("first-frame-presented serial={} state={} elapsed_ms={:.3f}", timing.serial,
                  timing.playing ? "playing" : "stopped", elapsedMs));
}

void RuntimeViewportHostView::recordDisplayedFrameTiming(TimePoint now) {
  if (!displayedFrameTimingWindowStart_)
    displayedFrameTimingWindowStart_ = now;
  if (previousDisplayedFrameTime_) {
    const std::int64_t interval =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now - *previousDisplayedFrameTime_)
            .count();
    ++displayedFrameIntervalCount_;
    displayedFrameIntervalTotal_ += interval;
    displayedFrameIntervalMinimum_ = std::min(displayedFrameIntervalMinimum_, interval);
    displayedFrameIntervalMaximum_ = std::max(displayedFrameIntervalMaximum_, interval);
  }
  previousDisplayedFrameTime_ = now;
  const Duration window = now - *displayedFrameTimingWindowStart_;
  if (window < kTimingWindow || displayedFrameIntervalCount_ < 1)
    return;
  const double seconds = std::chrono::duration<double>(window).count();
  const double count = static_cast<double>(displayedFrameIntervalCount_);
  log(
      fmt::format("Velk viewport timing presentation fps {:.1f} avg-ms {:.3f} min-ms {:.3f} "
                  "max-ms {:.3f}",
                  count / seconds, displayedFrameIntervalTotal_ / count / 1e6,
                  displayedFrameIntervalMinimum_ / 1e6, displayedFrameIntervalMaximum_ / 1e6));
  displayedFrameTimingWindowStart_ = now;
  displayedFrameIntervalCount_ = 0;
  displayedFrameIntervalTotal_ = 0;
  displayedFrameIntervalMinimum_ = INT64_MAX;
  displayedFrameIntervalMaximum_ = 0;
}

}  // namespace orvan::editor
