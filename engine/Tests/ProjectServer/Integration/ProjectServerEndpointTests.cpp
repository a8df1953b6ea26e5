// The project server in-process on a loopback port, asked with a real HTTP client; every answer is
// decoded with the editor's own records.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <set>
#include <thread>

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "ProjectServer/Credentials.h"
#include "ProjectServer/ProjectServer.h"
#include "ProjectServer/SessionStore.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/URLComponents.h"
#include "orvan/wire/records/AccountRecords.h"
#include "orvan/wire/records/ErrorEnvelope.h"
#include "orvan/wire/records/HostedProjectRecords.h"
#include "orvan/wire/records/ProjectResponse.h"
#include "orvan/wire/records/SceneLayers.h"
#include "orvan/wire/records/StageInspection.h"
#include "orvan/wire/records/WorkspaceRecords.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;
using namespace editor;

constexpr const char* kMainScene = R"(#usda 1.0
(
    subLayers = [
        @./lights.usda@
    ]
)

over "World"
{
    over "Ball"
    {
        double radius = 2
    }
}
)";

std::string lightsLayer(const std::string& color) {
  return "#usda 1.0\n\ndef Xform \"World\"\n{\n    def Sphere \"Ball\"\n    {\n"
         "        color3f[] primvars:displayColor = [" +
         color + "]\n    }\n}\n";
}

