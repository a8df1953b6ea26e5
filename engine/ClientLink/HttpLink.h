#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace orvan::engine {

// An HTTP answer, whatever its status.
struct HttpReply {
  long status = 0;
  std::string body;
};

// A request either got an answer or failed on the way; `failure` then says what failed. Failures
// of the transport always contain the word "connection", which is what the editor's queue looks
// for when it decides to retry an idempotent write.
struct HttpOutcome {
  std::optional<HttpReply> reply;
  std::string failure;

  bool ok() const { return reply.has_value(); }
};

struct HttpLinkOptions {
  std::chrono::milliseconds connectTimeout{5000};
  // The whole exchange of one posted request, from sending to the last byte of its answer.
  std::chrono::milliseconds replyTimeout{60000};
  // Answers beyond this many bytes fail instead of taking the memory.
  std::size_t maxReplyBytes = std::size_t{64} << 20;
};

// How a streamed GET came to an end.
enum class StreamEnd {
  kEnded,    // the server ended the stream, or dropped it after it had answered 2xx
  kSilent,   // no byte came for the silence limit
  kStopped,  // the chunk callback asked to stop
  kRefused,  // the server answered with a status other than 2xx (`status`, `message`)
  kFailed,   // no answer at all: no connection, a broken handshake (`message`)
};

struct StreamOutcome {
  StreamEnd end = StreamEnd::kFailed;
  long status = 0;
  std::string message;
};

// One libcurl easy handle for the life of the process: every request goes through it, so
// successive requests reuse one kept-alive connection instead of connecting anew. Not
// thread-safe; each helper talks to its server from one thread.
class HttpLink {
 public:
  // `baseUrl` is an origin (see httpBaseForAddress); `bearer`, when not empty, goes out as
  // "Authorization: Bearer ..." on every request. Gives nullptr and sets `error` when the token
  // cannot travel in a header or libcurl cannot start.
  static std::unique_ptr<HttpLink> open(std::string baseUrl, std::string bearer,
                                        HttpLinkOptions options, std::string& error);
  ~HttpLink();
  HttpLink(const HttpLink&) = delete;
  HttpLink& operator=(const HttpLink&) = delete;

  // POSTs a JSON body to `path` (starting with "/") and reads the whole answer.
  HttpOutcome postJson(std::string_view path, std::string_view body);

  // GETs `pathAndQuery` and hands every received piece of the body to `onChunk` as it arrives
  // (pieces split lines anywhere). `onChunk` returns false to stop. The transfer ends when the
  // server ends it, or when no byte came for `silence` (checked about once a second by libcurl,
  // so the end comes up to a second late).
  StreamOutcome streamGet(std::string_view pathAndQuery,
                          const std::function<bool(std::string_view)>& onChunk,
                          std::chrono::milliseconds silence);

  // Percent-encodes a query value.
  std::string escapeQueryValue(std::string_view value) const;

  const std::string& baseUrl() const { return baseUrl_; }

 private:
  struct Handle;
  HttpLink(std::string baseUrl, std::string bearer, HttpLinkOptions options,
           std::unique_ptr<Handle> handle);

  std::string baseUrl_;
  std::string bearer_;
  HttpLinkOptions options_;
  std::unique_ptr<Handle> handle_;
};

// The session token the editor hands its helpers: the environment variable ORVAN_AUTH_TOKEN, ""
// when it is unset. Never an argument, where every user of the machine could read it.
std::string bearerFromEnvironment();

}  // namespace orvan::engine
