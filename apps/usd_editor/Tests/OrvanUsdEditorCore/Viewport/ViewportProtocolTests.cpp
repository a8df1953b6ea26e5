// The viewport client's line protocol: inward line encodings and the lenient reading of the
// client's output lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "Viewport/ViewportProtocol.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;

TEST(ViewportProtocolTest, TheOpenLineCarriesItsSixteenFieldsInOrder) {
  ViewportOpenFields open;
  open.scene = "/ws/scenes/a.usda";
  open.address = "grpcs://authoring.test:443";
  open.clientId = "native-editor-7";
  open.widthPx = 1600;
  open.heightPx = 900;
  open.scale = 2;
  open.playing = true;
  open.workspace = "main|x";
  open.authToken = "tok\nen";
  open.projectId = "p\r1";
  open.external = true;
  open.forceReload = false;
  const std::string line = encodeOpenLine(open);
  EXPECT_EQ(line,
            "open|/ws/scenes/a.usda|grpcs://authoring.test:443|native-editor-7-viewport|1600|900|"
            "2.0|1|1|||main x|tok en|p 1|1|0");
  std::vector<std::string> fields;
  std::size_t start = 0;
  for (std::size_t end; (end = line.find('|', start)) != std::string::npos; start = end + 1)
    fields.push_back(line.substr(start, end - start));
  fields.push_back(line.substr(start));
  EXPECT_EQ(fields.size(), 16u);

  open.playing = false;
  open.address = "";
  open.forceReload = true;
  open.scale = 1.25;
  EXPECT_EQ(encodeOpenLine(open),
            "open|/ws/scenes/a.usda||native-editor-7-viewport|1600|900|1.25|1|0|||main x|tok en|"
            "p 1|1|1");
}

TEST(ViewportProtocolTest, FreeTextIsSanitisedAndRealsAreShortestWithAPoint) {
  const struct {
    std::string_view text;
    std::string_view sanitised;
  } texts[] = {
      {"/World/A|B", "/World/A B"}, {"a\nb\rc", "a b c"}, {"||", "  "}, {"", ""},
      {"plain", "plain"},
  };
  for (const auto& [text, sanitised] : texts)
    EXPECT_EQ(sanitisedField(text), sanitised) << text;

  const struct {
    double value;
    std::string_view text;
  } reals[] = {
      {2.0, "2.0"},    {0.1, "0.1"},   {-3.5, "-3.5"},         {1.0 / 3.0, "0.3333333333333333"},
      {1e20, "1e+20"}, {-0.0, "-0.0"}, {123456.0, "123456.0"},
  };
  for (const auto& [value, text] : reals) {
    EXPECT_EQ(formatViewportReal(value), text);
    EXPECT_EQ(std::stod(std::string(text)), value) << text;
  }
}

TEST(ViewportProtocolTest, SizesArePixelsAndPointsAreClampedBottomLeftPixels) {
  EXPECT_EQ(viewportPixelSize(800, 600, 2), (ViewportPixelSize{1600, 1200, 2}));
  EXPECT_EQ(viewportPixelSize(100.3, 50.2, 1.5), (ViewportPixelSize{150, 75, 1.5}));
  EXPECT_EQ(viewportPixelSize(0.2, 0.1, 1), (ViewportPixelSize{1, 1, 1})) << "at least one pixel";

  const struct {
    double x, y;
    ViewportPixelPoint pixels;
  } points[] = {
      {0, 0, {0, 1200}},          // top left of the view is the top of the picture
      {800, 600, {1600, 0}},      // bottom right
      {100, 150, {200, 900}},     // inside
      {-20, 700, {0, 0}},         // left of and below the view: clamped
      {900.5, -3, {1600, 1200}},  // right of and above
  };
  for (const auto& [x, y, pixels] : points)
    EXPECT_EQ(viewportPixelPoint(x, y, 800, 600, 2), pixels) << x << "," << y;
  EXPECT_EQ(viewportPixelPoint(std::nan(""), 10, 800, 600, 1), (ViewportPixelPoint{0, 590}));
}

TEST(ViewportProtocolTest, TheSceneOfTheOpenLineIsAUrlAnAbsolutePathOrUnderTheWorkspaceRoot) {
  const struct {
    std::string_view scene, uri;
  } cases[] = {
      {"  https://host/s.usda ", "https://host/s.usda"},
      {"grpc://h:1/x", "grpc://h:1/x"},
      {"grpcs://h/x", "grpcs://h/x"},
      {"http://h/x", "http://h/x"},
      {"/abs/s.usda", "/abs/s.usda"},
      {"scenes/a.usda\n", "/ws/scenes/a.usda"},
      {"ftp://h/x", "/ws/ftp://h/x"},
  };
  for (const auto& [scene, uri] : cases)
    EXPECT_EQ(viewportSceneURI(scene, "/ws"), uri) << scene;
}

