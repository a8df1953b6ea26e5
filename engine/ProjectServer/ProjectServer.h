#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>

#include "ProjectServer/ProjectServerApi.h"

namespace orvan::engine {

// How much one connection may hold of the server.
struct ServerLimits {
  // A socket that stays silent (or cannot take the answer) this long while a request is read or
  // written loses its connection.
  std::chrono::seconds readTimeout{10};
  std::chrono::seconds writeTimeout{10};
  // A kept-alive connection serves at most this many requests, and is closed after this long
  // without one.
  std::size_t keepAliveRequests = 100;
  std::chrono::seconds keepAliveTimeout{5};
  // Each open connection has a thread of its own; threads start as connections need them, up to
  // `maxThreads`, and stay. Beyond that connections wait for a thread.
  std::size_t minThreads = 8;
  std::size_t maxThreads = 256;
};

// The project server's HTTP side: a listening socket whose requests a pool of threads hands to
// the API. Every method and path reaches the API, which decides what exists. The head of each
// request is judged before its body is read (ProjectServerApi::admit); a refused request gets its
// answer at once and its connection is closed, so an unread body never reaches the server's
// memory.
class ProjectServer {
 public:
  explicit ProjectServer(ProjectServerApi& api, ServerLimits limits = {});
  ~ProjectServer();
  ProjectServer(const ProjectServer&) = delete;
  ProjectServer& operator=(const ProjectServer&) = delete;

  // Binds `host:port`; port 0 takes a free one. The bound port, or nothing with the reason.
  editor::Result<int, std::string> bind(const std::string& host, int port);
  // Serves on a thread of its own, after bind(); returns once requests are being accepted.
  void start();
  // Whether the server is accepting requests: false before start(), after stop(), or when it
  // ended by itself.
  bool running() const;
  // Stops accepting, lets the requests under way finish and waits for the serving thread. A client
  // that keeps a request open holds this up to the read time-out per byte it trickles; the
  // executable therefore gives stop() a second and then exits anyway.
  void stop();

 private:
  class Http;

  ProjectServerApi& api_;
  std::unique_ptr<Http> http_;
  std::thread thread_;
  std::atomic<bool> ended_ = false;
};

}  // namespace orvan::engine
