#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include "orvan/wire/JsonFields.h"

// The project server's answers about the signed-in account and what it starts on its behalf:
// the account itself, a session handed to an external code editor, and agent commands.
namespace orvan::editor {

struct VelkMeUser {
  std::string id = {};
  std::optional<std::string> email = {};
  std::optional<std::string> displayName = {};
  std::optional<std::string> color = {};

  bool operator==(const VelkMeUser&) const = default;
  static auto jsonFields() {
    using T = VelkMeUser;
    return std::tuple{json::required("id", &T::id), json::optional("email", &T::email),
                      json::optional("displayName", &T::displayName),
                      json::optional("color", &T::color)};
  }
};

// Who is signed in, and whether the server asks for sign-in at all.
struct VelkMeResponse {
  std::optional<bool> accepted = {};
  std::optional<bool> authenticated = {};
  std::optional<bool> authEnabled = {};
  std::optional<bool> allowed = {};
  std::optional<VelkMeUser> user = {};
  std::optional<std::string> message = {};

  bool operator==(const VelkMeResponse&) const = default;
  static auto jsonFields() {
    using T = VelkMeResponse;
    return std::tuple{json::optional("accepted", &T::accepted),
                      json::optional("authenticated", &T::authenticated),
                      json::optional("authEnabled", &T::authEnabled),
                      json::optional("allowed", &T::allowed),
                      json::optional("user", &T::user),
                      json::optional("message", &T::message)};
  }
};

// A short-lived session for editing the project's scripts in an external code editor.
struct VscodeSessionResponse {
  bool accepted = false;
  std::optional<std::uint64_t> revision = {};
  std::optional<std::string> token = {};
  std::optional<std::string> handoffCode = {};
  std::optional<std::int64_t> expiresInSeconds = {};
  std::optional<std::string> projectName = {};
  std::optional<std::string> projectId = {};
  std::optional<std::string> scene = {};
  std::optional<std::string> workspace = {};
  std::optional<std::string> role = {};
  std::optional<bool> canWrite = {};
  std::optional<std::string> message = {};

  bool operator==(const VscodeSessionResponse&) const = default;
  static auto jsonFields() {
    using T = VscodeSessionResponse;
    return std::tuple{json::required("accepted", &T::accepted),
                      json::optional("revision", &T::revision),
                      json::optional("token", &T::token),
                      json::optional("handoffCode", &T::handoffCode),
                      json::optional("expiresInSeconds", &T::expiresInSeconds),
                      json::optional("projectName", &T::projectName),
                      json::optional("projectId", &T::projectId),
                      json::optional("scene", &T::scene),
                      json::optional("workspace", &T::workspace),
                      json::optional("role", &T::role),
                      json::optional("canWrite", &T::canWrite),
                      json::optional("message", &T::message)};
  }
};

// The answer of cancelling or undoing an agent command.
struct VelkAgentMutationResponse {
  bool accepted = false;
  std::optional<std::string> message = {};

  bool operator==(const VelkAgentMutationResponse&) const = default;
  static auto jsonFields() {
    using T = VelkAgentMutationResponse;
    return std::tuple{json::required("accepted", &T::accepted),
                      json::optional("message", &T::message)};
  }
};

}  // namespace orvan::editor
