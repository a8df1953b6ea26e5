// The viewport's two processes as the editor runs them: the runtime and the client against the
// real project server on a copy of the demo. A frame comes as a shared surface showing the scene,
// an edit through the server shows in a later frame, a click picks, unacknowledged frames stop at
// three, and the runtime reads scenes from the disk as well.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include <httplib.h>

#include "../Support/HelperProcess.h"
#include "UsdText/StageComposer.h"
#include "Viewport/Gizmo.h"
#include "Viewport/SceneModel.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/SharedSurfaceLayout.h"
#include "orvan/wire/records/EditClientResponse.h"
#include "orvan/wire/records/SceneLayers.h"
#include "orvan/wire/records/ViewportClientLine.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using editor::ViewportClientLine;
using testing::HelperProcess;

const std::string kServer = ORVAN_ENGINE_BIN_DIR "/orvan_project_server";
const std::string kRuntime = ORVAN_ENGINE_BIN_DIR "/orvan_runtime_viewport";
const std::string kClient = ORVAN_ENGINE_BIN_DIR "/orvan_viewport_client";
const std::string kEditClient = ORVAN_ENGINE_BIN_DIR "/orvan_edit_client";

int freePort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t size = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(fd);
  return ntohs(address.sin_port);
}

// A frame as the editor would see it: the surface mapped by its identifier and its pixels.
struct SeenFrame {
  std::uint64_t index = 0;
  std::uint32_t surfaceId = 0;
  wire::SharedSurfaceHeader header{};
  std::vector<std::uint8_t> bgra;  // rows from the top

  std::size_t distinctColours() const {
    std::set<std::uint32_t> colours;
    for (std::size_t i = 0; i + 3 < bgra.size(); i += 4)
      colours.insert(bgra[i] | (bgra[i + 1] << 8) | (bgra[i + 2] << 16));
    return colours.size();
  }
  // Pixels whose colour passes `test` (red, green, blue bytes).
  template <typename Test>
  std::size_t countPixels(Test test) const {
    std::size_t count = 0;
    for (std::size_t i = 0; i + 3 < bgra.size(); i += 4)
      count += test(int{bgra[i + 2]}, int{bgra[i + 1]}, int{bgra[i]}) ? 1 : 0;
    return count;
  }
  std::uint32_t colourAt(std::uint32_t x, std::uint32_t yTop) const {
    const std::size_t at = (static_cast<std::size_t>(yTop) * header.width + x) * 4;
    return bgra[at] | (bgra[at + 1] << 8) | (bgra[at + 2] << 16);
  }
};

std::optional<SeenFrame> mapFrame(const ViewportClientLine& line) {
  if (!line.surfaceId || !line.frameIndex)
    return std::nullopt;
  const int fd = ::shm_open(wire::sharedSurfaceName(*line.surfaceId).c_str(), O_RDONLY, 0);
  if (fd < 0)
    return std::nullopt;
  SeenFrame frame;
  frame.index = *line.frameIndex;
  frame.surfaceId = *line.surfaceId;
  if (::pread(fd, &frame.header, sizeof frame.header, 0) != sizeof frame.header) {
    ::close(fd);
    return std::nullopt;
  }
  const std::size_t bytes = static_cast<std::size_t>(frame.header.rowBytes) * frame.header.height;
  void* mapping =
      ::mmap(nullptr, wire::kSharedSurfaceHeaderBytes + bytes, PROT_READ, MAP_SHARED, fd, 0);
  ::close(fd);
  if (mapping == MAP_FAILED)
    return std::nullopt;
  const auto* pixels = static_cast<const std::uint8_t*>(mapping) + wire::kSharedSurfaceHeaderBytes;
  for (std::uint32_t row = 0; row < frame.header.height; ++row) {
    const std::uint8_t* start = pixels + static_cast<std::size_t>(row) * frame.header.rowBytes;
    frame.bgra.insert(frame.bgra.end(), start, start + frame.header.width * 4);
  }
  ::munmap(mapping, wire::kSharedSurfaceHeaderBytes + bytes);
  return frame;
}

