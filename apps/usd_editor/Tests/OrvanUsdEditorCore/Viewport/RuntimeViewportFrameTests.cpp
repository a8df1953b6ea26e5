// Frames from the viewport client: reading the output lines, showing the newest surface of a
// batch and acknowledging every frame exactly once.
#include "ViewportHostTest.h"

namespace orvan::editor::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ViewportFrameTest : public ViewportHostTest {
 protected:
  void SetUp() override {
    ViewportHostTest::SetUp();
    for (std::uint32_t id : {7u, 8u, 9u})
      surfaces.add(id, 1600, 1200);
    openStream();
  }
  // Finishes the view's copy of presentation `index`.
  void complete(std::size_t index) {
    view.presentations.at(index).presented();
    view.presentations.at(index).completed();
    scheduler.runUntilIdle();
  }
};

TEST_F(ViewportFrameTest, OnlyTheNewestFrameOfABatchIsShownAndTheOthersGoBackUnseen) {
  emit(frameLine(1, 7) + frameLine(2, 8) + frameLine(3, 9));
  ASSERT_EQ(view.presentations.size(), 1u);
  EXPECT_EQ(view.presentations[0].surface->id, 9u);
  EXPECT_EQ(view.presentations[0].scale, 2.0);
  EXPECT_EQ(surfaces.lookups, 1) << "only the shown frame is looked up";
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|1|7", "frame-ack|2|8", "resize|1600|1200|2.0"));
  EXPECT_EQ(countLogs("Velk viewport: first frame displayed scene=scenes/a.usda surface=9 "
                      "size=1600x1200 scale=2.0"),
            1);
  EXPECT_TRUE(host->isConnected());
  EXPECT_THAT(connectionChanges, ElementsAre(true));

  complete(0);
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|3|9"));
  scheduler.advanceBy(1s);
  EXPECT_THAT(readLines(), IsEmpty()) << "the safety acknowledgement finds nothing left";
  EXPECT_EQ(host->displayedFrameCount(), 1u);
}

TEST_F(ViewportFrameTest, ABurstOfLinesCostsOneHopAndASplitLineWaitsForItsEnd) {
  client()->emitStdout(R"({"type":"status","message":"one"})"
                       "\n");
  client()->emitStdout(R"({"type":"status","message":"two"})"
                       "\n");
  EXPECT_EQ(scheduler.runUntilIdle(), 1);
  EXPECT_EQ(countLogs("Velk viewport: one"), 1);
  EXPECT_EQ(countLogs("Velk viewport: two"), 1);

  client()->emitStdout(R"({"type":"status","mess)");
  scheduler.runUntilIdle();
  EXPECT_EQ(countLogsStartingWith("Velk viewport: ignored"), 0);
  client()->emitStdout(R"(age":"three"})"
                       "\n");
  scheduler.runUntilIdle();
  EXPECT_EQ(countLogs("Velk viewport: three"), 1);
}

TEST_F(ViewportFrameTest, BadLinesAreLoggedAndSkippedAndFramesWithoutASurfaceDoNothing) {
  emit(
      "garbage\n"
      R"({"type":"status","message":"after"})"
      "\n"
      R"({"type":"frame","frameIndex":4})"
      "\n"
      R"({"type":"mystery","frameIndex":5})"
      "\n\n");
  EXPECT_EQ(countLogs("Velk viewport: ignored client output: garbage"), 1);
  EXPECT_EQ(countLogs("Velk viewport: after"), 1);
  EXPECT_EQ(surfaces.lookups, 0);
  EXPECT_THAT(readLines(), IsEmpty());
  EXPECT_FALSE(host->isConnected());

  // A wrong-typed optional field loses only itself.
  emit(
      R"({"type":"frame","frameIndex":6,"surfaceId":7,"widthPx":"wide","heightPx":1200,"scaleFactor":null})"
      "\n");
  EXPECT_EQ(view.presentations.size(), 1u);
  EXPECT_EQ(view.presentations[0].scale, 2.0) << "the size sent last gives the scale";
  EXPECT_EQ(countLogsStartingWith("Velk viewport: first frame displayed scene=scenes/a.usda "
                                  "surface=7 size=?x1200"),
            1);

  // The diagnostic log keeps to its first eight and every 120th.
  std::string burst;
  for (int index = 0; index < 240; ++index)
    burst += "bad " + std::to_string(index) + "\n";
  emit(burst);
  EXPECT_EQ(countLogsStartingWith("Velk viewport: ignored client output: "), 10);
  EXPECT_EQ(countLogs("Velk viewport: ignored client output: bad 118"), 1) << "the 120th";
}

