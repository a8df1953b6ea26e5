#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>

#include "Intelligence/AgentPromptError.h"
#include "Intelligence/VelkAgentAuthoringScope.h"
#include "Platform/HttpClient.h"
#include "orvan/wire/Error.h"
#include "orvan/wire/JsonFields.h"

// The prompt bar's exchanges with the project server: the change receipt that tells whether an
// agent's work landed, and the cancel and undo of commands the server runs.
namespace orvan::editor {

// Where the server applied a change.
struct VelkChangeResultLocation {
  std::string projectId;
  std::string workspaceId;
  std::string sceneId;

  bool operator==(const VelkChangeResultLocation&) const = default;
  static auto jsonFields() {
    using T = VelkChangeResultLocation;
    return std::tuple{json::required("projectId", &T::projectId),
                      json::required("workspaceId", &T::workspaceId),
                      json::required("sceneId", &T::sceneId)};
  }
};

// The server's record of the newest validated change in a scope.
struct VelkChangeReceipt {
  VelkChangeResultLocation resultLocation;
  bool accepted = false;
  std::optional<std::string> jobId;
  std::optional<std::string> message;

  bool operator==(const VelkChangeReceipt&) const = default;
  static auto jsonFields() {
    using T = VelkChangeReceipt;
    return std::tuple{json::required("resultLocation", &T::resultLocation),
                      json::required("accepted", &T::accepted), json::optional("jobId", &T::jobId),
                      json::optional("message", &T::message)};
  }
};

// The answer of GET /api/agent/receipt; no receipt when nothing was changed in the scope.
struct VelkChangeReceiptResponse {
  std::optional<VelkChangeReceipt> velkChangeReceipt;

  bool operator==(const VelkChangeReceiptResponse&) const = default;
  static auto jsonFields() {
    using T = VelkChangeReceiptResponse;
    return std::tuple{json::optional("velkChangeReceipt", &T::velkChangeReceipt)};
  }
};

// The answer of a command's cancel or undo.
struct AgentCommandResponse {
  bool accepted = false;
  std::optional<std::string> message;

  bool operator==(const AgentCommandResponse&) const = default;
  static auto jsonFields() {
    using T = AgentCommandResponse;
    return std::tuple{json::required("accepted", &T::accepted),
                      json::optional("message", &T::message)};
  }
};

inline constexpr std::string_view kDefaultReceiptSummary =
    "Velk applied and validated the requested change.";

// GET <serverURL>/api/agent/receipt?p=&w=&s=&clientId=&profileId= (empty items left out), with
// the bearer token when there is one and a 60 second time-out. Nothing when the server URL is no
// URL.
std::optional<HttpRequest> velkChangeReceiptRequest(const VelkAgentAuthoringScope& scope);

// The summary of a receipt that proves the change landed where the run was sent: accepted, and in
// the scope's project, workspace and scene (scenes compared without their "/Scenes/" prefix). Its
// message, or the default summary when the message is blank. Nothing otherwise: a receipt of
// another scene is somebody else's change.
std::optional<std::string> receiptSummary(const VelkChangeReceiptResponse& response,
                                          const VelkAgentAuthoringScope& scope);

// Reads the receipt answer: the summary, or why there is none (for the log).
Result<std::string> readReceiptAnswer(const Result<HttpResponse>& answer,
                                      const VelkAgentAuthoringScope& scope);

// The scope's identifiers as a JSON object, the body of every command request.
std::string scopeBody(const VelkAgentAuthoringScope& scope);

// POST <serverURL><path> with `body`, "Content-Type: application/json" and the bearer token.
std::optional<HttpRequest> postJSON(std::string_view path, const VelkAgentAuthoringScope& scope,
                                    std::string body);

enum class AgentCommandAction { cancel, undo };

// "/api/agent/commands/<commandId percent-encoded>/cancel" (or "/undo"). The identifier is
// encoded as one path segment, so a slash in it can never reach another endpoint.
std::string agentCommandPath(std::string_view commandId, AgentCommandAction action);

// Reads the answer of a command request: 401 is a sign-in, another non-success status the
// server's message or "Velk returned HTTP <status>.", an unreadable success body an invalid
// response and a transport failure a network error.
std::variant<AgentCommandResponse, AgentPromptError> readAgentCommandAnswer(
    const Result<HttpResponse>& answer, bool tokenWasSent);

}  // namespace orvan::editor
