#include "ClientLink/HttpLink.h"

#include <curl/curl.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <utility>

namespace orvan::engine {
namespace {

// Error texts of the transport are short; a bigger answer body of a refused stream is cut here.
constexpr std::size_t kMaxRefusalBodyBytes = 64 * 1024;

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

struct HeaderListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

bool startLibcurl() {
  static const bool started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return started;
}

long milliseconds(std::chrono::milliseconds duration) {
  return static_cast<long>(
      std::clamp<std::chrono::milliseconds::rep>(duration.count(), 0, LONG_MAX));
}

bool isHeaderSafe(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
  });
}

HeaderList headerList(std::initializer_list<std::string> lines) {
  HeaderList list;
  for (const std::string& line : lines) {
    if (line.empty())
      continue;
    curl_slist* const grown = curl_slist_append(list.get(), line.c_str());
    if (grown == nullptr)
      return list;
    static_cast<void>(list.release());
    list.reset(grown);
  }
  return list;
}

std::string describe(CURLcode code, const char* details) {
  return details != nullptr && details[0] != '\0' ? std::string(details)
                                                  : std::string(curl_easy_strerror(code));
}

// The failure of a request that got no answer, worded so that it always names the connection.
std::string transportFailure(const std::string& url, CURLcode code, const char* details) {
  if (code == CURLE_OPERATION_TIMEDOUT)
    return "connection to " + url + " timed out: " + describe(code, details);
  return "connection to " + url + " failed: " + describe(code, details);
}

// What a posted request collects while libcurl runs it.
struct ReplyCollector {
  std::string body;
  std::size_t limit = 0;
  bool overflowed = false;
};

std::size_t collectReply(char* data, std::size_t size, std::size_t count, void* user) {
  auto* collector = static_cast<ReplyCollector*>(user);
  const std::size_t bytes = size * count;
  if (collector->body.size() + bytes > collector->limit) {
    collector->overflowed = true;
    return 0;
  }
  collector->body.append(data, bytes);
  return bytes;
}

// What a streamed request keeps between libcurl's callbacks.
struct StreamState {
  CURL* easy = nullptr;
  const std::function<bool(std::string_view)>* onChunk = nullptr;
  std::chrono::steady_clock::time_point lastByte;
  std::chrono::milliseconds silence{0};
  long status = 0;
  bool silent = false;
  bool stopped = false;
  std::string refusalBody;
};

long responseStatus(CURL* easy) {
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  return status;
}

std::size_t receiveStreamHeader(char*, std::size_t size, std::size_t count, void* user) {
  static_cast<StreamState*>(user)->lastByte = std::chrono::steady_clock::now();
  return size * count;
}

std::size_t receiveStreamChunk(char* data, std::size_t size, std::size_t count, void* user) {
  auto* state = static_cast<StreamState*>(user);
  const std::size_t bytes = size * count;
  state->lastByte = std::chrono::steady_clock::now();
  state->status = responseStatus(state->easy);
  if (state->status < 200 || state->status >= 300) {
    const std::size_t room =
        kMaxRefusalBodyBytes - std::min(kMaxRefusalBodyBytes, state->refusalBody.size());
    state->refusalBody.append(data, std::min(room, bytes));
    return bytes;
  }
  if (!(*state->onChunk)(std::string_view(data, bytes))) {
    state->stopped = true;
    return 0;
  }
  return bytes;
}

int watchSilence(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  auto* state = static_cast<StreamState*>(user);
  if (std::chrono::steady_clock::now() - state->lastByte < state->silence)
    return 0;
  state->silent = true;
  return 1;
}

}  // namespace

struct HttpLink::Handle {
  std::unique_ptr<CURL, EasyDeleter> easy;
  char errors[CURL_ERROR_SIZE] = {};
};

std::unique_ptr<HttpLink> HttpLink::open(std::string baseUrl, std::string bearer,
                                         HttpLinkOptions options, std::string& error) {
  if (!isHeaderSafe(bearer)) {
    error = "ORVAN_AUTH_TOKEN holds control characters and cannot be sent as a bearer token";
    return nullptr;
  }
  if (!startLibcurl()) {
    error = "libcurl could not be initialised";
    return nullptr;
  }
  auto handle = std::make_unique<Handle>();
  handle->easy.reset(curl_easy_init());
  if (!handle->easy) {
    error = "libcurl could not create a transfer handle";
    return nullptr;
  }
  return std::unique_ptr<HttpLink>(
      new HttpLink(std::move(baseUrl), std::move(bearer), options, std::move(handle)));
}