TEST_F(ViewportFrameTest, WhileLoadingOnlyFramesAndResizeAcknowledgementsCount) {
  RuntimeViewportState loading = state();
  loading.sceneLoading = true;
  host->updateHost(loading);
  readLines();
  emit(R"({"type":"selection","entityPaths":["/World/X"]})"
       "\n"
       R"({"type":"status","message":"hidden"})"
       "\n" +
       frameLine(1, 7) +
       R"({"type":"resizeAck"})"
       "\n" +
       frameLine(2, 8));
  EXPECT_THAT(selections, IsEmpty());
  EXPECT_EQ(countLogs("Velk viewport: hidden"), 0);
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|1|7", "frame-ack|2|8"));
  EXPECT_TRUE(view.presentations.empty());
  EXPECT_TRUE(host->isConnected()) << "a resize acknowledgement connects";
}

TEST_F(ViewportFrameTest, AFailedLookupIsAcknowledgedAndOnlyLoggedBeforeTheFirstFrame) {
  emit(frameLine(1, 99));
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|1|99"));
  EXPECT_EQ(countLogs("Velk viewport: IOSurfaceLookup failed before first drawable frame for "
                      "surface 99"),
            1);
  EXPECT_FALSE(host->isConnected());
  emit(frameLine(2, 7));
  complete(0);
  readLines();
  emit(frameLine(3, 99));
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|3|99"));
  EXPECT_EQ(countLogsStartingWith("Velk viewport: IOSurfaceLookup failed"), 1)
      << "after the first frame the old image just stays";
  EXPECT_EQ(host->displayedFrameCount(), 1u);
}

TEST_F(ViewportFrameTest, AnAcknowledgementNamesTheSurfaceTheFrameWasRecordedWith) {
  emit(frameLine(5, 7));
  readLines();
  emit(frameLine(5, 8));  // the same index again, now on surface 8
  ASSERT_EQ(view.presentations.size(), 2u);
  complete(0);
  EXPECT_THAT(readLines(), IsEmpty()) << "frame 5 is on record with surface 8";
  complete(1);
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|5|8"));
}

TEST_F(ViewportFrameTest, HiddenViewsAndEmptySurfacesAcknowledgeAtOnce) {
  view.visible = false;
  emit(frameLine(1, 7));
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|1|7", "resize|1600|1200|2.0"));
  EXPECT_TRUE(view.presentations.empty());
  EXPECT_EQ(host->displayedFrameCount(), 1u) << "still counted as shown";

  view.visible = true;
  surfaces.add(3, 0, 1200);
  emit(frameLine(2, 3));
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|2|3"));
  EXPECT_TRUE(view.presentations.empty());

  view.canPresent = false;
  emit(frameLine(3, 7));
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|3|7"));
  view.canPresent = true;
  emit(frameLine(4, 7));
  emit(frameLine(5, 8));
  EXPECT_EQ(view.presentations.size(), 2u) << "a refused presentation gave its slot back";
}

TEST_F(ViewportFrameTest, TwoDrawablesInFlightSkipFramesUntilTwoSecondsHavePassed) {
  emit(frameLine(1, 7));
  emit(frameLine(2, 8));
  ASSERT_EQ(view.presentations.size(), 2u);
  readLines();
  emit(frameLine(3, 9));
  EXPECT_EQ(view.presentations.size(), 2u);
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|3|9")) << "skipped, but acknowledged";
  scheduler.advanceBy(2s);
  readLines();
  emit(frameLine(4, 7));
  EXPECT_EQ(view.presentations.size(), 2u) << "two seconds is not more than two";
  scheduler.advanceBy(1ms);
  emit(frameLine(5, 8));
  EXPECT_EQ(view.presentations.size(), 3u) << "lost presented handlers do not stop the stream";
  // The count starts again from that one drawable: one more fits, then the pool is full.
  emit(frameLine(6, 9));
  EXPECT_EQ(view.presentations.size(), 4u);
  emit(frameLine(7, 7));
  EXPECT_EQ(view.presentations.size(), 4u);

  view.presentations[3].presented();
  emit(frameLine(8, 8));
  EXPECT_EQ(view.presentations.size(), 5u) << "a presented drawable frees its slot";
}

TEST_F(ViewportFrameTest, AFrameWithoutAnIndexIsShownAndNeverAcknowledged) {
  emit(R"({"type":"frame","surfaceId":7})"
       "\n");
  ASSERT_EQ(view.presentations.size(), 1u);
  readLines();
  complete(0);
  scheduler.advanceBy(1s);
  EXPECT_THAT(readLines(), IsEmpty());
}

TEST_F(ViewportFrameTest, TheSafetyAcknowledgementComesAQuarterSecondLater) {
  emit(frameLine(1, 7));
  readLines();
  scheduler.advanceBy(249ms);
  EXPECT_THAT(readLines(), IsEmpty());
  scheduler.advanceBy(1ms);
  EXPECT_THAT(readLines(), ElementsAre("frame-ack|1|7"));
  complete(0);
  EXPECT_THAT(readLines(), IsEmpty()) << "each frame is acknowledged once";
}

