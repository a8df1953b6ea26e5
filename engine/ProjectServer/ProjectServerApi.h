#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Inspector/IncrementalInspector.h"
#include "ProjectServer/ChangeFeed.h"
#include "ProjectServer/LiveWorkspace.h"
#include "ProjectServer/PresenceBoard.h"
#include "ProjectServer/ProjectAssets.h"
#include "ProjectServer/ProjectFolder.h"
#include "ProjectServer/SessionStore.h"
#include "ProjectServer/StageCache.h"

namespace orvan::engine {

// One request as the API sees it, apart from the HTTP library: the method, the decoded path,
// the decoded query items, the fields of a form body and the headers it reads.
struct ApiRequest {
  std::string method = "GET";
  std::string path = {};
  std::multimap<std::string, std::string> query = {};
  std::multimap<std::string, std::string> form = {};  // an url-encoded form body
  std::string authorization = {};                     // the `Authorization` header, "" when absent
  std::string ifNoneMatch = {};                       // the `If-None-Match` header, "" when absent
  std::string body = {};                              // a JSON body as sent, "" for none
  bool malformed = false;                             // the path or an item holds a NUL byte
};

// An answer that goes on for as long as the client listens (the change stream): each call of
// `next` gives the next piece to send, waiting for it as long as it needs to; nothing ends the
// answer.
class AnswerStream {
 public:
  virtual ~AnswerStream() = default;
  virtual std::optional<std::string> next() = 0;
};

// What goes back: a status, a body (JSON unless `contentType` says otherwise; empty for 304)
// and the headers the API sets.
struct ApiAnswer {
  int status = 200;
  std::string body = {};
  std::string etag = {};      // the `ETag` header, "" for none
  std::string allow = {};     // the `Allow` header of a 405, "" otherwise
  std::string location = {};  // the `Location` header of a redirect, "" otherwise
  std::string contentType = "application/json";
  // A large body is sent as `body`, then `sharedPart`, then `tail`, without copying the shared
  // part (a kept stage's text) for each request.
  std::shared_ptr<const std::string> sharedPart = {};
  // Or an inspection held as shared pieces, sent the same way in place of `sharedPart`.
  std::shared_ptr<const InspectionDocument> document = {};
  std::string tail = {};
  bool page = false;  // a page for the browser: never cached, never framed
  // When set, the body is this stream, sent in chunks after `body` (which may be empty).
  std::shared_ptr<AnswerStream> stream = {};
};

// What the head of a request says about its body, before any of it is read.
struct BodyHead {
  std::optional<std::uint64_t> contentLength = {};  // nothing when there is no Content-Length
  bool chunked = false;                             // any Transfer-Encoding
  bool expected = false;  // a method whose body the server would read (POST, PUT, PATCH, DELETE)
};

struct ApiOptions {
  // When not empty, every call but GET /api/me needs "Authorization: Bearer <token>" with this
  // token or a session that sign-in issued.
  std::string token = {};
  // The password of the sign-in page; empty: the page signs no one in.
  std::string password = {};
  // Where sign-in sessions are kept; null when sign-in is off.
  std::shared_ptr<SessionStore> sessions = {};
  // How the server names itself in the sign-in callback: its configured public address or the
  // address it listens on, never anything a request says.
  std::string publicURL = {};
  // The display name of the local user that GET /api/me reports.
  std::string userName = "local";
  StageCacheOptions stages = {};
  // How often a watcher hears that the server is still there when nothing else happens.
  std::chrono::milliseconds heartbeatInterval = std::chrono::seconds(2);
  // Whether scenes may be edited (POST /api/edit); off, the server only reads.
  bool editing = true;
  // How soon after an edit its layer files are written back, at the most often.
  std::chrono::milliseconds writeDelay{250};
  // How long a client's published selection stays without a new one.
  std::chrono::milliseconds presenceLifetime = std::chrono::seconds(10);
};

// The largest body each endpoint takes, in bytes: the sign-in form 8 KiB, an edit 32 MiB (a batch
// of operations may carry large values), other API calls 1 MiB (JSON requests; uploads are not
// served), anything else nothing.
std::uint64_t bodyLimit(const std::string& path);

// The project server's endpoints over the hosted projects. Every call is answered on its own and
// may run on any thread; the shared state (the stage cache, the kept listings, the failed
// sign-ins, the session store) locks.
class ProjectServerApi {
 public:
  // `projects` is not empty; the first one is the server's current project.
  ProjectServerApi(std::vector<ProjectFolder> projects, ApiOptions options);

