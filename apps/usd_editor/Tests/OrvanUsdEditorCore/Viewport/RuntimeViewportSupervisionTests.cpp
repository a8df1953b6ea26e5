// The viewport host keeps its runtime and client alive: launch order, readiness, retries, the
// frame watchdog, resizing, scope changes and shutdown, on virtual time with scripted children.
#include "ViewportHostTest.h"

namespace orvan::editor::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

const char kOpenA[] =
    "open|/ws/scenes/a.usda|grpcs://authoring.test:443|native-editor-7-viewport|1600|1200|2.0|1|"
    "0|||main|tok|p1|1|0";

using ViewportSupervisionTest = ViewportHostTest;

TEST_F(ViewportSupervisionTest, TheRuntimeStartsFirstAndTheClientWhenItListens) {
  EXPECT_EQ(countLogs("OrvanUsdEditor: viewport backend iosurface"), 1);
  host->attach(&view);
  EXPECT_EQ(runtimeCount(), 0u) << "nothing starts before the editor's first update";

  show(state());
  ASSERT_EQ(runtimeCount(), 1u);
  EXPECT_EQ(clientCount(), 0u) << "the client waits for the runtime";
  EXPECT_THAT(runtime()->options.arguments,
              ElementsAre("--address", "127.0.0.1:50099", "--parent-pid", "777"));
  EXPECT_THAT(runtime()->options.environment,
              UnorderedElementsAre(Pair("ORVAN_VIEWPORT_FRAME_RATE", "120"),
                                   Pair("ORVAN_VIEWPORT_DISPLAY_ID", "DP-1")));

  runtime()->emitStdout("loading plug-ins\nViewport server listening on 127.0.0.1:50099\n");
  runtime()->emitStderr("warning: no GPU");
  scheduler.runUntilIdle();
  EXPECT_EQ(countLogs("Velk viewport runtime: loading plug-ins"), 1);
  EXPECT_EQ(countLogs("Velk viewport runtime error: warning: no GPU"), 1);
  ASSERT_EQ(clientCount(), 1u);
  EXPECT_THAT(client()->options.arguments,
              ElementsAre("--address", "127.0.0.1:50099", "--json-lines"));
  EXPECT_THAT(client()->options.environment, IsEmpty()) << "the client inherits as it is";
  EXPECT_EQ(
      countLogs("Velk viewport open scene=/ws/scenes/a.usda address=grpcs://authoring.test:443"),
      1);
  EXPECT_THAT(readLines(),
              ElementsAre(kOpenA, "camera|free", "tool|translate|world",
                          "debug|rigid-body-shapes|0", "selection|/World/A", "instanced-prims",
                          "review-comments", "debug|viewport-grid|1"));
  EXPECT_TRUE(host->hasSentOpen());

  // A second listening line (a reconnect message) starts nothing more.
  runtime()->emitStdout("Viewport server listening\n");
  scheduler.runUntilIdle();
  EXPECT_EQ(clientCount(), 1u);
}

TEST_F(ViewportSupervisionTest, TheScreenVariablesAreAddedOnlyWhenKnownAndNotAlreadySet) {
  makeHost({{"ORVAN_VIEWPORT_FRAME_RATE", "30"}});
  view.screen = std::nullopt;
  show(state());
  EXPECT_THAT(runtime()->options.environment, IsEmpty());

  makeHost();
  view.framesPerSecond = 59.94;
  view.screen = "HDMI-2";
  show(state());
  EXPECT_THAT(runtime()->options.environment,
              UnorderedElementsAre(Pair("ORVAN_VIEWPORT_FRAME_RATE", "60"),
                                   Pair("ORVAN_VIEWPORT_DISPLAY_ID", "HDMI-2")));
  makeHost();
  view.framesPerSecond = std::nullopt;
  view.screen = "";
  show(state());
  EXPECT_THAT(runtime()->options.environment, IsEmpty());
}

TEST_F(ViewportSupervisionTest, WithoutAReadinessLineTheClientStartsAfterOneSecond) {
  show(state());
  scheduler.advanceBy(999ms);
  EXPECT_EQ(clientCount(), 0u);
  scheduler.advanceBy(1ms);
  ASSERT_EQ(clientCount(), 1u);
  EXPECT_EQ(countLogs("OrvanUsdEditor: viewport runtime readiness line not observed; starting "
                      "client after fallback delay"),
            1);
  EXPECT_EQ(readLines().front(), kOpenA);
  // The listening line after the fallback changes nothing.
  runtime()->emitStdout("Viewport server listening\n");
  scheduler.advanceBy(2s);
  EXPECT_EQ(clientCount(), 1u);
}

