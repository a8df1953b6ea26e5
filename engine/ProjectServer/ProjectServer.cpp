#include "ProjectServer/ProjectServer.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>

#include <sys/socket.h>

#include <httplib.h>

#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/records/ErrorEnvelope.h"

namespace orvan::engine {
namespace {

constexpr const char* kJsonType = "application/json";

ApiRequest apiRequest(const httplib::Request& in) {
  ApiRequest request{.method = in.method, .path = in.path};
  request.query.insert(in.params.begin(), in.params.end());
  request.authorization = in.get_header_value("Authorization");
  request.ifNoneMatch = in.get_header_value("If-None-Match");
  request.host = in.get_header_value("Host");
  return request;
}

void send(ApiAnswer answer, httplib::Response& out) {
  out.status = answer.status;
  if (!answer.etag.empty())
    out.set_header("ETag", answer.etag);
  if (!answer.allow.empty())
    out.set_header("Allow", answer.allow);
  if (!answer.location.empty())
    out.set_header("Location", answer.location);
  if (answer.status == 304)
    return;
  out.set_header("Content-Type", kJsonType);
  out.body = std::move(answer.body);
}

}  // namespace

ProjectServer::ProjectServer(ProjectServerApi& api, std::size_t threads)
    : api_(api), http_(std::make_unique<httplib::Server>()) {
  http_->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  // The library's default also shares the port with any other process that asks; a second
  // server on a taken port must fail instead of silently splitting the requests.
  http_->set_socket_options([](socket_t socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  const auto dispatch = [this](const httplib::Request& in, httplib::Response& out) {
    send(api_.handle(apiRequest(in)), out);
  };
  const std::string everything = ".*";
  http_->Get(everything, dispatch);
  http_->Post(everything, dispatch);
  http_->Put(everything, dispatch);
  http_->Patch(everything, dispatch);
  http_->Delete(everything, dispatch);
  http_->Options(everything, dispatch);
  // Failures of the server itself go to standard error; the caller's mistakes are the caller's.
  http_->set_logger([](const httplib::Request& in, const httplib::Response& out) {
    if (out.status >= 500) {
      std::fprintf(stderr, "orvan_project_server: %s %s answered %d: %s\n", in.method.c_str(),
                   in.path.c_str(), out.status, out.body.c_str());
    }
  });
  // A request that fails inside the server still gets the error envelope, never a dropped
  // connection.
  http_->set_exception_handler(
      [](const httplib::Request&, httplib::Response& out, std::exception_ptr failure) {
        std::string reason = "The project server failed on this request";
        try {
          std::rethrow_exception(failure);
        } catch (const std::exception& exception) {
          reason += std::string(": ") + exception.what();
        } catch (...) {
        }
        const editor::VelkErrorEnvelope envelope{
            .accepted = false, .code = "server_error", .message = reason};
        out.status = 500;
        out.set_header("Content-Type", kJsonType);
        out.body = editor::encodeJson(envelope);
      });
}

ProjectServer::~ProjectServer() {
  stop();
}

editor::Result<int, std::string> ProjectServer::bind(const std::string& host, int port) {
  errno = 0;
  if (port == 0) {
    const int bound = http_->bind_to_any_port(host);
    if (bound > 0)
      return bound;
  } else if (http_->bind_to_port(host, port)) {
    return port;
  }
  const std::string reason = errno != 0 ? std::strerror(errno) : "the address is not usable";
  return "cannot listen on " + host + ":" + std::to_string(port) + ": " + reason;
}

void ProjectServer::start() {
  if (thread_.joinable())
    return;
  ended_ = false;
  thread_ = std::thread([this] {
    http_->listen_after_bind();
    ended_ = true;
  });
  // Only a running server can be stopped; waiting for it here makes stop() right at any time.
  while (!http_->is_running() && !ended_)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

bool ProjectServer::running() const {
  return thread_.joinable() && !ended_ && http_->is_running();
}

void ProjectServer::stop() {
  http_->stop();
  if (thread_.joinable())
    thread_.join();
}

}  // namespace orvan::engine
