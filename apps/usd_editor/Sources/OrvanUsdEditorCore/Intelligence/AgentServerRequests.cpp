#include "Intelligence/AgentServerRequests.h"

#include <chrono>

#include <fmt/format.h>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor {
namespace {

constexpr Duration kRequestTimeout = std::chrono::seconds(60);

// The part of a refusal that the bar can show.
struct ServerMessageBody {
  std::optional<std::string> message;

  static auto jsonFields() {
    return std::tuple{json::optional("message", &ServerMessageBody::message)};
  }
};

void authorize(HttpRequest& request, const VelkAgentAuthoringScope& scope) {
  const std::string token = trimmed(scope.authToken);
  if (!token.empty())
    request.setHeader("Authorization", "Bearer " + token);
}

// The server's origin without a trailing slash, so that an absolute path can follow it.
std::optional<std::string> serverOrigin(std::string_view serverURL) {
  auto components = URLComponents::parse(trimmed(serverURL));
  if (!components)
    return std::nullopt;
  components->path = "/";
  components->queryItems.clear();
  components->fragment.reset();
  auto built = components->build();
  if (!built)
    return std::nullopt;
  while (!built->empty() && built->back() == '/')
    built->pop_back();
  return built;
}

std::string nonSuccessText(const HttpResponse& response) {
  auto body = decodeJson<ServerMessageBody>(response.body);
  if (body && body->message && !isBlank(*body->message))
    return *body->message;
  return fmt::format("Velk returned HTTP {}.", response.statusCode);
}

bool isSuccess(int statusCode) {
  return statusCode >= 200 && statusCode < 300;
}

bool sameLocation(const VelkChangeResultLocation& location, const VelkAgentAuthoringScope& scope) {
  return location.projectId == scope.projectId && location.workspaceId == scope.workspaceId &&
         agentSceneIdentifier(location.sceneId) == agentSceneIdentifier(scope.scenePath);
}

}  // namespace

std::optional<HttpRequest> velkChangeReceiptRequest(const VelkAgentAuthoringScope& scope) {
  auto components = URLComponents::parse(trimmed(scope.serverURL));
  if (!components)
    return std::nullopt;
  components->path = "/api/agent/receipt";
  components->queryItems.clear();
  components->fragment.reset();
  const std::pair<std::string_view, std::string> items[] = {
      {"p", scope.projectId},
      {"w", scope.workspaceId},
      {"s", agentSceneIdentifier(scope.scenePath)},
      {"clientId", scope.clientId},
      {"profileId", scope.profileId},
  };
  for (const auto& [name, value] : items) {
    if (!value.empty())
      components->queryItems.push_back({std::string(name), value});
  }
  auto url = components->build();
  if (!url)
    return std::nullopt;
  HttpRequest request;
  request.url = std::move(*url);
  request.timeout = kRequestTimeout;
  authorize(request, scope);
  return request;
}

std::optional<std::string> receiptSummary(const VelkChangeReceiptResponse& response,
                                          const VelkAgentAuthoringScope& scope) {
  const auto& receipt = response.velkChangeReceipt;
  if (!receipt || !receipt->accepted || !sameLocation(receipt->resultLocation, scope))
    return std::nullopt;
  if (receipt->message && !isBlank(*receipt->message))
    return trimmed(*receipt->message);
  return std::string(kDefaultReceiptSummary);
}

Result<std::string> readReceiptAnswer(const Result<HttpResponse>& answer,
                                      const VelkAgentAuthoringScope& scope) {
  if (!answer)
    return answer.error();
  if (!isSuccess(answer->statusCode))
    return Error::http(answer->statusCode, nonSuccessText(*answer));
  auto decoded = decodeJson<VelkChangeReceiptResponse>(answer->body, "receipt");
  if (!decoded)
    return decoded.error();
  if (!decoded->velkChangeReceipt)
    return Error::editor(0, "the server has no change receipt for this scope");
  const VelkChangeReceipt& receipt = *decoded->velkChangeReceipt;
  if (!receipt.accepted)
    return Error::editor(0, "the newest change receipt was not accepted");
  auto summary = receiptSummary(*decoded, scope);
  if (!summary) {
    const auto& location = receipt.resultLocation;
    return Error::editor(0,
                         fmt::format("the newest change receipt is for project {} workspace {} "
                                     "scene {}",
                                     location.projectId, location.workspaceId, location.sceneId));
  }
  return std::move(*summary);
}

std::string scopeBody(const VelkAgentAuthoringScope& scope) {
  std::string body = "{";
  const std::pair<std::string_view, const std::string*> fields[] = {
      {"projectId", &scope.projectId}, {"workspaceId", &scope.workspaceId},
      {"scenePath", &scope.scenePath}, {"activeLayerId", &scope.activeLayerId},
      {"clientId", &scope.clientId},   {"profileId", &scope.profileId},
  };
  bool first = true;
  for (const auto& [key, value] : fields) {
    if (!first)
      body += ',';
    first = false;
    appendJsonString(body, key);
    body += ':';
    appendJsonString(body, *value);
  }
  body += '}';
  return body;
}

std::optional<HttpRequest> postJSON(std::string_view path, const VelkAgentAuthoringScope& scope,
                                    std::string body) {
  auto origin = serverOrigin(scope.serverURL);
  if (!origin)
    return std::nullopt;
  HttpRequest request;
  request.method = "POST";
  request.url = *origin + std::string(path);
  request.timeout = kRequestTimeout;
  request.setHeader("Content-Type", "application/json");
  authorize(request, scope);
  request.body = std::move(body);
  return request;
}

std::string agentCommandPath(std::string_view commandId, AgentCommandAction action) {
  return "/api/agent/commands/" + percentEncoded(commandId) +
         (action == AgentCommandAction::cancel ? "/cancel" : "/undo");
}

std::variant<AgentCommandResponse, AgentPromptError> readAgentCommandAnswer(
    const Result<HttpResponse>& answer, bool tokenWasSent) {
  if (!answer)
    return AgentPromptError::network(answer.error().description);
  if (answer->statusCode == 401)
    return AgentPromptError::unauthorized(tokenWasSent);
  if (!isSuccess(answer->statusCode))
    return AgentPromptError::server(nonSuccessText(*answer));
  auto decoded = decodeJson<AgentCommandResponse>(answer->body);
  if (!decoded)
    return AgentPromptError::invalidResponse();
  return std::move(*decoded);
}

}  // namespace orvan::editor
