#include "ProjectServer/ProjectServer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <httplib.h>

#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/URLComponents.h"
#include "orvan/wire/records/ErrorEnvelope.h"

namespace orvan::engine {
namespace {

constexpr const char* kJsonType = "application/json";

bool holdsNul(std::string_view text) {
  return text.find('\0') != std::string_view::npos;
}

std::multimap<std::string, std::string> formItems(std::string_view body) {
  std::multimap<std::string, std::string> items;
  while (!body.empty()) {
    const std::size_t amp = body.find('&');
    const std::string_view pair = body.substr(0, amp);
    const std::size_t eq = pair.find('=');
    if (!pair.empty())
      items.emplace(editor::percentDecoded(pair.substr(0, eq), true),
                    eq == std::string_view::npos
                        ? std::string()
                        : editor::percentDecoded(pair.substr(eq + 1), true));
    if (amp == std::string_view::npos)
      break;
    body.remove_prefix(amp + 1);
  }
  return items;
}

ApiRequest apiRequest(const httplib::Request& in) {
  ApiRequest request{.method = in.method, .path = in.path};
  request.query.insert(in.params.begin(), in.params.end());
  if (in.method == "POST" &&
      in.get_header_value("Content-Type").starts_with("application/x-www-form-urlencoded")) {
    request.form = formItems(in.body);
  }
  if (in.method == "POST" && in.get_header_value("Content-Type").starts_with("application/json"))
    request.body = in.body;
  request.authorization = in.get_header_value("Authorization");
  request.ifNoneMatch = in.get_header_value("If-None-Match");
  request.malformed = holdsNul(request.path);
  for (const auto* items : {&request.query, &request.form}) {
    for (const auto& [key, value] : *items)
      request.malformed = request.malformed || holdsNul(key) || holdsNul(value);
  }
  return request;
}

BodyHead bodyHead(const httplib::Request& in) {
  BodyHead head{.contentLength = std::nullopt,
                .chunked = in.has_header("Transfer-Encoding"),
                .expected = in.method == "POST" || in.method == "PUT" || in.method == "PATCH" ||
                            in.method == "DELETE"};
  if (in.has_header("Content-Length")) {
    const std::string text = in.get_header_value("Content-Length");
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    // A length that does not read as one counts as none: the request is refused as unbounded.
    if (error == std::errc() && end == text.data() + text.size() && !text.empty())
      head.contentLength = length;
    else
      head.chunked = true;
  }
  return head;
}

// Writes the document's text from `offset` on. Its pieces are a prim's record each, a few
// kilobytes: they are gathered into writes of about a megabyte, so that a large stage costs a few
// hundred system calls and not hundreds of thousands.
bool writeGathered(const InspectionDocument& document, std::size_t offset,
                   httplib::DataSink& sink) {
  constexpr std::size_t kPiece = 1 << 20;
  std::string_view text = document.textAt(offset);
  if (text.size() >= kPiece)
    return sink.write(text.data(), kPiece);
  thread_local std::string gathered;
  gathered.clear();
  while (!text.empty() && gathered.size() + text.size() <= kPiece) {
    gathered.append(text);
    text = document.textAt(offset + gathered.size());
  }
  return sink.write(gathered.data(), gathered.size());
}

void send(ApiAnswer answer, httplib::Response& out) {
  out.status = answer.status;
  if (!answer.etag.empty())
    out.set_header("ETag", answer.etag);
  if (!answer.allow.empty())
    out.set_header("Allow", answer.allow);
  if (!answer.location.empty())
    out.set_header("Location", answer.location);
  if (answer.page) {
    // Sign-in pages carry sessions and passwords: not kept, not shown inside other pages.
    out.set_header("Cache-Control", "no-store");
    out.set_header("X-Frame-Options", "DENY");
    out.set_header("Referrer-Policy", "no-referrer");
  }
  if (answer.status == 304)
    return;
  if (answer.stream) {
    // Sent as it comes, chunk by chunk, until the stream ends or the client goes away (a write
    // that fails ends the provider, and with it the connection).
    out.set_chunked_content_provider(
        answer.contentType,
        [stream = answer.stream, head = std::make_shared<std::string>(std::move(answer.body))](
            std::size_t, httplib::DataSink& sink) {
          if (!head->empty()) {
            const std::string first = std::exchange(*head, std::string());
            return sink.write(first.data(), first.size());
          }
          std::optional<std::string> piece = stream->next();
          if (!piece) {
            sink.done();
            return true;
          }
          return sink.write(piece->data(), piece->size());
        });
    return;
  }
  if (answer.document) {
    // The inspection's pieces between the head and the tail, none of them copied.
    auto owned = std::make_shared<std::pair<std::string, std::string>>(std::move(answer.body),
                                                                       std::move(answer.tail));
    const std::size_t length = owned->first.size() + answer.document->size() + owned->second.size();
    out.set_content_provider(length, answer.contentType,
                             [owned, document = answer.document](std::size_t offset, std::size_t,
                                                                 httplib::DataSink& sink) {
                               const std::string& head = owned->first;
                               if (offset < head.size())
                                 return sink.write(head.data() + offset, head.size() - offset);
                               offset -= head.size();
                               if (offset < document->size()) {
                                 return writeGathered(*document, offset, sink);
                               }
                               offset -= document->size();
                               const std::string& tail = owned->second;
                               if (offset < tail.size())
                                 return sink.write(tail.data() + offset, tail.size() - offset);
                               return false;
                             });
    return;
  }
  if (!answer.sharedPart) {
    out.set_header("Content-Type", answer.contentType);
    out.body = std::move(answer.body);
    return;
  }
  // Written piece by piece from the shared text, which the provider keeps alive.
  auto pieces =
      std::make_shared<std::array<std::string_view, 3>>(std::array<std::string_view, 3>{});
  auto owned = std::make_shared<std::pair<std::string, std::string>>(std::move(answer.body),
                                                                     std::move(answer.tail));
  (*pieces)[0] = owned->first;
  (*pieces)[1] = *answer.sharedPart;
  (*pieces)[2] = owned->second;
  const std::size_t length = (*pieces)[0].size() + (*pieces)[1].size() + (*pieces)[2].size();
  out.set_content_provider(length, answer.contentType,
                           [pieces, owned, shared = answer.sharedPart](
                               std::size_t offset, std::size_t, httplib::DataSink& sink) {
                             constexpr std::size_t kPiece = 1 << 20;
                             for (const std::string_view piece : *pieces) {
                               if (offset >= piece.size()) {
                                 offset -= piece.size();
                                 continue;
                               }
                               const std::size_t size = std::min(kPiece, piece.size() - offset);
                               return sink.write(piece.data() + offset, size);
                             }
                             return false;
                           });
}

// Sends a refusal whose request body was left unread, and ends the connection after it: what
// would follow on the socket is that body, not another request. The library closes a connection
// whose content provider reports a failure; this provider writes the whole answer and then
// reports one, so the client gets a complete answer followed by the end of the connection.
void sendAndClose(ApiAnswer answer, const httplib::Request& in, httplib::Response& out) {
  // The request object belongs to the library's connection loop and is not const there; marking
  // it makes the answer say "Connection: close".
  auto& request = const_cast<httplib::Request&>(in);
  request.headers.erase("Connection");
  request.headers.emplace("Connection", "close");
  const std::string type = answer.contentType;
  auto body = std::make_shared<std::string>(std::move(answer.body));
  answer.body.clear();
  send(std::move(answer), out);
  out.headers.erase("Content-Type");
  out.set_content_provider(body->size(), type,
                           [body](std::size_t, std::size_t, httplib::DataSink& sink) {
                             sink.write(body->data(), body->size());
                             return false;
                           });
}

// A thread per connection: threads start as connections wait for one, up to a bound, so a client
// that holds its connection open costs that connection's thread and nobody else's.
class ElasticTaskQueue final : public httplib::TaskQueue {
 public:
  ElasticTaskQueue(std::size_t minThreads, std::size_t maxThreads)
      : maxThreads_(std::max<std::size_t>(maxThreads, 1)) {
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < std::min(minThreads, maxThreads_); ++i)
      threads_.emplace_back([this] { work(); });
  }

