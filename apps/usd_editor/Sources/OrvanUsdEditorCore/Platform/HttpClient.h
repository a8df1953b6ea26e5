#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Foundation/Executors.h"
#include "Foundation/Task.h"
#include "orvan/wire/Error.h"

namespace orvan::editor {

struct HttpHeader {
  std::string name;
  std::string value;
  bool operator==(const HttpHeader&) const = default;
};

// A request body streamed from a file. The file is opened when the request starts, off the main
// thread; its size at that moment is the Content-Length.
struct HttpFileBody {
  std::filesystem::path path;
  bool operator==(const HttpFileBody&) const = default;
};

// No body, bytes held in memory, or a file.
using HttpBody = std::variant<std::monostate, std::string, HttpFileBody>;

// What an answer may weigh, headers and body together. Small answers (lists, receipts, errors) get
// the default; the stage and the project, which grow with the scene, get the large limit.
inline constexpr std::size_t kDefaultMaxResponseBytes = std::size_t{16} << 20;
inline constexpr std::size_t kLargeDocumentMaxResponseBytes = std::size_t{512} << 20;

struct HttpRequest {
  std::string method = "GET";
  std::string url = {};
  // Sent in this order. A header the caller does not give is not invented either: there is no
  // default Content-Type, and a body goes out without "Expect: 100-continue".
  std::vector<HttpHeader> headers = {};
  HttpBody body = {};
  // The longest the exchange may go without a byte moving either way, from the start (so the
  // connection must be made within it) to the last byte of the answer. A large upload on a slow
  // line may take longer than this in all; a server that stops answering may not. None means no
  // limit.
  std::optional<Duration> timeout = {};
  // The most bytes of answer (headers and body) kept. The count is checked as the bytes arrive,
  // so an answer without end, chunked or not, costs at most this much memory: beyond it the
  // request fails with kTransportResponseTooLarge.
  std::size_t maxResponseBytes = kDefaultMaxResponseBytes;

  // Replaces every header of that name (case-insensitive) by one with this value.
  void setHeader(std::string_view name, std::string value);
  std::optional<std::string> header(std::string_view name) const;

  bool operator==(const HttpRequest&) const = default;
};

struct HttpResponse {
  int statusCode = 0;
  // As received, in order (of the final response only, not of a "100 Continue").
  std::vector<HttpHeader> headers = {};
  std::string body = {};

  // The first header of that name, compared without regard to case.
  std::optional<std::string> header(std::string_view name) const;

  bool operator==(const HttpResponse&) const = default;
};

// The editor's one HTTP session. Any status the server answers with is a response, 304 and 500
// alike; deciding what a status means is the caller's business. Only transport failures are
// errors: `Error::transport` with kTransportTimedOut, kTransportCannotConnect, kTransportBadURL,
// kTransportResponseTooLarge or kTransportFailed, and kTransportCancelled for a cancelled request.
//
// Callbacks run on the main executor the client was made with:
// - `onProgress` (may be empty) gets the fraction of the request body sent so far, 0 to 1, rising,
//   never after the completion; requests without a body report nothing.
// - `completion` runs exactly once per request, with the response or the error. Cancelling the
//   returned handle delivers `Error::cancelled()` to it (later, never inside `cancel()`), and an
//   answer that arrives after the cancellation is dropped. A caller that wants nothing after a
//   cancel therefore checks `isCancellation()`.
// - Once the client is destroyed, no callback of its requests runs any more, not even the ones
//   already on their way to the main executor.
class HttpClient {
 public:
  using ProgressHandler = std::function<void(double fraction)>;
  using CompletionHandler = std::function<void(Result<HttpResponse>)>;

  virtual ~HttpClient() = default;

  // May be called from any thread. Never throws, never blocks on the network.
  virtual TaskHandle send(HttpRequest request, ProgressHandler onProgress,
                          CompletionHandler completion) = 0;
};

}  // namespace orvan::editor
