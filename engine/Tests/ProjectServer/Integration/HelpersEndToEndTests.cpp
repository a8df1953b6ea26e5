// The edit helper and the tool client as real processes against the real server on a loopback
// port: an edit sent on the helper's standard input shows in the stage, and another client's
// watcher prints the change.
#include <gtest/gtest.h>

#include "../../Support/HelperProcess.h"
#include "ServedProject.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/EditClientResponse.h"
#include "orvan/wire/records/StageInspection.h"
#include "orvan/wire/records/ToolClientLine.h"

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;
using testing_support::ServedProject;

const std::string kEditClient = ORVAN_ENGINE_BIN_DIR "/orvan_edit_client";
const std::string kToolClient = ORVAN_ENGINE_BIN_DIR "/orvan_tool_client";

constexpr const char* kScene = R"(#usda 1.0

def Xform "World" (
    kind = "assembly"
)
{
    def Sphere "Ball" (
        kind = "component"
    )
    {
        custom uint64 orvan:entityId = 7
        double radius = 2
    }
}
)";

editor::EditClientResponse reply(const std::optional<std::string>& line) {
  EXPECT_TRUE(line.has_value());
  auto decoded = editor::decodeJson<editor::EditClientResponse>(line.value_or(""));
  EXPECT_TRUE(decoded.ok()) << line.value_or("<no line>");
  return decoded.ok() ? *decoded : editor::EditClientResponse{};
}

class HelpersEndToEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    project_.write("Game/project.json",
                   R"({"id": "game", "name": "Game", "mainScene": "main.usda"})");
    project_.write("Game/main.usda", kScene);
  }

  std::string address() const { return "grpc://127.0.0.1:" + std::to_string(project_.port()); }
  std::string scene() const { return (project_.base() / "Game/main.usda").string(); }

  ServedProject project_{::testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(HelpersEndToEndTest, AnEditThroughTheHelperShowsInTheStageAndInAnotherClientsWatcher) {
  project_.start({"Game"}, ApiOptions{.token = "sekrit", .heartbeatInterval = 1s});
  const testing::EnvironmentChanges token{{"ORVAN_AUTH_TOKEN", "sekrit"}};
  testing::HelperProcess watcher(kToolClient,
                                 {"--address", address(), "--client-id", "other", "--watch",
                                  "--json-lines", "--scene", scene(), "--workspace", "main"},
                                 token);
  ASSERT_TRUE(watcher.started());
  testing::HelperProcess helper(kEditClient,
                                {"--stdio", "--author", "Ada", "--client-id", "editor-1", "--scene",
                                 scene(), "--workspace", "main", address()},
                                token);
  ASSERT_TRUE(helper.started());
  ASSERT_TRUE(helper.write("ping\n"));
  EXPECT_TRUE(reply(helper.readLine()).accepted);
  // Give the watcher its connection before the edit, so it cannot miss it.
  std::this_thread::sleep_for(300ms);

  ASSERT_TRUE(helper.write("prims\t0\t1\tadd\t/World\tCrate\tcube\ttranslation=1.0,2.0,3.0\n"));
  const auto added = reply(helper.readLine());
  ASSERT_TRUE(added.accepted) << added.message;
  ASSERT_TRUE(added.createdPrims.has_value());
  ASSERT_EQ(added.createdPrims->size(), 1u);
  EXPECT_EQ(added.createdPrims->front().path, "/World/Crate");

  ASSERT_TRUE(helper.write("usd-property\t" + std::to_string(added.revision) +
                           "\tset\t/World/Ball\tradius\t4.5\n"));
  const auto set = reply(helper.readLine());
  ASSERT_TRUE(set.accepted) << set.message;
  EXPECT_EQ(set.revision, added.revision + 1);

  // A line the helper does not know leaves it working.
  ASSERT_TRUE(helper.write("teleport\t1\n"));
  const auto unknown = reply(helper.readLine());
  EXPECT_FALSE(unknown.accepted);
  EXPECT_NE(unknown.message.find("unknown stdio command"), std::string::npos);

  const auto stage = project_.client().Get("/api/stage", {{"Authorization", "Bearer sekrit"}});
  ASSERT_TRUE(stage);
  auto decoded = editor::decodeJson<editor::RemoteStageResponse>(stage->body);
  ASSERT_TRUE(decoded.ok());
  EXPECT_EQ(decoded->revision, set.revision);
  bool crate = false;
  for (const editor::UsdPrimDetail& prim : decoded->stage.prims) {
    crate = crate || prim.path == "/World/Crate";
    if (prim.path != "/World/Ball")
      continue;
    for (const editor::UsdAttribute& attribute : prim.attributes) {
      if (attribute.name == "radius") {
        EXPECT_EQ(attribute.value, "4.5");
      }
    }
  }
  EXPECT_TRUE(crate);

  // The watcher printed the structural change, in the line shape the editor reads.
  std::optional<editor::ToolClientLine> change;
  for (int i = 0; i < 10 && !change; ++i) {
    const std::optional<std::string> line = watcher.readLine(5s);
    if (!line)
      break;
    auto decodedLine = editor::decodeJson<editor::ToolClientLine>(*line);
    ASSERT_TRUE(decodedLine.ok()) << *line;
    EXPECT_NE(decodedLine->type, "heartbeat");
    if (decodedLine->type == "stageChanged" && decodedLine->primOperations)
      change = *decodedLine;
  }
  ASSERT_TRUE(change.has_value());
  EXPECT_EQ(change->sourceClientId, "editor-1");
  EXPECT_EQ(change->revision, added.revision);
  ASSERT_EQ(change->primOperations->size(), 1u);
  EXPECT_EQ(change->primOperations->front().kind, "add");
  EXPECT_EQ(change->primOperations->front().primName, "Crate");

  ASSERT_TRUE(helper.write("quit\n"));
  EXPECT_EQ(helper.wait(), 0);
}

TEST_F(HelpersEndToEndTest, PresencePublishedOnceReachesTheWatcher) {
  project_.start({"Game"}, ApiOptions{.heartbeatInterval = 1s});
  testing::HelperProcess watcher(
      kToolClient, {"--address", address(), "--client-id", "me", "--watch", "--json-lines",
                    "--scene", scene(), "--workspace", "main"});
  std::this_thread::sleep_for(300ms);
  const auto published = testing::runHelper(
      kToolClient,
      {"--address", address(), "--client-id", "bo", "--display-name", "Bo", "--color", "#3366ff",
       "--scene", scene(), "--workspace", "main", "--json-lines", "--select", "/World/Ball"});
  EXPECT_EQ(published.exitCode, 0) << published.errorText;
  std::optional<editor::ToolClientLine> selection;
  for (int i = 0; i < 10 && !selection; ++i) {
    const std::optional<std::string> line = watcher.readLine(5s);
    if (!line)
      break;
    auto decoded = editor::decodeJson<editor::ToolClientLine>(*line);
    if (decoded.ok() && decoded->type == "selection")
      selection = *decoded;
  }
  ASSERT_TRUE(selection.has_value());
  EXPECT_EQ(selection->sourceClientId, "bo");
  EXPECT_EQ(selection->displayName, "Bo");
  EXPECT_EQ(selection->entityPaths, std::vector<std::string>{"/World/Ball"});
}

}  // namespace
}  // namespace orvan::engine
