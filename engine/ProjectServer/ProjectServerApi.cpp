#include "ProjectServer/ProjectServerApi.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "ProjectServer/Credentials.h"
#include "ProjectServer/Digest.h"
#include "ProjectServer/ProjectAssets.h"
#include "UsdText/LayerWriter.h"
#include "UsdText/StageComposer.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/URLComponents.h"
#include "orvan/wire/records/AccountRecords.h"
#include "orvan/wire/records/ErrorEnvelope.h"
#include "orvan/wire/records/HostedProjectRecords.h"
#include "orvan/wire/records/ProjectResponse.h"
#include "orvan/wire/records/SceneLayers.h"
#include "orvan/wire/records/ToolClientLine.h"
#include "orvan/wire/records/WorkspaceRecords.h"

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

// The token of an "Authorization: Bearer ..." header, "" when there is none.
std::string_view bearerOf(const ApiRequest& request) {
  const std::string_view header = editor::trimWhitespaceAndNewlines(request.authorization);
  constexpr std::string_view kScheme = "bearer ";
  if (header.size() <= kScheme.size() ||
      !editor::equalsIgnoringCase(header.substr(0, kScheme.size()), kScheme)) {
    return {};
  }
  return editor::trimWhitespaceAndNewlines(header.substr(kScheme.size()));
}

std::string htmlEscaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// The sign-in page: the password, with the callback and client carried along.
ApiAnswer signInPage(int status, const std::string& callback, const std::string& clientId,
                     std::string_view notice) {
  std::string html =
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Sign in</title></head>\n"
      "<body><h1>Sign in to this project server</h1>\n";
  if (!notice.empty())
    html += "<p role=\"alert\">" + htmlEscaped(notice) + "</p>\n";
  html +=
      "<form method=\"post\" action=\"/auth/native/start\">\n"
      "<input type=\"hidden\" name=\"callback\" value=\"" +
      htmlEscaped(callback) +
      "\">\n"
      "<input type=\"hidden\" name=\"clientId\" value=\"" +
      htmlEscaped(clientId) +
      "\">\n"
      "<label>Password <input type=\"password\" name=\"password\" autofocus "
      "autocomplete=\"current-password\"></label>\n"
      "<button type=\"submit\">Sign in</button>\n</form></body></html>\n";
  return ApiAnswer{.status = status,
                   .body = std::move(html),
                   .contentType = "text/html; charset=utf-8",
                   .page = true};
}

// The first value of `key` in a form body.
std::string formItem(const ApiRequest& request, const std::string& key) {
  const auto found = request.form.find(key);
  return found == request.form.end() ? std::string() : found->second;
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

// The items that name a scope, from a request's query or from a JSON body.
struct ScopeItems {
  std::string id = {};
  std::string root = {};
  std::string scene = {};
  std::string workspace = {};
  std::string activeLayer = {};
};

ApiResult<Scope> resolveScope(const std::vector<ProjectFolder>& projects, const ScopeItems& items) {
  Scope scope{.project = &projects.front()};
  const std::string& id = items.id;
  const std::string& root = items.root;
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
  } else if (std::filesystem::path(items.scene).is_absolute()) {
    // A scene named by its absolute path (the helpers say no more) belongs to the project whose
    // folder holds it.
    for (const ProjectFolder& project : projects) {
      if (resolveProjectScene(project, items.scene)) {
        scope.project = &project;
        break;
      }
    }
  }

  const std::string& scene = items.scene;
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

  const std::string& workspace = items.workspace;
  if (!workspace.empty() && workspace != kMainWorkspace) {
    return ApiError{.status = 404,
                    .code = "workspace_not_found",
                    .message = "The project '" + scope.project->id + "' has no workspace '" +
                               workspace + "'; only \"main\" exists"};
  }
  scope.activeLayer = items.activeLayer;
  return scope;
}