// The runtime and the client, started as the editor starts them.
class ViewportPair {
 public:
  ViewportPair() : address_("127.0.0.1:" + std::to_string(freePort())) {
    runtime_ = std::make_unique<HelperProcess>(
        kRuntime, std::vector<std::string>{"--address", address_, "--parent-pid",
                                           std::to_string(::getpid())});
    const std::optional<std::string> ready = runtime_->readLine(30s);
    EXPECT_TRUE(ready && ready->find("Viewport server listening") != std::string::npos)
        << ready.value_or("<nothing>");
    client_ = std::make_unique<HelperProcess>(
        kClient, std::vector<std::string>{"--address", address_, "--json-lines"});
  }

  HelperProcess& client() { return *client_; }
  HelperProcess& runtime() { return *runtime_; }
  const std::string& address() const { return address_; }

  void send(const std::string& line) { ASSERT_TRUE(client_->write(line + "\n")); }

  // The next line of the given type; the lines before it are kept in `skipped`.
  std::optional<ViewportClientLine> next(const std::string& type,
                                         std::chrono::milliseconds timeout = 30s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      const std::optional<std::string> text = client_->readLine(left);
      if (!text)
        return std::nullopt;
      auto decoded = editor::decodeJson<ViewportClientLine>(*text);
      EXPECT_TRUE(decoded.ok()) << *text;
      if (!decoded.ok())
        continue;
      if (decoded->type == type)
        return *decoded;
      skipped.push_back(*decoded);
    }
    return std::nullopt;
  }

  std::optional<SeenFrame> nextFrame(std::chrono::milliseconds timeout = 30s) {
    const std::optional<ViewportClientLine> line = next("frame", timeout);
    if (!line)
      return std::nullopt;
    EXPECT_EQ(line->pixelFormat, std::optional<std::string>("bgra8"));
    return mapFrame(*line);
  }
  void acknowledge(const SeenFrame& frame) {
    send("frame-ack|" + std::to_string(frame.index) + "|" + std::to_string(frame.surfaceId));
  }
  // Lets go of the frames passed over while waiting for other lines.
  void acknowledgeSkippedFrames() {
    for (const ViewportClientLine& line : skipped) {
      if (line.type == "frame")
        if (const std::optional<SeenFrame> frame = mapFrame(line))
          acknowledge(*frame);
    }
    std::erase_if(skipped, [](const ViewportClientLine& line) { return line.type == "frame"; });
  }
  bool statusSaid(const std::string& words) const {
    for (const ViewportClientLine& line : skipped) {
      if (line.type == "status" && line.message && line.message->find(words) != std::string::npos)
        return true;
    }
    return false;
  }

  std::vector<ViewportClientLine> skipped;

 private:
  std::string address_;
  std::unique_ptr<HelperProcess> runtime_;
  std::unique_ptr<HelperProcess> client_;
};

std::string openLine(const std::string& scene, const std::string& address, int width, int height,
                     const std::string& token = "") {
  return "open|" + scene + "|" + address + "|test-viewport|" + std::to_string(width) + "|" +
         std::to_string(height) + "|1.0|1|0|||main|" + token + "||1|0";
}

class ViewportEndToEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    base_ = fs::temp_directory_path() / ("orvan_viewport_e2e_" + std::to_string(::getpid()));
    fs::remove_all(base_);
    fs::create_directories(base_);
    base_ = fs::canonical(base_);
  }
  void TearDown() override { fs::remove_all(base_); }

  fs::path base_;
};

