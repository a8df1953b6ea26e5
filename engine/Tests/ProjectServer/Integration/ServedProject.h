#pragma once

// A project folder in a temporary directory, served in-process on a loopback port, and a watcher
// that reads the change stream on a thread of its own.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>
#include <unistd.h>

#include "ProjectServer/ProjectServer.h"

namespace orvan::engine::testing_support {

namespace fs = std::filesystem;

class ServedProject {
 public:
  explicit ServedProject(const std::string& name) {
    base_ = fs::temp_directory_path() / ("orvan_served_" + std::to_string(::getpid()) + "_" + name);
    fs::remove_all(base_);
    fs::create_directories(base_);
    base_ = fs::canonical(base_);
  }
  ~ServedProject() {
    // The API goes before its folder: it writes back what its workspaces hold.
    server_.reset();
    api_.reset();
    fs::remove_all(base_);
  }

  const fs::path& base() const { return base_; }
  int port() const { return port_; }
  ProjectServerApi& api() { return *api_; }
  httplib::Client& client() { return *client_; }

  void write(const fs::path& relative, const std::string& text) const {
    fs::create_directories((base_ / relative).parent_path());
    std::ofstream(base_ / relative, std::ios::binary | std::ios::trunc) << text;
  }

  // Serves the given project folders (relative to the base), the first one current.
  void start(const std::vector<std::string>& folders, ApiOptions options = {}) {
    std::vector<ProjectFolder> projects;
    for (const std::string& folder : folders) {
      auto project = loadProjectFolder(base_ / folder);
      ASSERT_TRUE(project.ok()) << project.error();
      projects.push_back(std::move(*project));
    }
    // A server serves its API: the old one goes first, then the old API, which writes back what
    // its workspaces hold and lets go of their stores before the new one opens them.
    server_.reset();
    api_.reset();
    api_ = std::make_unique<ProjectServerApi>(std::move(projects), std::move(options));
    server_ = std::make_unique<ProjectServer>(*api_);
    const auto port = server_->bind("127.0.0.1", 0);
    ASSERT_TRUE(port.ok()) << port.error();
    port_ = *port;
    server_->start();
    client_ = std::make_unique<httplib::Client>("127.0.0.1", port_);
  }

  // Ends the server and its API: the folder is nobody's until the next start.
  void close() {
    server_.reset();
    api_.reset();
  }

  void stop() {
    if (server_)
      server_->stop();
  }

 private:
  fs::path base_;
  std::unique_ptr<ProjectServerApi> api_;
  std::unique_ptr<ProjectServer> server_;
  std::unique_ptr<httplib::Client> client_;
  int port_ = 0;
};

// GET /api/watch on its own connection and thread; the lines it read so far, and a way to wait
// for one.
class StreamWatcher {
 public:
  StreamWatcher(int port, std::string query, httplib::Headers headers = {})
      : client_("127.0.0.1", port) {
    client_.set_read_timeout(30, 0);
    thread_ = std::thread([this, query = std::move(query), headers = std::move(headers)] {
      const auto answer =
          client_.Get(("/api/watch?" + query).c_str(), headers,
                      [this](const httplib::Response& response) {
                        status_ = response.status;
                        return true;
                      },
                      [this](const char* data, std::size_t size) {
                        const std::lock_guard lock(mutex_);
                        pending_.append(data, size);
                        for (std::size_t end; (end = pending_.find('\n')) != std::string::npos;) {
                          lines_.push_back(pending_.substr(0, end));
                          pending_.erase(0, end + 1);
                        }
                        changed_.notify_all();
                        return !stopping_;
                      });
      const std::lock_guard lock(mutex_);
      ended_ = true;
      changed_.notify_all();
    });
  }
  ~StreamWatcher() {
    stopping_ = true;
    client_.stop();
    thread_.join();
  }

  // Waits until a line containing `needle` has arrived (or the stream ended, or 10 s passed) and
  // returns it; "" when none came.
  std::string waitFor(const std::string& needle,
                      std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    std::unique_lock lock(mutex_);
    std::string found;
    changed_.wait_for(lock, limit, [&] {
      for (const std::string& line : lines_) {
        if (line.find(needle) != std::string::npos) {
          found = line;
          return true;
        }
      }
      return ended_;
    });
    return found;
  }
  bool waitForEnd(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return ended_; });
  }
  std::vector<std::string> lines() {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  int status() const { return status_; }

 private:
  httplib::Client client_;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string pending_;
  std::vector<std::string> lines_;
  std::atomic<int> status_ = 0;
  std::atomic<bool> stopping_ = false;
  bool ended_ = false;
};

}  // namespace orvan::engine::testing_support