ApiResult<Scope> resolveScope(const std::vector<ProjectFolder>& projects,
                              const ApiRequest& request) {
  return resolveScope(
      projects, ScopeItems{.id = queryItem(request, {"p", "projectId"}),
                           .root = queryItem(request, {"projectRoot"}),
                           .scene = queryItem(request, {"s", "scene"}),
                           .workspace = queryItem(request, {"w", "ws", "workspace"}),
                           .activeLayer = queryItem(request, {"activeLayer", "active_layer"})});
}

FeedScope feedScope(const Scope& scope) {
  return FeedScope{
      .project = scope.project->id, .scene = scope.scene, .workspace = std::string(kMainWorkspace)};
}

// One watcher's stream: the lines of its subscription as they come, and a heartbeat whenever
// nothing came for an interval, so that both ends notice a dead peer within seconds.
class WatchStream final : public AnswerStream {
 public:
  WatchStream(std::shared_ptr<ChangeFeed::Subscription> subscription,
              std::chrono::milliseconds interval, std::function<std::uint64_t()> revision)
      : subscription_(std::move(subscription)),
        interval_(interval),
        revision_(std::move(revision)) {}

  std::optional<std::string> next() override {
    if (std::optional<std::string> line = subscription_->next(interval_))
      return *line + '\n';
    if (subscription_->closed())
      return std::nullopt;
    return R"({"type":"heartbeat","revision":)" + std::to_string(revision_()) + "}\n";
  }

 private:
  const std::shared_ptr<ChangeFeed::Subscription> subscription_;
  const std::chrono::milliseconds interval_;
  const std::function<std::uint64_t()> revision_;
};

