#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ProjectServer/ProjectFolder.h"
#include "ProjectServer/StageCache.h"

namespace orvan::engine {

// One request as the API sees it, apart from the HTTP library: the method, the decoded path,
// the decoded query items and the two headers it reads.
struct ApiRequest {
  std::string method = "GET";
  std::string path = {};
  std::multimap<std::string, std::string> query = {};
  std::string authorization = {};  // the `Authorization` header, "" when absent
  std::string ifNoneMatch = {};    // the `If-None-Match` header, "" when absent
  std::string host = {};           // the `Host` header, "" when absent
};

// What goes back: a status, a JSON body (empty for 304) and the headers the API sets.
struct ApiAnswer {
  int status = 200;
  std::string body = {};
  std::string etag = {};   // the `ETag` header, "" for none
  std::string allow = {};  // the `Allow` header of a 405, "" otherwise
  std::string location = {};  // the `Location` header of a redirect, "" otherwise
};

struct ApiOptions {
  // When not empty, every call but GET /api/me needs "Authorization: Bearer <token>".
  std::string token = {};
  // The display name of the local user that GET /api/me reports.
  std::string userName = "local";
  // Budgets of reading, composing and inspecting one stage.
  StageLimits stageLimits = {};
};

// The project server's endpoints over the hosted projects. Every call is answered on its own and
// may run on any thread; the only shared state is the stage cache, which locks.
class ProjectServerApi {
 public:
  // `projects` is not empty; the first one is the server's current project.
  ProjectServerApi(std::vector<ProjectFolder> projects, ApiOptions options);

  ApiAnswer handle(const ApiRequest& request);

  const std::vector<ProjectFolder>& projects() const { return projects_; }

 private:
  ApiAnswer projectsEndpoint(const ApiRequest& request);
  ApiAnswer projectEndpoint(const ApiRequest& request);
  ApiAnswer stageEndpoint(const ApiRequest& request);
  ApiAnswer workspacesEndpoint(const ApiRequest& request);
  ApiAnswer meEndpoint(const ApiRequest& request);
  ApiAnswer deepLinkEndpoint(const ApiRequest& request);
  ApiAnswer signInEndpoint(const ApiRequest& request);

  std::vector<ProjectFolder> projects_;
  ApiOptions options_;
  StageCache stages_;
};

}  // namespace orvan::engine
