// The change stream and presence over a real socket: who hears what, heartbeats, and the end of
// the stream when the server stops.
#include <gtest/gtest.h>

#include "ServedProject.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/ToolClientLine.h"

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;
using testing_support::ServedProject;
using testing_support::StreamWatcher;

editor::ToolClientLine decodedLine(const std::string& text) {
  auto line = editor::decodeJson<editor::ToolClientLine>(text);
  EXPECT_TRUE(line.ok()) << text;
  return line.ok() ? *line : editor::ToolClientLine{};
}

class ChangeStreamTest : public testing::Test {
 protected:
  void SetUp() override {
    project_.write("Game/project.json",
                   R"({"id": "game", "name": "Game", "mainScene": "main.usda"})");
    project_.write("Game/main.usda", "#usda 1.0\n\ndef Xform \"World\"\n{\n}\n");
    project_.write("Game/other.usda", "#usda 1.0\n\ndef Xform \"World\"\n{\n}\n");
  }

  httplib::Result presence(const std::string& body, const httplib::Headers& headers = {}) {
    return project_.client().Post("/api/presence", headers, body, "application/json");
  }

  ServedProject project_{testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(ChangeStreamTest, AWatcherGetsHelloThenTheSelectionsOfItsSceneOnly) {
  project_.start({"Game"}, ApiOptions{.heartbeatInterval = 10s});
  StreamWatcher watcher(project_.port(), "s=main.usda&w=main&clientId=me");
  const auto hello = decodedLine(watcher.waitFor("\"hello\""));
  EXPECT_EQ(hello.type, "hello");
  EXPECT_EQ(hello.scene, "main.usda");
  EXPECT_EQ(hello.workspace, "main");
  EXPECT_TRUE(hello.revision.has_value());

  auto answer = presence(R"({"clientId":"elsewhere","scene":"other.usda","selectedPaths":["/X"]})");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  answer = presence(
      R"({"clientId":"bo","displayName":"Bo","color":"#3366ff","scene":"main.usda",)"
      R"("workspace":"","activeLayer":"layer.usda","selectedPaths":["/World/Cube","/World"]})");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  const auto selection = decodedLine(watcher.waitFor("\"selection\""));
  EXPECT_EQ(selection.sourceClientId, "bo");
  EXPECT_EQ(selection.displayName, "Bo");
  EXPECT_EQ(selection.color, "#3366ff");
  EXPECT_EQ(selection.activeLayer, "layer.usda");
  EXPECT_EQ(selection.entityPaths, (std::vector<std::string>{"/World/Cube", "/World"}));
  // The other scene's selection never reached this watcher.
  for (const std::string& line : watcher.lines())
    EXPECT_EQ(line.find("elsewhere"), std::string::npos) << line;
}

TEST_F(ChangeStreamTest, ALateWatcherLearnsWhoIsAlreadyThere) {
  project_.start({"Game"}, ApiOptions{.heartbeatInterval = 10s});
  ASSERT_TRUE(presence(R"({"clientId":"bo","selectedPaths":["/World"]})"));
  StreamWatcher watcher(project_.port(), "clientId=me");
  const auto selection = decodedLine(watcher.waitFor("\"selection\""));
  EXPECT_EQ(selection.sourceClientId, "bo");
  EXPECT_EQ(selection.scene, "main.usda");
}

TEST_F(ChangeStreamTest, HeartbeatsFlowWhileNothingHappensAndTheStreamEndsWithTheServer) {
  project_.start({"Game"}, ApiOptions{.heartbeatInterval = 50ms});
  StreamWatcher watcher(project_.port(), "clientId=me");
  EXPECT_NE(watcher.waitFor("\"heartbeat\""), "");
  EXPECT_EQ(watcher.status(), 200);
  const auto started = std::chrono::steady_clock::now();
  project_.stop();
  EXPECT_TRUE(watcher.waitForEnd(10s));
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
}

TEST_F(ChangeStreamTest, BadScopesAndBodiesAreRefusedInTheServersWords) {
  project_.start({"Game"}, ApiOptions{.heartbeatInterval = 10s});
  auto answer = project_.client().Get("/api/watch?s=missing.usda");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 404);
  answer = project_.client().Get("/api/watch?w=feature");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 404);
  for (const std::string body :
       {"not json", "{}", R"({"clientId":"  "})", R"({"clientId":"x","selectedPaths":"/World"})"}) {
    answer = presence(body);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 400) << body;
  }
  answer = project_.client().Get("/api/presence");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 405);
}

TEST_F(ChangeStreamTest, WithSignInOnTheStreamAndPresenceNeedTheBearer) {
  project_.start({"Game"}, ApiOptions{.token = "sekrit", .heartbeatInterval = 10s});
  auto answer = project_.client().Get("/api/watch");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 401);
  answer = presence(R"({"clientId":"bo"})");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 401);
  const httplib::Headers bearer{{"Authorization", "Bearer sekrit"}};
  EXPECT_EQ(presence(R"({"clientId":"bo"})", bearer)->status, 200);
  StreamWatcher watcher(project_.port(), "clientId=me", bearer);
  EXPECT_NE(watcher.waitFor("\"hello\""), "");
}

TEST_F(ChangeStreamTest, AFileAddedToTheProjectIsAProjectChangeForItsWatchers) {
  project_.start({"Game"}, ApiOptions{.heartbeatInterval = 10s});
  StreamWatcher watcher(project_.port(), "clientId=me");
  ASSERT_NE(watcher.waitFor("\"hello\""), "");
  project_.api().lookForExternalChanges();  // the first look only learns the folder
  project_.write("Game/textures/wood.png", "png");
  project_.api().lookForExternalChanges();
  const auto changed = decodedLine(watcher.waitFor("projectChanged"));
  EXPECT_EQ(changed.type, "projectChanged");
  EXPECT_EQ(changed.domains, std::vector<std::string>{"assets"});
  EXPECT_TRUE(changed.revision.has_value());
}

}  // namespace
}  // namespace orvan::engine
