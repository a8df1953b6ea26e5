#pragma once

// A stand-in for the project server's write side on a loopback port, for the helpers' process
// tests: it records every request it gets and answers as a test scripts it.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <httplib.h>

namespace orvan::engine::testing {

class FakeService {
 public:
  struct Request {
    std::string method;
    std::string path;
    std::multimap<std::string, std::string> params;
    std::string body;
    bool hasAuthorization = false;
    std::string authorization;
    int remotePort = 0;
  };

  struct Answer {
    int status = 200;
    std::string body;
  };

  // The watch stream: each chunk after its delay, then the end of the stream or, with
  // `endAfter` false, silence until the service stops.
  struct StreamScript {
    std::vector<std::pair<std::chrono::milliseconds, std::string>> chunks;
    bool endAfter = true;
    int status = 200;
  };

  // `idleSeconds`: how long a kept-alive connection may wait for its next request.
  explicit FakeService(int idleSeconds = 5) {
    // Kept-alive connections serve many requests here, so that a test sees every reconnect.
    server_.set_keep_alive_max_count(100000);
    server_.set_keep_alive_timeout(idleSeconds);
    server_.Post("/api/edit", [this](const httplib::Request& request, httplib::Response& response) {
      record(request);
      const Answer answer = nextEditAnswer();
      response.status = answer.status;
      response.set_content(answer.body, "application/json");
    });
    server_.Post("/api/presence",
                 [this](const httplib::Request& request, httplib::Response& response) {
                   record(request);
                   std::lock_guard lock(mutex_);
                   response.status = presenceAnswer_.status;
                   response.set_content(presenceAnswer_.body, "application/json");
                 });
    server_.Get("/api/watch", [this](const httplib::Request& request, httplib::Response& response) {
      record(request);
      StreamScript script;
      {
        std::lock_guard lock(mutex_);
        script = watchScript_;
      }
      if (script.status != 200) {
        response.status = script.status;
        response.set_content(
            R"({"accepted":false,"code":"login_required","message":"Sign in first"})",
            "application/json");
        return;
      }
      response.set_chunked_content_provider(
          "application/x-ndjson", [this, script](std::size_t, httplib::DataSink& sink) {
            for (const auto& [delay, chunk] : script.chunks) {
              if (!pause(delay))
                return false;
              if (!sink.write(chunk.data(), chunk.size()))
                return false;
            }
            if (script.endAfter) {
              sink.done();
              return true;
            }
            while (pause(std::chrono::milliseconds(20)) && sink.is_writable()) {
            }
            return false;
          });
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running())
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  ~FakeService() {
    stopping_ = true;
    server_.stop();
    thread_.join();
  }

  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;

  int port() const { return port_; }
  std::string grpcAddress() const { return "grpc://127.0.0.1:" + std::to_string(port_); }
  std::string httpAddress() const { return "http://127.0.0.1:" + std::to_string(port_); }

  // Answers for the next edits, in order; once they are used up, each edit is accepted with the
  // next revision (41, 42, ...) and the message "ok".
  void scriptEditAnswers(std::vector<Answer> answers) {
    std::lock_guard lock(mutex_);
    editAnswers_.assign(answers.begin(), answers.end());
  }
  void setPresenceAnswer(Answer answer) {
    std::lock_guard lock(mutex_);
    presenceAnswer_ = std::move(answer);
  }
  void setWatchScript(StreamScript script) {
    std::lock_guard lock(mutex_);
    watchScript_ = std::move(script);
  }

  std::vector<Request> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }
  std::vector<std::string> bodies() const {
    std::vector<std::string> result;
    for (const Request& request : requests())
      result.push_back(request.body);
    return result;
  }
  // Connections the requests came in on, told apart by the client's port.
  std::size_t connectionCount() const {
    std::set<int> ports;
    for (const Request& request : requests())
      ports.insert(request.remotePort);
    return ports.size();
  }

 private:
  void record(const httplib::Request& request) {
    Request seen;
    seen.method = request.method;
    seen.path = request.path;
    seen.params =
        std::multimap<std::string, std::string>(request.params.begin(), request.params.end());
    seen.body = request.body;
    seen.hasAuthorization = request.has_header("Authorization");
    seen.authorization = request.get_header_value("Authorization");
    seen.remotePort = request.remote_port;
    std::lock_guard lock(mutex_);
    requests_.push_back(std::move(seen));
  }

  Answer nextEditAnswer() {
    std::lock_guard lock(mutex_);
    if (!editAnswers_.empty()) {
      Answer answer = editAnswers_.front();
      editAnswers_.pop_front();
      return answer;
    }
    return Answer{200, R"({"accepted":true,"revision":)" + std::to_string(nextRevision_++) +
                           R"(,"message":"ok"})"};
  }

  // Sleeps, in small steps so that stopping is not held up; false once the service stops.
  bool pause(std::chrono::milliseconds delay) {
    const auto until = std::chrono::steady_clock::now() + delay;
    while (!stopping_ && std::chrono::steady_clock::now() < until)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return !stopping_;
  }

  httplib::Server server_;
  std::thread thread_;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  std::vector<Request> requests_;
  std::deque<Answer> editAnswers_;
  std::uint64_t nextRevision_ = 41;
  Answer presenceAnswer_{200, R"({"ok":true})"};
  StreamScript watchScript_;
};

}  // namespace orvan::engine::testing