TEST_F(ViewportEndToEndTest, FramesShowTheServedSceneFollowItsEditsPickAndWaitForAcknowledgements) {
  fs::copy(ORVAN_DEMO_DIR, base_ / "demo", fs::copy_options::recursive);
  fs::remove_all(base_ / "demo/.orvan");
  // The server wants a bearer; the runtime has it from the open line only.
  const std::string token = "e2e-token";
  HelperProcess server(kServer,
                       {"--project", (base_ / "demo").string(), "--port", "0", "--state-dir",
                        (base_ / "state").string()},
                       {{"ORVAN_SERVER_TOKEN", token}});
  const std::optional<std::string> listening = server.readLine(30s);
  const std::string prefix = "listening on http://127.0.0.1:";
  ASSERT_TRUE(listening && listening->starts_with(prefix)) << listening.value_or("<nothing>");
  const int serverPort = std::stoi(listening->substr(prefix.size()));
  const std::string address = "grpc://127.0.0.1:" + std::to_string(serverPort);
  const std::string scene = (base_ / "demo/hello_world.usda").string();

  // The layers endpoint answers the scene's layers as text at its revision.
  httplib::Client http("127.0.0.1", serverPort);
  const std::string layersPath = "/api/layers?scene=" + httplib::detail::encode_query_param(scene);
  EXPECT_EQ(http.Get(layersPath)->status, 401);
  const httplib::Headers bearer{{"Authorization", "Bearer " + token}};
  const auto layers = http.Get(layersPath, bearer);
  ASSERT_TRUE(layers);
  ASSERT_EQ(layers->status, 200) << layers->body.substr(0, 300);
  auto answer = editor::decodeJson<editor::SceneLayersResponse>(layers->body);
  ASSERT_TRUE(answer.ok());
  EXPECT_EQ(answer->root, scene);
  std::set<std::string> names;
  for (const editor::SceneLayerText& layer : answer->layers)
    names.insert(fs::path(layer.identifier).filename().string());
  EXPECT_TRUE(names.contains("hello_world.usda"));
  EXPECT_TRUE(names.contains("hello_world_lighting.usda"));
  EXPECT_EQ(http.Get("/api/layers?scene=nowhere.usda", bearer)->status, 404);

  ViewportPair viewport;
  constexpr int kWidth = 320;
  constexpr int kHeight = 240;
  viewport.send(openLine(scene, address, kWidth, kHeight, token));
  std::optional<SeenFrame> first = viewport.nextFrame();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->header.magic, wire::kSharedSurfaceMagic);
  EXPECT_EQ(first->header.width, static_cast<std::uint32_t>(kWidth));
  EXPECT_EQ(first->header.height, static_cast<std::uint32_t>(kHeight));
  EXPECT_EQ(first->header.frameIndex, first->index);
  EXPECT_GT(first->distinctColours(), 20u);  // the scene, not a cleared picture
  viewport.acknowledge(*first);

  // A click on the scene picks a prim; one on the empty sky above it picks nothing.
  viewport.send("down|160.0|100.0|0|0");
  viewport.send("up|160.0|100.0|0|0");
  const std::optional<ViewportClientLine> picked = viewport.next("selection");
  ASSERT_TRUE(picked && picked->entityPaths);
  ASSERT_EQ(picked->entityPaths->size(), 1u);
  EXPECT_TRUE(picked->entityPaths->front().starts_with("/World/"));
  viewport.send("down|2.0|238.0|0|0");
  viewport.send("up|2.0|238.0|0|0");
  const std::optional<ViewportClientLine> missed = viewport.next("selection");
  ASSERT_TRUE(missed && missed->entityPaths);
  EXPECT_TRUE(missed->entityPaths->empty());
  // The outline follows the clicks: the frames showing it and then none come and are let go.
  viewport.acknowledgeSkippedFrames();
  std::optional<SeenFrame> unselected;
  while (std::optional<SeenFrame> frame = viewport.nextFrame(1500ms)) {
    viewport.acknowledge(*frame);
    unselected = std::move(frame);
  }
  ASSERT_TRUE(unselected);
  EXPECT_EQ(unselected->bgra, first->bgra);
  // A drag is not a click: it orbits and selects nothing.
  viewport.send("down|100.0|100.0|2|0");
  viewport.send("move|140.0|110.0|2|0");
  viewport.send("up|140.0|110.0|2|0");
  std::optional<SeenFrame> orbited = viewport.nextFrame();
  ASSERT_TRUE(orbited);
  EXPECT_NE(orbited->bgra, first->bgra);
  viewport.acknowledge(*orbited);

  // An edit through the server moves the red cube: a later frame shows it elsewhere.
  const testing::HelperRun edit = testing::runHelper(
      kEditClient,
      {"--json", "--author", "Tester", "--workspace", "main", "--client-id", "e2e", "--scene",
       scene, address, std::to_string(answer->revision), "--component-op", "set", "/World/RedCube",
       "Transform", "translation", "0,4,0"},
      {{"ORVAN_AUTH_TOKEN", token}});
  ASSERT_EQ(edit.exitCode, 0) << edit.errorText << (edit.lines.empty() ? "" : edit.lines[0]);
  std::optional<SeenFrame> edited = viewport.nextFrame();
  ASSERT_TRUE(edited);
  EXPECT_NE(edited->bgra, orbited->bgra);
  viewport.acknowledge(*edited);

  // Without acknowledgements at most three frames are out; one acknowledgement lets one more go.
  std::vector<SeenFrame> held;
  for (int i = 0; i < 8; ++i) {
    viewport.send("gesture|orbit|4.0|0.0");
    if (held.size() < 3) {
      std::optional<SeenFrame> frame = viewport.nextFrame();
      ASSERT_TRUE(frame);
      held.push_back(*frame);
    }
  }
  EXPECT_FALSE(viewport.next("frame", 1500ms)) << "a fourth frame went out unacknowledged";
  viewport.acknowledge(held[1]);
  std::optional<SeenFrame> released = viewport.nextFrame(10s);
  ASSERT_TRUE(released);
  EXPECT_EQ(released->surfaceId, held[1].surfaceId);  // written into the surface just freed

  // The free camera answers where it is.
  viewport.send("camera-query");
  const std::optional<ViewportClientLine> camera = viewport.next("freeCameraState");
  ASSERT_TRUE(camera);
  EXPECT_TRUE(camera->targetX && camera->yaw && camera->distance);

  // The end of the input ends the client; SIGTERM ends the runtime and its surfaces go.
  viewport.client().closeInput();
  EXPECT_EQ(viewport.client().wait(10s), 0);
  ::kill(viewport.runtime().pid(), SIGTERM);
  EXPECT_EQ(viewport.runtime().wait(10s), 0);
  EXPECT_FALSE(fs::exists("/dev/shm" + wire::sharedSurfaceName(held[0].surfaceId)));
}