class ProjectServerTest : public testing::Test {
 protected:
  void SetUp() override {
    base_ =
        fs::temp_directory_path() / ("orvan_project_server_" + std::to_string(::getpid()) + "_" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(base_);
    fs::create_directories(base_);
    base_ = fs::canonical(base_);
    write("Game/project.json", R"({"id": "game", "name": "Game", "mainScene": "main.usda"})");
    write("Game/main.usda", kMainScene);
    write("Game/lights.usda", lightsLayer("(1, 0, 0)"));
    write("Game/textures/wood.png", "png");
    write("Game/notes.json", "{}");
    write("Game/.hidden", "x");
    write("Game/.git/config", "x");
    write("Other/other.usda", "#usda 1.0\n\ndef Xform \"Other\"\n{\n}\n");
    write("outside.usda", "#usda 1.0\n");
  }

  void TearDown() override {
    // The API goes before its folder: it writes back what its workspaces hold.
    server_.reset();
    api_.reset();
    fs::remove_all(base_);
  }

  void write(const fs::path& relative, const std::string& text) const {
    fs::create_directories((base_ / relative).parent_path());
    std::ofstream(base_ / relative, std::ios::binary | std::ios::trunc) << text;
  }

  // Moves a file's time an hour back: the server keeps stages only of files that have settled.
  void settle(const fs::path& relative) const {
    fs::last_write_time(base_ / relative, fs::file_time_type::clock::now() - std::chrono::hours(1));
  }

  // Serves the two projects; without a public address of its own the server names itself by the
  // one it listens on, as the executable does.
  void start(ApiOptions options = {.userName = "tester"}) {
    std::vector<ProjectFolder> projects;
    for (const char* folder : {"Game", "Other"}) {
      auto project = loadProjectFolder(base_ / folder);
      ASSERT_TRUE(project.ok()) << project.error();
      projects.push_back(std::move(*project));
    }
    const bool publicURLGiven = !options.publicURL.empty();
    // A server serves its API: the old one goes first.
    server_.reset();
    api_ = std::make_unique<ProjectServerApi>(std::move(projects), std::move(options));
    server_ = std::make_unique<ProjectServer>(*api_);
    const auto port = server_->bind("127.0.0.1", 0);
    ASSERT_TRUE(port.ok()) << port.error();
    port_ = *port;
    if (!publicURLGiven)
      api_->setPublicURL("http://127.0.0.1:" + std::to_string(port_));
    server_->start();
    client_ = std::make_unique<httplib::Client>("127.0.0.1", port_);
  }

  httplib::Result get(const std::string& path, const httplib::Headers& headers = {}) {
    return client_->Get(path.c_str(), headers);
  }

  template <class T>
  static T decoded(const httplib::Result& answer) {
    if (!answer) {
      ADD_FAILURE() << "no answer";
      return T{};
    }
    EXPECT_EQ(answer->get_header_value("Content-Type"), "application/json");
    Result<T> result = decodeJson<T>(answer->body);
    EXPECT_TRUE(result.ok()) << (result.ok() ? "" : result.error().description) << "\n"
                             << answer->body.substr(0, 400);
    return result.ok() ? std::move(*result) : T{};
  }

  // The status and error envelope of a failed call.
  static std::pair<int, std::string> failure(const httplib::Result& answer) {
    if (!answer)
      return {0, "no answer"};
    const VelkErrorEnvelope envelope = decoded<VelkErrorEnvelope>(answer);
    EXPECT_EQ(envelope.accepted, false);
    EXPECT_FALSE(envelope.message.value_or("").empty());
    return {answer->status, envelope.code.value_or("")};
  }

  static const UsdPrimDetail* prim(const StageInspection& stage, std::string_view path) {
    for (const UsdPrimDetail& detail : stage.prims) {
      if (detail.path == path)
        return &detail;
    }
    return nullptr;
  }

  fs::path base_;
  std::unique_ptr<ProjectServerApi> api_;
  std::unique_ptr<ProjectServer> server_;
  std::unique_ptr<httplib::Client> client_;
  int port_ = 0;
};

TEST_F(ProjectServerTest, EveryEndpointAnswersWithTheEditorsRecords) {
  start();
  const std::string game = (base_ / "Game").string();

  const auto catalogue = decoded<HostedProjectsResponse>(get("/api/projects"));
  EXPECT_EQ(catalogue.root, base_.string());
  EXPECT_EQ(catalogue.current, game);
  ASSERT_EQ(catalogue.projects.size(), 2u);
  EXPECT_EQ(catalogue.projects[0], (HostedProjectSummary{.id = "game",
                                                         .name = "Game",
                                                         .path = game,
                                                         .scene = game + "/main.usda",
                                                         .current = true,
                                                         .role = "owner",
                                                         .canInvite = false,
                                                         .canEdit = true}));
  EXPECT_FALSE(catalogue.projects[1].current);

  const auto project = decoded<ProjectResponse>(get("/api/project"));
  EXPECT_EQ(project.id, "game");
  EXPECT_EQ(project.label, "Game");
  EXPECT_EQ(project.path, game);
  EXPECT_EQ(project.scene, game + "/main.usda");
  EXPECT_EQ(project.sceneRef, "main.usda");
  EXPECT_EQ(project.mainScene, "main.usda");
  EXPECT_EQ(project.workspace, "main");
  const std::vector<ProjectWorkspaceSummary> onlyMain{
      {.id = "main", .name = "Main", .current = true}};
  EXPECT_EQ(project.workspaces, onlyMain);
  EXPECT_EQ(project.assetCatalogComplete, true);
  std::vector<std::string> rows;
  for (const ProjectAssetItem& asset : project.assets)
    rows.push_back(asset.path + " " + asset.kind + " [" + asset.folder + "]");
  EXPECT_EQ(rows,
            (std::vector<std::string>{"lights.usda USD []", "main.usda USD []",
                                      "notes.json Data []", "textures/wood.png Image [textures]"}));

  const auto stage = decoded<RemoteStageResponse>(get("/api/stage"));
  EXPECT_GE(stage.revision, 1u);
  EXPECT_EQ(stage.stage.layers.size(), 2u);

  const auto workspaces = decoded<ProjectWorkspaceCatalogResponse>(get("/api/workspaces"));
  EXPECT_EQ(workspaces.workspace, "main");
  EXPECT_EQ(workspaces.revision, stage.revision);
  EXPECT_EQ(workspaces.workspaces, onlyMain);

  const auto me = decoded<VelkMeResponse>(get("/api/me"));
  EXPECT_EQ(me.authenticated, true);
  EXPECT_EQ(me.authEnabled, false);
  EXPECT_EQ(me.user, (VelkMeUser{.id = "local", .displayName = "tester"}));

  const auto link = decoded<HostedDeepLinkResponse>(get("/api/deep-link?p=Other&s=other.usda"));
  EXPECT_TRUE(link.accepted);
  EXPECT_EQ(link.id, "Other");
  EXPECT_EQ(link.sceneRef, "other.usda");
  EXPECT_EQ(link.workspace, "main");
  const auto refused = decoded<HostedDeepLinkResponse>(get("/api/deep-link?p=nobody"));
  EXPECT_FALSE(refused.accepted);
  EXPECT_NE(refused.message.value_or("").find("nobody"), std::string::npos);

  // The other project, by id and by folder, with a scene of its own.
  EXPECT_EQ(decoded<ProjectResponse>(get("/api/project?p=Other")).label, "Other");
  const std::string byRoot = "/api/stage?projectRoot=" + (base_ / "Other" / "").string() +
                             "&scene=" + (base_ / "Other/other.usda").string();
  const auto otherStage = decoded<RemoteStageResponse>(get(byRoot));
  EXPECT_NE(prim(otherStage.stage, "/Other"), nullptr);
}

TEST_F(ProjectServerTest, ProjectAnswers304UntilAFileOfTheFolderChanges) {
  start();
  const auto first = get("/api/project");
  ASSERT_TRUE(first);
  const std::string etag = first->get_header_value("ETag");
  ASSERT_TRUE(etag.size() > 2 && etag.front() == '"' && etag.back() == '"') << etag;

  for (const std::string& held :
       std::vector<std::string>{etag, "W/" + etag, "\"other\", " + etag, "*"}) {
    const auto again = get("/api/project", {{"If-None-Match", held}});
    ASSERT_TRUE(again);
    EXPECT_EQ(again->status, 304) << held;
    EXPECT_TRUE(again->body.empty());
    EXPECT_EQ(again->get_header_value("ETag"), etag);
  }
  EXPECT_EQ(get("/api/project", {{"If-None-Match", "\"other\""}})->status, 200);

  // A file's content changes: its row's generation, and so the tag, change with it.
  write("Game/textures/wood.png", "a bigger png");
  const auto changed = get("/api/project", {{"If-None-Match", etag}});
  ASSERT_TRUE(changed);
  EXPECT_EQ(changed->status, 200);
  EXPECT_NE(changed->get_header_value("ETag"), etag);
  const std::string head = decoded<ProjectResponse>(changed).assetCatalogHeadKey.value_or("");

  fs::remove(base_ / "Game/notes.json");
  const auto removed = decoded<ProjectResponse>(get("/api/project"));
  EXPECT_EQ(removed.assets.size(), 3u);
  EXPECT_NE(removed.assetCatalogHeadKey.value_or(""), head) << "a deleted file moves the head";
}

TEST_F(ProjectServerTest, StageAnswers304UntilALayerChangesAndThenComesNewWithAHigherRevision) {
  for (const char* file : {"Game/main.usda", "Game/lights.usda"})
    settle(file);
  start();
  const auto first = get("/api/stage");
  ASSERT_TRUE(first);
  const std::string etag = first->get_header_value("ETag");
  ASSERT_FALSE(etag.empty());
  const auto before = decoded<RemoteStageResponse>(first);
  EXPECT_EQ(get("/api/stage", {{"If-None-Match", etag}})->status, 304);

  // Only the sublayer changes; the kept stage must notice.
  write("Game/lights.usda", lightsLayer("(0, 0.5, 1)"));
  settle("Game/lights.usda");
  const auto changed = get("/api/stage", {{"If-None-Match", etag}});
  ASSERT_TRUE(changed);
  EXPECT_EQ(changed->status, 200);
  EXPECT_NE(changed->get_header_value("ETag"), etag);
  const auto after = decoded<RemoteStageResponse>(changed);
  EXPECT_GT(after.revision, before.revision);
  EXPECT_NE(after.stage, before.stage);

  // A sublayer that was missing and then appears changes the stage too.
  write("Game/main.usda", std::string(kMainScene)
                              .replace(std::string(kMainScene).find("@./lights.usda@"), 15,
                                       "@./lights.usda@, @./late.usda@"));
  settle("Game/main.usda");
  const auto withoutLate = decoded<RemoteStageResponse>(get("/api/stage"));
  EXPECT_EQ(prim(withoutLate.stage, "/Late"), nullptr);
  write("Game/late.usda", "#usda 1.0\n\ndef Xform \"Late\"\n{\n}\n");
  settle("Game/late.usda");
  const auto withLate = decoded<RemoteStageResponse>(get("/api/stage"));
  EXPECT_NE(prim(withLate.stage, "/Late"), nullptr);
}

TEST_F(ProjectServerTest, TheActiveLayerDecidesWhereOverrideMarksAreMeasured) {
  start();
  const std::string root = (base_ / "Game/main.usda").string();
  const auto inRoot = decoded<RemoteStageResponse>(get("/api/stage?activeLayer=" + root));
  const auto inLights = decoded<RemoteStageResponse>(get("/api/stage?activeLayer=lights.usda"));
  ASSERT_NE(prim(inRoot.stage, "/World/Ball"), nullptr);
  ASSERT_NE(prim(inLights.stage, "/World/Ball"), nullptr);
  EXPECT_EQ(prim(inRoot.stage, "/World/Ball")->overriddenInActiveLayer, true);
  EXPECT_NE(prim(inLights.stage, "/World/Ball")->overriddenInActiveLayer, true);

  // A layer that is not in the stack (removed meanwhile, say) leaves the server's own choice,
  // which is the first writable sublayer.
  const auto unknown = get("/api/stage?activeLayer=gone.usda");
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown->status, 200);
  EXPECT_EQ(decoded<RemoteStageResponse>(unknown).stage, inLights.stage);
}

