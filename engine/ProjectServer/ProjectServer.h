#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>

#include "ProjectServer/ProjectServerApi.h"

namespace httplib {
class Server;
}

namespace orvan::engine {

// The project server's HTTP side: a listening socket whose requests a pool of threads hands to
// the API. Every method and path reaches the API, which decides what exists.
class ProjectServer {
 public:
  explicit ProjectServer(ProjectServerApi& api, std::size_t threads = 8);
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
  // Stops accepting, lets the requests under way finish and waits for the serving thread.
  void stop();

 private:
  ProjectServerApi& api_;
  std::unique_ptr<httplib::Server> http_;
  std::thread thread_;
  std::atomic<bool> ended_ = false;
};

}  // namespace orvan::engine