TEST_F(ViewportEndToEndTest, OnTheDiskTheRuntimeFollowsTheFileAndSurvivesAnUnreadableScene) {
  const fs::path scene = base_ / "scene.usda";
  const auto writeScene = [&scene](const std::string& colour) {
    std::ofstream(scene, std::ios::trunc) << "#usda 1.0\ndef Cube \"Box\"\n{\n    double size = 2\n"
                                             "    color3f[] primvars:displayColor = ["
                                          << colour << "]\n}\n";
  };
  writeScene("(1, 0, 0)");
  ViewportPair viewport;
  viewport.send("bogus|line");
  viewport.send(openLine(scene.string(), "", 64, 48));
  std::optional<SeenFrame> red = viewport.nextFrame();
  ASSERT_TRUE(red);
  EXPECT_TRUE(viewport.statusSaid("ignored input line: unknown line 'bogus'"));
  viewport.acknowledge(*red);
  const std::uint32_t centre = red->colourAt(32, 24);
  EXPECT_GT((centre >> 16) & 0xff, (centre >> 8) & 0xff);  // red beats green

  std::this_thread::sleep_for(1100ms);  // a new modification time even on coarse clocks
  writeScene("(0, 1, 0)");
  std::optional<SeenFrame> green = viewport.nextFrame(10s);
  ASSERT_TRUE(green);
  const std::uint32_t now = green->colourAt(32, 24);
  EXPECT_GT((now >> 8) & 0xff, (now >> 16) & 0xff);  // green beats red
  viewport.acknowledge(*green);

  // The grid's lines lie on the ground around the box; the debug line takes them away and brings
  // them back.
  const std::uint32_t sky = green->colourAt(0, 0);
  const auto greenPixel = [](int r, int g, int b) { return g > r + 40 && g > b + 40; };
  const auto neitherSkyNorBox = [&](int r, int g, int b) {
    return !greenPixel(r, g, b) && static_cast<std::uint32_t>(b | (g << 8) | (r << 16)) != sky;
  };
  viewport.send("debug|viewport-grid|0");
  std::optional<SeenFrame> gridless = viewport.nextFrame(10s);
  ASSERT_TRUE(gridless);
  EXPECT_GT(green->countPixels(neitherSkyNorBox), gridless->countPixels(neitherSkyNorBox) + 20);
  EXPECT_EQ(gridless->colourAt(32, 24), now);
  viewport.acknowledge(*gridless);
  viewport.send("debug|viewport-grid|1");
  std::optional<SeenFrame> gridded = viewport.nextFrame(10s);
  ASSERT_TRUE(gridded);
  EXPECT_EQ(gridded->bgra, green->bgra);
  viewport.acknowledge(*gridded);

  // A change that breaks the file is reported and the last good state stays on screen.
  std::this_thread::sleep_for(1100ms);
  std::ofstream(scene, std::ios::trunc) << "#usda 1.0\ndef Cube \"Box\"\n{\n    double size = (\n";
  const std::optional<ViewportClientLine> broken = viewport.next("status", 10s);
  ASSERT_TRUE(broken && broken->message);
  EXPECT_NE(broken->message->find("cannot show the scene"), std::string::npos) << *broken->message;
  viewport.send("gesture|orbit|0.5|0.0");
  std::optional<SeenFrame> kept = viewport.nextFrame(10s);
  ASSERT_TRUE(kept);
  const std::uint32_t still = kept->colourAt(32, 24);
  EXPECT_GT((still >> 8) & 0xff, (still >> 16) & 0xff);  // still the green box
  viewport.acknowledge(*kept);

  // A line of more than 1 MiB is refused by itself; the client goes on.
  viewport.send("selection|/" + std::string(std::size_t{1} << 20, 'x'));
  viewport.send("camera-query");
  ASSERT_TRUE(viewport.next("freeCameraState"));
  EXPECT_TRUE(viewport.statusSaid("longer than 1048576 bytes"));

  // A scene that cannot be read: a status line that says why, and a frame of the grid over the
  // background with nothing of the last scene: no pixel of the green box.
  ASSERT_GT(kept->countPixels(greenPixel), 20u);
  viewport.send(openLine((base_ / "missing.usda").string(), "", 64, 48));
  const std::optional<ViewportClientLine> status = viewport.next("status");
  ASSERT_TRUE(status && status->message);
  EXPECT_NE(status->message->find("missing.usda"), std::string::npos) << *status->message;
  std::optional<SeenFrame> empty = viewport.nextFrame();
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->countPixels(greenPixel), 0u);
  EXPECT_GT(empty->distinctColours(), 1u);  // the grid
  viewport.acknowledge(*empty);
  viewport.send("debug|viewport-grid|0");
  std::optional<SeenFrame> bare = viewport.nextFrame();
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->distinctColours(), 1u);
}