TEST(ViewportProtocolTest, EachInwardLineKind) {
  const ViewportPixelPoint point{12.5, 300};
  const struct {
    std::string line, expected;
  } cases[] = {
      {encodeResizeLine({1920, 1080, 1.0}), "resize|1920|1080|1.0"},
      {encodeAuthLine("abc|d"), "auth|abc d"},
      {encodeAuthLine(""), "auth|"},
      {encodeCameraLine("game"), "camera|game"},
      {encodeToolLine("rotate", "local"), "tool|rotate|local"},
      {encodeSimulationLine(true, false, 41), "simulation|1|0|41"},
      {encodeSimulationLine(false, true, 18446744073709551615ull),
       "simulation|0|reset|18446744073709551615"},
      {encodeSelectionLine({"/World/A", "", "/World/B|C"}), "selection|/World/A|/World/B C"},
      {encodeSelectionLine({}), "selection"},
      {encodeSelectionLine({""}), "selection"},
      {encodeInstancedPrimsLine({"/I"}), "instanced-prims|/I"},
      {encodeInstancedPrimsLine({}), "instanced-prims"},
      {encodeFrameLine("all"), "frame|all"},
      {encodePropertyPreviewLine({"/W|A", "Transform", "translation", "1 2\n3", true}),
       "property-preview|/W A|Transform|translation|1 2 3|1"},
      {encodeReviewCommentsLine({{"/A", 3, true}, {"/B|x", -2, false}}),
       "review-comments|/A|3|1|/B x|0|0"},
      {encodeReviewCommentsLine({}), "review-comments"},
      {encodeRigidBodyDebugLine(true), "debug|rigid-body-shapes|1"},
      {encodeViewportGridLine(false), "debug|viewport-grid|0"},
      {encodePointerLine(PointerPhase::move, point, 0, 0), "move|12.5|300.0|0|0"},
      {encodePointerLine(PointerPhase::down, point, 2,
                         kViewportModifierShift | kViewportModifierCommand),
       "down|12.5|300.0|2|9"},
      {encodePointerLine(PointerPhase::up, point, 1, 6), "up|12.5|300.0|1|6"},
      {encodeGestureLine("zoom", 0, -18), "gesture|zoom|0.0|-18.0"},
      {encodeKeyLine(true, 53, "a|b", 2), "key|down|53|ab|2"},
      {encodeKeyLine(false, 65535, "", 0), "key|up|65535||0"},
      {encodeFrameAckLine(18446744073709551615ull, 4294967295u),
       "frame-ack|18446744073709551615|4294967295"},
      {std::string(kViewportCloseLine), "close"},
      {std::string(kViewportCameraQueryLine), "camera-query"},
  };
  for (const auto& [line, expected] : cases)
    EXPECT_EQ(line, expected);

  ViewportDropHover hover;
  hover.point = {10, 20};
  hover.cx = 0.5;
  hover.dz = 2;
  hover.requestId = "R|1";
  hover.assetId = 7;
  hover.contentHash = 18446744073709551615ull;
  hover.contentURL = "https://a/b|c";
  hover.targetOnly = true;
  EXPECT_EQ(
      encodeDropHoverLine(hover),
      "drop-hover|10.0|20.0|0.5|0.0|0.0|0.0|0.0|2.0|R 1|7|18446744073709551615|https://a/b c|1");
}