TEST_F(ProjectServerTest, ScopeMistakesAnswerWithTheErrorEnvelope) {
  start();
  using Failure = std::pair<int, std::string>;
  EXPECT_EQ(failure(get("/api/project?p=nobody")), Failure(404, "project_not_found"));
  EXPECT_EQ(failure(get("/api/stage?projectRoot=" + base_.string())),
            Failure(404, "project_not_found"));
  EXPECT_EQ(failure(get("/api/stage?s=../outside.usda")), Failure(404, "scene_not_found"));
  // A NUL byte would cut the name short at the file system: refused, not read as "main.usda".
  EXPECT_EQ(failure(get("/api/stage?s=main.usda%00.txt")), Failure(400, "bad_request"));
  EXPECT_EQ(failure(get("/api/project?p%00x=game")), Failure(400, "bad_request"));
  EXPECT_EQ(failure(get("/api/workspaces?w=feature")), Failure(404, "workspace_not_found"));
  EXPECT_EQ(get("/api/workspaces?w=main")->status, 200);
  EXPECT_EQ(failure(get("/api/nothing")), Failure(404, "not_found"));
  EXPECT_EQ(failure(get("/index.html")), Failure(404, "not_found"));

  const auto posted = client_->Post("/api/project", "{}", "application/json");
  EXPECT_EQ(failure(posted), Failure(405, "method_not_allowed"));
  EXPECT_EQ(posted->get_header_value("Allow"), "GET, HEAD");
  // The connection stays usable after a refused body.
  EXPECT_EQ(get("/api/project")->status, 200);
}