// The lines of one gizmo drag, read until its final one; frames met on the way are acknowledged.
struct DragLines {
  std::vector<ViewportClientLine> live;
  std::optional<ViewportClientLine> final;
};

// Drags the gizmo handle at `at` (top-left pixels) by `steps` moves of `step` pixels each, as the
// editor sends it: bottom-left pixels.
DragLines dragHandle(ViewportPair& viewport, int height, glm::dvec2 at, glm::dvec2 step, int steps,
                     unsigned modifiers) {
  const auto pointer = [&](const std::string& phase, glm::dvec2 p) {
    viewport.send(phase + "|" + std::to_string(p.x) + "|" + std::to_string(height - p.y) + "|0|" +
                  std::to_string(modifiers));
  };
  DragLines lines;
  pointer("down", at);
  for (int i = 1; i <= steps; ++i) {
    pointer("move", at + step * double(i));
    // Each move is drawn; its value goes out with the frame.
    const std::optional<ViewportClientLine> line = viewport.next("transformCommit", 10s);
    EXPECT_TRUE(line) << "no value for move " << i;
    if (line)
      lines.live.push_back(*line);
    viewport.acknowledgeSkippedFrames();
  }
  pointer("up", at + step * double(steps));
  lines.final = viewport.next("transformCommit", 10s);
  viewport.acknowledgeSkippedFrames();
  return lines;
}