TEST_F(ViewportFrameTest, EachSwitchHasExactlyOneForcedResizeAfterItsFirstFrame) {
  for (const char* scene : {"scenes/b.usda", "scenes/c.usda"}) {
    RuntimeViewportState next = state();
    next.configuration.scenePath = scene;
    host->updateHost(next);
    readLines();
    emit(frameLine(1, 7) + frameLine(2, 8));
    emit(frameLine(3, 9));
    std::vector<std::string> lines = readLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "resize|1600|1200|2.0"), 1) << scene;
  }
}

TEST_F(ViewportFrameTest, ASwitchAcknowledgesWhatIsStillOnRecord) {
  emit(frameLine(1, 7));
  emit(frameLine(2, 8));
  readLines();
  host->restartAuthoritativeScope(state().configuration, "p1", "tok");
  EXPECT_THAT(client(0)->lines(),
              ::testing::IsSupersetOf({"frame-ack|1|7", "frame-ack|2|8", "close"}));
  EXPECT_FALSE(host->isConnected());
  EXPECT_THAT(connectionChanges, ElementsAre(true, false));
}

TEST_F(ViewportFrameTest, AnExitedClientsFramesAreNotAcknowledgedToItsSuccessor) {
  emit(frameLine(1, 7));
  client()->exit(ExitStatus::exited(1));
  scheduler.advanceBy(500ms);
  ASSERT_EQ(clientCount(), 2u);
  readLines();
  RuntimeViewportState next = state();
  next.configuration.scenePath = "scenes/b.usda";
  host->updateHost(next);
  scheduler.advanceBy(1s);
  for (const std::string& line : readLines())
    EXPECT_FALSE(line.starts_with("frame-ack|")) << line;
}

TEST_F(ViewportFrameTest, TimingLogsMeasureThePresentationRateAndTheFirstFrameOfASimulation) {
  makeHost({}, true);
  openStream();
  RuntimeViewportState playing = state();
  playing.simulationPlaying = true;
  playing.simulationCommandSerial = 4;
  host->updateHost(playing);
  view.completeAtOnce = true;
  for (int frame = 1; frame <= 122; ++frame) {
    emit(R"({"type":"frame","frameIndex":)" + std::to_string(frame) +
         R"(,"surfaceId":7,"simulationCommandSerial":)" + std::to_string(frame < 3 ? 3 : 4) +
         "}\n");
    scheduler.advanceBy(std::chrono::microseconds(16667));
  }
  EXPECT_EQ(countLogsStartingWith("first-frame-presented serial=4 state=playing elapsed_ms=33.3"),
            1)
      << "the first frame that carries the command, once";
  EXPECT_EQ(countLogsStartingWith("Velk viewport timing presentation fps 60.0 avg-ms 16.667 "
                                  "min-ms 16.667 max-ms 16.667"),
            1);
}

TEST_F(ViewportFrameTest, ClientLinesReachTheEditorsCallbacks) {
  emit(
      R"({"type":"selection","entityPaths":["/World/A","/World/B"]})"
      "\n"
      R"({"type":"selection"})"
      "\n"
      R"({"type":"transformCommit","entityPath":"/World/A","propertyName":"rotation","values":[0,45,0],"previewSessionId":"s1","final":true})"
      "\n"
      R"({"type":"transformCommit","entityPath":"/World/A","values":[1,2,3]})"
      "\n"
      R"({"type":"reviewCommentMarkers","markers":"/World/A|10|20|2|1"})"
      "\n"
      R"({"type":"reviewCommentMarkers"})"
      "\n");
  EXPECT_THAT(selections, ElementsAre(std::vector<std::string>{"/World/A", "/World/B"},
                                      std::vector<std::string>{}));
  ASSERT_EQ(commits.size(), 1u) << "a commit without its property is dropped";
  EXPECT_EQ(commits[0],
            (ViewportTransformCommit{"/World/A", "rotation", {0, 45, 0}, "s1", true, false}));
  ASSERT_EQ(markerLists.size(), 2u);
  EXPECT_THAT(markerLists[0], ElementsAre(ReviewCommentMarker{"/World/A", 10, 20, 2, true}));
  EXPECT_THAT(markerLists[1], IsEmpty());
}