TEST_F(ProjectServerTest, ABrokenSceneAnswers422AndTheServerKeepsServing) {
  write("Game/broken.usda", "#usda 1.0\n\ndef Xform \"World\"\n{\n    double size = (1, 2\n}\n");
  start();
  const auto broken = get("/api/stage?s=broken.usda");
  EXPECT_EQ(failure(broken), (std::pair<int, std::string>(422, "scene_invalid")));
  const std::string message = decoded<VelkErrorEnvelope>(broken).message.value_or("");
  EXPECT_NE(message.find((base_ / "Game/broken.usda").string() + ":6:1: expected"),
            std::string::npos)
      << message;

  EXPECT_EQ(get("/api/stage")->status, 200);
  write("Game/broken.usda", "#usda 1.0\n\ndef Xform \"World\"\n{\n    double size = 1\n}\n");
  EXPECT_EQ(get("/api/stage?s=broken.usda")->status, 200);
}

TEST_F(ProjectServerTest, WithATokenEveryCallButTheAccountCheckNeedsTheBearer) {
  start({.token = "sesame", .userName = "tester"});
  using Failure = std::pair<int, std::string>;
  EXPECT_EQ(failure(get("/api/project")), Failure(401, "login_required"));
  EXPECT_EQ(failure(get("/api/project", {{"Authorization", "Bearer sesam"}})),
            Failure(401, "login_required"));
  // Another scheme with the right secret is no bearer.
  EXPECT_EQ(failure(get("/api/nothing", {{"Authorization", "Secret sesame"}})),
            Failure(401, "login_required"));
  EXPECT_EQ(get("/api/project", {{"Authorization", "Bearer sesame"}})->status, 200);
  EXPECT_EQ(get("/api/stage", {{"Authorization", "bearer  sesame "}})->status, 200);

  const auto anonymous = decoded<VelkMeResponse>(get("/api/me"));
  EXPECT_EQ(anonymous.authEnabled, true);
  EXPECT_FALSE(anonymous.user.has_value());
  const auto signedIn =
      decoded<VelkMeResponse>(get("/api/me", {{"Authorization", "Bearer sesame"}}));
  EXPECT_EQ(signedIn.authenticated, true);
  EXPECT_EQ(signedIn.user.value_or(VelkMeUser{}).id, "local");
}

