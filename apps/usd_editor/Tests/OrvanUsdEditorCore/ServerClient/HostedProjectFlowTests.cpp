// A hosted project from the model's side, against a scripted server on virtual time: start-up,
// the stage and project streams, their caches, and what failures do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Application/EditorModel.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "ProjectsAndWorkspaces/VelkSessionTokenStore.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/StageBuilders.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor {
namespace {

using testing::FakeHttpClient;
using ::testing::HasSubstr;
using testing::httpResponse;

constexpr char kServer[] = "http://server.test";

std::string stageBody(std::uint64_t revision, std::string root) {
  StageInspection stage = testing::makeTreeStage(1, 0, 0);
  stage.rootPrims[0].name = std::move(root);
  return encodeJson(RemoteStageResponse{.revision = revision, .stage = std::move(stage)});
}

std::string projectBody(const std::string& assetPath, const std::string& extra = "") {
  return R"({"id":"proj-1","label":"Demo","path":"/srv/demo","workspace":"main",)"
         R"("workspaces":[{"id":"main","name":"Main"},{"id":"wip","name":"WIP"}],)" +
         extra + R"("assets":[{"path":")" + assetPath +
         R"(","name":"a","folder":"","kind":"USD"}]})";
}

std::string projectsBody() {
  return R"({"root":"/srv","current":"proj-2","projects":[)"
         R"({"id":"proj-1","name":"One","path":"/srv/one","scene":"","current":false},)"
         R"({"id":"proj-2","name":"Two","path":"/srv/two","scene":"scenes/main.usda","current":true}]})";
}

class HostedProjectFlowTest : public ::testing::Test {
 protected:
  static EditorConfiguration onServer() {
    EditorConfiguration configuration;
    configuration.projectServerURL = kServer;
    return configuration;
  }

  static EditorConfiguration completeScope() {
    EditorConfiguration configuration = onServer();
    configuration.projectId = "proj-1";
    configuration.projectPath = "/srv/demo";
    configuration.scenePath = "/srv/demo/scene.usda";
    return configuration;
  }

  EditorModel& start(EditorConfiguration configuration) {
    model_ = std::make_unique<EditorModel>(
        std::move(configuration), EditorModelPorts{scheduler_, scheduler_.background(),
                                                   preferences_, secrets_, launcher_, http_});
    model_->startInitialRefresh();
    return *model_;
  }

  // Lets virtual time pass and everything it started finish.
  void wait(std::chrono::milliseconds time) {
    scheduler_.advanceBy(time);
    scheduler_.runUntilQuiet();
  }

  // The requests sent so far whose path is `path`, as their full addresses.
  std::vector<std::string> sent(const std::string& path) const {
    std::vector<std::string> urls;
    for (const HttpRequest& request : http_.requests()) {
      if (URLComponents::parse(request.url)->path == path)
        urls.push_back(request.url);
    }
    return urls;
  }

  void answer(const std::string& path, HttpResponse response) {
    http_.script(FakeHttpClient::urlContains(path), std::move(response));
  }

  std::vector<std::string> rootNames() const {
    std::vector<std::string> names;
    for (const auto& node : model_->currentStage().rootPrims)
      names.push_back(node.name);
    return names;
  }

  testing::ManualScheduler scheduler_;
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher launcher_;
  FakeHttpClient http_{scheduler_};
  std::unique_ptr<EditorModel> model_;
};

