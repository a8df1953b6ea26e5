#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorConfiguration.h"
#include "Launch/EditorScope.h"
#include "Platform/HttpClient.h"
#include "ServerClient/ResponseCaches.h"
#include "ServerClient/StartupState.h"
#include "ServerClient/VelkClientRequestError.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor {

// Where the runtime reaches the services beside the project server. They start as the launch
// said and follow the project server once the runtime is configured for it.
struct ServerAddresses {
  std::string webEditorURL;
  // Set once the runtime is configured for a project server: the editor is hosted from then on.
  std::string remoteStageURL;
  // The authoring service handed to the edit helper.
  std::string authoringAddress;
};

// The editor's session with the project server: its credential, the addresses every request is
// built from, authorized requests and the caches of their answers.
class ServerSession {
 public:
  struct Context {
    MainExecutor& main;
    HttpClient& http;
    const EditorConfiguration& configuration;
    const EditorScope& scope;
    StartupState& startup;
    // The profile every request names beside the client.
    const Observable<std::string>& profileId;
  };

  explicit ServerSession(Context context);
  ServerSession(const ServerSession&) = delete;
  ServerSession& operator=(const ServerSession&) = delete;

  std::string velkSessionToken;
  ServerAddresses addresses;
  // The project's own portable reference to its scene, as the project data last named it.
  std::string projectSceneRef;
  AccessOrderedCache<CachedRemoteStage> remoteStageCache{kRemoteStageCacheLimit};
  AccessOrderedCache<CachedProjectResponse> projectResponseCache{kProjectResponseCacheLimit};

  // Whether stage and project come from a server; otherwise from the inspector helper and disk.
  bool isHosted() const;
  // Points the stage and the authoring service at the project server, when there is one.
  void configureRuntimeForProjectServerIfNeeded();

  // The project server's address for `path`: the caller's query items, plus the scope (project,
  // scene, workspace, active layer) and identity (client, profile) items the caller did not give.
  // Nothing when the server address does not parse.
  std::optional<std::string> projectServerAPIURL(std::string_view path,
                                                 std::vector<URLQueryItem> queryItems = {}) const;
  // The same against the web editor's address, with the identity items only.
  std::optional<std::string> remoteURL(std::string_view path,
                                       std::vector<URLQueryItem> queryItems = {}) const;

  // Adds the session's credential, when there is one.
  void authorize(HttpRequest& request) const;
  // Runs a request on the shared session. A bad answer becomes a classified failure, published as
  // the connection issue when asked; a cancelled request fails quietly.
  TaskHandle authorizedData(HttpRequest request, bool publishConnectionIssue,
                            std::function<void(RequestResult<HttpResponse>)> done);
  TaskHandle authorizedData(const std::string& url, std::optional<Duration> timeout,
                            bool publishConnectionIssue,
                            std::function<void(RequestResult<HttpResponse>)> done);

 private:
  void addIdentityQueryItems(std::vector<URLQueryItem>& items) const;

  Context context_;
  LifetimeToken lifetime_;
};

}  // namespace orvan::editor