TEST_F(ViewportEndToEndTest, TheSelectedPrimIsOutlinedAndItsGizmoDragsSendTransformValues) {
  fs::copy(ORVAN_DEMO_DIR, base_ / "demo", fs::copy_options::recursive);
  const std::string scene = (base_ / "demo/hello_world.usda").string();
  const std::string cube = "/World/RedCube";
  constexpr int kWidth = 320;
  constexpr int kHeight = 240;
  ViewportPair viewport;
  viewport.send(openLine(scene, "", kWidth, kHeight));
  std::optional<SeenFrame> plain = viewport.nextFrame();
  ASSERT_TRUE(plain);
  viewport.acknowledge(*plain);

  // The selection's outline is orange, two pixels wide; nothing else in the demo is.
  const auto outlinePixel = [](int r, int g, int b) {
    return r > 235 && g > 140 && g < 175 && b < 50;
  };
  viewport.send("selection|" + cube);
  std::optional<SeenFrame> selected = viewport.nextFrame();
  ASSERT_TRUE(selected);
  viewport.acknowledge(*selected);
  EXPECT_GT(selected->countPixels(outlinePixel), plain->countPixels(outlinePixel) + 40);

  // Where the translate gizmo's X arrow is, from the camera the runtime reports.
  viewport.send("camera-query");
  const std::optional<ViewportClientLine> state = viewport.next("freeCameraState");
  ASSERT_TRUE(state && state->targetX && state->targetY && state->targetZ && state->yaw &&
              state->pitch && state->distance);
  OrbitCamera camera;
  camera.target = glm::vec3(*state->targetX, *state->targetY, *state->targetZ);
  camera.yawDegrees = static_cast<float>(*state->yaw);
  camera.pitchDegrees = static_cast<float>(*state->pitch);
  camera.distance = static_cast<float>(*state->distance);
  const StageOpenResult opened = openStage(scene);
  ASSERT_TRUE(opened.ok());
  std::optional<GizmoTarget> target = gizmoTargetOf(*opened.stage, cube);
  ASSERT_TRUE(target);
  const glm::dvec3 start = target->translation;
  const auto arrow = [&](const GizmoTarget& on) -> std::pair<glm::dvec2, glm::dvec2> {
    const std::optional<GizmoFrame> frame =
        gizmoFrame(camera, kHeight, on, GizmoTool::translate, GizmoSpace::world);
    EXPECT_TRUE(frame);
    const auto origin = projectToPixel(camera, kWidth, kHeight, frame->origin);
    const auto along =
        projectToPixel(camera, kWidth, kHeight, frame->origin + frame->axes[0] * frame->size * 0.8);
    EXPECT_TRUE(origin && along);
    return {*along, glm::normalize(*along - *origin)};
  };
  const auto [handle, direction] = arrow(*target);
  ASSERT_EQ(hitGizmoHandle(camera, kWidth, kHeight, handle.x, handle.y, *target,
                           GizmoTool::translate, GizmoSpace::world),
            std::optional(GizmoHandle::x));

  // The pointer over the arrow lights it up (yellow); moving off puts it back.
  const auto yellowPixel = [](int r, int g, int b) { return r > 200 && g > 200 && b < 80; };
  viewport.send("move|" + std::to_string(handle.x) + "|" + std::to_string(kHeight - handle.y) +
                "|0|0");
  std::optional<SeenFrame> hovered = viewport.nextFrame();
  ASSERT_TRUE(hovered);
  viewport.acknowledge(*hovered);
  EXPECT_GT(hovered->countPixels(yellowPixel), selected->countPixels(yellowPixel) + 20);
  viewport.send("move|2.0|2.0|0|0");
  std::optional<SeenFrame> left = viewport.nextFrame();
  ASSERT_TRUE(left);
  viewport.acknowledge(*left);
  EXPECT_EQ(left->bgra, selected->bgra);

  // A drag of the X arrow: live values, then one final value, moved along X only.
  const DragLines drag = dragHandle(viewport, kHeight, handle, direction * 8.0, 4, 0);
  ASSERT_GE(drag.live.size(), 1u);
  ASSERT_TRUE(drag.final);
  const auto checkLine = [&](const ViewportClientLine& line, bool final, bool duplicate) {
    EXPECT_EQ(line.entityPath, std::optional(cube));
    EXPECT_EQ(line.propertyName, std::optional<std::string>("translation"));
    EXPECT_EQ(line.final, std::optional(final));
    EXPECT_EQ(line.duplicateRequested, std::optional(duplicate));
    ASSERT_TRUE(line.values && line.values->size() == 3u);
    EXPECT_NEAR((*line.values)[1], start.y, 1e-9);
    EXPECT_NEAR((*line.values)[2], start.z, 1e-9);
  };
  for (const ViewportClientLine& line : drag.live) {
    checkLine(line, false, false);
    EXPECT_EQ(line.previewSessionId, drag.final->previewSessionId);
  }
  checkLine(*drag.final, true, false);
  ASSERT_TRUE(drag.final->values && drag.final->previewSessionId);
  const double movedX = (*drag.final->values)[0];
  EXPECT_GT(std::abs(movedX - start.x), 0.05);
  EXPECT_EQ((*drag.live.back().values)[0], movedX);  // the release where the last move was

  // The cube shows where it was dragged; an option-drag from there asks for a duplicate, in a
  // session of its own.
  target->translation.x = movedX;
  const auto [moved, movedDirection] = arrow(*target);
  ASSERT_EQ(hitGizmoHandle(camera, kWidth, kHeight, moved.x, moved.y, *target, GizmoTool::translate,
                           GizmoSpace::world),
            std::optional(GizmoHandle::x));
  const DragLines copy = dragHandle(viewport, kHeight, moved, movedDirection * 8.0, 2, 4);
  ASSERT_GE(copy.live.size(), 1u);
  ASSERT_TRUE(copy.final);
  for (const ViewportClientLine& line : copy.live)
    checkLine(line, false, true);
  checkLine(*copy.final, true, true);
  EXPECT_NE(copy.final->previewSessionId, drag.final->previewSessionId);
  ASSERT_TRUE(copy.final->values);
  EXPECT_NE((*copy.final->values)[0], movedX);

  // A press off the handles still picks.
  viewport.send("down|2.0|238.0|0|0");
  viewport.send("up|2.0|238.0|0|0");
  const std::optional<ViewportClientLine> missed = viewport.next("selection");
  ASSERT_TRUE(missed && missed->entityPaths);
  EXPECT_TRUE(missed->entityPaths->empty());
  viewport.acknowledgeSkippedFrames();
  std::optional<SeenFrame> unselected;
  while (std::optional<SeenFrame> frame = viewport.nextFrame(1500ms)) {
    viewport.acknowledge(*frame);
    unselected = std::move(frame);
  }
  ASSERT_TRUE(unselected);
  EXPECT_NE(unselected->bgra, plain->bgra) << "the cube shows where it was dragged";

  // The scene's next state is its answer to the drags: their previews go and the cube is back
  // where the file has it.
  std::this_thread::sleep_for(1100ms);
  std::stringstream text;
  text << std::ifstream(scene).rdbuf();
  std::ofstream(scene, std::ios::trunc) << text.str();
  std::optional<SeenFrame> answered = viewport.nextFrame(10s);
  ASSERT_TRUE(answered);
  EXPECT_EQ(answered->bgra, plain->bgra);
}