TEST_F(HostedProjectFlowTest, ACompleteScopeLoadsStageAndWorkspacesSideBySideThenTheProject) {
  answer("/api/stage", httpResponse(200, stageBody(5, "World"), {{"ETag", "\"s1\""}}));
  answer("/api/workspaces", httpResponse(200, R"({"workspaces":[{"id":"main","name":"Main"}]})"));
  EditorModel& editor = start(completeScope());
  EXPECT_TRUE(editor.startup.initialProjectResolved.get());
  EXPECT_TRUE(sent("/api/projects").empty()) << "nothing needed resolving";
  EXPECT_EQ(sent("/api/stage").size(), 1u);
  EXPECT_EQ(sent("/api/workspaces").size(), 1u) << "both requests are out before either answers";
  EXPECT_EQ(editor.status.get(), "Loading project");

  scheduler_.runUntilQuiet();
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"World"}));
  EXPECT_EQ(editor.revision.get(), 5u);
  EXPECT_EQ(editor.status.get(), "Loaded composed OpenUSD stage");
  ASSERT_EQ(editor.server.remoteStageCache.size(), 1u)
      << "an answer with an ETag is kept for its scope";

  // The project follows 40 ms after the stage, and fills the asset list.
  answer("/api/project", httpResponse(200, projectBody("props/a.usda"), {{"ETag", "\"p1\""}}));
  EXPECT_TRUE(sent("/api/project").empty());
  wait(std::chrono::milliseconds(40));
  ASSERT_EQ(sent("/api/project").size(), 1u);
  EXPECT_THAT(sent("/api/project")[0], HasSubstr("p=proj-1"));
  ASSERT_EQ(editor.documents.projectAssets.size(), 1u);
  EXPECT_NE(editor.clientDocument.current().projectAsset("props/a.usda"), nullptr);
  EXPECT_EQ(editor.projects.workspacePresentation.get().workspaces.size(), 2u);

  // The next fetch is conditional and a 304 keeps what the cache holds.
  answer("/api/project", httpResponse(304));
  editor.projectData.refreshProjectData(false);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(http_.requests().back().header("If-None-Match"), "\"p1\"");
  EXPECT_EQ(editor.documents.projectAssets.size(), 1u);
  // A forced reload asks without the ETag.
  answer("/api/project", httpResponse(200, projectBody("props/b.usda")));
  editor.projectData.refreshProjectData(true);
  scheduler_.runUntilQuiet();
  EXPECT_FALSE(http_.requests().back().header("If-None-Match").has_value());
  EXPECT_NE(editor.clientDocument.current().projectAsset("props/b.usda"), nullptr);
}

// Only the stage and the project grow with the scene; every other answer keeps the small limit.
TEST_F(HostedProjectFlowTest, OnlyTheStageAndTheProjectMayBeLargeAnswers) {
  answer("/api/stage", httpResponse(200, stageBody(5, "World")));
  answer("/api/workspaces", httpResponse(200, R"({"workspaces":[{"id":"main","name":"Main"}]})"));
  answer("/api/project", httpResponse(200, projectBody("props/a.usda")));
  start(completeScope());
  scheduler_.runUntilQuiet();
  wait(std::chrono::milliseconds(40));
  ASSERT_EQ(sent("/api/project").size(), 1u);
  for (const HttpRequest& request : http_.requests()) {
    const std::string path = URLComponents::parse(request.url)->path;
    const bool large = path == "/api/stage" || path == "/api/project";
    SCOPED_TRACE(path);
    EXPECT_EQ(request.maxResponseBytes,
              large ? kLargeDocumentMaxResponseBytes : kDefaultMaxResponseBytes);
  }
}

TEST_F(HostedProjectFlowTest, AnIncompleteCatalogueIsAskedForAgainUntilItIsWhole) {
  answer("/api/stage", httpResponse(200, stageBody(1, "World")));
  answer("/api/workspaces", httpResponse(200, "{}"));
  EditorModel& editor = start(completeScope());
  scheduler_.runUntilQuiet();
  const std::string partial = R"("assetCatalogComplete":false,)";
  answer("/api/project", httpResponse(200, projectBody("a.usda", partial)));
  answer("/api/project", httpResponse(200, projectBody("b.usda", partial)));
  answer("/api/project", httpResponse(200, projectBody("c.usda")));
  wait(std::chrono::milliseconds(40));
  EXPECT_TRUE(editor.projectData.projectAssetCatalogLoading);
  EXPECT_EQ(sent("/api/project").size(), 1u);
  wait(std::chrono::milliseconds(249));
  EXPECT_EQ(sent("/api/project").size(), 1u) << "the poll waits 250 ms";
  wait(std::chrono::milliseconds(1));
  wait(std::chrono::milliseconds(250));
  EXPECT_EQ(sent("/api/project").size(), 3u);
  EXPECT_FALSE(editor.projectData.projectAssetCatalogLoading);
  EXPECT_EQ(editor.documents.projectAssets.size(), 3u) << "partial lists only ever add";
  wait(std::chrono::seconds(5));
  EXPECT_EQ(sent("/api/project").size(), 3u) << "a whole catalogue ends the polling";
}

