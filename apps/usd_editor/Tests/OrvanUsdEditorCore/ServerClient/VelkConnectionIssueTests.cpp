#include <gtest/gtest.h>

#include "ServerClient/VelkClientRequestError.h"
#include "ServerClient/VelkConnectionIssue.h"

namespace orvan::editor {
namespace {

VelkConnectionProject namedProject(std::string name, std::optional<std::string> status = {}) {
  return VelkConnectionProject{
      .id = "p1", .name = std::move(name), .accessible = false, .requestStatus = std::move(status)};
}

TEST(VelkConnectionIssueTest, CarriesTheWholeRowOfItsState) {
  const VelkConnectionIssue issue =
      VelkConnectionIssue::classify(503, "scene_load_timeout", false, std::nullopt, "HTTP 503");
  EXPECT_EQ(issue.kind, 11);
  EXPECT_EQ(issue.code, "scene_load_timeout");
  EXPECT_EQ(issue.icon, "clock.badge.exclamationmark");
  EXPECT_EQ(issue.title, "This scene is taking too long to open");
  EXPECT_EQ(issue.primaryLabel, "Retry");
  EXPECT_EQ(issue.primaryAction, VelkConnectionAction::retry);
  EXPECT_EQ(issue.secondaryLabel, "Choose Another Project");
  EXPECT_EQ(issue.secondaryAction, VelkConnectionAction::chooseProject);
  EXPECT_TRUE(issue.retryable);
  EXPECT_TRUE(issue.blocksProject);
  EXPECT_EQ(issue.diagnostic, "HTTP 503");
}

TEST(VelkConnectionIssueTest, ShowsTheStateRatherThanTheCodeThatCameIn) {
  const VelkConnectionIssue expired =
      VelkConnectionIssue::classify(200, "session_expired", false, std::nullopt, "");
  EXPECT_EQ(expired.code, "login_required");
  EXPECT_EQ(expired.primaryAction, VelkConnectionAction::login);
}

TEST(VelkConnectionIssueTest, NamesTheProjectThatNeedsPermission) {
  const VelkConnectionIssue issue =
      VelkConnectionIssue::classify(403, std::nullopt, false, namedProject("  Demo \n"), "");
  EXPECT_EQ(issue.title, "Demo needs permission");
  EXPECT_EQ(issue.primaryAction, VelkConnectionAction::requestAccess);
  EXPECT_EQ(issue.primaryLabel, "Request Access");
  ASSERT_TRUE(issue.project.has_value());
  EXPECT_EQ(issue.project->name, "  Demo \n") << "the project is stored as it came";

  for (const char* blank : {" \t\n", "\u00A0\u3000"}) {
    const VelkConnectionIssue issue =
        VelkConnectionIssue::classify(403, std::nullopt, false, namedProject(blank), "");
    EXPECT_EQ(issue.title, "You need access to this project");
  }
}

TEST(VelkConnectionIssueTest, APendingRequestLeavesNothingToRequest) {
  const VelkConnectionIssue pending = VelkConnectionIssue::classify(
      403, "project_access_denied", false, namedProject("Demo", "pending"), "");
  EXPECT_EQ(pending.primaryAction, VelkConnectionAction::none);
  EXPECT_EQ(pending.primaryLabel, "Access Requested");
  EXPECT_EQ(pending.message,
            "Your access request is pending. Choose another project while you wait for the owner "
            "to approve it.");
  EXPECT_EQ(pending.secondaryAction, VelkConnectionAction::chooseProject);

  const VelkConnectionIssue declined =
      VelkConnectionIssue::classify(403, std::nullopt, false, namedProject("Demo", "Pending"), "");
  EXPECT_EQ(declined.primaryAction, VelkConnectionAction::requestAccess);
}

TEST(VelkConnectionIssueTest, ProjectDetailsOnlyMatterForAccessRequests) {
  const VelkConnectionIssue notFound = VelkConnectionIssue::classify(
      404, "project_not_found", false, namedProject("Demo", "pending"), "gone");
  EXPECT_EQ(notFound.title, "That project is unavailable");
  EXPECT_EQ(notFound.primaryLabel, "Choose Another Project");
  EXPECT_EQ(notFound.primaryAction, VelkConnectionAction::chooseProject);
  EXPECT_EQ(notFound.project, namedProject("Demo", "pending"));
  EXPECT_EQ(notFound.diagnostic, "gone");
}

TEST(VelkConnectionIssueFromErrorTest, TransportFailuresAreTheNetworkAndOthersFailedRequests) {
  const VelkConnectionIssue offline = velkConnectionIssue(
      Error::transport(Error::kTransportCannotConnect, "Couldn't connect to server"));
  EXPECT_EQ(offline.code, "network_unavailable");
  EXPECT_EQ(offline.primaryAction, VelkConnectionAction::retry);
  EXPECT_EQ(offline.diagnostic, "Couldn't connect to server");
  // An answer beyond its size limit came through a working connection: the server is at fault.
  const VelkConnectionIssue oversized = velkConnectionIssue(Error::transport(
      Error::kTransportResponseTooLarge, "the answer exceeded its limit of 16 bytes"));
  EXPECT_EQ(oversized.code, "server_error");
  EXPECT_EQ(oversized.title, "Velk hit a server problem");
  EXPECT_TRUE(oversized.retryable);
  EXPECT_EQ(oversized.diagnostic, "the answer exceeded its limit of 16 bytes");
  for (const Error& error : {Error::http(401, "HTTP 401"), Error::editor(2, "helper exited")}) {
    const VelkConnectionIssue issue = velkConnectionIssue(error);
    EXPECT_EQ(issue.code, "request_failed") << error.description;
    EXPECT_EQ(issue.diagnostic, error.description);
  }

  // A failure classified already keeps its issue.
  const VelkClientRequestError classified{VelkConnectionIssue::classify(
      403, "project_access_denied", false, namedProject("Demo"), "refused")};
  EXPECT_EQ(classified.description(), classified.issue.message);
  EXPECT_EQ(velkConnectionIssue(classified), classified.issue);
}

}  // namespace
}  // namespace orvan::editor
