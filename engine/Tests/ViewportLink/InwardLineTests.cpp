// The editor's viewport lines: what each kind accepts, what it refuses and why, and that a parsed
// command written back reads the same. Also what the client resends to a restarted runtime.
#include <gtest/gtest.h>

#include "ViewportLink/ClientReplay.h"
#include "ViewportLink/ViewportInwardLine.h"

namespace orvan::engine {
namespace {

template <class T>
T parsed(std::string_view line) {
  const ViewportLineParse result = parseViewportInwardLine(line);
  EXPECT_TRUE(result.command.has_value()) << line << ": " << result.error;
  if (!result.command || !std::holds_alternative<T>(*result.command)) {
    ADD_FAILURE() << line << " did not parse to the expected kind";
    return T{};
  }
  return std::get<T>(*result.command);
}

TEST(ViewportInwardLineTest, TheOpenLineCarriesItsSixteenFieldsInOrder) {
  const auto open = parsed<ViewportOpen>(
      "open|/p/scene.usda|grpc://127.0.0.1:9|c1-viewport|1280|720|2.0|1|1|||main|tok en|proj|1|1");
  EXPECT_EQ(open.scene, "/p/scene.usda");
  EXPECT_EQ(open.address, "grpc://127.0.0.1:9");
  EXPECT_EQ(open.clientId, "c1-viewport");
  EXPECT_EQ(open.widthPx, 1280);
  EXPECT_EQ(open.heightPx, 720);
  EXPECT_EQ(open.scale, 2.0);
  EXPECT_TRUE(open.playing);
  EXPECT_EQ(open.workspace, "main");
  EXPECT_EQ(open.authToken, "tok en");  // a sanitised field keeps its blanks
  EXPECT_EQ(open.projectId, "proj");
  EXPECT_TRUE(open.external);
  EXPECT_TRUE(open.forceReload);
  // Local mode: no address, no token.
  const auto local = parsed<ViewportOpen>("open|/s.usda||c-viewport|4|4|1.0|1|0||||||0|0");
  EXPECT_TRUE(local.address.empty());
  EXPECT_FALSE(local.external);
}

TEST(ViewportInwardLineTest, ReadsRealsPointersGesturesKeysAndAcknowledgements) {
  const auto move = parsed<ViewportPointer>("move|12.5|-3e-1|2|9");
  EXPECT_EQ(move.phase, ViewportPointerPhase::move);
  EXPECT_DOUBLE_EQ(move.x, 12.5);
  EXPECT_DOUBLE_EQ(move.y, -0.3);
  EXPECT_EQ(move.button, 2);
  EXPECT_EQ(move.modifiers, 9u);
  EXPECT_EQ(parsed<ViewportPointer>("down|1.0|2.0|0|0").phase, ViewportPointerPhase::down);
  EXPECT_EQ(parsed<ViewportPointer>("up|1.0|2.0|1|0").phase, ViewportPointerPhase::up);
  const auto zoom = parsed<ViewportGesture>("gesture|zoom|0.0|-36.0");
  EXPECT_EQ(zoom.kind, "zoom");
  EXPECT_DOUBLE_EQ(zoom.dy, -36.0);
  const auto key = parsed<ViewportKey>("key|down|13|w|1");
  EXPECT_TRUE(key.down);
  EXPECT_EQ(key.keyCode, 13);
  EXPECT_EQ(key.characters, "w");
  EXPECT_EQ(parsed<ViewportKey>("key|up|65535||0").characters, "");
  const auto ack = parsed<ViewportFrameAck>("frame-ack|18446744073709551615|4294967295");
  EXPECT_EQ(ack.frameIndex, 18446744073709551615ull);
  EXPECT_EQ(ack.surfaceId, 4294967295u);
  const auto resize = parsed<ViewportResize>("resize|800|600|1.5");
  EXPECT_EQ(resize.widthPx, 800);
  EXPECT_DOUBLE_EQ(resize.scale, 1.5);
  // A line ended by a carriage return as well reads the same.
  EXPECT_EQ(parsed<ViewportCameraMode>("camera|game\r").mode, "game");
}

TEST(ViewportInwardLineTest, ListsAndPreviewsKeepTheirFields) {
  EXPECT_TRUE(parsed<ViewportSelection>("selection").paths.empty());
  EXPECT_EQ(parsed<ViewportSelection>("selection|/World/A|/World/B c").paths,
            (std::vector<std::string>{"/World/A", "/World/B c"}));
  EXPECT_TRUE(parsed<ViewportInstancedPrims>("instanced-prims").paths.empty());
  const auto preview =
      parsed<ViewportPropertyPreview>("property-preview|/World/Cube|Transform|translation|1,2,3|0");
  EXPECT_EQ(preview.entityPath, "/World/Cube");
  EXPECT_EQ(preview.componentType, "Transform");
  EXPECT_EQ(preview.propertyName, "translation");
  EXPECT_EQ(preview.value, "1,2,3");
  EXPECT_FALSE(preview.clear);
  EXPECT_TRUE(parsed<ViewportPropertyPreview>("property-preview|/A|T|p||1").clear);
  const auto comments = parsed<ViewportReviewComments>("review-comments|/A|3|1|/B|0|0");
  ASSERT_EQ(comments.anchors.size(), 2u);
  EXPECT_EQ(comments.anchors[0].count, 3u);
  EXPECT_TRUE(comments.anchors[0].active);
  EXPECT_TRUE(parsed<ViewportReviewComments>("review-comments").anchors.empty());
  EXPECT_TRUE(parsed<ViewportFrameTarget>("frame|all").all);
  EXPECT_FALSE(parsed<ViewportFrameTarget>("frame|selection").all);
  const auto hover = parsed<ViewportDropHover>(
      "drop-hover|10.0|20.0|0.0|0.5|0.0|1.0|1.0|1.0|req-1|42|7|file:///a.usda|1");
  EXPECT_EQ(hover.requestId, "req-1");
  EXPECT_EQ(hover.assetId, 42u);
  EXPECT_DOUBLE_EQ(hover.center[1], 0.5);
  EXPECT_TRUE(hover.targetOnly);
  const auto snap = parsed<ViewportSnapSettings>("snap|1|0|1|0");
  EXPECT_EQ(snap.word, "snap");
  EXPECT_EQ(snap.fields.size(), 4u);
}

TEST(ViewportInwardLineTest, RefusesBadLinesWithTheReason) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"", "empty line"},
      {"teleport|1", "unknown line 'teleport'"},
      {"open|/s.usda||c|1280|720|2.0|1|0|||main|t|p|1", "open takes 15 fields, found 14"},
      {"open|||c|1280|720|2.0|1|0|||main|t|p|1|0", "open: the scene is empty"},
      {"open|/s|a|c|0|720|2.0|1|0|||m|t|p|1|0", "open: width must be at least 1"},
      {"open|/s|a|c|99999|720|2.0|1|0|||m|t|p|1|0", "open: width must be a whole number"},
      {"open|/s|a|c|10|10|0.0|1|0|||m|t|p|1|0", "open: scale must be above 0"},
      {"open|/s|a|c|10|10|1.0|1|yes|||m|t|p|1|0", "open: playing must be 0 or 1"},
      {"resize|800|600|nan", "resize: scale must be a finite number, found 'nan'"},
      {"resize|800|600|inf", "resize: scale must be a finite number"},
      {"resize|-800|600|1.0", "resize: width must be a whole number"},
      {"move|1.0|2.0|3|0", "move: button must be a whole number from 0 to 2"},
      {"move|1.0|2.0x|0|0", "move: y must be a finite number, found '2.0x'"},
      {"move|1.0|2.0|0", "move takes 4 fields, found 3"},
      {"gesture|spin|1.0|1.0", "gesture: gesture must be one of pan, zoom, turntable, orbit"},
      {"camera|orbit", "camera: camera mode must be one of free, game"},
      {"tool|translate|galaxy", "tool: space must be one of world, local"},
      {"frame-ack|1|4294967296", "frame-ack: surface id must be a whole number"},
      {"frame-ack|-1|7", "frame-ack: frame index must be a whole number"},
      {"key|down|70000|a|0", "key: key code must be a whole number from 0 to 65535"},
      {"property-preview||Transform|translation|1,2,3|0",
       "property-preview: the prim path and the property name must not be empty"},
      {"review-comments|/A|3", "review-comments needs path, count and active"},
      {"simulation|1|maybe|3", "simulation: reset must be one of reset, 0"},
      {std::string("close\0", 6), "the line holds a line feed, carriage return or zero byte"},
  };
  for (const auto& [line, reason] : cases) {
    const ViewportLineParse result = parseViewportInwardLine(line);
    EXPECT_FALSE(result.command.has_value()) << line;
    EXPECT_NE(result.error.find(reason), std::string::npos) << line << " -> " << result.error;
  }
  // A long bad field is shown shortened and without control bytes.
  const ViewportLineParse longOne =
      parseViewportInwardLine("camera|" + std::string(500, 'x') + "\x01");
  EXPECT_LT(longOne.error.size(), 120u);
}