TEST_F(ViewportSupervisionTest, AMissingOrUnlaunchableExecutableIsRetriedAfterTenSeconds) {
  launcher.executables = {kClient};
  RuntimeViewportState relative = state();
  relative.configuration.viewportPath = "build/rt";
  show(relative);
  EXPECT_EQ(countLogs("OrvanUsdEditor: viewport runtime missing or not executable: /ws/build/rt"),
            1);
  EXPECT_EQ(runtimeCount(), 0u);

  launcher.executables.insert("/ws/build/rt");
  scheduler.advanceBy(9s);
  relative.selectedPaths = {"/World/B"};
  host->updateHost(relative);
  EXPECT_EQ(runtimeCount(), 0u) << "not before ten seconds";
  scheduler.advanceBy(1s);
  relative.selectedPaths = {"/World/C"};
  host->updateHost(relative);
  EXPECT_EQ(launcher.startedFrom("/ws/build/rt").size(), 1u);

  // A client that cannot be launched: logged with the reason, retried ten seconds on.
  launcher.failingLaunches.insert(kClient);
  scheduler.advanceBy(1s);
  EXPECT_EQ(countLogs("OrvanUsdEditor: failed to launch viewport client: cannot start " +
                      std::string(kClient)),
            1);
  launcher.failingLaunches.clear();
  relative.selectedPaths = {"/World/D"};
  host->updateHost(relative);
  scheduler.advanceBy(8s);
  EXPECT_EQ(clientCount(), 0u);
  scheduler.advanceBy(2s);
  relative.selectedPaths = {"/World/E"};
  host->updateHost(relative);
  EXPECT_EQ(clientCount(), 1u);
}

TEST_F(ViewportSupervisionTest, AnExitedChildIsRelaunchedHalfASecondLater) {
  openStream();
  client()->exit(ExitStatus::exited(3));
  scheduler.runUntilIdle();
  EXPECT_EQ(countLogs("OrvanUsdEditor: viewport client exited status=3 reason=exit"), 1);
  EXPECT_FALSE(host->hasSentOpen());
  scheduler.advanceBy(499ms);
  EXPECT_EQ(clientCount(), 1u);
  scheduler.advanceBy(1ms);
  ASSERT_EQ(clientCount(), 2u) << "the runtime is still ready: the client starts at once";
  EXPECT_EQ(readLines().front(), kOpenA);

  runtime()->exit(ExitStatus::signalled(9));
  scheduler.runUntilIdle();
  EXPECT_EQ(countLogs("OrvanUsdEditor: viewport runtime exited status=9 reason=uncaughtSignal"), 1);
  scheduler.advanceBy(500ms);
  EXPECT_EQ(runtimeCount(), 2u);
}

TEST_F(ViewportSupervisionTest, TheExitOfAReplacedProcessIsIgnored) {
  openStream();
  const auto oldClient = client();
  const auto oldRuntime = runtime();
  host->restartAuthoritativeScope(state().configuration, "p2", "tok2");
  scheduler.runUntilIdle();
  EXPECT_TRUE(oldClient->terminated);
  EXPECT_TRUE(oldRuntime->terminated);
  EXPECT_EQ(oldClient->lines().back(), "close");
  EXPECT_EQ(countLogsStartingWith("OrvanUsdEditor: viewport client exited"), 0)
      << "the terminated client had already been replaced";
  EXPECT_EQ(countLogs("OrvanUsdEditor: viewport runtime exited status=15 reason=uncaughtSignal"), 1)
      << "the runtime's own exit brings the pair back";
  scheduler.advanceBy(500ms);
  ASSERT_EQ(runtimeCount(), 2u);
  runtime()->emitStdout("Viewport server listening\n");
  scheduler.runUntilIdle();
  ASSERT_EQ(clientCount(), 2u);
  const std::vector<std::string> lines = readLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_TRUE(lines.front().ends_with("|main|tok2|p2|1|1"))
      << "a reload is asked for: " << lines.front();

  // Late words of the replaced processes change nothing.
  oldClient->options.onExit(ExitStatus::exited(1));
  oldRuntime->options.onExit(ExitStatus::exited(1));
  oldRuntime->emitStdout("Viewport server listening\n");
  oldClient->emitStdout(frameLine(1, 7));
  scheduler.advanceBy(1s);
  EXPECT_EQ(countLogsStartingWith("OrvanUsdEditor: viewport client exited"), 0);
  EXPECT_EQ(countLogsStartingWith("OrvanUsdEditor: viewport runtime exited"), 1);
  EXPECT_EQ(clientCount(), 2u);
  EXPECT_TRUE(host->hasSentOpen());
  EXPECT_EQ(host->displayedFrameCount(), 0u);
}

