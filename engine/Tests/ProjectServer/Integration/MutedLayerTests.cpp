// Muting a layer through POST /api/edit on a copy of the demo: the mute is the workspace's state,
// kept in the store and muted again when the server comes back, never written into a file.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <thread>

#include "ServedProject.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/EditClientResponse.h"
#include "orvan/wire/records/SceneLayers.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;
using testing_support::ServedProject;
namespace fs = std::filesystem;

constexpr const char* kLighting = "hello_world_lighting.usda";

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string muteBody(const std::string& client, bool muted) {
  return R"({"author":"Ada","clientId":")" + client +
         R"(","operations":[{"type":"layer","kind":"mute","identifier":")" + kLighting +
         R"(","muted":)" + (muted ? "true" : "false") + "}]}";
}

std::string historyBody(const std::string& client, const std::string& kind) {
  return R"({"author":"Ada","clientId":")" + client +
         R"(","operations":[{"type":"history","kind":")" + kind + R"("}]})";
}

// What the server says of the lighting layer, through every request that shows it.
struct LightingView {
  bool mutedInStage = false;
  bool listedMuted = false;  // GET /api/layers
  bool sunComposed = false;  // /World/Sun is authored in the lighting layer only
};

class MutedLayerTest : public testing::Test {
 protected:
  void SetUp() override {
    // The repository's demo is copied, never served in place (a store would be made inside it).
    fs::create_directories(project_.base() / "Demo");
    for (const char* name :
         {"project.json", "hello_world.usda", "hello_world_base.usda", kLighting})
      fs::copy_file(fs::path(ORVAN_DEMO_DIR) / name, project_.base() / "Demo" / name);
    fs::copy(fs::path(ORVAN_DEMO_DIR) / "assets", project_.base() / "Demo/assets",
             fs::copy_options::recursive);
  }

  void start() { project_.start({"Demo"}, ApiOptions{.heartbeatInterval = 10s}); }

  // Writes back, then destroys the server and its API before the folder is served again.
  void restart() {
    project_.api().flushWorkspaces();
    start();
  }

  editor::EditClientResponse edit(const std::string& body) {
    const auto answer = project_.client().Post("/api/edit", body, "application/json");
    if (!answer) {
      ADD_FAILURE() << "no answer";
      return {};
    }
    EXPECT_EQ(answer->status, 200) << answer->body;
    auto decoded = editor::decodeJson<editor::EditClientResponse>(answer->body);
    EXPECT_TRUE(decoded.ok()) << answer->body;
    return decoded.ok() ? *decoded : editor::EditClientResponse{};
  }

  LightingView lighting() {
    LightingView view;
    const std::string identifier = (project_.base() / "Demo" / kLighting).string();
    const auto stage = project_.client().Get("/api/stage");
    if (!stage || stage->status != 200) {
      ADD_FAILURE() << "no stage";
      return view;
    }
    auto inspection = editor::decodeJson<editor::RemoteStageResponse>(stage->body);
    if (!inspection.ok()) {
      ADD_FAILURE() << "the stage does not decode";
      return view;
    }
    const auto& layers = inspection->stage.layers;
    const auto info = std::find_if(layers.begin(), layers.end(), [&](const auto& layer) {
      return layer.identifier == identifier;
    });
    EXPECT_NE(info, layers.end()) << "the lighting layer is not listed";
    view.mutedInStage = info != layers.end() && info->muted;
    view.sunComposed = std::any_of(inspection->stage.prims.begin(), inspection->stage.prims.end(),
                                   [](const auto& prim) { return prim.path == "/World/Sun"; });
    const auto listed = project_.client().Get("/api/layers");
    if (!listed || listed->status != 200) {
      ADD_FAILURE() << "no layers";
      return view;
    }
    auto decoded = editor::decodeJson<editor::SceneLayersResponse>(listed->body);
    if (!decoded.ok()) {
      ADD_FAILURE() << "the layers do not decode";
      return view;
    }
    view.listedMuted = std::find(decoded->mutedLayers.begin(), decoded->mutedLayers.end(),
                                 identifier) != decoded->mutedLayers.end();
    return view;
  }

  void expectMuted(bool muted, const std::string& when) {
    const LightingView view = lighting();
    EXPECT_EQ(view.mutedInStage, muted) << when;
    EXPECT_EQ(view.listedMuted, muted) << when;
    EXPECT_EQ(view.sunComposed, !muted) << when;
  }

