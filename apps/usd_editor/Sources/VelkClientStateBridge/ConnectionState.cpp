#include "orvan/client/ConnectionState.h"

#include <string_view>

namespace orvan::client {

namespace {
using Kind = ConnectionStateKind;
using Action = ConnectionStateAction;
}  // namespace

extern constexpr std::array<ConnectionStateDescriptor, 12> kDescriptors = {{
    {Kind::idle, Action::none, Action::none, "", "circle", "", "", "", "", false, false},
    {Kind::connecting, Action::none, Action::none, "connecting", "arrow.triangle.2.circlepath",
     "Connecting to Velk", "Your project will appear as soon as the connection is ready.", "", "",
     true, false},
    {Kind::connected, Action::none, Action::none, "connected", "checkmark.circle.fill", "Connected",
     "", "", "", false, false},
    {Kind::login_required, Action::login, Action::none, "login_required", "person.badge.key",
     "Sign in to Velk",
     "Your session may have expired. Sign in again to continue. Your work is still safe.",
     "Sign in", "", false, true},
    {Kind::project_access_denied, Action::request_access, Action::choose_project,
     "project_access_denied", "lock", "You need access to this project",
     "This project has not been shared with your account. Request access or choose another "
     "project.",
     "Request Access", "Choose Another Project", false, true},
    {Kind::project_not_found, Action::choose_project, Action::none, "project_not_found", "folder",
     "That project is unavailable",
     "It may have been moved or deleted. Choose another project to continue.",
     "Choose Another Project", "", false, true},
    {Kind::network_unavailable, Action::retry, Action::none, "network_unavailable",
     "wifi.exclamationmark", "Velk could not connect",
     "Check your connection, then try again. No project data was changed.", "Retry", "", true,
     true},
    {Kind::server_error, Action::retry, Action::none, "server_error", "exclamationmark.triangle",
     "Velk hit a server problem", "Your project was not changed. Try again in a moment.", "Retry",
     "", true, true},
    {Kind::invalid_link, Action::none, Action::none, "invalid_link", "link.badge.plus",
     "That Velk link is not valid",
     "Ask the project owner for a new link, then try opening it again.", "", "", false, true},
    {Kind::request_failed, Action::retry, Action::none, "request_failed",
     "exclamationmark.triangle", "Velk could not complete that request",
     "Nothing was changed. Try again, or return to your projects.", "Retry", "", true, false},
    {Kind::project_context_required, Action::choose_project, Action::none,
     "project_context_required", "folder", "Choose a project",
     "Select one of your Velk projects to continue.", "Choose Project", "", false, true},
    {Kind::scene_load_timeout, Action::retry, Action::choose_project, "scene_load_timeout",
     "clock.badge.exclamationmark", "This scene is taking too long to open",
     "Velk reached the project, but the scene data did not arrive. Retry now or choose another "
     "project.",
     "Retry", "Choose Another Project", true, true},
}};

namespace {

// Rows must sit at the index of their kind, since lookups index the table directly.
constexpr bool rows_are_indexed_by_kind() {
  for (std::size_t i = 0; i < kDescriptors.size(); ++i) {
    if (static_cast<std::size_t>(kDescriptors[i].kind) != i)
      return false;
  }
  return true;
}
static_assert(rows_are_indexed_by_kind());

// A server code overrides a status, except that an expired session outranks everything but a
// dead network: the user can't do anything else before signing in again.
Kind classify_with_code(std::int32_t status_code, std::string_view code) {
  if (code == "network_unavailable")
    return Kind::network_unavailable;
  if (status_code == 401 || code == "login_required" || code == "session_expired") {
    return Kind::login_required;
  }
  if (code == "project_context_required")
    return Kind::project_context_required;
  if (code == "scene_load_timeout")
    return Kind::scene_load_timeout;
  if (status_code == 403 || code == "project_access_denied")
    return Kind::project_access_denied;
  if (code == "project_not_found")
    return Kind::project_not_found;
  if (code == "invalid_link" || code == "invalid_deep_link")
    return Kind::invalid_link;
  if (status_code >= 500 || code == "server_error")
    return Kind::server_error;
  return Kind::request_failed;
}

Kind classify_status(std::int32_t status_code) {
  if (status_code == 401)
    return Kind::login_required;
  if (status_code == 403)
    return Kind::project_access_denied;
  if (status_code >= 500)
    return Kind::server_error;
  return Kind::request_failed;
}

}  // namespace

ConnectionStateKind classify_connection_state(std::int32_t status_code, const char* code,
                                              bool network_error) {
  if (network_error)
    return Kind::network_unavailable;
  if (code != nullptr)
    return classify_with_code(status_code, code);
  return classify_status(status_code);
}

const ConnectionStateDescriptor& connection_state_descriptor(std::int32_t kind) {
  if (kind < 0 || static_cast<std::size_t>(kind) >= kDescriptors.size()) {
    return kDescriptors[static_cast<std::size_t>(Kind::request_failed)];
  }
  return kDescriptors[static_cast<std::size_t>(kind)];
}

}  // namespace orvan::client