TEST_F(ViewportSupervisionTest, TheWatchdogRestartsAfterTwentySecondsWithoutAFirstFrame) {
  openStream();
  scheduler.advanceBy(20s);
  EXPECT_EQ(runtimeCount(), 1u);
  scheduler.advanceBy(1s);
  EXPECT_EQ(countLogs("Velk viewport: no first frame after 20s, restarting embedded runtime"), 1);
  EXPECT_TRUE(runtime()->terminated);
  EXPECT_TRUE(client()->terminated);
  scheduler.advanceBy(500ms);
  EXPECT_EQ(runtimeCount(), 2u);
}

TEST_F(ViewportSupervisionTest, TheWatchdogRestartsAStreamStalledForFiveSeconds) {
  surfaces.add(7, 1600, 1200);
  view.completeAtOnce = true;
  openStream();
  // The first frame sends the waiting resize, which opens ten seconds of grace.
  for (int second = 0; second <= 12; ++second) {
    emit(frameLine(static_cast<std::uint64_t>(second) + 1, 7));
    scheduler.advanceBy(1s);
  }
  EXPECT_EQ(host->displayedFrameCount(), 13u);
  scheduler.advanceBy(4s);
  EXPECT_EQ(countLogsStartingWith("Velk viewport: frame stream stalled"), 0);
  scheduler.advanceBy(1s);
  EXPECT_EQ(countLogs("Velk viewport: frame stream stalled, restarting embedded runtime"), 1);
  EXPECT_EQ(host->displayedFrameCount(), 0u);
  EXPECT_THAT(connectionChanges, ElementsAre(true, false));
}

TEST_F(ViewportSupervisionTest, ALiveResizeAndItsGraceKeepTheWatchdogQuiet) {
  surfaces.add(7, 1600, 1200);
  view.completeAtOnce = true;
  openStream();
  emit(frameLine(1, 7));
  view.liveResize = true;
  scheduler.advanceBy(60s);
  EXPECT_EQ(countLogsStartingWith("Velk viewport: frame stream stalled"), 0);
  view.liveResize = false;
  view.width = 900;
  host->liveResizeEnded();
  EXPECT_THAT(readLines(), ::testing::Contains("resize|1800|1200|2.0"));
  scheduler.advanceBy(9s);
  EXPECT_EQ(countLogsStartingWith("Velk viewport: frame stream stalled"), 0)
      << "within ten seconds of a resize";
  scheduler.advanceBy(1s);
  EXPECT_EQ(countLogs("Velk viewport: frame stream stalled, restarting embedded runtime"), 1);
}

TEST_F(ViewportSupervisionTest, ResizesWaitForTheFirstFrameAndAreCoalescedDuringALiveResize) {
  surfaces.add(7, 1600, 1200);
  view.completeAtOnce = true;
  openStream();
  view.width = 1000;
  host->viewSizeChanged();
  EXPECT_THAT(readLines(), IsEmpty()) << "the open line already carries a size";

  emit(frameLine(1, 7));
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|1|7", "resize|2000|1200|2.0"));
  emit(frameLine(2, 7));
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|2|7")) << "one forced resize per open";

  view.liveResize = true;
  host->liveResizeStarted();
  view.width = 1010;
  host->viewSizeChanged();
  scheduler.advanceBy(10ms);
  view.width = 1020;
  host->viewSizeChanged();
  EXPECT_THAT(readLines(), IsEmpty());
  scheduler.advanceBy(23ms);
  EXPECT_THAT(readLines(), IsEmpty());
  scheduler.advanceBy(1ms);
  EXPECT_THAT(readLines(), ElementsAre("resize|2040|1200|2.0"));
  view.width = 1030;
  host->viewSizeChanged();
  scheduler.advanceBy(32ms);
  EXPECT_THAT(readLines(), IsEmpty());
  scheduler.advanceBy(1ms);
  EXPECT_THAT(readLines(), ElementsAre("resize|2060|1200|2.0"));
  scheduler.advanceBy(1s);
  host->viewSizeChanged();
  EXPECT_THAT(readLines(), IsEmpty()) << "the same size is not sent again";
  view.liveResize = false;
  view.scale = 1.0;
  host->liveResizeEnded();
  EXPECT_THAT(readLines(), ElementsAre("resize|1030|600|1.0"));
}

