// Addresses of the project server and the web editor: every call names the same scope and
// identity, unless the caller names them itself.
#include <algorithm>
#include <chrono>
#include <initializer_list>

#include "Application/EditorModel.h"
#include "orvan/wire/Text.h"
#include "ProjectsAndWorkspaces/HostedSceneReference.h"

namespace orvan::editor {

namespace {

bool hasQueryItem(const std::vector<UrlQueryItem>& items, std::initializer_list<std::string_view> names) {
  return std::any_of(items.begin(), items.end(), [&](const UrlQueryItem& item) {
    return std::find(names.begin(), names.end(), item.name) != names.end();
  });
}

// The address `base` with `path` and `items`; nothing when `base` does not parse.
std::optional<std::string> addressWith(std::string_view base, std::string_view path,
                                       std::vector<UrlQueryItem> items) {
  auto url = UrlComponents::parse(base);
  if (!url) return std::nullopt;
  url->path = std::string(path);
  url->queryItems = std::move(items);
  return url->build();
}

}  // namespace

void EditorModel::addIdentityQueryItems(std::vector<UrlQueryItem>& items) const {
  if (!configuration.clientId.empty() && !hasQueryItem(items, {"clientId"})) {
    items.push_back({"clientId", configuration.clientId});
  }
  if (!userId.get().empty() && !hasQueryItem(items, {"profileId"})) {
    items.push_back({"profileId", userId.get()});
  }
}

std::optional<std::string> EditorModel::projectServerAPIURL(std::string_view path,
                                                            std::vector<UrlQueryItem> items) const {
  const bool hosted = !projectId.get().empty();
  if (!hasQueryItem(items, {"p", "projectId", "projectRoot"})) {
    if (hosted) {
      items.push_back({"p", projectId.get()});
    } else if (!isBlank(configuration.projectPath)) {
      items.push_back({"projectRoot", configuration.projectPath});
    }
  }
  if (!hasQueryItem(items, {"s", "scene"})) {
    // The short hosted form when the scene can be named within the project; the path form
    // otherwise, so that the server still learns which scene is meant.
    const std::string reference =
        hosted ? hostedSceneReference(projectSceneRef, configuration.projectPath, configuration.scenePath)
               : std::string();
    if (!reference.empty()) {
      items.push_back({"s", reference});
    } else if (!isBlank(configuration.scenePath)) {
      items.push_back({"scene", configuration.scenePath});
    }
  }
  if (const std::string workspace = transportWorkspace();
      !workspace.empty() && !hasQueryItem(items, {"w", "ws", "workspace"})) {
    items.push_back({hosted ? "w" : "workspace", workspace});
  }
  if (!activeLayerIdentifier.empty() && !hasQueryItem(items, {"activeLayer", "active_layer"})) {
    items.push_back({"activeLayer", activeLayerIdentifier});
  }
  addIdentityQueryItems(items);
  return addressWith(configuration.projectServerURL, path, std::move(items));
}

std::optional<std::string> EditorModel::remoteURL(std::string_view path,
                                                  std::vector<UrlQueryItem> items) const {
  addIdentityQueryItems(items);
  return addressWith(configuration.webEditorURL, path, std::move(items));
}

}  // namespace orvan::editor

namespace orvan::editor {

namespace {

constexpr auto kRequestTimeout = std::chrono::seconds(60);

}  // namespace

void EditorModel::authorize(HttpRequest& request) const {
  const std::string token = trimmed(velkSessionToken);
  if (!token.empty()) request.setHeader("Authorization", "Bearer " + token);
}

TaskHandle EditorModel::authorizedData(HttpRequest request, bool publishConnectionIssue,
                                       std::function<void(RequestResult<HttpResponse>)> done) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  authorize(request);
  const WeakLifetime weak = lifetime_.weak();
  return ports_.http.send(
      std::move(request), {},
      [this, weak, publishConnectionIssue, done = std::move(done)](Result<HttpResponse> answer) {
        if (!weak.isAlive()) return;
        if (!answer.ok()) {
          // A cancelled request says nothing to the user; any other failure is classified.
          if (!answer.error().isCancellation() && publishConnectionIssue) {
            registerConnectionIssue(velkConnectionIssue(answer.error()));
          }
          done(RequestFailure(answer.error()));
          return;
        }
        if (auto refused = connectionFailure(*answer)) {
          if (publishConnectionIssue) registerConnectionIssue(refused->issue);
          Error error = httpError(answer->statusCode, refused->issue.diagnostic);
          done(RequestFailure(std::move(error), std::move(*refused)));
          return;
        }
        done(std::move(answer.value()));
      });
}

TaskHandle EditorModel::authorizedData(const std::string& url, std::optional<Duration> timeout,
                                       bool publishConnectionIssue,
                                       std::function<void(RequestResult<HttpResponse>)> done) {
  HttpRequest request;
  request.url = url;
  request.timeout = timeout.value_or(kRequestTimeout);
  return authorizedData(std::move(request), publishConnectionIssue, std::move(done));
}

}  // namespace orvan::editor
