// What the helper answers the editor for each kind of answer the authoring endpoint gives.
#include <gtest/gtest.h>

#include <string>

#include "EditClient/EditReplies.h"
#include "orvan/wire/JsonDecoder.h"

namespace orvan::engine {
namespace {

using editor::EditClientCreatedPrim;
using editor::EditClientResponse;

TEST(EditRepliesTest, RepliesPassOnAndFailuresBecomeRefusalsAtRevisionZero) {
  EXPECT_EQ(
      replyForAnswer(
          200,
          R"({"accepted":true,"revision":42,"message":"Added Cube","createdPrims":[{"path":"/World/Cube","entityId":17}],"extra":1})"),
      (EditClientResponse{true, 42, "Added Cube",
                          std::vector<EditClientCreatedPrim>{{"/World/Cube", 17}}}));
  // A refusal of the server carries the workspace's revision and stays as it is.
  EXPECT_EQ(
      replyForAnswer(200, R"({"accepted":false,"revision":42,"message":"No prim at /World/Gone"})"),
      (EditClientResponse{false, 42, "No prim at /World/Gone", std::nullopt}));

  struct FailureCase {
    long status;
    std::string body;
    std::string message;
  };
  const std::vector<FailureCase> cases = {
      {400, R"({"accepted":false,"code":"bad_request","message":"operations: expected array"})",
       "operations: expected array"},
      {401, R"({"accepted":false,"code":"login_required","message":"Sign in first"})",
       "Sign in first"},
      {404, R"({"accepted":false,"code":"workspace_not_found","message":"No workspace 'w2'"})",
       "No workspace 'w2'"},
      // The envelope under a success status is still a refusal.
      {200, R"({"accepted":false,"code":"bad_request","message":"too many operations"})",
       "too many operations"},
      {413, R"({"accepted":false,"code":"payload_too_large"})",
       "the authoring service refused the edit: payload_too_large (HTTP 413)"},
      {502, "<html>Bad Gateway</html>",
       "the authoring service is unavailable (HTTP 502): <html>Bad Gateway</html>"},
      {200, "", "the authoring service sent no edit reply (HTTP 200)"},
      {200, R"({"accepted":true,"message":"no revision"})",
       R"(the authoring service sent no edit reply (HTTP 200): {"accepted":true,"message":"no revision"})"},
  };
  for (const FailureCase& item : cases) {
    EXPECT_EQ(replyForAnswer(item.status, item.body),
              (EditClientResponse{false, 0, item.message, std::nullopt}))
        << item.status << " " << item.body;
  }
}

TEST(EditRepliesTest, AReplyLineIsOneLineThatFitsTheEditorsLimit) {
  const std::string line =
      encodeReplyLine(EditClientResponse{false, 3, "two\nlines", std::nullopt});
  EXPECT_EQ(line, R"({"accepted":false,"revision":3,"message":"two\nlines"})");

  // Ten thousand created prims with long paths: the identities are dropped, the acceptance stays.
  std::vector<EditClientCreatedPrim> created;
  for (std::uint64_t index = 0; index < 10000; ++index)
    created.push_back({"/World/" + std::string(120, 'p') + std::to_string(index), index});
  const std::string big =
      encodeReplyLine(EditClientResponse{true, 9, "Added 10000 prims", created});
  ASSERT_LE(big.size(), kMaxReplyLineBytes);
  const auto decoded = editor::decodeJson<EditClientResponse>(big);
  ASSERT_TRUE(decoded.ok()) << decoded.error().description;
  EXPECT_TRUE(decoded->accepted);
  EXPECT_EQ(decoded->revision, 9u);
  EXPECT_FALSE(decoded->createdPrims);
  EXPECT_NE(decoded->message.find("10000 created prims are left out"), std::string::npos);

  // A reply that fits keeps its prims; a huge message is cut before anything else goes.
  const std::string small = encodeReplyLine(EditClientResponse{
      true, 9, std::string(2'000'000, 'm'), std::vector<EditClientCreatedPrim>{{"/World/A", 1}}});
  ASSERT_LE(small.size(), kMaxReplyLineBytes);
  const auto cut = editor::decodeJson<EditClientResponse>(small);
  ASSERT_TRUE(cut.ok());
  EXPECT_EQ(cut->createdPrims, (std::vector<EditClientCreatedPrim>{{"/World/A", 1}}));
  EXPECT_LT(cut->message.size(), 5000u);
}

}  // namespace
}  // namespace orvan::engine