TEST(ViewportInwardLineTest, EveryCommandWrittenBackReadsTheSame) {
  const std::vector<std::string> lines{
      "open|/p/s.usda|http://h:1|c-viewport|1280|720|1.5|1|0|||main|t|p|1|0",
      "resize|10|20|2.0",
      "close",
      "auth|",
      "camera|free",
      "tool|rotate|local",
      "simulation|1|reset|99",
      "selection|/A|/B",
      "instanced-prims",
      "frame|all",
      "property-preview|/A|Transform|scale|1,1,2|0",
      "review-comments|/A|2|1",
      "debug|viewport-grid|0",
      "move|0.1|0.2|1|3",
      "gesture|turntable|12.5|0.0",
      "key|down|1|a|8",
      "drop-hover|1.0|2.0|3.0|4.0|5.0|6.0|7.0|8.0|r|1|2|u|0",
      "drop-commit",
      "drop-clear",
      "camera-query",
      "frame-ack|5|6",
      "snap-settings|a||b",
  };
  for (const std::string& line : lines) {
    const ViewportLineParse first = parseViewportInwardLine(line);
    ASSERT_TRUE(first.command) << line << ": " << first.error;
    const std::string written = encodeViewportCommand(*first.command);
    EXPECT_EQ(written, line);
    const ViewportLineParse again = parseViewportInwardLine(written);
    ASSERT_TRUE(again.command) << written;
    EXPECT_EQ(*again.command, *first.command) << line;
  }
  EXPECT_EQ(formatViewportReal(2.0), "2.0");
  EXPECT_EQ(formatViewportReal(0.1), "0.1");
  EXPECT_EQ(formatViewportReal(-1e-20), "-1e-20");
}

