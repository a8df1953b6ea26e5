#pragma once

#include <memory>

#include "Platform/HttpClient.h"

namespace orvan::editor {

// The editor's HTTP session over libcurl. One network thread drives a multi handle; a share
// handle gives all requests one cache of connections, DNS answers and TLS sessions. Requests are
// handed to the thread through a queue and a wake-up, so `send` never waits on the network.
//
// Only http and https URLs are fetched, and redirects are not followed (a 3xx is a response like
// any other). Answers are not asked for compressed: a server compressing a stream holds its bytes
// back, and a quiet stream looks like a server that stopped answering. At most six connections go
// to one server; a request waiting for one of them is silent as far as its time-out goes.
//
// Make and destroy it on the main thread; `main` must outlive it. Destruction cancels what is in
// flight without calling anyone back (see HttpClient) and returns once the network thread is gone,
// which never waits on a slow server or a slow name lookup.
class CurlHttpClient final : public HttpClient {
 public:
  explicit CurlHttpClient(MainExecutor& main);
  ~CurlHttpClient() override;

  CurlHttpClient(const CurlHttpClient&) = delete;
  CurlHttpClient& operator=(const CurlHttpClient&) = delete;

  TaskHandle send(HttpRequest request, ProgressHandler onProgress,
                  CompletionHandler completion) override;

 private:
  class Session;
  std::unique_ptr<Session> session_;
};

}  // namespace orvan::editor
