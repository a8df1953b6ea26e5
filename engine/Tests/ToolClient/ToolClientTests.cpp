// The tool client's lines and command line, then the executable against a fake change stream.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "../Support/FakeService.h"
#include "../Support/HelperProcess.h"
#include "ToolClient/ToolCommandLine.h"
#include "ToolClient/ToolLines.h"

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;
using testing::FakeService;
using testing::runHelper;

const std::string kToolClient = ORVAN_ENGINE_BIN_DIR "/orvan_tool_client";
const testing::EnvironmentChanges kNoToken = {{"ORVAN_AUTH_TOKEN", std::nullopt}};

const std::string kHello =
    R"({"type":"hello","revision":42,"scene":"hello.usda","workspace":"main"})";
const std::string kHeartbeat = R"({"type":"heartbeat","revision":42})";
const std::string kStageChanged =
    R"({"type":"stageChanged","revision":43,"sourceClientId":"editor-1234","scene":"hello.usda","workspace":"main","primOperations":[{"kind":"add","parentPath":"/World","primName":"Cube","primitiveKind":"cube","sourcePath":""}]})";
const std::string kSelection =
    R"({"type":"selection","sourceClientId":"c2","displayName":"Bo","color":"#3366ff","scene":"hello.usda","workspace":"main","activeLayer":"","entityPaths":["/World/Cube"]})";
// As printed: the keys in the order of the tool client's line shape.
const std::string kSelectionPrinted =
    R"({"type":"selection","sourceClientId":"c2","entityPaths":["/World/Cube"],"displayName":"Bo","color":"#3366ff","scene":"hello.usda","workspace":"main","activeLayer":""})";
const std::string kProjectChanged =
    R"({"type":"projectChanged","revision":43,"domains":["assets"]})";

TEST(ToolLinesTest, StreamLinesAreReencodedAndHousekeepingIsDropped) {
  EXPECT_EQ(watchLineToPrint(kHello).printed, "");
  EXPECT_EQ(watchLineToPrint(kHeartbeat).printed, "");
  EXPECT_EQ(watchLineToPrint("  ").printed, "");
  EXPECT_EQ(watchLineToPrint(kStageChanged).printed, kStageChanged);
  EXPECT_EQ(watchLineToPrint(kSelection).printed, kSelectionPrinted);
  EXPECT_EQ(watchLineToPrint(kProjectChanged).printed, kProjectChanged);
  // Blanks go, keys come in the line shape's order, unknown keys are left out, renames are moves.
  EXPECT_EQ(
      watchLineToPrint(
          R"( { "primOperations" : [ {"kind":"rename","sourcePath":"/World/A","primName":"B","x":1} ], "type" : "stageChanged", "later": {"a":[1]}, "revision" : 44 } )")
          .printed,
      R"({"type":"stageChanged","revision":44,"primOperations":[{"kind":"reparent","primName":"B","sourcePath":"/World/A"}]})");
  // A line that does not decode prints nothing and says why.
  for (const std::string line :
       {"not json", R"({"revision":1})", R"({"type":"selection","entityPaths":"/A"})",
        R"({"type":"stageChanged","revision":-1})"}) {
    const WatchLineResult result = watchLineToPrint(line);
    EXPECT_EQ(result.printed, "") << line;
    EXPECT_FALSE(result.problem.empty()) << line;
  }
}

TEST(ToolLinesTest, CommandLinesOfBothForms) {
  const auto parse = [](std::vector<std::string_view> arguments) {
    return parseToolClientArguments(arguments);
  };
  const auto watch =
      parse({"--address", "grpc://h:1", "--client-id", "c", "--watch", "--json-lines", "--scene",
             "s.usda", "--workspace", "main", "--silence-timeout", "0.25"});
  ASSERT_TRUE(watch.commandLine) << watch.error;
  EXPECT_EQ(watch.commandLine->mode, ToolClientMode::kWatch);
  EXPECT_EQ(watch.commandLine->silence, 250ms);
  const auto presence =
      parse({"--address", "grpc://h:1", "--client-id", "c", "--display-name", "Bo", "--color",
             "#3366ff", "--scene", "s.usda", "--workspace", "main", "--json-lines",
             "--active-layer", "/p/l.usda", "--select", "/World/A", "--select", "/World/B"});
  ASSERT_TRUE(presence.commandLine) << presence.error;
  EXPECT_EQ(presence.commandLine->mode, ToolClientMode::kPublishPresence);
  EXPECT_EQ(presence.commandLine->silence, 10s);
  EXPECT_EQ(presence.commandLine->selectedPaths,
            (std::vector<std::string>{"/World/A", "/World/B"}));
  for (const auto& arguments : std::vector<std::vector<std::string_view>>{
           {"--client-id", "c", "--watch"},
           {"--address", "grpc://h:1", "--watch"},
           {"--address", "grpc://h:1", "--client-id"},
           {"--address", "grpc://h:1", "--client-id", "c", "--watch", "--silence-timeout", "0"},
           {"--address", "grpc://h:1", "--client-id", "c", "--watch", "--silence-timeout", "soon"},
           {"--address", "grpc://h:1", "--client-id", "c", "--token", "t"},
           {"--address", "grpc://h:1", "--client-id", "c", "stray"}}) {
    EXPECT_FALSE(parse(arguments).commandLine) << arguments.size();
  }
}

std::vector<std::string> watchArguments(const FakeService& service, std::string silence = "10") {
  return {"--address",         service.grpcAddress(),
          "--client-id",       "editor 1",
          "--watch",           "--json-lines",
          "--scene",           "scenes/hello world.usda",
          "--workspace",       "main",
          "--silence-timeout", silence};
}