TEST_F(ProjectServerTest, LayersAnswerTheTextOfEveryLayerOfTheSceneUnderTheStagesRules) {
  const auto identifiers = [](const SceneLayersResponse& answer) {
    std::vector<std::string> names;
    for (const SceneLayerText& layer : answer.layers)
      names.push_back(fs::path(layer.identifier).filename().string());
    return names;
  };
  // Read from the files when the server does not edit, from its memory when it does.
  for (const bool editing : {false, true}) {
    start({.token = "sesame", .userName = "tester", .editing = editing});
    const httplib::Headers bearer{{"Authorization", "Bearer sesame"}};
    using Failure = std::pair<int, std::string>;
    EXPECT_EQ(failure(get("/api/layers")), Failure(401, "login_required"));
    EXPECT_EQ(failure(get("/api/layers?s=../outside.usda", bearer)),
              Failure(404, "scene_not_found"));
    EXPECT_EQ(failure(get("/api/layers?p=nobody", bearer)), Failure(404, "project_not_found"));

    const auto answer = decoded<SceneLayersResponse>(get("/api/layers?s=main.usda", bearer));
    EXPECT_EQ(answer.root, (base_ / "Game/main.usda").string());
    EXPECT_EQ(identifiers(answer), (std::vector<std::string>{"main.usda", "lights.usda"}));
    ASSERT_EQ(answer.layers.size(), 2u);
    EXPECT_NE(answer.layers[0].text.find("double radius = 2"), std::string::npos);
    EXPECT_NE(answer.layers[1].text.find("(1, 0, 0)"), std::string::npos);
    EXPECT_GE(answer.revision, 1u);
    // The absolute path of the scene names its project as well.
    const auto byPath = decoded<SceneLayersResponse>(
        get("/api/layers?scene=" + (base_ / "Other/other.usda").string(), bearer));
    EXPECT_EQ(identifiers(byPath), (std::vector<std::string>{"other.usda"}));
  }
  write("Game/broken.usda", "#usda 1.0\n\ndef Xform \"World\"\n{\n    double size = (1, 2\n}\n");
  EXPECT_EQ(failure(get("/api/layers?s=broken.usda", {{"Authorization", "Bearer sesame"}})),
            (std::pair<int, std::string>(422, "scene_invalid")));
}