template <class T>
ApiResult<T> decodeBody(const ApiRequest& request) {
  editor::Result<T> decoded = editor::decodeJson<T>(request.body);
  if (!decoded.ok()) {
    return ApiError{.status = 400,
                    .code = "bad_request",
                    .message = "The request body is not usable: " + decoded.error().description};
  }
  return std::move(*decoded);
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
      stages_(options_.stages),
      presence_(options_.presenceLifetime) {}

std::uint64_t bodyLimit(const std::string& path) {
  if (path == "/auth/native/start")
    return 8 * 1024;
  if (path == "/api/edit")
    return 32 * 1024 * 1024;
  if (path.starts_with("/api/"))
    return 1024 * 1024;
  return 0;
}

ApiAnswer ProjectServerApi::handle(const ApiRequest& request) {
  const std::string& path = request.path;
  // A NUL would cut a name short on its way to the file system: refused, never truncated.
  if (request.malformed) {
    return errorAnswer({.status = 400,
                        .code = "bad_request",
                        .message = "The request's path or parameters hold a NUL byte"});
  }
  if (path == "/auth/native/start") {
    if (request.method == "GET" || request.method == "POST")
      return signInEndpoint(request);
    ApiAnswer answer = errorAnswer({.status = 405,
                                    .code = "method_not_allowed",
                                    .message = request.method + " is not served at " + path});
    answer.allow = "GET, POST";
    return answer;
  }
  if (!path.starts_with("/api/"))
    return errorAnswer({.status = 404, .code = "not_found", .message = "No page at " + path});
  // The account endpoint stays open: it is how a client learns that it must sign in.
  if (authEnabled() && path != "/api/me" && !authenticated(request)) {
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
      {"/api/layers", &ProjectServerApi::layersEndpoint},
      {"/api/workspaces", &ProjectServerApi::workspacesEndpoint},
      {"/api/me", &ProjectServerApi::meEndpoint},
      {"/api/deep-link", &ProjectServerApi::deepLinkEndpoint},
      {"/api/watch", &ProjectServerApi::watchEndpoint},
  };
  static const std::map<std::string, Endpoint, std::less<>> kPostEndpoints{
      {"/api/presence", &ProjectServerApi::presenceEndpoint},
      {"/api/edit", &ProjectServerApi::editEndpoint},
  };
  if (const auto posted = kPostEndpoints.find(path); posted != kPostEndpoints.end()) {
    if (request.method == "POST")
      return (this->*posted->second)(request);
    ApiAnswer answer = errorAnswer({.status = 405,
                                    .code = "method_not_allowed",
                                    .message = request.method + " is not served at " + path});
    answer.allow = "POST";
    return answer;
  }
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
  // The walk of the folder is the cheap part; the rows, their digest and the body are made again
  // only when it saw something else than last time.
  ProjectFileScan scan = scanProjectFiles(project.root);
  const std::string listingKey = project.id + '\n' + scope->scene;
  {
    const std::lock_guard lock(listingsMutex_);
    if (const auto found = listings_.find(listingKey);
        found != listings_.end() && found->second.signature == scan.signature) {
      return taggedAnswer(request, found->second.body, found->second.etag);
    }
  }
  std::vector<editor::ProjectAssetItem> assets = projectAssetRows(scan);
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
  {
    const std::lock_guard lock(listingsMutex_);
    // One listing per project and scene the clients ask for; a handful in practice.
    constexpr std::size_t kMaxListings = 32;
    if (listings_.size() >= kMaxListings && !listings_.contains(listingKey))
      listings_.erase(listings_.begin());
    listings_[listingKey] = ProjectListing{.signature = scan.signature, .body = body, .etag = etag};
  }
  return taggedAnswer(request, std::move(body), std::move(etag));
}

ApiAnswer ProjectServerApi::stageEndpoint(const ApiRequest& request) {
  ApiResult<Scope> scope = resolveScope(projects_, request);
  if (!scope.ok())
    return errorAnswer(scope.error());
  // An editable project answers from the scenes it holds in memory, which are ahead of the files
  // by up to a write-back; a project that is only read answers from the files.
  if (LiveWorkspace* workspace = liveWorkspace(*scope->project)) {
    LiveStage live = workspace->stage(scope->scene, scope->activeLayer);
    if (!live.document)
      return errorAnswer({.status = 422, .code = "scene_invalid", .message = live.failure});
    const std::string revision = std::to_string(live.revision);
    ApiAnswer answer = taggedAnswer(request, "{\"revision\":" + revision + ",\"stage\":",
                                    quotedTag(fnv1a64(revision, live.document->digest())));
    if (answer.status == 200) {
      answer.document = std::move(live.document);
      answer.tail = "}";
    }
    return answer;
  }
  // A project that is only read answers from the files; a layer of the scene is read only from
  // inside its project's folder.
  const StageCache::Lookup found =
      stages_.stage(scope->absoluteScene(), scope->activeLayer, scope->project->rootPath());
  if (!found.stage) {
    return errorAnswer(
        {.status = 422,
         .code = "scene_invalid",
         .message = found.failure ? found.failure->describe() : "The scene could not be read"});
  }
  const std::string revision = std::to_string(found.revision);
  // The body is the revision and the stage, so its tag comes from the two without reading it all.
  ApiAnswer answer = taggedAnswer(request, "{\"revision\":" + revision + ",\"stage\":",
                                  quotedTag(fnv1a64(revision, found.stage->digest)));
  if (answer.status == 200) {
    answer.sharedPart = std::shared_ptr<const std::string>(found.stage, &found.stage->json);
    answer.tail = "}";
  }
  return answer;
}

ApiAnswer ProjectServerApi::layersEndpoint(const ApiRequest& request) {
  ApiResult<Scope> scope = resolveScope(projects_, request);
  if (!scope.ok())
    return errorAnswer(scope.error());
  if (LiveWorkspace* workspace = liveWorkspace(*scope->project)) {
    LiveLayers live = workspace->layers(scope->scene);
    if (!live.failure.empty())
      return errorAnswer({.status = 422, .code = "scene_invalid", .message = live.failure});
    return ApiAnswer{.body = encodeJson(live.layers)};
  }
  // A project that is only read answers from its files, confined to its folder like the stage.
  const std::uint64_t revision = stages_.revision();
  const StageOpenResult opened = openStage(
      scope->absoluteScene(), ComposeOptions{.confinementRoot = scope->project->rootPath()});
  if (!opened.ok()) {
    return errorAnswer(
        {.status = 422,
         .code = "scene_invalid",
         .message = opened.error ? opened.error->describe() : "The scene could not be read"});
  }
  editor::SceneLayersResponse response{
      .revision = revision, .root = scope->absoluteScene(), .mutedLayers = {}, .layers = {}};
  for (const StageLayer& used : opened.stage->layers) {
    if (used.layer)
      response.layers.push_back({.identifier = used.identifier, .text = writeLayer(*used.layer)});
  }
  return ApiAnswer{.body = encodeJson(response)};
}

ApiAnswer ProjectServerApi::workspacesEndpoint(const ApiRequest& request) {
  ApiResult<Scope> scope = resolveScope(projects_, request);
  if (!scope.ok())
    return errorAnswer(scope.error());
  const editor::ProjectWorkspaceCatalogResponse response{
      .accepted = true,
      .revision = revisionOf(*scope->project),
      .workspace = std::string(kMainWorkspace),
      .workspaces = std::vector{mainWorkspace()}};
  return ApiAnswer{.body = encodeJson(response)};
}

ApiAnswer ProjectServerApi::watchEndpoint(const ApiRequest& request) {
  ApiResult<Scope> scope = resolveScope(projects_, request);
  if (!scope.ok())
    return errorAnswer(scope.error());
  const FeedScope watched = feedScope(*scope);
  const auto revision = [this, project = scope->project] { return revisionOf(*project); };
  // The watcher learns where it stands, then who else is here, then everything that follows.
  std::vector<std::string> opening{
      encodeJson(editor::ToolClientLine{.type = "hello",
                                        .revision = revision(),
                                        .scene = watched.scene,
                                        .workspace = watched.workspace})};
  for (const Presence& presence : presence_.live(watched))
    opening.push_back(selectionLine(presence));
  auto subscription = feed_.subscribe(watched, std::move(opening));
  return ApiAnswer{.contentType = "application/x-ndjson",
                   .stream = std::make_shared<WatchStream>(std::move(subscription),
                                                           options_.heartbeatInterval, revision)};
}

ApiAnswer ProjectServerApi::presenceEndpoint(const ApiRequest& request) {
  ApiResult<PresenceRequest> body = decodeBody<PresenceRequest>(request);
  if (!body.ok())
    return errorAnswer(body.error());
  if (editor::isBlank(body->clientId)) {
    return errorAnswer(
        {.status = 400, .code = "bad_request", .message = "A presence needs a clientId"});
  }
  ApiResult<Scope> scope =
      resolveScope(projects_, ScopeItems{.id = body->project.value_or(""),
                                         .scene = body->scene.value_or(""),
                                         .workspace = body->workspace.value_or("")});
  if (!scope.ok())
    return errorAnswer(scope.error());
  Presence presence{.scope = feedScope(*scope),
                    .clientId = body->clientId,
                    .displayName = body->displayName.value_or(""),
                    .color = body->color.value_or(""),
                    .activeLayer = body->activeLayer.value_or(""),
                    .selectedPaths = body->selectedPaths.value_or(std::vector<std::string>{})};
  const std::string line = selectionLine(presence);
  const FeedScope where = presence.scope;
  presence_.publish(std::move(presence));
  feed_.publish(where, line);
  return ApiAnswer{.body = R"({"ok":true})"};
}

ApiAnswer ProjectServerApi::editEndpoint(const ApiRequest& request) {
  auto decoded = decodeEditRequest(request.body);
  if (auto* malformed = std::get_if<std::string>(&decoded))
    return errorAnswer({.status = 400, .code = "bad_request", .message = *malformed});
  const EditRequest& edit = std::get<EditRequest>(decoded);
  ApiResult<Scope> scope = resolveScope(projects_, ScopeItems{.id = edit.project,
                                                              .scene = edit.scene,
                                                              .workspace = edit.workspace,
                                                              .activeLayer = edit.activeLayer});
  if (!scope.ok())
    return errorAnswer(scope.error());
  if (!options_.editing) {
    return errorAnswer({.status = 403,
                        .code = "read_only",
                        .message = "This project server only reads; it takes no edits"});
  }
  std::string failure;
  LiveWorkspace* workspace = liveWorkspace(*scope->project, &failure);
  if (!workspace)
    return errorAnswer({.status = 503, .code = "store_unavailable", .message = failure});
  return ApiAnswer{.body = encodeJson(workspace->edit(edit, scope->scene))};
}

LiveWorkspace* ProjectServerApi::liveWorkspace(const ProjectFolder& project, std::string* failure) {
  if (!options_.editing)
    return nullptr;
  const std::lock_guard lock(workspacesMutex_);
  OpenedWorkspace& opened = workspaces_[project.id];
  if (!opened.workspace && opened.failure.empty()) {
    auto workspace = LiveWorkspace::open(
        project, feed_,
        LiveWorkspaceOptions{.limits = options_.stages.limits, .writeDelay = options_.writeDelay});
    if (workspace.ok())
      opened.workspace = std::move(*workspace);
    else
      opened.failure = workspace.error();
  }
  if (failure)
    *failure = opened.failure;
  return opened.workspace.get();
}

std::uint64_t ProjectServerApi::revisionOf(const ProjectFolder& project) {
  if (LiveWorkspace* workspace = liveWorkspace(project))
    return workspace->revision();
  return stages_.revision();
}

void ProjectServerApi::lookForExternalChanges() {
  // Watchers hear when the files of their project change (an asset added, a layer removed):
  // the folder is walked only while someone listens.
  if (feed_.watcherCount() > 0) {
    for (const ProjectFolder& project : projects_) {
      const std::uint64_t signature = scanProjectFiles(project.root).signature;
      const auto [seen, first] = folderSignatures_.try_emplace(project.id, signature);
      if (first || seen->second == signature)
        continue;
      seen->second = signature;
      const editor::ToolClientLine line{.type = "projectChanged",
                                        .revision = revisionOf(project),
                                        .domains = std::vector<std::string>{"assets"}};
      feed_.publishToProject(project.id, encodeJson(line));
    }
  }
  std::vector<LiveWorkspace*> open;
  {
    const std::lock_guard lock(workspacesMutex_);
    for (auto& [id, opened] : workspaces_) {
      if (opened.workspace)
        open.push_back(opened.workspace.get());
    }
  }
  for (LiveWorkspace* workspace : open)
    workspace->lookForExternalChanges();
}

void ProjectServerApi::recoverWorkspaces() {
  for (const ProjectFolder& project : projects_) {
    if (!std::filesystem::exists(project.root / LiveWorkspaceOptions{}.storePath))
      continue;
    std::string failure;
    if (!liveWorkspace(project, &failure)) {
      std::fprintf(stderr, "orvan_project_server: the project '%s' is only read: %s\n",
                   project.id.c_str(), failure.c_str());
    }
  }
}

void ProjectServerApi::flushWorkspaces() {
  const std::lock_guard lock(workspacesMutex_);
  for (auto& [id, opened] : workspaces_) {
    if (opened.workspace)
      (void)opened.workspace->flush();
  }
}

ApiAnswer ProjectServerApi::meEndpoint(const ApiRequest& request) {
  const bool enabled = authEnabled();
  const bool signedIn = !enabled || authenticated(request);
  editor::VelkMeResponse response{
      .accepted = true, .authenticated = signedIn, .authEnabled = enabled, .allowed = signedIn};
  if (signedIn)
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
  // Only the editor's own link schemes are accepted as callbacks, so the server never redirects a
  // browser anywhere else.
  const bool posted = request.method == "POST";
  const std::string callback =
      posted ? formItem(request, "callback") : queryItem(request, {"callback"});
  const std::string clientId =
      posted ? formItem(request, "clientId") : queryItem(request, {"clientId"});
  const std::optional<editor::URLComponents> target = editor::URLComponents::parse(callback);
  const std::string scheme = target ? editor::lowercased(target->scheme) : std::string();
  if (!target || (scheme != "velk" && scheme != "orvan")) {
    return errorAnswer({.status = 400,
                        .code = "bad_callback",
                        .message = "The sign-in callback must be a velk: or orvan: link"});
  }
  // Without sign-in there is nothing to prove: any session is as good as another.
  if (!authEnabled())
    return signInRedirect(request, "local-session");
  if (options_.password.empty() || !options_.sessions) {
    return signInPage(403, callback, clientId,
                      "Signing in through the browser is not set up on this server: it needs a "
                      "password (--password-file or ORVAN_SERVER_PASSWORD).");
  }
  if (!posted)
    return signInPage(200, callback, clientId, "");
  if (!allowSignInAttempt())
    return signInPage(429, callback, clientId, "Too many failed attempts; wait a minute.");
  if (!sameSecret(formItem(request, "password"), options_.password)) {
    recordFailedSignIn();
    return signInPage(401, callback, clientId, "That password is not right.");
  }
  const auto issued = options_.sessions->issue("local", clientId);
  if (!issued.ok())
    throw std::runtime_error(issued.error());
  return signInRedirect(request, issued->token);
}

ApiAnswer ProjectServerApi::signInRedirect(const ApiRequest& request, const std::string& token) {
  const bool posted = request.method == "POST";
  const std::string callback =
      posted ? formItem(request, "callback") : queryItem(request, {"callback"});
  std::optional<editor::URLComponents> target = editor::URLComponents::parse(callback);
  target->queryItems.push_back({"token", token});
  // The server names itself from its own configuration; a request's Host header is whatever the
  // sender wrote.
  if (!options_.publicURL.empty())
    target->queryItems.push_back({"server", options_.publicURL});
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
                   .location = *location,
                   .page = true};
}