  void enqueue(std::function<void()> job) override {
    {
      const std::lock_guard lock(mutex_);
      jobs_.push_back(std::move(job));
      if (jobs_.size() > idle_ && threads_.size() < maxThreads_)
        threads_.emplace_back([this] { work(); });
    }
    ready_.notify_one();
  }

  void shutdown() override {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    ready_.notify_all();
    for (std::thread& thread : threads_)
      thread.join();
    threads_.clear();
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      ++idle_;
      ready_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
      --idle_;
      if (jobs_.empty())
        return;
      std::function<void()> job = std::move(jobs_.front());
      jobs_.pop_front();
      lock.unlock();
      job();
      lock.lock();
    }
  }

  const std::size_t maxThreads_;
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> jobs_;
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  bool stopping_ = false;
};

// What one request may take of a connection while it is read: its head (64 KiB) and the largest
// body any endpoint takes, within a minute. The library reads a header line to its end before it
// looks at its length, so without a bound a client could fill the memory with one endless line,
// or hold a thread forever by sending a byte now and then.
constexpr std::size_t kHeadBytes = 64 * 1024;
constexpr std::size_t kBodyBytes = 32 * 1024 * 1024 + 8 * 1024;
constexpr std::chrono::seconds kRequestDeadline{60};

// A connection's socket as the library reads and writes it, with a buffer that outlives each
// request (a client may send the next one early) and a budget of bytes and time per request.
class ConnectionStream final : public httplib::Stream {
 public:
  ConnectionStream(socket_t socket, const ServerLimits& limits)
      : socket_(socket), readTimeout_(limits.readTimeout), writeTimeout_(limits.writeTimeout) {}