// The raw bytes of a file, "" when it is not there.
std::string fileBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST_F(ProjectServerTest, SignInNeedsThePasswordAndIssuesAHashedRevocableSession) {
  auto sessions = SessionStore::open((base_ / "state").string());
  ASSERT_TRUE(sessions.ok()) << sessions.error();
  std::shared_ptr<SessionStore> store = std::move(*sessions);
  const std::string publicURL = "https://projects.example.test:8443";
  start({.token = "sesame",
         .password = "open sesame",
         .sessions = store,
         .publicURL = publicURL,
         .userName = "tester"});
  // A forged Host header must change nothing the server says about itself.
  const httplib::Headers forged{{"Host", "evil.test:80"}};
  const httplib::Params form{
      {"callback", "velk://auth-callback"}, {"clientId", "c1"}, {"password", "open sesame"}};
  const auto postForm = [&](httplib::Params params) {
    return client_->Post("/auth/native/start", forged, params);
  };

  // The page asks for the password and hands out nothing before it is given.
  const auto page =
      get("/auth/native/start?clientId=c1&callback=velk%3A%2F%2Fauth-callback", forged);
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
  EXPECT_NE(page->body.find("type=\"password\""), std::string::npos) << page->body;
  EXPECT_NE(page->body.find("value=\"velk://auth-callback\""), std::string::npos);
  EXPECT_FALSE(page->has_header("Location"));
  EXPECT_EQ(page->body.find("sesame"), std::string::npos);

  httplib::Params wrong = form;
  wrong.find("password")->second = "open sesam";
  const auto refused = postForm(wrong);
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 401);
  EXPECT_FALSE(refused->has_header("Location"));
  EXPECT_EQ(store->list()->size(), 0u);

  const auto signedIn = postForm(form);
  ASSERT_TRUE(signedIn);
  ASSERT_EQ(signedIn->status, 302) << signedIn->body;
  const auto link = URLComponents::parse(signedIn->get_header_value("Location"));
  ASSERT_TRUE(link.has_value()) << signedIn->get_header_value("Location");
  EXPECT_EQ(link->scheme, "velk");
  EXPECT_EQ(link->host, "auth-callback");
  ASSERT_EQ(link->queryItems.size(), 4u);
  const std::string token = link->queryItems[0].value.value_or("");
  EXPECT_EQ(link->queryItems[0].name, "token");
  EXPECT_EQ(token.size(), 64u) << "256 random bits in hex";
  EXPECT_NE(token, "sesame") << "the static token is never handed out";
  EXPECT_EQ(link->queryItems[1], (URLQueryItem{"server", publicURL}));
  EXPECT_EQ(link->queryItems[2], (URLQueryItem{"displayName", "tester"}));
  EXPECT_EQ(link->queryItems[3], (URLQueryItem{"userId", "local"}));

  // The session signs in as a bearer; the store holds its digest, never the token itself.
  const httplib::Headers bearer{{"Authorization", "Bearer " + token}};
  EXPECT_EQ(get("/api/project", bearer)->status, 200);
  EXPECT_EQ(decoded<VelkMeResponse>(get("/api/me", bearer)).authenticated, true);
  const std::string stored = fileBytes(store->path()) + fileBytes(store->path() + "-wal");
  EXPECT_NE(stored.find(sha256Hex(token)), std::string::npos);
  EXPECT_EQ(stored.find(token), std::string::npos);

  const auto listed = store->list();
  ASSERT_TRUE(listed.ok());
  ASSERT_EQ(listed->size(), 1u);
  EXPECT_EQ(listed->front().clientId, "c1");
  EXPECT_EQ(store->revoke(listed->front().id).value(), true);
  EXPECT_EQ(store->revoke(listed->front().id).value(), false);
  EXPECT_EQ(failure(get("/api/project", bearer)),
            (std::pair<int, std::string>(401, "login_required")));

  // Only the editor's links are callbacks, whichever way the page is reached.
  using Failure = std::pair<int, std::string>;
  EXPECT_EQ(failure(get("/auth/native/start?callback=https%3A%2F%2Fevil.test%2Fsteal")),
            Failure(400, "bad_callback"));
  EXPECT_EQ(failure(get("/auth/native/start")), Failure(400, "bad_callback"));
  httplib::Params elsewhere = form;
  elsewhere.find("callback")->second = "https://evil.test/steal";
  EXPECT_EQ(failure(postForm(elsewhere)), Failure(400, "bad_callback"));

  // Guessing is cut short: after ten wrong passwords within a minute even the right one waits.
  for (int i = 0; i < 9; ++i)
    EXPECT_EQ(postForm(wrong)->status, 401);
  EXPECT_EQ(postForm(form)->status, 429);
}