TEST(ClientReplayTest, ARestartedRuntimeGetsTheOpenLineAndTheSettingsInForce) {
  ClientReplay replay;
  const auto note = [&replay](std::string_view line) {
    const ViewportLineParse parsed = parseViewportInwardLine(line);
    ASSERT_TRUE(parsed.command) << line;
    replay.note(*parsed.command, line);
  };
  note("selection|/Before");  // before the open: stale
  EXPECT_TRUE(replay.lines().empty());
  note("open|/s.usda||c|10|10|1.0|1|0||||||1|0");
  note("tool|rotate|world");
  note("move|1.0|1.0|0|0");  // input is not replayed
  note("frame-ack|1|2");
  note("selection|/A");
  note("property-preview|/A|Transform|translation|1,2,3|0");
  note("property-preview|/B|Transform|translation|1,2,3|0");
  note("tool|scale|local");  // replaces the earlier tool in place
  note("selection|/A|/B");
  note("property-preview|/B|Transform|translation||1");  // cleared: gone
  EXPECT_EQ(replay.lines(),
            (std::vector<std::string>{"open|/s.usda||c|10|10|1.0|1|0||||||1|0", "tool|scale|local",
                                      "selection|/A|/B",
                                      "property-preview|/A|Transform|translation|1,2,3|0"}));
  note("close");
  EXPECT_TRUE(replay.lines().empty());
}

}  // namespace
}  // namespace orvan::engine
