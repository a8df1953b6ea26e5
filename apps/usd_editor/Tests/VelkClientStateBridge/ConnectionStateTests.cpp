#include <gtest/gtest.h>

#include <string>

#include "orvan/client/ConnectionState.h"

namespace orvan::client {
namespace {

using Kind = ConnectionStateKind;

Kind classify(std::int32_t status, const char* code, bool network = false) {
  return classify_connection_state(status, code, network);
}

TEST(ClassifyConnectionStateTest, NetworkFailureWinsOverEverything) {
  EXPECT_EQ(classify(401, "login_required", true), Kind::network_unavailable);
  EXPECT_EQ(classify(0, nullptr, true), Kind::network_unavailable);
  EXPECT_EQ(classify(401, "network_unavailable"), Kind::network_unavailable);
}

TEST(ClassifyConnectionStateTest, StatusAloneWithoutACode) {
  EXPECT_EQ(classify(0, nullptr), Kind::request_failed);
  EXPECT_EQ(classify(401, nullptr), Kind::login_required);
  EXPECT_EQ(classify(403, nullptr), Kind::project_access_denied);
  EXPECT_EQ(classify(404, nullptr), Kind::request_failed) << "only the code says not found";
  EXPECT_EQ(classify(499, nullptr), Kind::request_failed);
  EXPECT_EQ(classify(500, nullptr), Kind::server_error);
  EXPECT_EQ(classify(INT32_MAX, nullptr), Kind::server_error);
  EXPECT_EQ(classify(-500, nullptr), Kind::request_failed);
}

TEST(ClassifyConnectionStateTest, CodesRankAgainstStatusesInAFixedOrder) {
  EXPECT_EQ(classify(401, "project_access_denied"), Kind::login_required);
  EXPECT_EQ(classify(403, "login_required"), Kind::login_required);
  EXPECT_EQ(classify(200, "session_expired"), Kind::login_required);
  EXPECT_EQ(classify(403, "project_context_required"), Kind::project_context_required);
  EXPECT_EQ(classify(503, "scene_load_timeout"), Kind::scene_load_timeout);
  EXPECT_EQ(classify(403, "scene_load_timeout"), Kind::scene_load_timeout);
  EXPECT_EQ(classify(403, "project_not_found"), Kind::project_access_denied);
  EXPECT_EQ(classify(500, "project_not_found"), Kind::project_not_found);
  EXPECT_EQ(classify(500, "invalid_deep_link"), Kind::invalid_link);
  EXPECT_EQ(classify(400, "invalid_link"), Kind::invalid_link);
  EXPECT_EQ(classify(503, "anything"), Kind::server_error);
  EXPECT_EQ(classify(200, "server_error"), Kind::server_error);
  EXPECT_EQ(classify(400, "anything"), Kind::request_failed);
  EXPECT_EQ(classify(400, ""), Kind::request_failed);
  EXPECT_EQ(classify(400, "Project_Not_Found"), Kind::request_failed) << "codes are exact";
}

TEST(ConnectionStateDescriptorTest, OutOfRangeKindsReadAsRequestFailed) {
  for (std::int32_t kind : {-1, 12, 99, INT32_MIN, INT32_MAX}) {
    EXPECT_STREQ(connection_state_descriptor(kind).title, "Velk could not complete that request");
    EXPECT_EQ(connection_state_descriptor(kind).kind, Kind::request_failed);
  }
}

TEST(ConnectionStateDescriptorTest, ClassifiedRowsAreActionableAndPresentationRowsAreQuiet) {
  for (const ConnectionStateDescriptor& row : kDescriptors) {
    const bool presentationOnly =
        row.kind == Kind::idle || row.kind == Kind::connecting || row.kind == Kind::connected;
    if (presentationOnly) {
      EXPECT_EQ(row.primary_action, ConnectionStateAction::none);
      EXPECT_FALSE(row.blocks_project);
      continue;
    }
    EXPECT_STRNE(row.title, "") << row.code;
    EXPECT_STRNE(row.message, "") << row.code;
    // A labelled button always has an action and an action always has a label, except for the
    // invalid link, which offers nothing to press.
    EXPECT_EQ(std::string(row.primary_label).empty(),
              row.primary_action == ConnectionStateAction::none)
        << row.code;
    EXPECT_EQ(std::string(row.secondary_label).empty(),
              row.secondary_action == ConnectionStateAction::none)
        << row.code;
    EXPECT_TRUE(row.retryable || row.blocks_project) << row.code << " would never be shown";
  }
}

}  // namespace
}  // namespace orvan::client