TEST_F(ViewportEndToEndTest,
       TheClientReportsAnUnreachableRuntimeAndReachesItWhenItComesAndComesBack) {
  const std::string address = "127.0.0.1:" + std::to_string(freePort());
  HelperProcess client(kClient, {"--address", address, "--json-lines"});
  const std::optional<std::string> first = client.readLine(10s);
  ASSERT_TRUE(first);
  EXPECT_NE(first->find("viewport runtime not reachable at " + address), std::string::npos)
      << *first;
  const fs::path scene = base_ / "scene.usda";
  std::ofstream(scene) << "#usda 1.0\ndef Cube \"Box\"\n{\n}\n";
  // The open line given while the runtime is down goes to it once it listens.
  ASSERT_TRUE(client.write(openLine(scene.string(), "", 32, 32) + "\n"));
  HelperProcess runtime(kRuntime,
                        {"--address", address, "--parent-pid", std::to_string(::getpid())});
  ASSERT_TRUE(runtime.readLine(30s));
  bool framed = false;
  while (const std::optional<std::string> line = client.readLine(30s)) {
    if (line->find("\"type\":\"frame\"") != std::string::npos) {
      framed = true;
      break;
    }
  }
  EXPECT_TRUE(framed);

  // The runtime restarts: the client says so, reaches the new one and opens the scene again.
  ::kill(runtime.pid(), SIGTERM);
  EXPECT_EQ(runtime.wait(10s), 0);
  HelperProcess restarted(kRuntime,
                          {"--address", address, "--parent-pid", std::to_string(::getpid())});
  ASSERT_TRUE(restarted.readLine(30s));
  bool lost = false;
  framed = false;
  while (const std::optional<std::string> line = client.readLine(30s)) {
    lost = lost || line->find("viewport runtime connection lost") != std::string::npos;
    if (line->find("\"type\":\"frame\"") != std::string::npos) {
      framed = true;
      break;
    }
  }
  EXPECT_TRUE(lost);
  EXPECT_TRUE(framed);
  client.closeInput();
  EXPECT_EQ(client.wait(10s), 0);
  ::kill(restarted.pid(), SIGTERM);
  EXPECT_EQ(restarted.wait(10s), 0);
}

