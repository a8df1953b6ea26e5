// orvan_edit_client as the editor runs it, against a fake authoring endpoint on a loopback port.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "../Support/FakeService.h"
#include "../Support/HelperProcess.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/EditClientResponse.h"

namespace orvan::engine {
namespace {

using editor::EditClientResponse;
using testing::FakeService;
using testing::HelperProcess;
using testing::runHelper;

const std::string kEditClient = ORVAN_ENGINE_BIN_DIR "/orvan_edit_client";
const testing::EnvironmentChanges kNoToken = {{"ORVAN_AUTH_TOKEN", std::nullopt}};

std::vector<std::string> stdioArguments(const std::string& address) {
  return {"--stdio",    "--author",    "Ada",  "--client-id",    "editor-1",      "--scene",
          "hello.usda", "--workspace", "main", "--active-layer", "/p/layer.usda", address};
}

EditClientResponse decodeReply(const std::optional<std::string>& line) {
  EXPECT_TRUE(line.has_value());
  if (!line)
    return {};
  auto reply = editor::decodeJson<EditClientResponse>(*line);
  EXPECT_TRUE(reply.ok()) << *line;
  return reply.ok() ? reply.value() : EditClientResponse{};
}

bool mentions(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(EditClientProcessTest, AStdioSessionSendsEachLineAsOneRequestOnOneConnection) {
  FakeService service;
  HelperProcess helper(kEditClient, stdioArguments(service.grpcAddress()),
                       {{"ORVAN_AUTH_TOKEN", "secret-token"}});
  ASSERT_TRUE(helper.started());
  ASSERT_TRUE(helper.write("ping\n"));
  EXPECT_TRUE(decodeReply(helper.readLine()).accepted);

  ASSERT_TRUE(
      helper.write("prims\t40\t1\tadd\t/World\tCube\tcube\tasset=Box\ttranslation=1.0,2.0,3.0\n"));
  EXPECT_EQ(decodeReply(helper.readLine()), (EditClientResponse{true, 41, "ok", std::nullopt}));
  // Many more commands, in lock step as the editor sends them.
  for (int index = 0; index < 20; ++index) {
    ASSERT_TRUE(helper.write("component\t41\tset\t/World/Cube\tTransform\ttranslation\t" +
                             std::to_string(index) + ",0,0\n"));
    EXPECT_TRUE(decodeReply(helper.readLine()).accepted) << index;
  }
  ASSERT_TRUE(helper.write("quit\n"));
  EXPECT_EQ(helper.wait(), 0);

  const auto requests = service.requests();
  ASSERT_EQ(requests.size(), 21u);
  EXPECT_EQ(requests[0].path, "/api/edit");
  EXPECT_EQ(
      requests[0].body,
      R"({"scene":"hello.usda","workspace":"main","activeLayer":"/p/layer.usda","author":"Ada","clientId":"editor-1","baseRevision":40,"operations":[{"type":"prim","kind":"add","parentPath":"/World","primName":"Cube","primitiveKind":"cube","referenceURI":"","payloadURI":"","assetName":"Box","sourcePath":"","initialTranslation":[1.0,2.0,3.0],"instanceable":false}]})");
  EXPECT_EQ(
      requests[20].body,
      R"({"scene":"hello.usda","workspace":"main","activeLayer":"/p/layer.usda","author":"Ada","clientId":"editor-1","baseRevision":41,"operations":[{"type":"component","kind":"set","entityPath":"/World/Cube","componentType":"Transform","propertyName":"translation","value":"19,0,0"}]})");
  for (const auto& request : requests)
    EXPECT_EQ(request.authorization, "Bearer secret-token");
  // The handle is kept for the life of the helper, so its connection is kept alive.
  EXPECT_EQ(service.connectionCount(), 1u);
}

TEST(EditClientProcessTest, AConnectionTheServerClosedWhileIdleIsOpenedAgain) {
  FakeService service(1);
  HelperProcess helper(kEditClient, stdioArguments(service.grpcAddress()), kNoToken);
  ASSERT_TRUE(helper.write("history\t1\tundo\n"));
  EXPECT_TRUE(decodeReply(helper.readLine()).accepted);
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  ASSERT_TRUE(helper.write("history\t1\tredo\n"));
  EXPECT_EQ(decodeReply(helper.readLine()), (EditClientResponse{true, 42, "ok", std::nullopt}));
  helper.closeInput();
  EXPECT_EQ(helper.wait(), 0);
  EXPECT_EQ(service.requests().size(), 2u);
  EXPECT_EQ(service.connectionCount(), 2u);
}

TEST(EditClientProcessTest, LinesItCannotUseAreAnsweredAndTheHelperStaysAlive) {
  FakeService service;
  HelperProcess helper(kEditClient, stdioArguments(service.grpcAddress()), kNoToken);
  ASSERT_TRUE(helper.started());
  const auto answerOf = [&](const std::string& bytes) {
    // Written from a thread: a long line must not block the test on a full pipe.
    std::thread writer([&] { helper.write(bytes); });
    const EditClientResponse reply = decodeReply(helper.readLine());
    writer.join();
    return reply;
  };
  const EditClientResponse unknown = answerOf("layer\t3\tadd\tdetail\n");
  EXPECT_FALSE(unknown.accepted);
  EXPECT_TRUE(mentions(unknown.message, "unknown stdio command")) << unknown.message;
  EXPECT_TRUE(mentions(answerOf("prims\t3\t2\tdelete\t/A\n").message, "malformed stdio command"));
  EXPECT_TRUE(mentions(answerOf("history\tthree\tundo\n").message, "malformed stdio command"));
  EXPECT_TRUE(mentions(answerOf("component\t3\tset\t/World/\xff\xfe\tName\tname\tx\n").message,
                       "malformed stdio command"));
  // 2 MB before the line feed, written in pieces: one unknown command, nothing more.
  EXPECT_TRUE(
      mentions(answerOf(std::string(2'000'000, 'x') + "\n").message, "unknown stdio command"));
  // Past the helper's line limit: skipped up to its line feed and answered once.
  const EditClientResponse overlong =
      answerOf("component\t3\tset\t/A\tName\tname\t" + std::string(17u << 20, 'y') + "\n");
  EXPECT_FALSE(overlong.accepted);
  EXPECT_TRUE(mentions(overlong.message, "malformed stdio command")) << overlong.message;

  // The next line still works, and nothing but it reached the server.
  EXPECT_EQ(answerOf("history\t3\tundo\n"), (EditClientResponse{true, 41, "ok", std::nullopt}));
  helper.closeInput();
  EXPECT_FALSE(helper.readLine().has_value());
  EXPECT_EQ(helper.wait(), 0);
  const auto requests = service.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_FALSE(requests[0].hasAuthorization);
  EXPECT_TRUE(mentions(requests[0].body, R"("operations":[{"type":"history","kind":"undo"}])"));
}

TEST(EditClientProcessTest, RefusalsEnvelopesAndLostConnectionsBecomeReplies) {
  FakeService service;
  service.scriptEditAnswers(
      {{200, R"({"accepted":false,"revision":57,"message":"No prim at /World/Gone"})"},
       {404, R"({"accepted":false,"code":"scene_not_found","message":"No scene 'gone.usda'"})"},
       {503, "Service Unavailable"},
       {200,
        R"({"accepted":true,"revision":58,"message":"Added","createdPrims":[{"path":"/World/C","entityId":17}]})"}});
  HelperProcess helper(kEditClient, stdioArguments(service.httpAddress()), kNoToken);
  ASSERT_TRUE(helper.write("prims\t56\t1\tdelete\t/World/Gone\n"));
  EXPECT_EQ(decodeReply(helper.readLine()),
            (EditClientResponse{false, 57, "No prim at /World/Gone", std::nullopt}));
  ASSERT_TRUE(helper.write("prims\t56\t1\tdelete\t/World/Gone\n"));
  EXPECT_EQ(decodeReply(helper.readLine()),
            (EditClientResponse{false, 0, "No scene 'gone.usda'", std::nullopt}));
  ASSERT_TRUE(helper.write("prims\t56\t1\tdelete\t/World/Gone\n"));
  const EditClientResponse unavailable = decodeReply(helper.readLine());
  EXPECT_FALSE(unavailable.accepted);
  EXPECT_TRUE(mentions(unavailable.message, "unavailable")) << unavailable.message;
  ASSERT_TRUE(helper.write("prims\t57\t1\tadd\t/World\tC\tcube\n"));
  const EditClientResponse created = decodeReply(helper.readLine());
  ASSERT_TRUE(created.createdPrims);
  EXPECT_EQ(created.createdPrims->at(0).entityId, 17u);
  helper.closeInput();
  EXPECT_EQ(helper.wait(), 0);

  // Nobody listens where the helper points: each command is refused, naming the connection, and
  // the helper goes on answering.
  int closedPort = 0;
  {
    FakeService gone;
    closedPort = gone.port();
  }
  HelperProcess orphan(kEditClient,
                       stdioArguments("grpc://127.0.0.1:" + std::to_string(closedPort)), kNoToken);
  ASSERT_TRUE(orphan.write("ping\n"));
  EXPECT_TRUE(decodeReply(orphan.readLine()).accepted);
  for (int attempt = 0; attempt < 2; ++attempt) {
    ASSERT_TRUE(orphan.write("history\t1\tredo\n"));
    const EditClientResponse failed = decodeReply(orphan.readLine());
    EXPECT_FALSE(failed.accepted);
    EXPECT_EQ(failed.revision, 0u);
    EXPECT_TRUE(mentions(failed.message, "connection")) << failed.message;
  }
  orphan.closeInput();
  EXPECT_EQ(orphan.wait(), 0);
}

TEST(EditClientProcessTest, TheOneShotFormPrintsTheReplyAndSaysItInItsExitStatus) {
  FakeService service;
  const std::vector<std::string> head = {
      "--json",   "--author", "Ada",        "--workspace",         "main", "--client-id",
      "editor-1", "--scene",  "hello.usda", service.grpcAddress(), "9"};
  auto withOperation = [&](std::vector<std::string> operation) {
    std::vector<std::string> arguments = head;
    arguments.insert(arguments.end(), operation.begin(), operation.end());
    return arguments;
  };
  const auto accepted =
      runHelper(kEditClient,
                withOperation({"--layer-op", "add", "detail", "--move-root-content-to-base-layer"}),
                {{"ORVAN_AUTH_TOKEN", "tok"}});
  EXPECT_EQ(accepted.exitCode, 0) << accepted.errorText;
  EXPECT_EQ(accepted.lines,
            (std::vector<std::string>{R"({"accepted":true,"revision":41,"message":"ok"})"}));
  ASSERT_EQ(service.requests().size(), 1u);
  EXPECT_EQ(service.requests()[0].authorization, "Bearer tok");
  EXPECT_EQ(
      service.requests()[0].body,
      R"({"scene":"hello.usda","workspace":"main","activeLayer":"","author":"Ada","clientId":"editor-1","baseRevision":9,"operations":[{"type":"layer","kind":"add","identifier":"","name":"detail","direction":"","muted":false,"moveRootContentToBaseLayer":true}]})");

  service.scriptEditAnswers(
      {{200, R"({"accepted":false,"revision":12,"message":"Nothing to undo"})"}});
  const auto refused = runHelper(kEditClient, withOperation({"--undo"}), kNoToken);
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.lines, (std::vector<std::string>{
                               R"({"accepted":false,"revision":12,"message":"Nothing to undo"})"}));
  EXPECT_FALSE(service.requests().back().hasAuthorization);

  const auto wrong =
      runHelper(kEditClient, withOperation({"--prim-op", "add", "/World"}), kNoToken);
  EXPECT_EQ(wrong.exitCode, 2);
  EXPECT_TRUE(wrong.lines.empty());
  EXPECT_TRUE(mentions(wrong.errorText, "usage:")) << wrong.errorText;
  const auto badAddress = runHelper(
      kEditClient, {"--json", "--author", "A", "--workspace", "main", "tcp://x:1", "1", "--undo"},
      kNoToken);
  EXPECT_EQ(badAddress.exitCode, 2);
  EXPECT_TRUE(mentions(badAddress.errorText, "tcp://x:1")) << badAddress.errorText;
  EXPECT_EQ(service.requests().size(), 2u);

  // Nothing listens: still a reply on standard output, a refusal naming the connection.
  int closedPort = 0;
  {
    FakeService gone;
    closedPort = gone.port();
  }
  const auto unreachable =
      runHelper(kEditClient,
                {"--json", "--author", "A", "--workspace", "main",
                 "http://127.0.0.1:" + std::to_string(closedPort), "1", "--redo"},
                kNoToken);
  EXPECT_EQ(unreachable.exitCode, 1);
  ASSERT_EQ(unreachable.lines.size(), 1u);
  const EditClientResponse failed = decodeReply(unreachable.lines[0]);
  EXPECT_FALSE(failed.accepted);
  EXPECT_TRUE(mentions(failed.message, "connection")) << failed.message;
}

}  // namespace
}  // namespace orvan::engine
