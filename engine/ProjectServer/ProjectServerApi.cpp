#include "ProjectServer/ProjectServerApi.h"

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <utility>

#include "Foundation/JsonEncoder.h"
#include "Foundation/Text.h"
#include "Foundation/UrlComponents.h"
#include "ProjectServer/Digest.h"
#include "ProjectServer/ProjectAssets.h"
#include "ServerClient/Records/AccountRecords.h"
#include "ServerClient/Records/ErrorEnvelope.h"
#include "ServerClient/Records/HostedProjectRecords.h"
#include "ServerClient/Records/ProjectResponse.h"
#include "ServerClient/Records/WorkspaceRecords.h"

namespace orvan::engine {
namespace {

using editor::encodeJson;

constexpr std::string_view kMainWorkspace = "main";

// A failed call: the status and the error envelope's code and message.
struct ApiError {
  int status = 500;
  std::string code = {};
  std::string message = {};
  std::optional<editor::VelkConnectionProject> project = {};
};

template <class T>
using ApiResult = editor::Result<T, ApiError>;

ApiAnswer errorAnswer(ApiError error) {
  const editor::VelkErrorEnvelope envelope{.accepted = false,
                                           .code = std::move(error.code),
                                           .message = std::move(error.message),
                                           .project = std::move(error.project)};
  return ApiAnswer{.status = error.status, .body = encodeJson(envelope)};
}

std::string quotedTag(std::uint64_t digest) {
  return '"' + hex64(digest) + '"';
}

// Whether an `If-None-Match` list names `etag`. The comparison is the weak one the header calls
// for: a "W/" prefix on either side does not matter, and "*" matches any current representation.
bool entityTagListMatches(std::string_view list, std::string_view etag) {
  const auto opaque = [](std::string_view tag) {
    tag = editor::trimWhitespaceAndNewlines(tag);
    if (tag.starts_with("W/"))
      tag.remove_prefix(2);
    return tag;
  };
  while (!list.empty()) {
    const std::size_t comma = list.find(',');
    const std::string_view item = opaque(list.substr(0, comma));
    if (item == "*" || (!item.empty() && item == opaque(etag)))
      return true;
    if (comma == std::string_view::npos)
      break;
    list.remove_prefix(comma + 1);
  }
  return false;
}

// A JSON answer with a strong entity tag, or 304 without a body when the caller holds it already.
ApiAnswer taggedAnswer(const ApiRequest& request, std::string body, std::string etag) {
  if (entityTagListMatches(request.ifNoneMatch, etag))
    return ApiAnswer{.status = 304, .body = {}, .etag = std::move(etag)};
  return ApiAnswer{.status = 200, .body = std::move(body), .etag = std::move(etag)};
}

// The first non-empty value among the query items `keys`, in the order of `keys`.
std::string queryItem(const ApiRequest& request, std::initializer_list<std::string_view> keys) {
  for (const std::string_view key : keys) {
    const auto [first, last] = request.query.equal_range(std::string(key));
    for (auto it = first; it != last; ++it) {
      if (!editor::isBlank(it->second))
        return editor::trimmed(it->second);
    }
  }
  return {};
}

// Compares in time that does not depend on where the first difference is.
bool sameSecret(std::string_view given, std::string_view expected) {
  if (expected.empty())
    return false;
  unsigned char difference = given.size() == expected.size() ? 0 : 1;
  for (std::size_t i = 0; i < given.size(); ++i)
    difference |= static_cast<unsigned char>(given[i] ^ expected[i % expected.size()]);
  return difference == 0;
}

bool carriesBearer(const ApiRequest& request, std::string_view token) {
  const std::string_view header = editor::trimWhitespaceAndNewlines(request.authorization);
  constexpr std::string_view kScheme = "bearer ";
  if (header.size() <= kScheme.size() ||
      !editor::equalsIgnoringCase(header.substr(0, kScheme.size()), kScheme)) {
    return false;
  }
  return sameSecret(editor::trimWhitespaceAndNewlines(header.substr(kScheme.size())), token);
}

editor::ProjectWorkspaceSummary mainWorkspace() {
  return editor::ProjectWorkspaceSummary{
      .id = std::string(kMainWorkspace), .name = "Main", .current = true};
}

// Where a call is aimed: the project, the scene inside it (relative to its root), the workspace
// and the layer the stage's override marks are measured against.
struct Scope {
  const ProjectFolder* project = nullptr;
  std::string scene = {};
  std::string activeLayer = {};