  void startRequest() {
    // The head gets its own small budget; the body's comes once the blank line that ends the head
    // went by, so a header line without end is cut off early whatever the bodies may weigh.
    budget_ = kHeadBytes;
    inHead_ = true;
    lastBytes_ = 0;
    deadline_ = std::chrono::steady_clock::now() + kRequestDeadline;
  }
  bool buffered() const { return begin_ < end_; }
  // Whether the socket has something to read (or has ended) within `timeout`.
  bool waitFor(short events, std::chrono::milliseconds timeout) const {
    pollfd ready{.fd = socket_, .events = events, .revents = 0};
    int count = 0;
    do {
      count = ::poll(&ready, 1, static_cast<int>(timeout.count()));
    } while (count < 0 && errno == EINTR);
    return count > 0;
  }

  bool is_readable() const override { return buffered() || waitFor(POLLIN, readTimeout_); }
  bool is_writable() const override { return waitFor(POLLOUT, writeTimeout_); }

  ssize_t read(char* out, std::size_t size) override {
    if (budget_ == 0)
      return -1;
    if (!buffered()) {
      const auto now = std::chrono::steady_clock::now();
      if (now >= deadline_)
        return -1;
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - now);
      if (!waitFor(POLLIN, std::min<std::chrono::milliseconds>(readTimeout_, left)))
        return -1;
      const ssize_t received = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
      if (received <= 0)
        return received;
      begin_ = 0;
      end_ = static_cast<std::size_t>(received);
    }
    std::size_t count = std::min({size, end_ - begin_, budget_});
    bool headEnded = false;
    if (inHead_) {
      // Hand out the head up to its end at the most, so the body's budget starts there.
      for (std::size_t i = 0; i < count && !headEnded; ++i) {
        lastBytes_ = (lastBytes_ << 8) | static_cast<unsigned char>(buffer_[begin_ + i]);
        headEnded = (lastBytes_ & 0xFFFFFFFFu) == 0x0D0A0D0Au;
        if (headEnded)
          count = i + 1;
      }
    }
    std::memcpy(out, buffer_.data() + begin_, count);
    begin_ += count;
    budget_ -= count;
    if (headEnded) {
      inHead_ = false;
      budget_ = kBodyBytes;
    }
    return static_cast<ssize_t>(count);
  }

  ssize_t write(const char* data, std::size_t size) override {
    if (!waitFor(POLLOUT, writeTimeout_))
      return -1;
    return ::send(socket_, data, size, MSG_NOSIGNAL);
  }

  void get_remote_ip_and_port(std::string& ip, int& port) const override {
    address(::getpeername, ip, port);
  }
  void get_local_ip_and_port(std::string& ip, int& port) const override {
    address(::getsockname, ip, port);
  }
  socket_t socket() const override { return socket_; }

 private:
  void address(int (*name)(int, sockaddr*, socklen_t*), std::string& ip, int& port) const {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    if (name(socket_, reinterpret_cast<sockaddr*>(&storage), &length) != 0)
      return;
    char host[NI_MAXHOST];
    char service[NI_MAXSERV];
    if (::getnameinfo(reinterpret_cast<const sockaddr*>(&storage), length, host, sizeof host,
                      service, sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
      return;
    }
    ip = host;
    port = std::atoi(service);
  }

  const socket_t socket_;
  const std::chrono::milliseconds readTimeout_;
  const std::chrono::milliseconds writeTimeout_;
  std::array<char, 16 * 1024> buffer_{};
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t budget_ = 0;
  bool inHead_ = true;
  std::uint64_t lastBytes_ = 0;  // the last bytes of the head read, to find its end
  std::chrono::steady_clock::time_point deadline_ = {};
};

}  // namespace