TEST_F(HostedProjectFlowTest, AnIncompleteScopeResolvesItsProjectFromTheCatalogue) {
  answer("/api/projects", httpResponse(200, projectsBody()));
  EditorModel& editor = start(onServer());
  EXPECT_TRUE(editor.isStartupBlocking()) << "the sheet shows while the project is unknown";
  ASSERT_EQ(sent("/api/projects").size(), 1u);
  EXPECT_EQ(http_.requests().front().timeout, std::chrono::seconds(8));

  answer("/api/stage", httpResponse(200, stageBody(2, "Two")));
  scheduler_.runUntilQuiet();
  EXPECT_FALSE(editor.isStartupBlocking());
  EXPECT_EQ(editor.scope.projectId(), "proj-2") << "the server's current project with a scene";
  EXPECT_EQ(editor.scope.scenePath(), "/srv/two/scenes/main.usda");
  ASSERT_EQ(sent("/api/stage").size(), 1u);
  EXPECT_THAT(sent("/api/stage")[0], HasSubstr("p=proj-2&s=scenes/main.usda&w=main"));
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"Two"}));
  EXPECT_TRUE(editor.projects.hostedProjects.at(1).isCurrent);
}

TEST_F(HostedProjectFlowTest, ResolutionThatConfirmsTheLaunchSceneStartsNoRefresh) {
  EditorConfiguration configuration = onServer();
  configuration.projectId = "proj-3";
  configuration.scenePath = "scenes/main.usda";
  // The launch scene is relative and there is no project root: the catalogue must say where. This
  // server keeps the project's files to itself, so the scene stays as the launch gave it.
  answer("/api/projects", httpResponse(200, R"({"root":"","current":"","projects":[{"id":"proj-3",)"
                                            R"("name":"3","path":"","scene":"scenes/main.usda",)"
                                            R"("current":false}]})"));
  EditorModel& editor = start(configuration);
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(editor.startup.initialProjectResolved.get());
  EXPECT_EQ(editor.scope.scenePath(), "scenes/main.usda");
  EXPECT_TRUE(sent("/api/stage").empty()) << "the resolution only confirmed what was asked for";

  // The same launch against a server that names the project's folder loads the resolved scene.
  answer("/api/projects", httpResponse(200, projectsBody()));
  answer("/api/stage", httpResponse(200, stageBody(1, "Two")));
  configuration.projectId = "proj-2";
  start(configuration);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(sent("/api/stage").size(), 1u);
}

TEST_F(HostedProjectFlowTest, OnlyTheNewestStartupAttemptIsApplied) {
  EditorModel& editor = start(onServer());
  editor.startInitialRefresh();
  // The first attempt's list arrives after the second began: it is stale.
  ASSERT_EQ(http_.pending().size(), 1u) << "the second attempt replaced the first request";
  http_.completeNext(httpResponse(200, R"({"root":"/srv","current":"","projects":[]})"));
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(editor.startup.initialProjectResolved.get());
  EXPECT_TRUE(editor.projects.showProjectBrowser.get())
      << "no project with a scene: the browser opens";
  EXPECT_FALSE(editor.startup.connectionIssue.get().has_value());
}

