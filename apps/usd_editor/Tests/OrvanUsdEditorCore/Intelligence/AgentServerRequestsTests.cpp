#include "Intelligence/AgentServerRequests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/FakeHttpClient.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::httpResponse;

VelkAgentAuthoringScope scope() {
  VelkAgentAuthoringScope scope;
  scope.serverURL = "https://velk.example:8443/ignored/path?x=1";
  scope.authToken = "  secret \n";
  scope.profileId = "user-1";
  scope.clientId = "client-9";
  scope.projectId = "proj-7";
  scope.workspaceId = "ws main";
  scope.scenePath = "/Scenes/Arena.usda";
  scope.activeLayerId = "layer-2";
  return scope;
}

std::string receiptBody(std::string_view projectId, std::string_view workspaceId,
                        std::string_view sceneId, std::string_view extra = "") {
  return R"({"velkChangeReceipt":{"resultLocation":{"projectId":")" + std::string(projectId) +
         R"(","workspaceId":")" + std::string(workspaceId) + R"(","sceneId":")" +
         std::string(sceneId) + R"("},"jobId":"job-3")" + std::string(extra) + "}}";
}

TEST(VelkChangeReceiptRequestTest, AsksForTheScopeWithTheTokenAndTheUsualTimeout) {
  const auto request = velkChangeReceiptRequest(scope());
  ASSERT_TRUE(request);
  EXPECT_EQ(request->method, "GET");
  const auto url = URLComponents::parse(request->url);
  ASSERT_TRUE(url);
  EXPECT_EQ(url->host, "velk.example");
  EXPECT_EQ(url->path, "/api/agent/receipt");
  EXPECT_THAT(url->queryItems,
              ElementsAre(URLQueryItem{"p", "proj-7"}, URLQueryItem{"w", "ws main"},
                          URLQueryItem{"s", "Arena.usda"}, URLQueryItem{"clientId", "client-9"},
                          URLQueryItem{"profileId", "user-1"}));
  EXPECT_EQ(request->header("Authorization"), "Bearer secret");
  EXPECT_EQ(request->timeout, std::chrono::seconds(60));

  VelkAgentAuthoringScope anonymous = scope();
  anonymous.authToken = " ";
  anonymous.clientId.clear();
  const auto bare = velkChangeReceiptRequest(anonymous);
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->header("Authorization"), std::nullopt);
  EXPECT_THAT(bare->url, ::testing::Not(HasSubstr("clientId")));

  anonymous.serverURL = "not a url";
  EXPECT_EQ(velkChangeReceiptRequest(anonymous), std::nullopt);
}

TEST(VelkChangeReceiptTest, OnlyAnAcceptedReceiptOfTheSameSceneCounts) {
  const auto read = [](int status, std::string body) {
    return readReceiptAnswer(httpResponse(status, std::move(body)), scope());
  };
  const auto matching = read(200, receiptBody("proj-7", "ws main", "Scenes/Arena.usda",
                                              R"(,"accepted":true,"message":" Crate is red. ")"));
  ASSERT_TRUE(matching) << matching.error().description;
  EXPECT_EQ(*matching, "Crate is red.");
  const auto silent =
      read(200, receiptBody("proj-7", "ws main", "Arena.usda", R"(,"accepted":true)"));
  ASSERT_TRUE(silent);
  EXPECT_EQ(*silent, kDefaultReceiptSummary);

  struct Case {
    const char* name;
    int status;
    std::string body;
  };
  const Case refused[] = {
      {"another scene", 200,
       receiptBody("proj-7", "ws main", "/Scenes/Lobby.usda", R"(,"accepted":true)")},
      {"another workspace", 200,
       receiptBody("proj-7", "ws other", "Arena.usda", R"(,"accepted":true)")},
      {"another project", 200,
       receiptBody("proj-8", "ws main", "Arena.usda", R"(,"accepted":true)")},
      {"not accepted", 200, receiptBody("proj-7", "ws main", "Arena.usda", R"(,"accepted":false)")},
      {"accepted missing", 200, receiptBody("proj-7", "ws main", "Arena.usda")},
      {"no receipt", 200, R"({"velkChangeReceipt":null})"},
      {"not json", 200, "<html>"},
      {"server error", 500, receiptBody("proj-7", "ws main", "Arena.usda", R"(,"accepted":true)")},
  };
  for (const Case& item : refused) {
    SCOPED_TRACE(item.name);
    EXPECT_FALSE(read(item.status, item.body));
  }
  EXPECT_FALSE(readReceiptAnswer(Error::transport(Error::kTransportTimedOut, "slow"), scope()));
}

TEST(AgentCommandRequestTest, PostsTheScopeToTheEncodedCommandPath) {
  EXPECT_EQ(agentCommandPath("cmd/1 ?", AgentCommandAction::cancel),
            "/api/agent/commands/cmd%2F1%20%3F/cancel");
  EXPECT_EQ(agentCommandPath("c-9_x.y~", AgentCommandAction::undo),
            "/api/agent/commands/c-9_x.y~/undo");

  const auto request =
      postJSON(agentCommandPath("a/b", AgentCommandAction::undo), scope(), scopeBody(scope()));
  ASSERT_TRUE(request);
  EXPECT_EQ(request->method, "POST");
  EXPECT_EQ(request->url, "https://velk.example:8443/api/agent/commands/a%2Fb/undo");
  EXPECT_EQ(request->header("Content-Type"), "application/json");
  EXPECT_EQ(request->header("Authorization"), "Bearer secret");
  EXPECT_EQ(request->timeout, std::chrono::seconds(60));

  const auto body = decodeJson<JsonValue>(std::get<std::string>(request->body));
  ASSERT_TRUE(body);
  for (const auto& [key, value] :
       {std::pair{"projectId", "proj-7"}, std::pair{"workspaceId", "ws main"},
        std::pair{"scenePath", "/Scenes/Arena.usda"}, std::pair{"activeLayerId", "layer-2"},
        std::pair{"clientId", "client-9"}, std::pair{"profileId", "user-1"}}) {
    const JsonValue* member = body->find(key);
    ASSERT_NE(member, nullptr) << key;
    EXPECT_EQ(*member, JsonValue(value)) << key;
  }
  EXPECT_EQ(body->find("authToken"), nullptr) << "the credential travels only in the header";
}

TEST(AgentCommandRequestTest, AnswersBecomeTheRightFailures) {
  using Outcome = std::variant<AgentCommandResponse, AgentPromptError>;
  EXPECT_EQ(readAgentCommandAnswer(httpResponse(200, R"({"accepted":true,"message":"ok"})"), true),
            Outcome(AgentCommandResponse{true, "ok"}));
  EXPECT_EQ(readAgentCommandAnswer(httpResponse(401, "{}"), true),
            Outcome(AgentPromptError::unauthorized(true)));
  EXPECT_EQ(readAgentCommandAnswer(httpResponse(409, R"({"message":"Already finished."})"), true),
            Outcome(AgentPromptError::server("Already finished.")));
  EXPECT_EQ(readAgentCommandAnswer(httpResponse(502, "<html>bad gateway</html>"), false),
            Outcome(AgentPromptError::server("Velk returned HTTP 502.")));
  EXPECT_EQ(readAgentCommandAnswer(httpResponse(200, R"({"message":"no flag"})"), false),
            Outcome(AgentPromptError::invalidResponse()));
  EXPECT_EQ(readAgentCommandAnswer(Error::transport(Error::kTransportCannotConnect, "down"), true),
            Outcome(AgentPromptError::network("down")));
}

}  // namespace
}  // namespace orvan::editor