HttpLink::HttpLink(std::string baseUrl, std::string bearer, HttpLinkOptions options,
                   std::unique_ptr<Handle> handle)
    : baseUrl_(std::move(baseUrl)),
      bearer_(std::move(bearer)),
      options_(options),
      handle_(std::move(handle)) {}

HttpLink::~HttpLink() = default;

HttpOutcome HttpLink::postJson(std::string_view path, std::string_view body) {
  CURL* const easy = handle_->easy.get();
  // A reset keeps the handle's live connections: only the options of the last request go.
  curl_easy_reset(easy);
  const std::string url = baseUrl_ + std::string(path);
  const HeaderList headers =
      headerList({"Content-Type: application/json", "Accept: application/json",
                  // No "100 Continue" round trip before large bodies.
                  "Expect:", bearer_.empty() ? std::string() : "Authorization: Bearer " + bearer_});
  ReplyCollector collector;
  collector.limit = options_.maxReplyBytes;
  handle_->errors[0] = '\0';
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, handle_->errors);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(easy, CURLOPT_POST, 1L);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(options_.connectTimeout));
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, milliseconds(options_.replyTimeout));
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &collectReply);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &collector);
  const CURLcode code = curl_easy_perform(easy);
  if (collector.overflowed) {
    return HttpOutcome{std::nullopt, "the answer of " + url + " exceeded its limit of " +
                                         std::to_string(options_.maxReplyBytes) + " bytes"};
  }
  if (code != CURLE_OK)
    return HttpOutcome{std::nullopt, transportFailure(url, code, handle_->errors)};
  return HttpOutcome{HttpReply{responseStatus(easy), std::move(collector.body)}, {}};
}

StreamOutcome HttpLink::streamGet(std::string_view pathAndQuery,
                                  const std::function<bool(std::string_view)>& onChunk,
                                  std::chrono::milliseconds silence) {
  CURL* const easy = handle_->easy.get();
  curl_easy_reset(easy);
  const std::string url = baseUrl_ + std::string(pathAndQuery);
  const HeaderList headers =
      headerList({"Accept: application/x-ndjson",
                  bearer_.empty() ? std::string() : "Authorization: Bearer " + bearer_});
  StreamState state;
  state.easy = easy;
  state.onChunk = &onChunk;
  state.lastByte = std::chrono::steady_clock::now();
  state.silence = silence;
  handle_->errors[0] = '\0';
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, handle_->errors);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(options_.connectTimeout));
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &receiveStreamHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, &state);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &receiveStreamChunk);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &state);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &watchSilence);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &state);
  const CURLcode code = curl_easy_perform(easy);
  const long status = state.status != 0 ? state.status : responseStatus(easy);
  if (status != 0 && (status < 200 || status >= 300)) {
    std::string message = "the server answered " + url + " with HTTP " + std::to_string(status);
    if (!state.refusalBody.empty())
      message += ": " + state.refusalBody;
    return StreamOutcome{StreamEnd::kRefused, status, std::move(message)};
  }
  if (state.stopped)
    return StreamOutcome{StreamEnd::kStopped, status, {}};
  if (state.silent) {
    return StreamOutcome{
        StreamEnd::kSilent, status,
        "nothing came from " + url + " for " + std::to_string(silence.count()) + " ms"};
  }
  if (code == CURLE_OK)
    return StreamOutcome{StreamEnd::kEnded, status, {}};
  if (status != 0) {
    return StreamOutcome{StreamEnd::kEnded, status,
                         "the stream broke off: " + describe(code, handle_->errors)};
  }
  return StreamOutcome{StreamEnd::kFailed, 0, transportFailure(url, code, handle_->errors)};
}

std::string HttpLink::escapeQueryValue(std::string_view value) const {
  char* const escaped =
      curl_easy_escape(handle_->easy.get(), value.data(), static_cast<int>(value.size()));
  if (escaped == nullptr)
    return {};
  std::string result(escaped);
  curl_free(escaped);
  return result;
}

std::string bearerFromEnvironment() {
  const char* const token = std::getenv("ORVAN_AUTH_TOKEN");
  return token != nullptr ? std::string(token) : std::string();
}

}  // namespace orvan::engine