TEST(ToolClientProcessTest, TheWatcherPrintsTheStreamsLinesUntilItEnds) {
  FakeService service;
  // Lines cut across chunks, two in one chunk, heartbeats between them.
  service.setWatchScript({{{0ms, kHello + "\n" + kSelection.substr(0, 30)},
                           {50ms, kSelection.substr(30) + "\n" + kHeartbeat + "\n"},
                           {50ms, kStageChanged + "\n" + kProjectChanged + "\n"},
                           {50ms, kHeartbeat + "\nnot json\n"}},
                          true});
  const auto run = runHelper(kToolClient, watchArguments(service), {{"ORVAN_AUTH_TOKEN", "tok"}});
  EXPECT_EQ(run.exitCode, 0) << run.errorText;
  EXPECT_EQ(run.lines,
            (std::vector<std::string>{kSelectionPrinted, kStageChanged, kProjectChanged}));
  EXPECT_NE(run.errorText.find("skipped a stream line"), std::string::npos) << run.errorText;
  const auto requests = service.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].path, "/api/watch");
  EXPECT_EQ(requests[0].params,
            (std::multimap<std::string, std::string>{
                {"clientId", "editor 1"}, {"s", "scenes/hello world.usda"}, {"w", "main"}}));
  EXPECT_EQ(requests[0].authorization, "Bearer tok");
}

TEST(ToolClientProcessTest, TheWatcherEndsAfterSilenceButNotWhileHeartbeatsCome) {
  FakeService service;
  // Heartbeats every 300 ms for 2.4 s keep a watcher with a one-second limit going; then a line,
  // then nothing at all.
  FakeService::StreamScript script;
  script.chunks.push_back({0ms, kHello + "\n"});
  for (int beat = 0; beat < 8; ++beat)
    script.chunks.push_back({300ms, kHeartbeat + "\n"});
  script.chunks.push_back({300ms, kProjectChanged + "\n"});
  script.endAfter = false;
  service.setWatchScript(script);
  const auto run = runHelper(kToolClient, watchArguments(service, "1"), kNoToken);
  EXPECT_EQ(run.exitCode, 0) << run.errorText;
  EXPECT_EQ(run.lines, (std::vector<std::string>{kProjectChanged}));
  EXPECT_NE(run.errorText.find("nothing came"), std::string::npos) << run.errorText;
  ASSERT_EQ(service.requests().size(), 1u);
  EXPECT_FALSE(service.requests()[0].hasAuthorization);
}

TEST(ToolClientProcessTest, AWatcherThatCannotConnectOrIsRefusedExits1) {
  int closedPort = 0;
  {
    FakeService gone;
    closedPort = gone.port();
  }
  const auto unreachable = runHelper(kToolClient,
                                     {"--address", "grpc://127.0.0.1:" + std::to_string(closedPort),
                                      "--client-id", "c", "--watch", "--json-lines"},
                                     kNoToken);
  EXPECT_EQ(unreachable.exitCode, 1);
  EXPECT_NE(unreachable.errorText.find("connection"), std::string::npos) << unreachable.errorText;

  FakeService service;
  service.setWatchScript({{}, true, 401});
  const auto refused = runHelper(kToolClient, watchArguments(service), kNoToken);
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_TRUE(refused.lines.empty());
  EXPECT_NE(refused.errorText.find("401"), std::string::npos) << refused.errorText;

  const auto wrong = runHelper(kToolClient, {"--watch", "--json-lines"}, kNoToken);
  EXPECT_EQ(wrong.exitCode, 2);
  EXPECT_NE(wrong.errorText.find("usage:"), std::string::npos);
}

TEST(ToolClientProcessTest, PresenceIsPublishedOnceWithItsSelection) {
  FakeService service;
  const std::vector<std::string> arguments = {"--address",      service.httpAddress(),
                                              "--client-id",    "c2",
                                              "--display-name", "Bo",
                                              "--color",        "#3366ff",
                                              "--scene",        "hello.usda",
                                              "--workspace",    "main",
                                              "--json-lines",   "--active-layer",
                                              "/p/l.usda",      "--select",
                                              "/World/Cube",    "--select",
                                              "/World/Sphere"};
  const auto run = runHelper(kToolClient, arguments, {{"ORVAN_AUTH_TOKEN", "tok"}});
  EXPECT_EQ(run.exitCode, 0) << run.errorText;
  const auto requests = service.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].path, "/api/presence");
  EXPECT_EQ(requests[0].authorization, "Bearer tok");
  EXPECT_EQ(
      requests[0].body,
      R"({"clientId":"c2","displayName":"Bo","color":"#3366ff","scene":"hello.usda","workspace":"main","activeLayer":"/p/l.usda","selectedPaths":["/World/Cube","/World/Sphere"]})");

  // An empty selection is published as such; a refusal is exit status 1.
  service.setPresenceAnswer(
      {401, R"({"accepted":false,"code":"login_required","message":"Sign in first"})"});
  const auto refused = runHelper(
      kToolClient, {"--address", service.grpcAddress(), "--client-id", "c2", "--json-lines"},
      kNoToken);
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_NE(refused.errorText.find("401"), std::string::npos) << refused.errorText;
  EXPECT_EQ(
      service.requests().back().body,
      R"({"clientId":"c2","displayName":"","color":"","scene":"","workspace":"","activeLayer":"","selectedPaths":[]})");
}

}  // namespace
}  // namespace orvan::engine
