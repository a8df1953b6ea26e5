// Hostile scenes served in-process: every one is answered (a stage with problems, or 422 with the
// reason), nothing outside the project is read or described, and the server goes on serving.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include <httplib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ProjectServer/ProjectServer.h"
#include "ProjectServer/ServerCommandLine.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/ErrorEnvelope.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

const std::string kHostile = ORVAN_ENGINE_FIXTURES_DIR "/Hostile/";

class HostileSceneServerTest : public testing::Test {
 protected:
  void SetUp() override {
    base_ =
        fs::temp_directory_path() / ("orvan_hostile_server_" + std::to_string(::getpid()) + "_" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(base_);
    fs::create_directories(base_);
    base_ = fs::canonical(base_);
    fs::copy(kHostile + "project", base_ / "Game");
    fs::copy(kHostile + "outside", base_ / "outside");
    for (const char* name : {"cycles.usda", "cycle_other.usda", "fan_out_namespace.usda"})
      fs::copy(kHostile + name, base_ / "Game" / name);
    std::ofstream(base_ / "Game" / "project.json")
        << R"({"id": "game", "name": "Game", "mainScene": "scene.usda"})";
    ASSERT_EQ(::mkfifo((base_ / "Game" / "pipe.usda").c_str(), 0600), 0);
    std::ofstream(base_ / "Game" / "devices.usda")
        << "#usda 1.0\n(\n    subLayers = [@pipe.usda@]\n)\n"
           "def \"A\" (references = @/dev/zero@</A>) {}\n";
  }

  void TearDown() override {
    // The API goes before its folder: it writes back what its workspaces hold.
    server_.reset();
    api_.reset();
    fs::remove_all(base_);
  }

  void start(const StageLimits& limits) {
    auto project = loadProjectFolder(base_ / "Game");
    ASSERT_TRUE(project.ok()) << project.error();
    std::vector<ProjectFolder> projects;
    projects.push_back(std::move(*project));
    api_ = std::make_unique<ProjectServerApi>(
        std::move(projects),
        ApiOptions{.token = "", .userName = "tester", .stages = {.limits = limits}});
    server_ = std::make_unique<ProjectServer>(*api_);
    const auto port = server_->bind("127.0.0.1", 0);
    ASSERT_TRUE(port.ok()) << port.error();
    server_->start();
    client_ = std::make_unique<httplib::Client>("127.0.0.1", *port);
  }

  // The stage of a scene, or the failure the server gave instead.
  std::pair<int, std::string> stage(const std::string& scene) {
    const auto answer = client_->Get(("/api/stage?s=" + scene).c_str());
    if (!answer)
      return {0, "no answer"};
    return {answer->status, answer->body};
  }

  fs::path base_;
  std::unique_ptr<ProjectServerApi> api_;
  std::unique_ptr<ProjectServer> server_;
  std::unique_ptr<httplib::Client> client_;
};

TEST_F(HostileSceneServerTest, HostileScenesAreAnsweredWithProblemsAndTheServerKeepsServing) {
  start(StageLimits{.compose = {.maxPrims = 50'000, .maxSites = 300'000}});

  const auto [cycleStatus, cycles] = stage("cycles.usda");
  EXPECT_EQ(cycleStatus, 200);
  EXPECT_THAT(cycles, HasSubstr("cycles.usda:3:26: The reference to '</Ref>'"));

  const auto [devicesStatus, devices] = stage("devices.usda");
  EXPECT_EQ(devicesStatus, 200);
  EXPECT_THAT(devices, HasSubstr("'pipe.usda' is not a regular file"));
  // A device is outside every project folder before it is anything else.
  EXPECT_THAT(devices, HasSubstr("'/dev/zero' is left out: it is outside the project folder"));

  const auto [fanStatus, fan] = stage("fan_out_namespace.usda");
  EXPECT_EQ(fanStatus, 422);
  const auto envelope = editor::decodeJson<editor::VelkErrorEnvelope>(fan);
  ASSERT_TRUE(envelope.ok()) << fan;
  EXPECT_EQ(envelope->code.value_or(""), "scene_invalid");
  EXPECT_THAT(envelope->message.value_or(""), HasSubstr("more than 300000 sites"));

  // Layers resolve only inside the project: the problems name the asset as written and nothing
  // else, the same whether the file exists or not.
  const auto [sceneStatus, scene] = stage("scene.usda");
  ASSERT_EQ(sceneStatus, 200) << scene;
  const auto decoded = editor::decodeJson<editor::RemoteStageResponse>(scene);
  ASSERT_TRUE(decoded.ok()) << decoded.error().description;
  for (const char* asset :
       {"../outside/secret.usda", "../outside/nothing_here.usda", "/etc/shadow"}) {
    EXPECT_THAT(scene, HasSubstr(std::string("The reference to '") + asset +
                                 "' is left out: it is outside the project folder"));
  }
  EXPECT_EQ(scene.find("do not show"), std::string::npos);
  EXPECT_EQ(scene.find((base_ / "outside").string()), std::string::npos);
  for (const editor::UsdLayerInfo& layer : decoded->stage.layers)
    EXPECT_EQ(layer.identifier.find("outside"), std::string::npos) << layer.identifier;

  // And it still serves the next request.
  const auto again = client_->Get("/api/project");
  ASSERT_TRUE(again);
  EXPECT_EQ(again->status, 200);
}

TEST(HostileSceneServerCommandLine, StageLimitsAreOptionsWithDefaults) {
  const auto defaults = parseServerCommandLine({"--project", "p"});
  ASSERT_TRUE(defaults.ok());
  EXPECT_EQ(defaults->limits.compose.maxPrims, ComposeLimits{}.maxPrims);
  EXPECT_EQ(defaults->limits.maxOutputBytes, kDefaultMaxInspectionBytes);

  const auto set =
      parseServerCommandLine({"--max-prims", "10", "--project", "p", "--max-sites", "20",
                              "--max-layer-bytes", "30", "--max-output-bytes", "40"});
  ASSERT_TRUE(set.ok()) << set.error();
  EXPECT_EQ(set->limits.compose.maxPrims, 10u);
  EXPECT_EQ(set->limits.compose.maxSites, 20u);
  EXPECT_EQ(set->limits.compose.maxLayerBytes, 30u);
  EXPECT_EQ(set->limits.maxOutputBytes, 40u);
  for (const char* wrong : {"0", "-1", "1e9"}) {
    const auto refused = parseServerCommandLine({"--project", "p", "--max-prims", wrong});
    ASSERT_FALSE(refused.ok()) << wrong;
    EXPECT_THAT(refused.error(), HasSubstr("--max-prims needs a whole number"));
  }
}

}  // namespace
}  // namespace orvan::engine