TEST_F(ProjectServerTest, WithoutSignInThePageSendsTheBrowserStraightBackNamingTheServer) {
  start();
  const auto answer = get("/auth/native/start?clientId=c1&callback=velk%3A%2F%2Fauth-callback",
                          {{"Host", "evil.test"}});
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 302);
  const auto link = URLComponents::parse(answer->get_header_value("Location"));
  ASSERT_TRUE(link.has_value());
  const std::vector<URLQueryItem> expected{{"token", "local-session"},
                                           {"server", "http://127.0.0.1:" + std::to_string(port_)},
                                           {"displayName", "tester"},
                                           {"userId", "local"}};
  EXPECT_EQ(link->queryItems, expected);

  // A token but no password: the page cannot sign anyone in, and says so.
  server_->stop();
  start({.token = "sesame", .userName = "tester"});
  const auto unavailable = get("/auth/native/start?callback=velk%3A%2F%2Fauth-callback");
  ASSERT_TRUE(unavailable);
  EXPECT_EQ(unavailable->status, 403);
  EXPECT_FALSE(unavailable->has_header("Location"));
  EXPECT_EQ(unavailable->body.find("sesame"), std::string::npos);
}

// The head of a request, sent on a socket of its own; what comes back until the server closes
// the connection (or 10 seconds pass), without ever sending the body the head announces.
std::string answerToHead(int port, const std::string& head) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(socket);
    return "no connection";
  }
  ::send(socket, head.data(), head.size(), MSG_NOSIGNAL);
  std::string answer;
  char buffer[4096];
  pollfd ready{.fd = socket, .events = POLLIN, .revents = 0};
  for (;;) {
    if (::poll(&ready, 1, 10000) != 1) {
      answer += "<still open>";
      break;
    }
    const ssize_t n = ::recv(socket, buffer, sizeof buffer, 0);
    if (n <= 0)
      break;
    answer.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(socket);
  return answer;
}

TEST_F(ProjectServerTest, BodiesAreJudgedOnTheirHeadAndRefusedAtOnce) {
  start({.token = "sesame", .userName = "tester"});
  const std::string gib = "Content-Length: 1073741824\r\n";
  const std::string bearer = "Authorization: Bearer sesame\r\n";
  const auto head = [](const std::string& target, const std::string& headers) {
    return "POST " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers + "\r\n";
  };
  // Each answer is complete and the connection ends after it: the body was never read.
  const std::vector<std::pair<std::string, std::string>> cases{
      {head("/api/project", gib), "HTTP/1.1 401"},
      {head("/api/project", bearer + gib), "HTTP/1.1 413"},
      {head("/auth/native/start", gib), "HTTP/1.1 413"},
      {head("/api/project", bearer + "Transfer-Encoding: chunked\r\n"), "HTTP/1.1 411"},
      {head("/api/project", bearer), "HTTP/1.1 411"},
      {head("/elsewhere", "Content-Length: 1\r\n"), "HTTP/1.1 413"},
      {"GET /api/project HTTP/1.1\r\nHost: 127.0.0.1\r\n" + bearer + "Content-Length: 5\r\n\r\n",
       "HTTP/1.1 413"},
  };
  for (const auto& [request, status] : cases) {
    const std::string answer = answerToHead(port_, request);
    EXPECT_TRUE(answer.starts_with(status)) << request << "\n" << answer;
    EXPECT_NE(answer.find("Connection: close"), std::string::npos) << answer;
    EXPECT_EQ(answer.find("<still open>"), std::string::npos) << request << "\n" << answer;
    EXPECT_TRUE(answer.ends_with("}")) << "the envelope arrives whole:\n" << answer;
  }
  // A header line without end is not gathered up to the end of the memory: the connection ends
  // once the request has taken more than any request may.
  const std::string endless =
      "GET /api/me HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Long: " + std::string(4 << 20, 'a');
  EXPECT_EQ(answerToHead(port_, endless).find("<still open>"), std::string::npos);

  // A body within the limit is read and answered as before, on a connection that stays usable.
  const auto posted =
      client_->Post("/api/project", {{"Authorization", "Bearer sesame"}}, "{}", "application/json");
  EXPECT_EQ(failure(posted), (std::pair<int, std::string>(405, "method_not_allowed")));
  EXPECT_EQ(get("/api/project", {{"Authorization", "Bearer sesame"}})->status, 200);
}