TEST_F(HostedProjectFlowTest, ARefusedSessionIsForgottenAndSignInIsAsked) {
  VelkSessionTokenStore::save(secrets_, "old-token", kServer);
  answer("/api/me", httpResponse(200, R"({"authEnabled":true,"authenticated":true,)"
                                      R"("user":{"id":"u-9","displayName":" Ada "}})"));
  answer("/api/stage",
         httpResponse(401, R"({"accepted":false,"code":"session_expired","message":"expired"})"));
  answer("/api/workspaces", httpResponse(200, "{}"));
  EditorModel& editor = start(completeScope());
  EXPECT_EQ(http_.requests().front().header("Authorization"), "Bearer old-token");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(editor.identity.userName.get(), "Ada") << "the account's name, from the profile check";
  EXPECT_EQ(editor.status.get(), "Sign in to continue.");
  EXPECT_TRUE(editor.server.velkSessionToken.empty());
  EXPECT_EQ(VelkSessionTokenStore::load(secrets_, kServer), "");
  EXPECT_TRUE(editor.startup.initialProjectNeedsSignIn);
  EXPECT_TRUE(editor.isStartupBlocking());
  ASSERT_TRUE(editor.startup.connectionIssue.get().has_value());
  EXPECT_EQ(editor.startup.connectionIssue.get()->primaryAction, VelkConnectionAction::login);

  // A refusal that belongs to an older session than the present one changes nothing.
  editor.server.velkSessionToken = "new-token";
  editor.account.requireVelkSignIn(std::string("old-token"));
  EXPECT_EQ(editor.server.velkSessionToken, "new-token");
}

TEST_F(HostedProjectFlowTest, StageFailuresKeepTheStageAndClassifyTheAnswer) {
  answer("/api/stage", httpResponse(200, stageBody(3, "World")));
  answer("/api/workspaces", httpResponse(200, "{}"));
  EditorModel& editor = start(completeScope());
  scheduler_.runUntilQuiet();
  ASSERT_EQ(rootNames(), (std::vector<std::string>{"World"}));

  struct Case {
    HttpResponse response;
    std::string message;
  };
  const std::vector<Case> cases = {
      {httpResponse(500, "<html>oops</html>"), "Velk hit a server problem"},
      {httpResponse(200, R"({"accepted":false,"code":"project_not_found"})"),
       "That project is unavailable"},
      {httpResponse(200, R"({"revision":"not a number"})"), "Velk could not complete that request"},
  };
  for (const Case& failure : cases) {
    SCOPED_TRACE(failure.message);
    answer("/api/stage", failure.response);
    editor.stageRefresher.refresh();
    scheduler_.runUntilQuiet();
    EXPECT_THAT(editor.status.get(), HasSubstr("Refresh failed: "));
    ASSERT_TRUE(editor.startup.connectionIssue.get().has_value());
    EXPECT_THAT(editor.startup.connectionIssue.get()->title + " " +
                    editor.startup.connectionIssue.get()->message,
                HasSubstr(failure.message));
    EXPECT_EQ(rootNames(), (std::vector<std::string>{"World"}));
    EXPECT_FALSE(editor.isStartupBlocking()) << "once the project answered, a failure is a banner";
  }

  // An answer cut off at its size limit is the server's problem, said as such.
  http_.script(FakeHttpClient::urlContains("/api/stage"),
               Error::transport(Error::kTransportResponseTooLarge,
                                "the answer exceeded its limit of 536870912 bytes"));
  editor.stageRefresher.refresh();
  scheduler_.runUntilQuiet();
  ASSERT_TRUE(editor.startup.connectionIssue.get().has_value());
  EXPECT_EQ(editor.startup.connectionIssue.get()->code, "server_error");
  EXPECT_EQ(editor.status.get(),
            "Refresh failed: " + editor.startup.connectionIssue.get()->message);
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"World"}));

  // A transport failure, then a cancelled refresh: the second says nothing.
  http_.script(FakeHttpClient::urlContains("/api/stage"),
               Error::transport(Error::kTransportCannotConnect, "refused"));
  editor.stageRefresher.refresh();
  scheduler_.runUntilQuiet();
  EXPECT_EQ(editor.startup.connectionIssue.get()->code, "network_unavailable");
  editor.dismissConnectionIssue();
  editor.stageRefresher.refresh();
  editor.stageRefresher.refresh();
  scheduler_.runUntilQuiet();
  EXPECT_FALSE(editor.startup.connectionIssue.get().has_value())
      << "the replaced request was cancelled quietly";
}