  fs::path file(const std::string& name) const { return project_.base() / "Demo" / name; }

  ServedProject project_{testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(MutedLayerTest, AMuteAndAnUnmuteOutliveRestartsWithoutTouchingTheFiles) {
  start();
  expectMuted(false, "as the demo comes");
  const std::string root = readFile(file("hello_world.usda"));
  const std::string lights = readFile(file(kLighting));

  const editor::EditClientResponse muted = edit(muteBody("c", true));
  ASSERT_TRUE(muted.accepted) << muted.message;
  expectMuted(true, "just muted");
  restart();
  expectMuted(true, "muted, after a restart");
  // Written back, the files say what they said: the mute is not in them.
  EXPECT_EQ(readFile(file("hello_world.usda")), root);
  EXPECT_EQ(readFile(file(kLighting)), lights);
  const auto again = project_.client().Get("/api/stage");
  ASSERT_TRUE(again);
  const auto decoded = editor::decodeJson<editor::RemoteStageResponse>(again->body);
  ASSERT_TRUE(decoded.ok());
  EXPECT_EQ(decoded->revision, muted.revision);

  // Another edit that is not a mute keeps the mute.
  ASSERT_TRUE(edit(R"({"author":"Ada","clientId":"c","operations":[{"type":"prim","kind":"add",)"
                   R"("parentPath":"/World","primName":"Box","primitiveKind":"cube"}]})")
                  .accepted);
  restart();
  expectMuted(true, "muted, after another edit and a restart");

  ASSERT_TRUE(edit(muteBody("c", false)).accepted);
  expectMuted(false, "unmuted");
  restart();
  expectMuted(false, "unmuted, after a restart");
  restart();
  expectMuted(false, "unmuted, after a second restart");
}

TEST_F(MutedLayerTest, UndoAndRedoOfAMuteAreWhatARestartFinds) {
  start();
  ASSERT_TRUE(edit(muteBody("c", true)).accepted);
  ASSERT_TRUE(edit(historyBody("c", "undo")).accepted);
  expectMuted(false, "mute undone");
  restart();
  expectMuted(false, "mute undone, after a restart");

  ASSERT_TRUE(edit(muteBody("c", true)).accepted);
  ASSERT_TRUE(edit(historyBody("c", "undo")).accepted);
  ASSERT_TRUE(edit(historyBody("c", "redo")).accepted);
  expectMuted(true, "mute redone");
  restart();
  expectMuted(true, "mute redone, after a restart");

  ASSERT_TRUE(edit(muteBody("d", false)).accepted);
  ASSERT_TRUE(edit(historyBody("d", "undo")).accepted);  // the unmute undone: muted again
  restart();
  expectMuted(true, "unmute undone, after a restart");
}

// The root layer stops naming the muted layer while the server is down: the mute is dropped for
// good, so the layer comes back unmuted when the root names it again.
TEST_F(MutedLayerTest, AMutedLayerGoneFromTheSceneIsDroppedFromTheSet) {
  start();
  ASSERT_TRUE(edit(muteBody("c", true)).accepted);
  project_.api().flushWorkspaces();
  const std::string root = readFile(file("hello_world.usda"));
  const std::string named = "        @./hello_world_lighting.usda@\n";
  const std::size_t at = root.find(named);
  ASSERT_NE(at, std::string::npos) << root;
  std::string without = root;
  without.erase(at, named.size());
  const std::size_t comma = without.rfind("@,", at);
  ASSERT_NE(comma, std::string::npos);
  without.erase(comma + 1, 1);  // the base layer is the last one now

  project_.close();
  std::this_thread::sleep_for(20ms);  // a new modification time even on coarse clocks
  project_.write("Demo/hello_world.usda", without);
  start();
  const auto stage = project_.client().Get("/api/stage");
  ASSERT_TRUE(stage);
  ASSERT_EQ(stage->status, 200) << stage->body.substr(0, 300);
  const auto listed = project_.client().Get("/api/layers");
  ASSERT_TRUE(listed);
  auto decoded = editor::decodeJson<editor::SceneLayersResponse>(listed->body);
  ASSERT_TRUE(decoded.ok());
  EXPECT_TRUE(decoded->mutedLayers.empty());

  restart();
  project_.close();
  std::this_thread::sleep_for(20ms);
  project_.write("Demo/hello_world.usda", root);
  start();
  expectMuted(false, "named again after the mute was dropped");
}

}  // namespace
}  // namespace orvan::engine
