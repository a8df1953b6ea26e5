#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "Support/StageBuilders.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/records/AccountRecords.h"
#include "orvan/wire/records/AssetRecords.h"
#include "orvan/wire/records/ErrorEnvelope.h"
#include "orvan/wire/records/HostedProjectRecords.h"
#include "orvan/wire/records/ProjectResponse.h"
#include "orvan/wire/records/WorkspaceRecords.h"

namespace orvan::editor {
namespace {

constexpr std::uint64_t kAllBits = 18446744073709551615ull;

template <class T>
T decoded(const std::string& json) {
  Result<T> result = decodeJson<T>(json);
  EXPECT_TRUE(result.ok()) << (result.ok() ? "" : result.error().description) << "\n" << json;
  return result.ok() ? *result : T{};
}

template <class T>
std::string failureOf(const std::string& json) {
  const Result<T> result = decodeJson<T>(json);
  EXPECT_FALSE(result.ok()) << json;
  return result.ok() ? "" : result.error().description;
}

TEST(ProjectServerRecordsTest, SparseAnswersDecodeWithEveryOptionalFieldAbsent) {
  const auto project = decoded<ProjectResponse>(R"({"label":"Demo","assets":[]})");
  EXPECT_EQ(project, (ProjectResponse{.label = "Demo"}));
  EXPECT_EQ(encodeJson(project), R"({"label":"Demo","assets":[]})")
      << "absent fields are left out, never written as defaults";

  const auto nulls = decoded<ProjectResponse>(
      R"({"id":null,"label":"Demo","workspaces":null,"assetCatalogComplete":null,"assets":[],)"
      R"("somethingNewer":{"x":[1,2]}})");
  EXPECT_EQ(nulls, (ProjectResponse{.label = "Demo"})) << "null and unknown keys read as absent";

  const auto catalogue = decoded<HostedProjectsResponse>(
      R"({"root":"/srv","current":"","projects":[)"
      R"({"name":"Old","path":"/srv/old","scene":"a.usda","current":false}]})");
  ASSERT_EQ(catalogue.projects.size(), 1u);
  EXPECT_FALSE(catalogue.projects[0].id.has_value());
  EXPECT_FALSE(catalogue.projects[0].members.has_value());

  const auto unchanged = decoded<HostedProjectOperationResponse>(
      R"({"accepted":true,"revision":12,"message":"Opened","stageNotModified":true,)"
      R"("stageETag":"\"abc\""})");
  EXPECT_FALSE(unchanged.stageEnvelope.has_value());
  EXPECT_EQ(unchanged.stageNotModified, true);
  EXPECT_EQ(unchanged.stageETag, "\"abc\"");