  ApiAnswer handle(const ApiRequest& request);
  // Decided on the head of a request, before its body is read: a refusal (401 for an API call
  // without a valid session, 411 for a body of unknown length, 413 for one over the endpoint's
  // limit), or nothing when the body may be read. Requests without a body pass; handle() judges
  // them.
  std::optional<ApiAnswer> admit(const ApiRequest& head, const BodyHead& body);

  const std::vector<ProjectFolder>& projects() const { return projects_; }
  // Ends every open change stream (the server is stopping).
  void closeStreams() { feed_.closeAll(); }
  ChangeFeed& feed() { return feed_; }
  // Looks at the live files of every open workspace for changes by other programs, and at the
  // project folders for added and removed files while anyone watches; the server calls it about
  // once a second, from one thread.
  void lookForExternalChanges();
  // Opens the workspaces of every project that has a history store already, which brings their
  // files up to the last accepted edit when the server stopped without writing them (a crash).
  // What could not be opened is said on standard error; those projects are then only read.
  void recoverWorkspaces();
  // Writes back every pending edit now (the server is stopping).
  void flushWorkspaces();
  // How the server names itself in sign-in callbacks; set before the server takes requests.
  void setPublicURL(std::string url) { options_.publicURL = std::move(url); }

 private:
  ApiAnswer projectsEndpoint(const ApiRequest& request);
  ApiAnswer projectEndpoint(const ApiRequest& request);
  ApiAnswer stageEndpoint(const ApiRequest& request);
  ApiAnswer layersEndpoint(const ApiRequest& request);
  ApiAnswer workspacesEndpoint(const ApiRequest& request);
  ApiAnswer meEndpoint(const ApiRequest& request);
  ApiAnswer deepLinkEndpoint(const ApiRequest& request);
  ApiAnswer watchEndpoint(const ApiRequest& request);
  ApiAnswer presenceEndpoint(const ApiRequest& request);
  ApiAnswer editEndpoint(const ApiRequest& request);
  // The project's main workspace as the server edits it, opened on first use; null with the
  // reason when its store cannot be opened (a read-only folder: the project is then only read).
  LiveWorkspace* liveWorkspace(const ProjectFolder& project, std::string* failure = nullptr);
  std::uint64_t revisionOf(const ProjectFolder& project);
  ApiAnswer signInEndpoint(const ApiRequest& request);
  ApiAnswer signInRedirect(const ApiRequest& request, const std::string& token);

  bool authEnabled() const { return !options_.token.empty() || options_.sessions != nullptr; }
  // Whether the request carries the static token or a live session.
  bool authenticated(const ApiRequest& request) const;
  // Whether a password may be tried: not once ten failed within the last minute.
  bool allowSignInAttempt();
  void recordFailedSignIn();

  // The last answer of GET /api/project per project and scene, valid while the folder's scan
  // signature stays the same.
  struct ProjectListing {
    std::uint64_t signature = 0;
    std::string body = {};
    std::string etag = {};
  };

  std::vector<ProjectFolder> projects_;
  ApiOptions options_;
  StageCache stages_;
  std::mutex listingsMutex_;
  std::map<std::string, ProjectListing> listings_;
  std::mutex signInMutex_;
  std::deque<std::chrono::steady_clock::time_point> failedSignIns_;
  ChangeFeed feed_;
  PresenceBoard presence_;
  std::mutex workspacesMutex_;
  struct OpenedWorkspace {
    std::unique_ptr<LiveWorkspace> workspace = {};
    std::string failure = {};
  };
  std::map<std::string, OpenedWorkspace> workspaces_;  // by project id
  // The last walk of each project's folder, for "projectChanged"; only the poller touches it.
  std::map<std::string, std::uint64_t> folderSignatures_;
};

}  // namespace orvan::engine
