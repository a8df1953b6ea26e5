// Addresses of the project server and the web editor: every call names the same scope and
// identity, unless the caller names them itself.
#include "ServerClient/ServerSession.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>

#include "ServerClient/HostedSceneReference.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

constexpr auto kRequestTimeout = std::chrono::seconds(60);

bool hasQueryItem(const std::vector<URLQueryItem>& items,
                  std::initializer_list<std::string_view> names) {
  return std::any_of(items.begin(), items.end(), [&](const URLQueryItem& item) {
    return std::find(names.begin(), names.end(), item.name) != names.end();
  });
}

// The address `base` with `path` and `items`; nothing when `base` does not parse.
std::optional<std::string> addressWith(std::string_view base, std::string_view path,
                                       std::vector<URLQueryItem> items) {
  auto url = URLComponents::parse(base);
  if (!url)
    return std::nullopt;
  url->path = std::string(path);
  url->queryItems = std::move(items);
  return url->build();
}

}  // namespace

ServerSession::ServerSession(Context context)
    : addresses{.webEditorURL = context.configuration.webEditorURL,
                .remoteStageURL = context.configuration.remoteStageURL,
                .authoringAddress = context.configuration.address},
      context_(context) {}

bool ServerSession::isHosted() const {
  return !isBlank(context_.scope.projectServerURL()) || !isBlank(addresses.remoteStageURL);
}

void ServerSession::configureRuntimeForProjectServerIfNeeded() {
  if (isBlank(context_.scope.projectServerURL()))
    return;
  if (isBlank(addresses.remoteStageURL)) {
    if (auto stageURL = projectServerAPIURL("/api/stage"))
      addresses.remoteStageURL = *stageURL;
  }
  if (auto derived =
          derivedAuthoringAddress(context_.configuration.localMode, addresses.authoringAddress,
                                  context_.scope.projectServerURL())) {
    addresses.authoringAddress = *derived;
  }
}

void ServerSession::addIdentityQueryItems(std::vector<URLQueryItem>& items) const {
  const std::string& clientId = context_.configuration.clientId;
  if (!clientId.empty() && !hasQueryItem(items, {"clientId"}))
    items.push_back({"clientId", clientId});
  const std::string& profileId = context_.profileId.get();
  if (!profileId.empty() && !hasQueryItem(items, {"profileId"}))
    items.push_back({"profileId", profileId});
}

std::optional<std::string> ServerSession::projectServerAPIURL(
    std::string_view path, std::vector<URLQueryItem> items) const {
  const EditorScope& scope = context_.scope;
  const bool hosted = !scope.projectId().empty();
  if (!hasQueryItem(items, {"p", "projectId", "projectRoot"})) {
    if (hosted) {
      items.push_back({"p", scope.projectId()});
    } else if (!isBlank(scope.projectPath())) {
      items.push_back({"projectRoot", scope.projectPath()});
    }
  }
  if (!hasQueryItem(items, {"s", "scene"})) {
    // The short hosted form when the scene can be named within the project; the path form
    // otherwise, so that the server still learns which scene is meant.
    const std::string reference =
        hosted ? hostedSceneReference(projectSceneRef, scope.projectPath(), scope.scenePath())
               : std::string();
    if (!reference.empty()) {
      items.push_back({"s", reference});
    } else if (!isBlank(scope.scenePath())) {
      items.push_back({"scene", scope.scenePath()});
    }
  }
  if (const std::string workspace = scope.transportWorkspace();
      !workspace.empty() && !hasQueryItem(items, {"w", "ws", "workspace"})) {
    items.push_back({hosted ? "w" : "workspace", workspace});
  }
  if (!scope.activeLayerIdentifier().empty() &&
      !hasQueryItem(items, {"activeLayer", "active_layer"})) {
    items.push_back({"activeLayer", scope.activeLayerIdentifier()});
  }
  addIdentityQueryItems(items);
  return addressWith(scope.projectServerURL(), path, std::move(items));
}

std::optional<std::string> ServerSession::remoteURL(std::string_view path,
                                                    std::vector<URLQueryItem> items) const {
  addIdentityQueryItems(items);
  return addressWith(addresses.webEditorURL, path, std::move(items));
}

void ServerSession::authorize(HttpRequest& request) const {
  const std::string token = trimmed(velkSessionToken);
  if (!token.empty())
    request.setHeader("Authorization", "Bearer " + token);
}

TaskHandle ServerSession::authorizedData(HttpRequest request, bool publishConnectionIssue,
                                         std::function<void(RequestResult<HttpResponse>)> done) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  authorize(request);
  const WeakLifetime weak = lifetime_.weak();
  StartupState& startup = context_.startup;
  return context_.http.send(
      std::move(request), {},
      [weak, &startup, publishConnectionIssue,
       done = std::move(done)](Result<HttpResponse> answer) {
        if (!weak.isAlive())
          return;
        if (!answer.ok()) {
          // A cancelled request says nothing to the user; any other failure is classified.
          if (!answer.error().isCancellation() && publishConnectionIssue) {
            startup.registerConnectionIssue(velkConnectionIssue(answer.error()));
          }
          done(RequestFailure(answer.error()));
          return;
        }
        if (auto refused = connectionFailure(*answer)) {
          if (publishConnectionIssue)
            startup.registerConnectionIssue(refused->issue);
          Error error = httpError(answer->statusCode, refused->issue.diagnostic);
          done(RequestFailure(std::move(error), std::move(*refused)));
          return;
        }
        done(std::move(answer.value()));
      });
}

TaskHandle ServerSession::authorizedData(const std::string& url, std::optional<Duration> timeout,
                                         bool publishConnectionIssue,
                                         std::function<void(RequestResult<HttpResponse>)> done) {
  HttpRequest request;
  request.url = url;
  request.timeout = timeout.value_or(kRequestTimeout);
  return authorizedData(std::move(request), publishConnectionIssue, std::move(done));
}

}  // namespace orvan::editor