TEST_F(ProjectServerTest, ASecondServerCannotTakeAPortInUse) {
  start();
  ProjectServer second(*api_);
  const auto bound = second.bind("127.0.0.1", port_);
  ASSERT_FALSE(bound.ok()) << "both servers would take requests on one port";
  EXPECT_NE(bound.error().find("cannot listen on 127.0.0.1:" + std::to_string(port_)),
            std::string::npos)
      << bound.error();
}

TEST_F(ProjectServerTest, ConcurrentStageRequestsAllGetTheSameStage) {
  start();
  std::vector<std::thread> threads;
  std::vector<std::string> tags(6);
  const int port = port_;
  for (std::size_t i = 0; i < tags.size(); ++i) {
    threads.emplace_back([&, i] {
      httplib::Client client("127.0.0.1", port);
      const auto answer = client.Get(i % 2 == 0 ? "/api/stage" : "/api/stage?p=game");
      tags[i] = answer && answer->status == 200 ? answer->get_header_value("ETag") : "failed";
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(std::set<std::string>(tags.begin(), tags.end()).size(), 1u);
  EXPECT_NE(tags.front(), "failed");
}

TEST_F(ProjectServerTest, StageRequestsShareOneCompositionAndLeaveCheapCallsAnswering) {
  for (const char* file : {"Game/main.usda", "Game/lights.usda"})
    settle(file);
  // Builds are counted, and inspections held until the test lets them go.
  std::atomic<int> compositions = 0;
  std::atomic<int> inspections = 0;
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  // A server that only reads serves its stages from the stage cache.
  ApiOptions options{.userName = "tester", .editing = false};
  options.stages.onBuild = [&, released](StageCacheOptions::Build build) {
    switch (build) {
      case StageCacheOptions::Build::compose:
        ++compositions;
        return;
      case StageCacheOptions::Build::inspect:
        ++inspections;
        released.wait_for(std::chrono::seconds(30));
        return;
    }
  };
  start(std::move(options));

  // Eight names for three layers: the root, the sublayer, and none at all (the default).
  const std::string root = (base_ / "Game/main.usda").string();
  const std::vector<std::string> layers{"lights.usda",
                                        (base_ / "Game/lights.usda").string(),
                                        "main.usda",
                                        root,
                                        "gone1.usda",
                                        "gone2.usda",
                                        "",
                                        "gone3.usda"};
  std::vector<std::string> tags(layers.size());
  std::vector<std::thread> requests;
  for (std::size_t i = 0; i < layers.size(); ++i) {
    requests.emplace_back([&, i] {
      httplib::Client client("127.0.0.1", port_);
      client.set_read_timeout(60);
      const auto answer = client.Get("/api/stage?activeLayer=" + layers[i]);
      tags[i] = answer && answer->status == 200 ? answer->get_header_value("ETag") : "failed";
    });
  }
  for (int waited = 0; inspections == 0 && waited < 1000; ++waited)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_GT(inspections.load(), 0);
  // Every stage request is waiting on a build; the account check still answers.
  httplib::Client cheap("127.0.0.1", port_);
  cheap.set_read_timeout(10);
  const auto me = cheap.Get("/api/me");
  EXPECT_TRUE(me && me->status == 200);
  release.set_value();
  for (std::thread& request : requests)
    request.join();

  EXPECT_EQ(compositions.load(), 1);
  EXPECT_EQ(inspections.load(), 3);
  EXPECT_EQ(std::count(tags.begin(), tags.end(), "failed"), 0);
  EXPECT_EQ(tags[0], tags[1]);
  EXPECT_EQ(tags[2], tags[3]);
  EXPECT_EQ(tags[4], tags[5]);
  EXPECT_EQ(tags[4], tags[6]);
  EXPECT_EQ(tags[4], tags[7]);

  // Asked again, everything is kept: no build at all.
  EXPECT_EQ(get("/api/stage?activeLayer=lights.usda")->get_header_value("ETag"), tags[0]);
  EXPECT_EQ(compositions.load(), 1);
  EXPECT_EQ(inspections.load(), 3);
}

}  // namespace
}  // namespace orvan::engine
