#include <gtest/gtest.h>

#include <string>

#include "orvan/client/ConnectionState.h"

namespace orvan::client {
namespace {

using Kind = ConnectionStateKind;

TEST(ClassifyConnectionStateTest, NetworkThenCodesThenStatusesDecide) {
  struct Case {
    std::int32_t status;
    const char* code;
    bool network;
    Kind expected;
  };
  const Case cases[] = {
      {401, "login_required", true, Kind::network_unavailable},
      {401, "network_unavailable", false, Kind::network_unavailable},
      // Without a code only a few statuses mean something.
      {0, nullptr, false, Kind::request_failed},
      {401, nullptr, false, Kind::login_required},
      {403, nullptr, false, Kind::project_access_denied},
      {499, nullptr, false, Kind::request_failed},
      {500, nullptr, false, Kind::server_error},
      // A code outranks the status, except that an expired session outranks most codes.
      {401, "project_access_denied", false, Kind::login_required},
      {200, "session_expired", false, Kind::login_required},
      {403, "project_context_required", false, Kind::project_context_required},
      {403, "scene_load_timeout", false, Kind::scene_load_timeout},
      {403, "project_not_found", false, Kind::project_access_denied},
      {500, "project_not_found", false, Kind::project_not_found},
      {500, "invalid_deep_link", false, Kind::invalid_link},
      {400, "invalid_link", false, Kind::invalid_link},
      {503, "anything", false, Kind::server_error},
      {200, "server_error", false, Kind::server_error},
      {400, "Project_Not_Found", false, Kind::request_failed},  // codes are exact
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.status << " " << (c.code ? c.code : "null"));
    EXPECT_EQ(classify_connection_state(c.status, c.code, c.network), c.expected);
  }
}

TEST(ConnectionStateDescriptorTest, OutOfRangeKindsReadAsRequestFailed) {
  for (std::int32_t kind : {-1, 12, INT32_MAX}) {
    EXPECT_STREQ(connection_state_descriptor(kind).title, "Velk could not complete that request");
  }
}

TEST(ConnectionStateDescriptorTest, ClassifiedRowsAreActionableAndPresentationRowsAreQuiet) {
  for (const ConnectionStateDescriptor& row : kDescriptors) {
    SCOPED_TRACE(row.code);
    if (row.kind == Kind::idle || row.kind == Kind::connecting || row.kind == Kind::connected) {
      EXPECT_EQ(row.primary_action, ConnectionStateAction::none);
      EXPECT_FALSE(row.blocks_project);
      continue;
    }
    EXPECT_STRNE(row.title, "");
    EXPECT_STRNE(row.message, "");
    // A labelled button always has an action and an action always has a label.
    EXPECT_EQ(std::string(row.primary_label).empty(),
              row.primary_action == ConnectionStateAction::none);
    EXPECT_EQ(std::string(row.secondary_label).empty(),
              row.secondary_action == ConnectionStateAction::none);
    EXPECT_TRUE(row.retryable || row.blocks_project) << "would never be shown";
  }
}

}  // namespace
}  // namespace orvan::client
