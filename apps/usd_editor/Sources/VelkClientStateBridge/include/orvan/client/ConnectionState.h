#pragma once

#include <array>
#include <cstdint>

namespace orvan::client {

// The states a connection to the project server can be presented in. Idle, connecting and
// connected exist for presentation only; the classifier never produces them.
enum class ConnectionStateKind : std::int32_t {
  idle = 0,
  connecting = 1,
  connected = 2,
  login_required = 3,
  project_access_denied = 4,
  project_not_found = 5,
  network_unavailable = 6,
  server_error = 7,
  invalid_link = 8,
  request_failed = 9,
  project_context_required = 10,
  scene_load_timeout = 11,
};

// What a state's buttons do; the numbers are shared with every client of the service.
enum class ConnectionStateAction : std::int32_t {
  none = 0,
  login = 1,
  retry = 2,
  request_access = 3,
  choose_project = 4,
};

// One row of the state table. Texts are static; an empty text means there is none.
struct ConnectionStateDescriptor {
  ConnectionStateKind kind;
  ConnectionStateAction primary_action;
  ConnectionStateAction secondary_action;
  const char* code;
  const char* icon;
  const char* title;
  const char* message;
  const char* primary_label;
  const char* secondary_label;
  bool retryable;
  bool blocks_project;
};

extern const std::array<ConnectionStateDescriptor, 12> kDescriptors;

// The state a failure is shown as, from its HTTP status, the server's error code (nullable) and
// whether the network itself failed. Every input maps to a row; request_failed catches the rest.
ConnectionStateKind classify_connection_state(std::int32_t status_code, const char* code,
                                              bool network_error);

// The row of `kind`; a number outside the table reads as request_failed.
const ConnectionStateDescriptor& connection_state_descriptor(std::int32_t kind);

}  // namespace orvan::client