TEST(ViewportProtocolTest, OutputLinesDecodeLenientlyByField) {
  const auto frame = decodeViewportClientLine(
      R"({"type":"frame","frameIndex":12,"surfaceId":4000000000,"widthPx":1920,"heightPx":1080,"scaleFactor":2,"pixelFormat":"bgra8","extra":[1]})");
  ASSERT_TRUE(frame) << frame.error().description;
  EXPECT_EQ(frame->frameIndex, 12u);
  EXPECT_EQ(frame->surfaceId, 4000000000u);
  EXPECT_EQ(frame->scaleFactor, 2.0);

  // A field of the wrong type is left out; the rest of the line counts.
  const auto wrongField = decodeViewportClientLine(
      R"({"type":"frame","frameIndex":"twelve","surfaceId":7,"widthPx":-1,"final":"yes"})");
  ASSERT_TRUE(wrongField) << wrongField.error().description;
  EXPECT_EQ(wrongField->type, "frame");
  EXPECT_EQ(wrongField->frameIndex, std::nullopt);
  EXPECT_EQ(wrongField->surfaceId, 7u);
  EXPECT_EQ(wrongField->widthPx, std::nullopt);
  EXPECT_EQ(wrongField->final, std::nullopt);

  const auto commit = decodeViewportClientLine(
      R"({"type":"transformCommit","entityPath":"/W/A","propertyName":"rotation","values":[0,90.5,-1],"final":true,"entityPaths":[1,2]})");
  ASSERT_TRUE(commit);
  EXPECT_THAT(*commit->values, ElementsAre(0, 90.5, -1));
  EXPECT_EQ(commit->final, true);
  EXPECT_EQ(commit->entityPaths, std::nullopt);

  for (const std::string_view bad : {"", "not json", "[1,2]", R"({"frameIndex":1})",
                                     R"({"type":5})", R"({"type":"frame")", "null"}) {
    EXPECT_FALSE(decodeViewportClientLine(bad)) << bad;
  }
}

TEST(ViewportProtocolTest, MarkersSkipShortAndNonNumericRecords) {
  const auto markers = parseReviewCommentMarkers(
      "/A|10|20.5|3|1\n"
      "/B|1|2|0|true\n"
      "/C|1|2|4|0\n"
      "|1|2|3|1\n"       // empty path
      "/D|1|2|3\n"       // four fields
      "/E|x|2|3|1\n"     // non-numeric x
      "/F|1|2|many|1\n"  // non-numeric count
      "\n"
      "/G|-5|1e2|2|yes");
  EXPECT_THAT(markers, ElementsAre(ReviewCommentMarker{"/A", 10, 20.5, 3, true},
                                   ReviewCommentMarker{"/B", 1, 2, 0, true},
                                   ReviewCommentMarker{"/C", 1, 2, 4, false},
                                   ReviewCommentMarker{"/G", -5, 100, 2, false}));
  EXPECT_TRUE(parseReviewCommentMarkers("").empty());
}

TEST(ViewportProtocolTest, CameraAndDropRecordsComeFromTheirLines) {
  ViewportClientLine line{.type = "freeCameraState"};
  line.targetX = 1;
  line.targetY = 2;
  line.targetZ = 3;
  line.yaw = 4;
  line.pitch = 5;
  EXPECT_EQ(freeCameraStateFromLine(line), std::nullopt) << "distance is missing";
  line.distance = 6;
  EXPECT_EQ(freeCameraStateFromLine(line), (FreeCameraState{1, 2, 3, 4, 5, 6}));

  ViewportClientLine target{.type = "dropTarget"};
  EXPECT_EQ(dropPlacementFromLine(target), ViewportDropPlacement{});
  EXPECT_EQ(dropPlacementFromLine(target).parentPath, "/World");
  target.valid = true;
  target.parentPath = "/World/Set";
  target.translation = std::vector<double>{1, 2, 3};
  const ViewportDropPlacement placement = dropPlacementFromLine(target);
  EXPECT_TRUE(placement.valid);
  EXPECT_EQ(placement.parentPath, "/World/Set");
  EXPECT_THAT(placement.translation, ElementsAre(1, 2, 3));
}

TEST(ViewportProtocolTest, TheAccumulatorAsksForOneDeliveryPerBurst) {
  ViewportClientOutputAccumulator accumulator;
  EXPECT_TRUE(accumulator.append("a\n"));
  EXPECT_FALSE(accumulator.append("b"));
  EXPECT_FALSE(accumulator.append("c\n"));
  EXPECT_EQ(accumulator.take(), "a\nbc\n");
  EXPECT_EQ(accumulator.take(), "");
  EXPECT_TRUE(accumulator.append("d\n")) << "after a take the next chunk schedules again";

  // Chunks from another thread all arrive, in order, with one delivery asked for per take.
  ViewportClientOutputAccumulator shared;
  int deliveries = 0;
  std::string received;
  std::thread writer([&shared, &deliveries] {
    for (int index = 0; index < 1000; ++index) {
      if (shared.append(std::to_string(index) + ","))
        ++deliveries;
    }
  });
  writer.join();
  received = shared.take();
  EXPECT_EQ(deliveries, 1);
  EXPECT_TRUE(received.starts_with("0,1,2,") && received.ends_with(",998,999,"));
}

}  // namespace
}  // namespace orvan::editor