  EXPECT_EQ(decoded<VelkMeResponse>("{}"), VelkMeResponse{});
  EXPECT_EQ(decoded<AssetPreviewResponse>("{}"), AssetPreviewResponse{});
  EXPECT_EQ(decoded<ProjectWorkspaceCatalogResponse>("{}"), ProjectWorkspaceCatalogResponse{});
  EXPECT_EQ(decoded<WorkspaceCommentsResponse>("{}"), WorkspaceCommentsResponse{});
  EXPECT_EQ(decoded<VelkErrorEnvelope>("{}"), VelkErrorEnvelope{});
}

TEST(ProjectServerRecordsTest, MissingRequiredKeysFailTheWholeRecord) {
  EXPECT_EQ(failureOf<ProjectResponse>(R"({"label":"Demo"})"), "missing required key at assets");
  EXPECT_EQ(failureOf<ProjectResponse>(R"({"label":null,"assets":[]})"),
            "expected string at label");
  EXPECT_EQ(failureOf<HostedProjectOperationResponse>(R"({"accepted":true,"message":"m"})"),
            "missing required key at revision");
  EXPECT_EQ(failureOf<HostedProjectsResponse>(
                R"({"root":"/","current":"","projects":[{"name":"n","path":"p","scene":"s"}]})"),
            "missing required key at projects[0].current");
  EXPECT_EQ(failureOf<VelkMeResponse>(R"({"user":{"email":"a@b"}})"),
            "missing required key at user.id");
  EXPECT_EQ(failureOf<HostedAssetUploadResponse>(R"({"accepted":false,"revision":3})"),
            "missing required key at message");
}

TEST(ProjectServerRecordsTest, AWrongTypeDeepInsideNamesItsExactPath) {
  EXPECT_EQ(
      failureOf<ProjectResponse>(
          R"({"label":"Demo","assets":[],"workspaceComments":[{"id":"c1","author":"ann",)"
          R"("body":"hi"},{"id":"c2","author":"bo","body":"x","runtimeContext":{"tick":"7"}}]})"),
      "expected unsigned integer at workspaceComments[1].runtimeContext.tick");
  EXPECT_EQ(failureOf<ProjectResponse>(
                R"({"label":"Demo","assets":[],"activeSceneClients":)"
                R"({"scenes/a.usda":[{"id":"c","name":"n"},{"id":"d","name":4}]}})"),
            "expected string at activeSceneClients.scenes/a.usda[1].name");
  EXPECT_EQ(failureOf<HostedProjectsResponse>(
                R"({"root":"/","current":"","projects":[{"name":"n","path":"p","scene":"s",)"
                R"("current":true,"members":{"total":1.5}}]})"),
            "expected integer at projects[0].members.total");
}

TEST(ProjectServerRecordsTest, RevisionsAndTicksKeepAllSixtyFourBits) {
  const std::string max = std::to_string(kAllBits);
  const auto history = decoded<WorkspaceRevisionsResponse>(
      R"({"accepted":true,"revision":9223372036854775809,"revisions":[{"key":"k","number":)" + max +
      R"(,"parents":["j"],"author":"a","createdAt":"t","summary":"s",)"
      R"("changedFileCount":3,"current":true}]})");
  EXPECT_EQ(history.revision, 9223372036854775809ull);
  ASSERT_TRUE(history.revisions.has_value());
  EXPECT_EQ(history.revisions->at(0).number, kAllBits);
  EXPECT_NE(encodeJson(history).find(max), std::string::npos);
  EXPECT_EQ(failureOf<WorkspaceRestoreResponse>(
                R"({"accepted":true,"revisionNumber":18446744073709551616})"),
            "integer out of range at revisionNumber");

  const auto comments = decoded<WorkspaceCommentsResponse>(
      R"({"comments":[{"id":"c","author":"a","body":"b","runtimeContext":{"revision":)" + max +
      R"(,"tick":9007199254740993}}]})");
  ASSERT_TRUE(comments.comments.has_value());
  const auto& context = comments.comments->at(0).runtimeContext;
  ASSERT_TRUE(context.has_value());
  EXPECT_EQ(context->revision, kAllBits);
  EXPECT_EQ(context->tick, 9007199254740993ull) << "a tick above 2^53 is not rounded";
}

// Every field of the project answer, in the order the encoder writes them.
constexpr const char* kFullProject =
    R"({"id":"p-1","label":"Démo","path":"/srv/demo","scene":"/srv/demo/Scenes/Main.usda",)"
    R"("sceneRef":"Scenes/Main.usda","mainScene":"Scenes/Main.usda","workspace":"lighting",)"
    R"("workspaces":[{"id":"main","name":"Main","current":false},{"id":"lighting",)"
    R"("name":"Lighting","parentId":"main","headKey":"h2","archived":false,"current":true,)"
    R"("activeClientCount":2,"activeAgents":[{"id":"agent-1","name":"Helper","kind":"agent",)"
    R"("model":"m","prompt":"Add a lamp"}]}],)"
    R"("activeSceneClients":{"Scenes/Main.usda":[{"id":"u1","name":"Ann","color":"#f00"}]},)"
    R"("activeAgents":[{"id":"agent-1","name":"Helper","kind":"agent","model":"m",)"
    R"("prompt":"Add a lamp"}],"profiles":[{"id":"u1","displayName":"Ann","color":"#f00"}],)"
    R"("workspaceComments":[{"id":"c1","author":"ann","body":"Too dark \"here\"\n",)"
    R"("anchorKind":"prim","anchorPath":"/World/Lamp","runtimeContext":{"platform":"web",)"
    R"("tick":99,"attached":false},"resolved":false}],"assetCatalogHeadKey":"head-3",)"
    R"("assetCatalogComplete":true,"assets":[{"path":"Assets/Crate.usda","name":"Crate",)"
    R"("folder":"Assets","kind":"USD","cooked":true,"runtimeAssetId":18446744073709551615,)"
    R"("contentHash":42,"sourceGeneration":"g7"}]})";

TEST(ProjectServerRecordsTest, FullAnswersSurviveDecodingAndEncoding) {
  EXPECT_EQ(encodeJson(decoded<ProjectResponse>(kFullProject)), kFullProject);

  HostedProjectOperationResponse operation{.accepted = true,
                                           .revision = kAllBits,
                                           .message = "Opened workspace",
                                           .projectId = "p-1",
                                           .workspace = "lighting",
                                           .stageNotModified = false,
                                           .stageETag = "W/\"s77\""};
  operation.stageEnvelope =
      RemoteStageResponse{.revision = 77, .stage = testing::makeTreeStage(1, 1, 0)};
  const auto again = decoded<HostedProjectOperationResponse>(encodeJson(operation));
  EXPECT_EQ(again, operation);
  ASSERT_TRUE(again.stageEnvelope.has_value());
  EXPECT_EQ(again.stageEnvelope->stage.prims.size(), 2u);
}

TEST(ProjectServerRecordsTest, ErrorEnvelopeCarriesTheProjectAndTheShortBodyOnlyTheCode) {
  const std::string body =
      R"({"accepted":false,"code":"project_access_denied","message":"No access",)"
      R"("project":{"id":"p-9","name":"Secret","accessible":false,"requestStatus":"pending"}})";
  const auto envelope = decoded<VelkErrorEnvelope>(body);
  EXPECT_EQ(envelope.accepted, false);
  EXPECT_EQ(envelope.code, "project_access_denied");
  ASSERT_TRUE(envelope.project.has_value());
  EXPECT_EQ(envelope.project->requestStatus, "pending");
  EXPECT_EQ(decoded<VelkErrorEnvelope>(encodeJson(envelope)), envelope);

  EXPECT_EQ(decoded<VelkErrorBody>(body).code, "project_access_denied");
  EXPECT_EQ(failureOf<VelkErrorEnvelope>(R"({"project":{"accessible":"no"}})"),
            "expected boolean at project.accessible");
  EXPECT_FALSE(decodeJson<VelkErrorEnvelope>("<html>Bad gateway</html>").ok())
      << "a body that is no JSON is no envelope";
}

}  // namespace
}  // namespace orvan::editor