TEST_F(ViewportSupervisionTest, AScopeChangeReopensWithoutRestartingAProcess) {
  surfaces.add(7, 1600, 1200);
  openStream();
  emit(frameLine(1, 7));
  readLines();
  const int clearsBefore = view.clears;
  RuntimeViewportState next = state();
  next.configuration.scenePath = "/abs/b.usda";
  next.configuration.workspace = "review";
  host->updateHost(next);
  EXPECT_EQ(runtimeCount(), 1u);
  EXPECT_EQ(clientCount(), 1u);
  EXPECT_FALSE(client()->terminated);
  EXPECT_THAT(readLines(),
              ElementsAre("frame-ack|1|7",
                          "open|/abs/b.usda|grpcs://authoring.test:443|native-editor-7-viewport|"
                          "1600|1200|2.0|1|0|||review|tok|p1|1|0",
                          "camera|free", "tool|translate|world", "debug|rigid-body-shapes|0",
                          "selection|/World/A", "instanced-prims", "review-comments",
                          "debug|viewport-grid|1"));
  EXPECT_EQ(view.clears, clearsBefore + 1) << "the old scene's image goes";

  // With the old frame kept through a load, the image stays until the new scene's first frame.
  emit(frameLine(2, 7));
  readLines();
  RuntimeViewportState loading = next;
  loading.sceneLoading = true;
  loading.preserveLastFrameDuringLoading = true;
  host->updateHost(loading);
  EXPECT_EQ(view.clears, clearsBefore + 1);
  emit(R"({"type":"status","message":"dropped while loading"})"
       "\n" +
       frameLine(3, 7));
  EXPECT_EQ(countLogs("Velk viewport: dropped while loading"), 0);
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|3|7"));
  loading.sceneLoading = false;
  loading.configuration.scenePath = "/abs/c.usda";
  host->updateHost(loading);
  EXPECT_EQ(clientCount(), 1u);
  const std::vector<std::string> lines = readLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_TRUE(lines.front().starts_with("open|/abs/c.usda|")) << lines.front();
}

TEST_F(ViewportSupervisionTest, NoOpenForASmallViewOrAnEmptyScene) {
  view.width = 4;
  openStream();
  EXPECT_THAT(readLines(), IsEmpty());
  EXPECT_FALSE(host->hasSentOpen());
  view.width = 4.5;
  host->viewSizeChanged();
  const std::vector<std::string> lines = readLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(),
            "open|/ws/scenes/a.usda|grpcs://authoring.test:443|native-editor-7-viewport|9|1200|"
            "2.0|1|0|||main|tok|p1|1|0");

  makeHost();
  RuntimeViewportState empty = state();
  empty.configuration.scenePath = "  ";
  openStream(empty);
  EXPECT_THAT(readLines(), IsEmpty());
  EXPECT_EQ(countLogsStartingWith("Velk viewport open scene="), 1) << "only the first host's";
  scheduler.advanceBy(60s);
  EXPECT_EQ(countLogsStartingWith("Velk viewport: no first frame"), 0) << "the watchdog is idle";
  EXPECT_EQ(runtimeCount(), 2u);
}