// The library's server with its connection loop replaced: each request is read through a
// ConnectionStream, and the listening queue is longer than the library's five, so that a burst of
// new connections is not left to the client's retry a second later.
class ProjectServer::Http final : public httplib::Server {
 public:
  explicit Http(const ServerLimits& limits) : limits_(limits) {}

  void widenBacklog() {
    const socket_t socket = svr_sock_;
    if (socket != INVALID_SOCKET)
      ::listen(socket, SOMAXCONN);
  }

 private:
  bool process_and_close_socket(socket_t socket) override {
    ConnectionStream stream(socket, limits_);
    for (std::size_t served = 0; served < limits_.keepAliveRequests && awaitRequest(stream);
         ++served) {
      stream.startRequest();
      bool closed = false;
      const bool last = served + 1 == limits_.keepAliveRequests;
      if (!process_request(stream, last, closed, nullptr) || closed)
        break;
    }
    ::shutdown(socket, SHUT_RDWR);
    ::close(socket);
    return true;
  }

  // Waits for the next request: up to the keep-alive time-out, and no longer than the server
  // runs. An ended connection counts as ready; reading it then ends the loop.
  bool awaitRequest(const ConnectionStream& stream) const {
    const auto until = std::chrono::steady_clock::now() + limits_.keepAliveTimeout;
    while (svr_sock_ != INVALID_SOCKET) {
      if (stream.buffered() || stream.waitFor(POLLIN, std::chrono::milliseconds(100)))
        return true;
      if (std::chrono::steady_clock::now() >= until)
        return false;
    }
    return false;
  }

  const ServerLimits limits_;
};

ProjectServer::ProjectServer(ProjectServerApi& api, ServerLimits limits)
    : api_(api), http_(std::make_unique<Http>(limits)) {
  http_->new_task_queue = [limits] {
    return new ElasticTaskQueue(limits.minThreads, limits.maxThreads);
  };
  // The library's default also shares the port with any other process that asks; a second
  // server on a taken port must fail instead of silently splitting the requests. Without
  // TCP_NODELAY, an answer written in two pieces waits for the client's delayed acknowledgement
  // on every kept-alive connection.
  http_->set_socket_options([](socket_t socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  });
  http_->set_tcp_nodelay(true);
  http_->set_read_timeout(limits.readTimeout);
  http_->set_write_timeout(limits.writeTimeout);
  http_->set_keep_alive_max_count(limits.keepAliveRequests);
  http_->set_keep_alive_timeout(limits.keepAliveTimeout.count());
  // What admit() lets through is within its endpoint's limit; this bounds the rest.
  http_->set_payload_max_length(bodyLimit("/api/edit"));
  http_->set_pre_routing_handler([this](const httplib::Request& in, httplib::Response& out) {
    const BodyHead body = bodyHead(in);
    std::optional<ApiAnswer> refusal = api_.admit(apiRequest(in), body);
    if (!refusal)
      return httplib::Server::HandlerResponse::Unhandled;
    sendAndClose(std::move(*refusal), in, out);
    return httplib::Server::HandlerResponse::Handled;
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
    if (bound > 0) {
      http_->widenBacklog();
      return bound;
    }
  } else if (http_->bind_to_port(host, port)) {
    http_->widenBacklog();
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
  // Open change streams would hold their connections until their next heartbeat.
  api_.closeStreams();
  http_->stop();
  if (thread_.joinable())
    thread_.join();
}

}  // namespace orvan::engine