TEST_F(ViewportEndToEndTest, TheRuntimeEndsWithItsParentAndRemovesItsSurfaces) {
  // A parent that the test can make go away.
  HelperProcess parent("/bin/sleep", {"600"});
  ASSERT_TRUE(parent.started());
  const std::string address = "127.0.0.1:" + std::to_string(freePort());
  HelperProcess runtime(kRuntime,
                        {"--address", address, "--parent-pid", std::to_string(parent.pid())});
  ASSERT_TRUE(runtime.readLine(30s));
  HelperProcess client(kClient, {"--address", address, "--json-lines"});
  const fs::path scene = base_ / "scene.usda";
  std::ofstream(scene) << "#usda 1.0\ndef Cube \"Box\"\n{\n}\n";
  ASSERT_TRUE(client.write(openLine(scene.string(), "", 16, 16) + "\n"));
  std::optional<std::uint32_t> surface;
  while (const std::optional<std::string> line = client.readLine(30s)) {
    auto decoded = editor::decodeJson<ViewportClientLine>(*line);
    if (decoded.ok() && decoded->type == "frame") {
      surface = decoded->surfaceId;
      break;
    }
  }
  ASSERT_TRUE(surface);
  EXPECT_TRUE(fs::exists("/dev/shm" + wire::sharedSurfaceName(*surface)));
  ::kill(parent.pid(), SIGKILL);
  EXPECT_EQ(parent.wait(5s), -1);  // killed, not exited
  EXPECT_EQ(runtime.wait(5s), 0);
  EXPECT_FALSE(fs::exists("/dev/shm" + wire::sharedSurfaceName(*surface)));
}

}  // namespace
}  // namespace orvan::engine