TEST_F(ViewportSupervisionTest, TheUpdateFlowSendsOnlyWhatChanged) {
  openStream();
  RuntimeViewportState next = state();
  host->updateHost(next);
  EXPECT_THAT(readLines(), IsEmpty());

  next.authToken = "";
  next.simulationPlaying = true;
  next.simulationCommandSerial = 5;
  next.cameraMode = "game";
  next.transformTool = "rotate";
  next.rigidBodyShapes = true;
  next.gridVisible = false;
  next.snapSettingsLine = "snap|1|0.5|15|0";
  next.selectedPaths = {"/World/B", "/World/C|D"};
  next.instancedPrimPaths = {"/World/I"};
  next.frameSerial = 1;
  next.frameTarget = "all";
  next.propertyPreviewSerial = 3;
  next.propertyPreviews = {{"/World/B", "Transform", "translation", "1 2 3", false},
                           {"/World/C", "Light", "intensity", "", true}};
  next.commentAnchors = {{"/World/B", 2, true}};
  host->updateHost(next);
  EXPECT_THAT(
      readLines(),
      ElementsAre("auth|", "simulation|1|0|5", "camera|game", "tool|rotate|world",
                  "debug|rigid-body-shapes|1", "debug|viewport-grid|0", "snap|1|0.5|15|0",
                  "selection|/World/B|/World/C D", "instanced-prims|/World/I", "frame|all",
                  "property-preview|/World/B|Transform|translation|1 2 3|0",
                  "property-preview|/World/C|Light|intensity||1", "review-comments|/World/B|2|1"));

  next.simulationReset = true;
  next.simulationPlaying = false;
  next.simulationCommandSerial = 6;
  next.commentToolActive = true;
  host->updateHost(next);
  EXPECT_THAT(readLines(), ElementsAre("simulation|0|reset|6"));
  EXPECT_EQ(view.cursorInvalidations, 1);

  next.selectedPaths = {};
  next.commentAnchors = {};
  host->updateHost(next);
  EXPECT_THAT(readLines(), ElementsAre("selection", "review-comments"));
}

TEST_F(ViewportSupervisionTest, ShutdownClosesAndNothingComesBack) {
  openStream();
  const auto runningClient = client();
  const auto runningRuntime = runtime();
  host->shutdown();
  scheduler.runUntilIdle();
  EXPECT_THAT(readLines(), ElementsAre("close"));
  EXPECT_TRUE(runningClient->stdinClosed);
  EXPECT_TRUE(runningClient->terminated);
  EXPECT_TRUE(runningRuntime->terminated);
  scheduler.advanceBy(30s);
  EXPECT_EQ(runtimeCount(), 1u);
  EXPECT_EQ(clientCount(), 1u);
  EXPECT_EQ(countLogsStartingWith("OrvanUsdEditor: viewport"), 1) << "only the backend line";
  host->updateHost(state());
  host->viewDidMoveToWindow();
  EXPECT_EQ(runtimeCount(), 1u);
}

TEST_F(ViewportSupervisionTest, LoadingStopsTheWatchdogAndTheEndOfLoadingReopens) {
  openStream();
  RuntimeViewportState loading = state();
  loading.sceneLoading = true;
  host->updateHost(loading);
  EXPECT_FALSE(host->hasSentOpen());
  scheduler.advanceBy(60s);
  EXPECT_EQ(countLogsStartingWith("Velk viewport: no first frame"), 0);
  loading.sceneLoading = false;
  host->updateHost(loading);
  EXPECT_EQ(readLines().front(), kOpenA);
  scheduler.advanceBy(21s);
  EXPECT_EQ(countLogsStartingWith("Velk viewport: no first frame"), 1) << "the watchdog runs again";
}

TEST_F(ViewportSupervisionTest, ADeadChildFoundByTheWatchdogBringsThePairBack) {
  openStream();
  const auto gone = client();
  gone->running = false;  // gone without its exit having been seen yet
  scheduler.advanceBy(1s);
  EXPECT_EQ(gone->lines().back(), "close");
  ASSERT_EQ(clientCount(), 2u) << "the runtime is ready, so the client starts again at once";
  EXPECT_EQ(readLines().front(), kOpenA);
}

TEST_F(ViewportSupervisionTest, AFailedWriteIsLoggedAndDropped) {
  openStream();
  client()->writesFail = true;
  RuntimeViewportState next = state();
  next.selectedPaths = {"/World/Z"};
  host->updateHost(next);
  scheduler.runUntilIdle();
  EXPECT_EQ(countLogs("OrvanUsdEditor: viewport client input write failed: Broken pipe"), 1);
}

}  // namespace
}  // namespace orvan::editor::testing