TEST_F(HostedProjectFlowTest, AStageOlderThanTheHeldRevisionIsRefusedEightTimesInARow) {
  EditorConfiguration configuration = completeScope();
  configuration.revision = 10;
  answer("/api/workspaces", httpResponse(200, "{}"));
  for (int attempt = 0; attempt < 9; ++attempt) {
    answer("/api/stage", httpResponse(200, stageBody(9, "Old" + std::to_string(attempt))));
  }
  EditorModel& editor = start(configuration);
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(rootNames().empty()) << "an older stage is not shown";
  EXPECT_EQ(editor.stageRefresher.staleStageRefreshRetries, 1u);
  wait(std::chrono::milliseconds(249));
  EXPECT_EQ(sent("/api/stage").size(), 1u) << "the retry waits a quarter second";
  for (int retry = 0; retry < 8; ++retry) {
    wait(std::chrono::milliseconds(250));
  }
  EXPECT_EQ(sent("/api/stage").size(), 9u);
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"Old8"})) << "the ninth is taken as it is";
  EXPECT_EQ(editor.revision.get(), 9u);
  EXPECT_EQ(editor.stageRefresher.staleStageRefreshRetries, 0u);
}

TEST(ConnectionFailureTest, WhichAnswersAreFailures) {
  EXPECT_FALSE(connectionFailure(httpResponse(304)).has_value()) << "a 304 is never a failure";
  EXPECT_FALSE(connectionFailure(httpResponse(200, R"({"accepted":false})")).has_value());
  EXPECT_FALSE(connectionFailure(httpResponse(204, "not json")).has_value());
  const auto refused = connectionFailure(httpResponse(
      200, R"({"accepted":false,"code":"project_not_found","project":{"name":"Demo"}})"));
  ASSERT_TRUE(refused.has_value());
  EXPECT_EQ(refused->issue.code, "project_not_found");
  ASSERT_TRUE(refused->issue.project.has_value());
  const auto serverError = connectionFailure(httpResponse(500, "<html>"));
  ASSERT_TRUE(serverError.has_value());
  EXPECT_EQ(serverError->issue.kind, 7);
  EXPECT_EQ(serverError->issue.diagnostic, "HTTP 500");
  EXPECT_TRUE(isUnauthorizedError(RequestFailure(httpError(401, "no"))));
  EXPECT_FALSE(isUnauthorizedError(RequestFailure(httpError(403, "no"))));
}

TEST(ResponseCacheTest, LeastRecentlyUsedByAccessAndScopesThatDiffer) {
  AccessOrderedCache<CachedRemoteStage> cache(kRemoteStageCacheLimit);
  auto key = [](int index) { return "scope-" + std::to_string(index); };
  for (int index = 0; index < 16; ++index)
    cache.remember(key(index), {});
  ASSERT_NE(cache.find(key(0)), nullptr);  // a look-up protects the oldest entry
  cache.remember(key(16), {});
  EXPECT_EQ(cache.size(), 16u);
  EXPECT_NE(cache.find(key(0)), nullptr);
  EXPECT_EQ(cache.find(key(1)), nullptr) << "the least recently used went";

  SharedClientScope scope{"s", "p", "/root", "scene.usda", "", ""};
  SharedClientScope main = scope;
  main.workspace = "main";
  EXPECT_EQ(remoteStageCacheKey(scope), remoteStageCacheKey(main));
  SharedClientScope layered = scope;
  layered.activeLayer = "lights.usda";
  EXPECT_NE(remoteStageCacheKey(scope), remoteStageCacheKey(layered));
}

}  // namespace
}  // namespace orvan::editor