  std::string absoluteScene() const { return project->absoluteScene(scene).string(); }
};

ApiResult<Scope> resolveScope(const std::vector<ProjectFolder>& projects,
                              const ApiRequest& request) {
  Scope scope{.project = &projects.front()};
  const std::string id = queryItem(request, {"p", "projectId"});
  const std::string root = queryItem(request, {"projectRoot"});
  if (!id.empty() || !root.empty()) {
    const auto found = std::find_if(projects.begin(), projects.end(), [&](const auto& project) {
      return id.empty() ? isProjectRoot(project, root) : project.id == id;
    });
    if (found == projects.end()) {
      return ApiError{.status = 404,
                      .code = "project_not_found",
                      .message = id.empty() ? "No project is hosted at '" + root + "'"
                                            : "No project with the id '" + id + "' is hosted here",
                      .project = id.empty()
                                     ? std::nullopt
                                     : std::optional(editor::VelkConnectionProject{.id = id})};
    }
    scope.project = &*found;
  }

  const std::string scene = queryItem(request, {"s", "scene"});
  if (scene.empty()) {
    scope.scene = scope.project->mainScene;
  } else if (std::optional<std::string> resolved = resolveProjectScene(*scope.project, scene)) {
    scope.scene = std::move(*resolved);
  } else {
    return ApiError{
        .status = 404,
        .code = "scene_not_found",
        .message = "The project '" + scope.project->id + "' has no scene '" + scene + "'"};
  }

  const std::string workspace = queryItem(request, {"w", "ws", "workspace"});
  if (!workspace.empty() && workspace != kMainWorkspace) {
    return ApiError{.status = 404,
                    .code = "workspace_not_found",
                    .message = "The project '" + scope.project->id + "' has no workspace '" +
                               workspace + "'; only \"main\" exists"};
  }
  scope.activeLayer = queryItem(request, {"activeLayer", "active_layer"});
  return scope;
}

// The folder that holds every hosted project.
std::string commonRoot(const std::vector<ProjectFolder>& projects) {
  std::filesystem::path common = projects.front().root.parent_path();
  for (const ProjectFolder& project : projects) {
    while (!common.empty() && common != common.root_path()) {
      const auto [end, at] =
          std::mismatch(common.begin(), common.end(), project.root.begin(), project.root.end());
      if (end == common.end())
        break;
      common = common.parent_path();
    }
  }
  return common.string();
}

}  // namespace

ProjectServerApi::ProjectServerApi(std::vector<ProjectFolder> projects, ApiOptions options)
    : projects_(std::move(projects)),
      options_(std::move(options)),
      stages_(8, options_.stageLimits) {}

ApiAnswer ProjectServerApi::handle(const ApiRequest& request) {
  const std::string& path = request.path;
  if (path == "/auth/native/start")
    return request.method == "GET" ? signInEndpoint(request)
                                   : errorAnswer({.status = 405,
                                                  .code = "method_not_allowed",
                                                  .message = request.method + " is not served at " + path});
  if (!path.starts_with("/api/"))
    return errorAnswer({.status = 404, .code = "not_found", .message = "No page at " + path});
  // The account endpoint stays open: it is how a client learns that it must sign in.
  if (!options_.token.empty() && path != "/api/me" && !carriesBearer(request, options_.token)) {
    return errorAnswer({.status = 401,
                        .code = "login_required",
                        .message = request.authorization.empty()
                                       ? "Sign in to use this project server"
                                       : "The session is not valid on this project server"});
  }

  using Endpoint = ApiAnswer (ProjectServerApi::*)(const ApiRequest&);
  static const std::map<std::string, Endpoint, std::less<>> kEndpoints{
      {"/api/projects", &ProjectServerApi::projectsEndpoint},
      {"/api/project", &ProjectServerApi::projectEndpoint},
      {"/api/stage", &ProjectServerApi::stageEndpoint},
      {"/api/workspaces", &ProjectServerApi::workspacesEndpoint},
      {"/api/me", &ProjectServerApi::meEndpoint},
      {"/api/deep-link", &ProjectServerApi::deepLinkEndpoint},
  };
  const auto endpoint = kEndpoints.find(path);
  if (endpoint == kEndpoints.end())
    return errorAnswer({.status = 404, .code = "not_found", .message = "No endpoint at " + path});
  if (request.method != "GET" && request.method != "HEAD") {
    ApiAnswer answer = errorAnswer({.status = 405,
                                    .code = "method_not_allowed",
                                    .message = request.method + " is not served at " + path});
    answer.allow = "GET, HEAD";
    return answer;
  }
  return (this->*endpoint->second)(request);
}

ApiAnswer ProjectServerApi::projectsEndpoint(const ApiRequest&) {
  editor::HostedProjectsResponse response{.root = commonRoot(projects_),
                                          .current = projects_.front().rootPath()};
  for (const ProjectFolder& project : projects_) {
    response.projects.push_back(
        editor::HostedProjectSummary{.id = project.id,
                                     .name = project.name,
                                     .path = project.rootPath(),
                                     .scene = project.absoluteScene(project.mainScene).string(),
                                     .current = &project == &projects_.front(),
                                     .role = "owner",
                                     .canInvite = false,
                                     .canEdit = true});
  }
  return ApiAnswer{.body = encodeJson(response)};
}

ApiAnswer ProjectServerApi::projectEndpoint(const ApiRequest& request) {
  ApiResult<Scope> scope = resolveScope(projects_, request);
  if (!scope.ok())
    return errorAnswer(scope.error());
  const ProjectFolder& project = *scope->project;
  std::vector<editor::ProjectAssetItem> assets = listProjectAssets(project.root);
  // The catalogue's head moves whenever a row does, so the editor drops rows of deleted files.
  const std::string headKey = hex64(fnv1a64(encodeJson(assets)));
  const editor::ProjectResponse response{.id = project.id,
                                         .label = project.name,
                                         .path = project.rootPath(),
                                         .scene = scope->absoluteScene(),
                                         .sceneRef = scope->scene,
                                         .mainScene = project.mainScene,
                                         .workspace = std::string(kMainWorkspace),
                                         .workspaces = std::vector{mainWorkspace()},
                                         .assetCatalogHeadKey = headKey,
                                         .assetCatalogComplete = true,
                                         .assets = std::move(assets)};
  std::string body = encodeJson(response);
  std::string etag = quotedTag(fnv1a64(body));
  return taggedAnswer(request, std::move(body), std::move(etag));
}

ApiAnswer ProjectServerApi::stageEndpoint(const ApiRequest& request) {
  ApiResult<Scope> scope = resolveScope(projects_, request);
  if (!scope.ok())
    return errorAnswer(scope.error());
  // A layer of the scene is read only from inside its project's folder.
  const StageCache::Lookup found =
      stages_.stage(scope->absoluteScene(), scope->activeLayer, scope->project->rootPath());
  if (!found.stage) {
    return errorAnswer(
        {.status = 422,
         .code = "scene_invalid",
         .message = found.failure ? found.failure->describe() : "The scene could not be read"});
  }
  const std::string revision = std::to_string(found.revision);
  std::string body;
  body.reserve(found.stage->json.size() + 40);
  body.append("{\"revision\":").append(revision).append(",\"stage\":");
  body.append(found.stage->json).append("}");
  // The body is the revision and the stage, so its tag comes from the two without reading it all.
  std::string etag = quotedTag(fnv1a64(revision, found.stage->digest));
  return taggedAnswer(request, std::move(body), std::move(etag));
}

ApiAnswer ProjectServerApi::workspacesEndpoint(const ApiRequest& request) {
  ApiResult<Scope> scope = resolveScope(projects_, request);
  if (!scope.ok())
    return errorAnswer(scope.error());
  const editor::ProjectWorkspaceCatalogResponse response{
      .accepted = true,
      .revision = stages_.revision(),
      .workspace = std::string(kMainWorkspace),
      .workspaces = std::vector{mainWorkspace()}};
  return ApiAnswer{.body = encodeJson(response)};
}

ApiAnswer ProjectServerApi::meEndpoint(const ApiRequest& request) {
  const bool authEnabled = !options_.token.empty();
  const bool authenticated = !authEnabled || carriesBearer(request, options_.token);
  editor::VelkMeResponse response{.accepted = true,
                                  .authenticated = authenticated,
                                  .authEnabled = authEnabled,
                                  .allowed = authenticated};
  if (authenticated)
    response.user = editor::VelkMeUser{.id = "local", .displayName = options_.userName};
  else
    response.message = "Sign in to use this project server";
  return ApiAnswer{.body = encodeJson(response)};
}

ApiAnswer ProjectServerApi::deepLinkEndpoint(const ApiRequest& request) {
  // A link that names nothing hosted here is refused in the answer's own words, which the editor
  // shows, rather than with a status it would only report by number.
  ApiResult<Scope> scope = resolveScope(projects_, request);
  if (!scope.ok()) {
    const editor::HostedDeepLinkResponse refused{.accepted = false,
                                                 .message = scope.error().message};
    return ApiAnswer{.body = encodeJson(refused)};
  }
  const editor::HostedDeepLinkResponse response{.accepted = true,
                                                .id = scope->project->id,
                                                .project = scope->project->name,
                                                .scene = scope->absoluteScene(),
                                                .sceneRef = scope->scene,
                                                .workspace = std::string(kMainWorkspace)};
  return ApiAnswer{.body = encodeJson(response)};
}

ApiAnswer ProjectServerApi::signInEndpoint(const ApiRequest& request) {
  // This server has one local user, so signing in needs no page: the browser is sent straight
  // back to the editor's callback with a session. Only the editor's own link schemes are
  // accepted as callbacks, so the server never redirects a browser anywhere else.
  const std::string callback = queryItem(request, {"callback"});
  std::optional<editor::UrlComponents> target = editor::UrlComponents::parse(callback);
  const std::string scheme = target ? editor::lowercased(target->scheme) : std::string();
  if (!target || (scheme != "velk" && scheme != "orvan")) {
    return errorAnswer({.status = 400,
                        .code = "bad_callback",
                        .message = "The sign-in callback must be a velk: or orvan: link"});
  }
  target->queryItems.push_back({"token", options_.token.empty() ? "local-session" : options_.token});
  if (!request.host.empty()) target->queryItems.push_back({"server", "http://" + request.host});
  target->queryItems.push_back({"displayName", options_.userName});
  target->queryItems.push_back({"userId", "local"});
  const std::optional<std::string> location = target->build();
  if (!location) {
    return errorAnswer({.status = 400,
                        .code = "bad_callback",
                        .message = "The sign-in callback '" + callback + "' is not a usable link"});
  }
  return ApiAnswer{.status = 302,
                   .body = R"({"accepted":true,"message":"Signed in"})",
                   .location = *location};
}

}  // namespace orvan::engine