TEST_F(ViewportFrameTest, TheFreeCameraIsAskedForAndTimesOut) {
  std::vector<std::optional<FreeCameraState>> answers;
  host->requestCurrentFreeCamera([&answers](auto state) { answers.push_back(state); });
  EXPECT_THAT(readLines(), ElementsAre("camera-query"));
  emit(
      R"({"type":"freeCameraState","targetX":1,"targetY":2,"targetZ":3,"yaw":4,"pitch":5,"distance":6})"
      "\n");
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0], (FreeCameraState{1, 2, 3, 4, 5, 6}));

  host->requestCurrentFreeCamera([&answers](auto state) { answers.push_back(state); });
  scheduler.advanceBy(299ms);
  EXPECT_EQ(answers.size(), 1u);
  scheduler.advanceBy(1ms);
  ASSERT_EQ(answers.size(), 2u);
  EXPECT_EQ(answers[1], std::nullopt);
  emit(R"({"type":"freeCameraState","targetX":1})"
       "\n");
  EXPECT_EQ(answers.size(), 2u);
}

TEST_F(ViewportFrameTest, ADropWaitsForItsTargetOrTheFallback) {
  ViewportDropHover bounds;
  bounds.cx = 1;
  bounds.dy = 2;
  host->dragUpdated("asset:1", 100, 150, bounds);
  host->dragUpdated("asset:1", 101, 150, bounds);
  EXPECT_THAT(readLines(), ElementsAre("drop-hover|200.0|900.0|1.0|0.0|0.0|0.0|2.0|0.0||0|0||0"))
      << "hovers are spaced 8 ms apart";
  scheduler.advanceBy(8ms);
  host->dragUpdated("asset:1", 101, 150, bounds);
  EXPECT_EQ(readLines().size(), 1u);

  host->performDrop("asset:1", 10, 20, bounds);
  std::vector<std::string> lines = readLines();
  ASSERT_FALSE(lines.empty());
  const std::string hover = lines.back();
  const std::size_t idStart = hover.find("|0.0|2.0|0.0|") + 13;
  const std::string requestId = hover.substr(idStart, hover.find('|', idStart) - idStart);
  EXPECT_EQ(requestId.size(), 36u) << hover;
  emit(R"({"type":"dropTarget","requestId":"other","valid":true,"entityPath":"/World/Old"})"
       "\n");
  EXPECT_TRUE(drops.empty());
  emit(R"({"type":"dropTarget","requestId":")" + requestId +
       R"(","valid":true,"entityPath":"/World/New","translation":[1,2,3]})"
       "\n");
  ASSERT_EQ(drops.size(), 1u);
  EXPECT_EQ(drops[0].first, "asset:1");
  EXPECT_EQ(drops[0].second.entityPath, "/World/New");
  EXPECT_EQ(drops[0].second.parentPath, "/World");
  EXPECT_THAT(readLines(), ElementsAre("drop-commit"));

  host->performDrop("asset:2", 10, 20, bounds);
  readLines();
  emit(R"({"type":"dropTarget","valid":false})"
       "\n");
  scheduler.advanceBy(349ms);
  EXPECT_EQ(drops.size(), 1u);
  scheduler.advanceBy(1ms);
  ASSERT_EQ(drops.size(), 2u);
  EXPECT_FALSE(drops[1].second.valid);
  EXPECT_THAT(readLines(), ElementsAre("drop-clear"));
}

TEST_F(ViewportFrameTest, InputIsConvertedAndFiltered) {
  host->sendPointer(PointerPhase::down, 100, 150, 0, 1);
  host->sendPointer(PointerPhase::move, -5, 900, 2, 0);
  host->sendKey(true, 12, "q|", 8);
  host->sendCameraGesture("pan", 0.00005, 0.00005);
  host->sendCameraGesture("zoom", 0, std::numeric_limits<double>::infinity());
  host->sendCameraGesture("orbit", 3, -4);
  EXPECT_THAT(readLines(), ElementsAre("down|200.0|900.0|0|1", "move|0.0|0.0|2|0",
                                       "key|down|12|q|8", "gesture|orbit|3.0|-4.0"));

  RuntimeViewportState game = state();
  game.cameraMode = "game";
  host->updateHost(game);
  readLines();
  host->sendCameraGesture("orbit", 3, -4);
  EXPECT_THAT(readLines(), IsEmpty()) << "gestures move only the free camera";
  EXPECT_TRUE(host->sendFrameImmediately("selection"));
  EXPECT_THAT(readLines(), ElementsAre("camera|free", "frame|selection"));
  host->sendTransformToolImmediately("scale", "local");
  host->sendPropertyPreviewsImmediately({{"/World/A", "Transform", "scale", "2 2 2", false}});
  EXPECT_THAT(readLines(),
              ElementsAre("tool|scale|local", "property-preview|/World/A|Transform|scale|2 2 2|0"));

  host->shutdown();
  EXPECT_FALSE(host->sendFrameImmediately("all"));
}

}  // namespace
}  // namespace orvan::editor::testing
