// Editing through the project server: POST /api/edit against the in-process server on a loopback
// port, read back through GET /api/stage, the change stream and the files on disk.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "ServedProject.h"
#include "UsdText/LayerReader.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/EditClientResponse.h"
#include "orvan/wire/records/StageInspection.h"
#include "orvan/wire/records/ToolClientLine.h"

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;
using testing_support::ServedProject;
using testing_support::StreamWatcher;
namespace fs = std::filesystem;

constexpr const char* kScene = R"(#usda 1.0
(
    defaultPrim = "World"
)

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

    def Cube "Crate" (
        kind = "component"
    )
    {
        custom uint64 orvan:entityId = 8
        double size = 1
    }
}
)";

std::string setRadius(const std::string& client, const std::string& value, std::uint64_t base = 0) {
  return R"({"author":"Ada","clientId":")" + client + R"(","baseRevision":)" +
         std::to_string(base) +
         R"(,"operations":[{"type":"usdProperty","kind":"set","primPath":"/World/Ball",)"
         R"("propertyName":"radius","value":")" +
         value + R"("}]})";
}

std::string addPrim(const std::string& client, const std::string& name) {
  return R"({"author":"Ada","clientId":")" + client +
         R"(","operations":[{"type":"prim","kind":"add","parentPath":"/World","primName":")" +
         name + R"(","primitiveKind":"cube"}]})";
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class EditEndpointTest : public testing::Test {
 protected:
  void SetUp() override {
    project_.write("Game/project.json",
                   R"({"id": "game", "name": "Game", "mainScene": "main.usda"})");
    project_.write("Game/main.usda", kScene);
  }

  void start(ApiOptions options = {}) {
    options.heartbeatInterval = 10s;
    project_.start({"Game"}, std::move(options));
  }

  editor::EditClientResponse edit(const std::string& body, const httplib::Headers& headers = {}) {
    const auto answer = project_.client().Post("/api/edit", headers, body, "application/json");
    if (!answer) {
      ADD_FAILURE() << "no answer";
      return {};
    }
    EXPECT_EQ(answer->status, 200) << answer->body;
    auto decoded = editor::decodeJson<editor::EditClientResponse>(answer->body);
    EXPECT_TRUE(decoded.ok()) << answer->body;
    return decoded.ok() ? *decoded : editor::EditClientResponse{};
  }

  editor::RemoteStageResponse stage() {
    const auto answer = project_.client().Get("/api/stage");
    EXPECT_TRUE(answer);
    if (!answer)
      return {};
    EXPECT_EQ(answer->status, 200) << answer->body.substr(0, 300);
    auto decoded = editor::decodeJson<editor::RemoteStageResponse>(answer->body);
    EXPECT_TRUE(decoded.ok());
    return decoded.ok() ? *decoded : editor::RemoteStageResponse{};
  }

  static std::string rawValue(const editor::StageInspection& stage, std::string_view path,
                              std::string_view name) {
    for (const editor::UsdPrimDetail& prim : stage.prims) {
      if (prim.path != path)
        continue;
      for (const editor::UsdAttribute& attribute : prim.attributes) {
        if (attribute.name == name)
          return attribute.value;
      }
    }
    return "<none>";
  }

  static bool hasPrim(const editor::StageInspection& stage, std::string_view path) {
    return std::any_of(stage.prims.begin(), stage.prims.end(),
                       [&](const auto& prim) { return prim.path == path; });
  }

  fs::path sceneFile() const { return project_.base() / "Game/main.usda"; }

  ServedProject project_{testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(EditEndpointTest, AnAcceptedEditIsTheNextRevisionInTheStageTheStreamAndTheFile) {
  start();
  const std::uint64_t before = stage().revision;
  StreamWatcher watcher(project_.port(), "clientId=watcher");
  ASSERT_NE(watcher.waitFor("\"hello\""), "");

  const auto answer = edit(setRadius("editor-1", "3.5", before));
  EXPECT_TRUE(answer.accepted) << answer.message;
  EXPECT_EQ(answer.revision, before + 1);

  const auto after = stage();
  EXPECT_EQ(after.revision, before + 1);
  EXPECT_EQ(rawValue(after.stage, "/World/Ball", "radius"), "3.5");

  const auto changed = editor::decodeJson<editor::ToolClientLine>(watcher.waitFor("stageChanged"));
  ASSERT_TRUE(changed.ok());
  EXPECT_EQ(changed->revision, before + 1);
  EXPECT_EQ(changed->sourceClientId, "editor-1");
  EXPECT_EQ(changed->scene, "main.usda");

  project_.api().flushWorkspaces();
  const LayerReadResult read = readLayerText(sceneFile().string(), readFile(sceneFile()));
  ASSERT_TRUE(read.ok());
  EXPECT_NE(readFile(sceneFile()).find("radius = 3.5"), std::string::npos);
}

TEST_F(EditEndpointTest, AStructuralEditCarriesItsOperationAndTheCreatedIdentity) {
  start();
  StreamWatcher watcher(project_.port(), "clientId=watcher");
  ASSERT_NE(watcher.waitFor("\"hello\""), "");
  const auto answer = edit(addPrim("editor-1", "Box"));
  ASSERT_TRUE(answer.accepted) << answer.message;
  ASSERT_TRUE(answer.createdPrims.has_value());
  ASSERT_EQ(answer.createdPrims->size(), 1u);
  EXPECT_EQ(answer.createdPrims->front().path, "/World/Box");
  EXPECT_GT(answer.createdPrims->front().entityId, 8u);
  EXPECT_TRUE(hasPrim(stage().stage, "/World/Box"));

  const auto changed = editor::decodeJson<editor::ToolClientLine>(watcher.waitFor("stageChanged"));
  ASSERT_TRUE(changed.ok());
  ASSERT_TRUE(changed->primOperations.has_value());
  ASSERT_EQ(changed->primOperations->size(), 1u);
  const editor::ToolClientPrimOperation& operation = changed->primOperations->front();
  EXPECT_EQ(operation.kind, "add");
  EXPECT_EQ(operation.parentPath, "/World");
  EXPECT_EQ(operation.primName, "Box");
}

TEST_F(EditEndpointTest, RefusalsChangeNothingAndCarryTheCurrentRevision) {
  start();
  const auto first = stage();
  // The third operation names a prim that is not there: nothing of the batch applies.
  const std::string batch =
      R"({"author":"Ada","clientId":"c","operations":[)"
      R"({"type":"usdProperty","kind":"set","primPath":"/World/Ball","propertyName":"radius","value":"9"},)"
      R"({"type":"prim","kind":"add","parentPath":"/World","primName":"Box","primitiveKind":"cube"},)"
      R"({"type":"prim","kind":"delete","sourcePath":"/World/Gone"}]})";
  const auto refused = edit(batch);
  EXPECT_FALSE(refused.accepted);
  EXPECT_FALSE(refused.message.empty());
  EXPECT_EQ(refused.revision, first.revision);
  const auto second = stage();
  EXPECT_EQ(second.revision, first.revision);
  EXPECT_EQ(rawValue(second.stage, "/World/Ball", "radius"), "2");
  EXPECT_FALSE(hasPrim(second.stage, "/World/Box"));

  EXPECT_FALSE(edit(addPrim("c", "Crate")).accepted);   // the name is taken
  EXPECT_FALSE(edit(setRadius("c", "soft")).accepted);  // not a number
  EXPECT_EQ(stage().revision, first.revision);
}

TEST_F(EditEndpointTest, MalformedBodiesAndScopesAreRefusedBeforeAnythingIsPlanned) {
  start();
  for (const std::string& body :
       {std::string("not json"), std::string("{}"),
        std::string(R"({"author":"A","clientId":"c","operations":[{"type":"prim","kind":"fly"}]})"),
        std::string(R"({"author":"A","clientId":"c","operations":"all"})")}) {
    const auto answer = project_.client().Post("/api/edit", body, "application/json");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 400) << body;
  }
  const auto elsewhere = project_.client().Post(
      "/api/edit",
      R"({"author":"A","clientId":"c","workspace":"feature","operations":[{"type":"history","kind":"undo"}]})",
      "application/json");
  ASSERT_TRUE(elsewhere);
  EXPECT_EQ(elsewhere->status, 404);
  EXPECT_EQ(project_.client().Get("/api/edit")->status, 405);
}

TEST_F(EditEndpointTest, ALargeValueIsTakenOrRefusedWithoutHarm) {
  start();
  const std::string huge(10u << 20, '7');
  const auto answer = project_.client().Post("/api/edit", setRadius("c", huge), "application/json");
  ASSERT_TRUE(answer);
  // Whatever the verdict, the server answers and goes on serving.
  EXPECT_TRUE(answer->status == 200 || answer->status == 400 || answer->status == 413)
      << answer->status;
  EXPECT_TRUE(edit(setRadius("c", "4")).accepted);
}

TEST_F(EditEndpointTest, UndoRevertsTheClientsOwnLastEditAndKeepsWhatOthersDidSince) {
  start();
  ASSERT_TRUE(edit(setRadius("mine", "5")).accepted);
  ASSERT_TRUE(edit(addPrim("theirs", "Other")).accepted);
  const auto undo =
      edit(R"({"author":"Ada","clientId":"mine","operations":[{"type":"history","kind":"undo"}]})");
  EXPECT_TRUE(undo.accepted) << undo.message;
  auto now = stage();
  EXPECT_EQ(rawValue(now.stage, "/World/Ball", "radius"), "2");
  EXPECT_TRUE(hasPrim(now.stage, "/World/Other"));
  // Nothing more of mine to undo; the other client's edit is not mine to take back.
  EXPECT_FALSE(
      edit(R"({"author":"Ada","clientId":"mine","operations":[{"type":"history","kind":"undo"}]})")
          .accepted);
  const auto redo =
      edit(R"({"author":"Ada","clientId":"mine","operations":[{"type":"history","kind":"redo"}]})");
  EXPECT_TRUE(redo.accepted) << redo.message;
  now = stage();
  EXPECT_EQ(rawValue(now.stage, "/World/Ball", "radius"), "5");

  // An undo whose change was overwritten by someone else since is refused and changes nothing.
  ASSERT_TRUE(edit(setRadius("theirs", "6")).accepted);
  const auto stale =
      edit(R"({"author":"Ada","clientId":"mine","operations":[{"type":"history","kind":"undo"}]})");
  EXPECT_FALSE(stale.accepted);
  EXPECT_EQ(rawValue(stage().stage, "/World/Ball", "radius"), "6");
}

TEST_F(EditEndpointTest, ManyClientsAtOnceGetDistinctConsecutiveRevisionsAndNothingIsLost) {
  start();
  const std::uint64_t start = stage().revision;
  constexpr int kClients = 8;
  constexpr int kEdits = 125;  // a thousand edits in all
  std::vector<std::vector<std::uint64_t>> revisions(kClients);
  std::vector<std::thread> clients;
  for (int client = 0; client < kClients; ++client) {
    clients.emplace_back([&, client] {
      httplib::Client http("127.0.0.1", project_.port());
      for (int i = 0; i < kEdits; ++i) {
        const auto answer =
            http.Post("/api/edit",
                      addPrim("client" + std::to_string(client),
                              "P" + std::to_string(client) + "_" + std::to_string(i)),
                      "application/json");
        if (!answer)
          continue;
        auto decoded = editor::decodeJson<editor::EditClientResponse>(answer->body);
        if (decoded.ok() && decoded->accepted)
          revisions[client].push_back(decoded->revision);
      }
    });
  }
  for (std::thread& thread : clients)
    thread.join();
  std::set<std::uint64_t> all;
  std::size_t count = 0;
  for (const auto& list : revisions) {
    count += list.size();
    all.insert(list.begin(), list.end());
  }
  EXPECT_EQ(count, std::size_t{kClients * kEdits});
  EXPECT_EQ(all.size(), count);  // no number given twice
  EXPECT_EQ(*all.begin(), start + 1);
  EXPECT_EQ(*all.rbegin(), start + count);  // no gaps
  project_.api().flushWorkspaces();
  const std::string text = readFile(sceneFile());
  for (int client = 0; client < kClients; ++client) {
    for (int i = 0; i < kEdits; ++i) {
      const std::string name = "\"P" + std::to_string(client) + "_" + std::to_string(i) + "\"";
      EXPECT_NE(text.find(name), std::string::npos) << name;
    }
  }
}

TEST_F(EditEndpointTest, RevisionsContinueAcrossARestartAndFilesChangedOutsideBecomeRevisions) {
  start();
  ASSERT_TRUE(edit(setRadius("c", "3")).accepted);
  const std::uint64_t reached = edit(setRadius("c", "4")).revision;
  project_.api().flushWorkspaces();
  project_.stop();
  project_.start({"Game"}, ApiOptions{.heartbeatInterval = 10s});
  EXPECT_EQ(stage().revision, reached);
  EXPECT_EQ(edit(setRadius("c", "5")).revision, reached + 1);
  project_.api().flushWorkspaces();

  // Another program rewrites the file: the next look makes it a revision of its own.
  std::string text = readFile(sceneFile());
  const std::size_t at = text.find("radius = 5");
  ASSERT_NE(at, std::string::npos);
  text.replace(at, 10, "radius = 8");
  std::this_thread::sleep_for(20ms);  // a new modification time even on coarse clocks
  project_.write("Game/main.usda", text);
  project_.api().lookForExternalChanges();
  const auto now = stage();
  EXPECT_EQ(now.revision, reached + 2);
  EXPECT_EQ(rawValue(now.stage, "/World/Ball", "radius"), "8");
}

TEST_F(EditEndpointTest, WithSignInOnAnEditNeedsTheBearer) {
  start(ApiOptions{.token = "sekrit"});
  const auto refused = project_.client().Post("/api/edit", setRadius("c", "3"), "application/json");
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 401);
  EXPECT_TRUE(edit(setRadius("c", "3"), {{"Authorization", "Bearer sekrit"}}).accepted);
}

TEST_F(EditEndpointTest, AClientThatGoesAwayInTheMiddleOfAnEditChangesNothing) {
  start();
  const std::uint64_t before = stage().revision;
  const std::string body = setRadius("gone", "9");
  for (const std::size_t sent : {std::size_t{0}, body.size() / 2, body.size() - 1}) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(socket, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(project_.port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const std::string request =
        "POST /api/edit HTTP/1.1\r\nHost: 127.0.0.1\r\n"
        "Content-Type: application/json\r\nContent-Length: " +
        std::to_string(body.size()) + "\r\n\r\n" + body.substr(0, sent);
    ASSERT_EQ(::send(socket, request.data(), request.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(request.size()));
    ::close(socket);
  }
  // The server goes on serving, and no half-sent edit became a revision.
  const auto after = stage();
  EXPECT_EQ(after.revision, before);
  EXPECT_EQ(rawValue(after.stage, "/World/Ball", "radius"), "2");
  EXPECT_TRUE(edit(setRadius("c", "3")).accepted);
}

}  // namespace
}  // namespace orvan::engine