bool ProjectServerApi::authenticated(const ApiRequest& request) const {
  const std::string_view token = bearerOf(request);
  if (token.empty())
    return false;
  if (sameSecret(token, options_.token))
    return true;
  return options_.sessions && options_.sessions->find(token).has_value();
}

bool ProjectServerApi::allowSignInAttempt() {
  constexpr std::size_t kFailuresPerMinute = 10;
  const auto now = std::chrono::steady_clock::now();
  const std::lock_guard lock(signInMutex_);
  while (!failedSignIns_.empty() && now - failedSignIns_.front() > std::chrono::minutes(1))
    failedSignIns_.pop_front();
  return failedSignIns_.size() < kFailuresPerMinute;
}

void ProjectServerApi::recordFailedSignIn() {
  const std::lock_guard lock(signInMutex_);
  failedSignIns_.push_back(std::chrono::steady_clock::now());
}

std::optional<ApiAnswer> ProjectServerApi::admit(const ApiRequest& head, const BodyHead& body) {
  const bool carriesBody = body.chunked || body.expected || body.contentLength.value_or(0) > 0;
  if (!carriesBody)
    return std::nullopt;
  if (head.path.starts_with("/api/") && authEnabled() && !authenticated(head)) {
    return errorAnswer(
        {.status = 401, .code = "login_required", .message = "Sign in to use this project server"});
  }
  if (body.chunked || !body.contentLength) {
    return errorAnswer({.status = 411,
                        .code = "length_required",
                        .message = "A request body needs a Content-Length"});
  }
  // The library reads no body of a GET or HEAD; one that comes anyway would be read as the next
  // request.
  const std::uint64_t limit = body.expected ? bodyLimit(head.path) : 0;
  if (*body.contentLength > limit) {
    return errorAnswer(
        {.status = 413,
         .code = "payload_too_large",
         .message = head.path + " takes at most " + std::to_string(limit) + " bytes of body"});
  }
  return std::nullopt;
}

}  // namespace orvan::engine
