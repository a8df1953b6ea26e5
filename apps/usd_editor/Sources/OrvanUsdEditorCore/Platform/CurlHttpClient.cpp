#include "Platform/CurlHttpClient.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <limits>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Platform/UniqueFd.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {
namespace {

// The longest the network thread sleeps with nothing to do. New work and cancellations wake it at
// once and libcurl's own timers sooner, so this only bounds the cost of a missed wake-up.
constexpr int kIdlePollMilliseconds = 1000;
// Upload progress is passed on in steps of at least this much, so that a large upload does not
// flood the main thread with closures.
constexpr double kProgressStep = 0.01;
// Per server. Beyond this, requests wait for a free connection instead of opening more: a small
// server (ours runs a handful of worker threads) serves a few kept-alive connections well and a
// crowd of new ones badly.
constexpr long kMaxConnectionsPerHost = 6;

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using EasyHandle = std::unique_ptr<CURL, EasyDeleter>;

struct HeaderListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

Error failure(std::string description) {
  return Error::transport(Error::kTransportFailed, std::move(description));
}

// Where the bytes of a request body come from while libcurl asks for them.
class BodySource {
 public:
  static BodySource fromMemory(std::string bytes) {
    BodySource source;
    source.size_ = static_cast<curl_off_t>(bytes.size());
    source.memory_ = std::move(bytes);
    return source;
  }

  static Result<BodySource> fromFile(const std::filesystem::path& path) {
    // Without blocking: a FIFO put where a file was expected must not hold the network thread
    // until somebody writes to it. It is refused below, like any other file that is no file.
    UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isValid())
      return cannotRead(path, errno);
    struct stat status {};
    if (::fstat(file.get(), &status) != 0)
      return cannotRead(path, errno);
    if (!S_ISREG(status.st_mode))
      return failure("cannot upload " + path.string() + ": not a file");
    BodySource source;
    source.size_ = static_cast<curl_off_t>(status.st_size);
    source.file_ = std::move(file);
    return source;
  }

  curl_off_t size() const { return size_; }

  bool seek(curl_off_t offset) {
    if (offset < 0 || offset > size_)
      return false;
    if (file_.isValid())
      return ::lseek(file_.get(), offset, SEEK_SET) == offset;
    offset_ = static_cast<std::size_t>(offset);
    return true;
  }

  // The count of bytes copied, 0 at the end, or nothing when the file could not be read.
  std::optional<std::size_t> read(char* buffer, std::size_t capacity) {
    if (!file_.isValid()) {
      const std::size_t count = std::min(capacity, memory_.size() - offset_);
      std::memcpy(buffer, memory_.data() + offset_, count);
      offset_ += count;
      return count;
    }
    for (;;) {
      const ssize_t count = ::read(file_.get(), buffer, capacity);
      if (count >= 0)
        return static_cast<std::size_t>(count);
      if (errno != EINTR)
        return std::nullopt;
    }
  }

 private:
  static Error cannotRead(const std::filesystem::path& path, int error) {
    return failure("cannot read " + path.string() + ": " + std::strerror(error));
  }

  std::string memory_;
  std::size_t offset_ = 0;
  UniqueFd file_;
  curl_off_t size_ = 0;
};

// Wakes the network thread when a request is cancelled, so that it lets go of the transfer now
// rather than at its next timer.
struct MultiWaker {
  CURLM* multi;
  void operator()() const { curl_multi_wakeup(multi); }
};

// Method and header names are HTTP tokens; values must not smuggle in a line break.
bool isToken(std::string_view text) {
  static constexpr std::string_view kSymbols = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) ||
           kSymbols.find(c) != std::string_view::npos;
  });
}

bool isHeaderValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

// Rounded up, so that a wait never ends just before its deadline and spins.
long wholeMilliseconds(Duration duration) {
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(duration).count();
  return static_cast<long>(std::clamp<std::int64_t>(milliseconds, 0, LONG_MAX));
}

// Adds one line of the response's header block to `headers`.
void addResponseHeaderLine(std::string_view line, std::vector<HttpHeader>& headers) {
  // A new status line starts a new block ("100 Continue", then the real answer).
  if (line.starts_with("HTTP/")) {
    headers.clear();
    return;
  }
  if (trimWhitespaceAndNewlines(line).empty())
    return;
  if ((line.front() == ' ' || line.front() == '\t') && !headers.empty()) {
    headers.back().value += ' ';
    headers.back().value += trimWhitespaceAndNewlines(line);
    return;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos)
    return;
  headers.push_back(HttpHeader{std::string(trimWhitespaceAndNewlines(line.substr(0, colon))),
                               std::string(trimWhitespaceAndNewlines(line.substr(colon + 1)))});
}

Error responseTooLarge(std::size_t limit) {
  return Error::transport(Error::kTransportResponseTooLarge,
                          "the answer exceeded its limit of " + std::to_string(limit) + " bytes");
}

Error transportError(CURLcode code, std::string_view details) {
  std::string description(details.empty() ? curl_easy_strerror(code) : details);
  if (code == CURLE_OPERATION_TIMEDOUT) {
    return Error::transport(Error::kTransportTimedOut, std::move(description));
  }
  if (code == CURLE_COULDNT_CONNECT || code == CURLE_COULDNT_RESOLVE_HOST ||
      code == CURLE_COULDNT_RESOLVE_PROXY) {
    return Error::transport(Error::kTransportCannotConnect, std::move(description));
  }
  if (code == CURLE_URL_MALFORMAT || code == CURLE_UNSUPPORTED_PROTOCOL) {
    return Error::transport(Error::kTransportBadURL, std::move(description));
  }
  return failure(std::move(description));
}

bool appendHeaderLine(HeaderList& list, const std::string& line) {
  curl_slist* const grown = curl_slist_append(list.get(), line.c_str());
  if (grown == nullptr)
    return false;
  // The head stays the same once the list exists; only the first append creates it.
  static_cast<void>(list.release());
  list.reset(grown);
  return true;
}

}  // namespace

class CurlHttpClient::Session {
 public:
  explicit Session(MainExecutor& main);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  TaskHandle send(HttpRequest request, ProgressHandler onProgress, CompletionHandler completion);

 private:
  // One request from `send` to its completion: queued by `send`, then owned by the network thread.
  struct Transfer {
    Session* session = nullptr;
    HttpRequest request;
    std::shared_ptr<const ProgressHandler> onProgress;
    CompletionHandler completion;
    std::stop_token token;
    std::optional<std::stop_callback<MultiWaker>> wakeOnCancel;

    // Network thread only.
    EasyHandle easy;
    HeaderList headerList;
    std::optional<BodySource> body;
    HttpResponse response;
    std::string bodyReadFailure;
    // Bytes of answer taken so far, headers and body, against `request.maxResponseBytes`.
    std::size_t receivedBytes = 0;
    bool exceededResponseLimit = false;
    double reportedFraction = -1.0;
    // When a byte last moved either way, for the request's time-out.
    TimePoint lastActivity;
    curl_off_t seenDownloaded = 0;
    curl_off_t seenUploaded = 0;
    char errorBuffer[CURL_ERROR_SIZE] = {};

    // Whether `count` more bytes of answer stay within the request's limit; once they would not,
    // the transfer is marked and ends.
    bool admitResponseBytes(std::size_t count) {
      if (count > request.maxResponseBytes - std::min(receivedBytes, request.maxResponseBytes)) {
        exceededResponseLimit = true;
        return false;
      }
      receivedBytes += count;
      return true;
    }
  };

  static std::size_t onResponseHeader(char* data, std::size_t size, std::size_t count, void* user);
  static std::size_t onResponseBody(char* data, std::size_t size, std::size_t count, void* user);
  static std::size_t onRequestBody(char* buffer, std::size_t size, std::size_t count, void* user);
  static int onTransferProgress(void* user, curl_off_t, curl_off_t downloaded,
                                curl_off_t uploadTotal, curl_off_t uploaded);
  static int onRequestBodySeek(void* user, curl_off_t offset, int origin);

  void run();
  bool adoptIncoming();
  void start(std::unique_ptr<Transfer> transfer);
  Status configure(Transfer& transfer);
  Status configureMethodAndBody(Transfer& transfer);
  Status configureHeaders(Transfer& transfer);
  void dropCancelled();
  void expireIdle();
  int pollMilliseconds() const;
  void collectFinished();
  void finish(CURL* easy, CURLcode code);
  std::unique_ptr<Transfer> retire(CURL* easy);
  void reportProgress(Transfer& transfer, double fraction);
  void deliver(Transfer& transfer, Result<HttpResponse> result);

  MainExecutor& main_;
  // Cleared when the client goes: closures already posted to the main executor then do nothing.
  std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
  CURLSH* share_ = nullptr;
  CURLM* multi_ = nullptr;

  std::mutex mutex_;
  std::vector<std::unique_ptr<Transfer>> incoming_;
  bool stopping_ = false;

  std::unordered_map<CURL*, std::unique_ptr<Transfer>> active_;  // network thread only
  std::thread thread_;
};

CurlHttpClient::Session::Session(MainExecutor& main) : main_(main) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  share_ = curl_share_init();
  if (share_ != nullptr) {
    // Only the network thread uses the share, so it needs no lock callbacks.
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  multi_ = curl_multi_init();
  if (multi_ == nullptr)
    return;
  curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, kMaxConnectionsPerHost);
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error&) {
    curl_multi_cleanup(multi_);
    multi_ = nullptr;
  }
}

CurlHttpClient::Session::~Session() {
  alive_->store(false);
  if (thread_.joinable()) {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    curl_multi_wakeup(multi_);
    thread_.join();
  }
  // Their cancel callbacks point at the multi handle, so they go first.
  incoming_.clear();
  if (multi_ != nullptr)
    curl_multi_cleanup(multi_);
  if (share_ != nullptr)
    curl_share_cleanup(share_);
  curl_global_cleanup();
}

TaskHandle CurlHttpClient::Session::send(HttpRequest request, ProgressHandler onProgress,
                                         CompletionHandler completion) {
  TaskHandle handle = TaskHandle::make();
  auto transfer = std::make_unique<Transfer>();
  transfer->session = this;
  transfer->request = std::move(request);
  if (onProgress) {
    transfer->onProgress = std::make_shared<const ProgressHandler>(std::move(onProgress));
  }
  transfer->completion = std::move(completion);
  transfer->token = handle.token();
  if (multi_ == nullptr) {
    deliver(*transfer, failure("the HTTP session could not start"));
    return handle;
  }
  transfer->wakeOnCancel.emplace(transfer->token, MultiWaker{multi_});
  {
    std::lock_guard lock(mutex_);
    incoming_.push_back(std::move(transfer));
  }
  curl_multi_wakeup(multi_);
  return handle;
}

void CurlHttpClient::Session::run() {
  while (adoptIncoming()) {
    dropCancelled();
    int running = 0;
    curl_multi_perform(multi_, &running);
    collectFinished();
    expireIdle();
    curl_multi_poll(multi_, nullptr, 0, pollMilliseconds(), nullptr);
  }
  // Shutting down: what is still under way ends here without a word.
  for (const auto& [easy, transfer] : active_)
    curl_multi_remove_handle(multi_, easy);
  active_.clear();
}

// Starts what `send` queued. Returns false once the client is shutting down.
bool CurlHttpClient::Session::adoptIncoming() {
  std::vector<std::unique_ptr<Transfer>> adopted;
  {
    std::lock_guard lock(mutex_);
    if (stopping_)
      return false;
    adopted.swap(incoming_);
  }
  for (auto& transfer : adopted)
    start(std::move(transfer));
  return true;
}

void CurlHttpClient::Session::start(std::unique_ptr<Transfer> transfer) {
  if (transfer->token.stop_requested()) {
    deliver(*transfer, Error::cancelled());
    return;
  }
  if (Status configured = configure(*transfer); !configured) {
    deliver(*transfer, configured.error());
    return;
  }
  CURL* const easy = transfer->easy.get();
  transfer->lastActivity = Clock::now();
  if (curl_multi_add_handle(multi_, easy) != CURLM_OK) {
    deliver(*transfer, failure("the request could not be started"));
    return;
  }
  active_.emplace(easy, std::move(transfer));
}

Status CurlHttpClient::Session::configure(Transfer& transfer) {
  transfer.easy.reset(curl_easy_init());
  CURL* const easy = transfer.easy.get();
  if (easy == nullptr)
    return failure("the request could not be created");
  bool ok = curl_easy_setopt(easy, CURLOPT_URL, transfer.request.url.c_str()) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https") == CURLE_OK;
  ok = ok && curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L) == CURLE_OK;
  // Letting go of a transfer must not wait for a name lookup that hangs.
  ok = ok && curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer.errorBuffer) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Session::onResponseHeader) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy, CURLOPT_HEADERDATA, &transfer) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Session::onResponseBody) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer) == CURLE_OK;
  // Refuses at once an answer whose announced length is too large; one without a length (chunked)
  // is counted as it arrives, in the header and body callbacks.
  const auto announcedLimit = static_cast<curl_off_t>(std::min<std::uintmax_t>(
      transfer.request.maxResponseBytes, std::numeric_limits<curl_off_t>::max()));
  ok = ok && curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, announcedLimit) == CURLE_OK;
  if (share_ != nullptr)
    ok = ok && curl_easy_setopt(easy, CURLOPT_SHARE, share_) == CURLE_OK;
  // Progress drives both the upload fraction and the time-out.
  ok = ok && curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L) == CURLE_OK;
  ok = ok &&
       curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &Session::onTransferProgress) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &transfer) == CURLE_OK;
  if (!ok)
    return failure("the request could not be set up");
  if (Status status = configureMethodAndBody(transfer); !status)
    return status;
  return configureHeaders(transfer);
}

Status CurlHttpClient::Session::configureMethodAndBody(Transfer& transfer) {
  CURL* const easy = transfer.easy.get();
  const std::string& method = transfer.request.method;
  if (!isToken(method))
    return failure("invalid HTTP method \"" + method + "\"");
  HttpBody& body = transfer.request.body;
  if (auto* bytes = std::get_if<std::string>(&body)) {
    transfer.body = BodySource::fromMemory(std::move(*bytes));
  } else if (const auto* file = std::get_if<HttpFileBody>(&body)) {
    Result<BodySource> opened = BodySource::fromFile(file->path);
    if (!opened)
      return opened.error();
    transfer.body = std::move(*opened);
  }

  bool ok = true;
  if (transfer.body) {
    ok = curl_easy_setopt(easy, CURLOPT_POST, 1L) == CURLE_OK;
    ok = ok &&
         curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, transfer.body->size()) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_READFUNCTION, &Session::onRequestBody) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_READDATA, &transfer) == CURLE_OK;
    // A connection that dies under a request is retried on a new one, from the start.
    ok =
        ok && curl_easy_setopt(easy, CURLOPT_SEEKFUNCTION, &Session::onRequestBodySeek) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_SEEKDATA, &transfer) == CURLE_OK;
    if (method != "POST") {
      ok = ok && curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str()) == CURLE_OK;
    }
  } else if (method == "HEAD") {
    ok = curl_easy_setopt(easy, CURLOPT_NOBODY, 1L) == CURLE_OK;
  } else if (method == "POST") {
    ok = curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, 0L) == CURLE_OK;
    ok = ok && curl_easy_setopt(easy, CURLOPT_POSTFIELDS, "") == CURLE_OK;
  } else if (method != "GET") {
    ok = curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str()) == CURLE_OK;
  }
  return ok ? okStatus() : failure("the request body could not be set up");
}

Status CurlHttpClient::Session::configureHeaders(Transfer& transfer) {
  const HttpRequest& request = transfer.request;
  for (const HttpHeader& header : request.headers) {
    if (!isToken(header.name) || !isHeaderValue(header.value)) {
      return failure("invalid HTTP header \"" + header.name + "\"");
    }
    // "Name;" is how libcurl is told to send a header with an empty value.
    const std::string line =
        header.value.empty() ? header.name + ";" : header.name + ": " + header.value;
    if (!appendHeaderLine(transfer.headerList, line))
      return failure("out of memory");
  }
  // libcurl would otherwise add a form Content-Type to bodies, and hold large ones back for a
  // "100 Continue" that some servers never send.
  for (const char* name : {"Content-Type", "Expect"}) {
    if (request.header(name))
      continue;
    if (!appendHeaderLine(transfer.headerList, std::string(name) + ":")) {
      return failure("out of memory");
    }
  }
  const bool ok = curl_easy_setopt(transfer.easy.get(), CURLOPT_HTTPHEADER,
                                   transfer.headerList.get()) == CURLE_OK;
  return ok ? okStatus() : failure("the request headers could not be set up");
}

void CurlHttpClient::Session::dropCancelled() {
  std::vector<CURL*> cancelled;
  for (const auto& [easy, transfer] : active_) {
    if (transfer->token.stop_requested())
      cancelled.push_back(easy);
  }
  for (CURL* easy : cancelled) {
    std::unique_ptr<Transfer> transfer = retire(easy);
    deliver(*transfer, Error::cancelled());
  }
}

void CurlHttpClient::Session::expireIdle() {
  const TimePoint now = Clock::now();
  std::vector<CURL*> expired;
  for (const auto& [easy, transfer] : active_) {
    const std::optional<Duration>& limit = transfer->request.timeout;
    if (limit && now - transfer->lastActivity >= *limit)
      expired.push_back(easy);
  }
  for (CURL* easy : expired) {
    std::unique_ptr<Transfer> transfer = retire(easy);
    const long limit = wholeMilliseconds(*transfer->request.timeout);
    deliver(*transfer, Error::transport(Error::kTransportTimedOut,
                                        "no data for " + std::to_string(limit) + " ms"));
  }
}

// How long the network thread may sleep before the next request could time out.
int CurlHttpClient::Session::pollMilliseconds() const {
  const TimePoint now = Clock::now();
  long wait = kIdlePollMilliseconds;
  for (const auto& [easy, transfer] : active_) {
    if (!transfer->request.timeout)
      continue;
    const TimePoint deadline = transfer->lastActivity + *transfer->request.timeout;
    wait = std::min(wait, wholeMilliseconds(deadline - now));
  }
  return static_cast<int>(wait);
}

void CurlHttpClient::Session::collectFinished() {
  int queued = 0;
  while (CURLMsg* message = curl_multi_info_read(multi_, &queued)) {
    if (message->msg != CURLMSG_DONE)
      continue;
    // The message belongs to the handle and goes with it, so read it first.
    CURL* const easy = message->easy_handle;
    const CURLcode code = message->data.result;
    finish(easy, code);
  }
}

void CurlHttpClient::Session::finish(CURL* easy, CURLcode code) {
  std::unique_ptr<Transfer> transfer = retire(easy);
  if (!transfer)
    return;
  if (!transfer->bodyReadFailure.empty()) {
    deliver(*transfer, failure(transfer->bodyReadFailure));
    return;
  }
  if (transfer->exceededResponseLimit || code == CURLE_FILESIZE_EXCEEDED) {
    deliver(*transfer, responseTooLarge(transfer->request.maxResponseBytes));
    return;
  }
  if (code != CURLE_OK) {
    deliver(*transfer, transportError(code, transfer->errorBuffer));
    return;
  }
  if (transfer->body) {
    // The last step of the upload may have gone out after libcurl last reported it.
    curl_off_t sent = 0;
    curl_easy_getinfo(easy, CURLINFO_SIZE_UPLOAD_T, &sent);
    const curl_off_t size = transfer->body->size();
    reportProgress(*transfer,
                   size > 0 ? static_cast<double>(sent) / static_cast<double>(size) : 1.0);
  }
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  transfer->response.statusCode = static_cast<int>(status);
  deliver(*transfer, std::move(transfer->response));
}

// Takes a transfer out of the multi handle. Its easy handle stays usable until the transfer goes.
std::unique_ptr<CurlHttpClient::Session::Transfer> CurlHttpClient::Session::retire(CURL* easy) {
  const auto found = active_.find(easy);
  if (found == active_.end())
    return nullptr;
  std::unique_ptr<Transfer> transfer = std::move(found->second);
  active_.erase(found);
  curl_multi_remove_handle(multi_, easy);
  return transfer;
}

void CurlHttpClient::Session::reportProgress(Transfer& transfer, double fraction) {
  if (!transfer.onProgress)
    return;
  fraction = std::clamp(fraction, 0.0, 1.0);
  const bool reachesEnd = fraction >= 1.0 && transfer.reportedFraction < 1.0;
  if (!reachesEnd && fraction < transfer.reportedFraction + kProgressStep)
    return;
  transfer.reportedFraction = fraction;
  main_.post([alive = alive_, token = transfer.token, handler = transfer.onProgress, fraction] {
    if (alive->load() && !token.stop_requested())
      (*handler)(fraction);
  });
}

// Posts the one completion of a transfer. A cancel that comes before it runs still wins, so that
// the caller never sees an answer after it cancelled.
void CurlHttpClient::Session::deliver(Transfer& transfer, Result<HttpResponse> result) {
  if (!transfer.completion)
    return;
  main_.post([alive = alive_, token = transfer.token, completion = std::move(transfer.completion),
              result = std::move(result)]() mutable {
    if (!alive->load())
      return;
    if (token.stop_requested()) {
      completion(Error::cancelled());
      return;
    }
    completion(std::move(result));
  });
}

std::size_t CurlHttpClient::Session::onResponseHeader(char* data, std::size_t size,
                                                      std::size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  transfer.lastActivity = Clock::now();
  if (!transfer.admitResponseBytes(size * count))
    return 0;  // anything but the count given ends the transfer
  addResponseHeaderLine(std::string_view(data, size * count), transfer.response.headers);
  return size * count;
}

std::size_t CurlHttpClient::Session::onResponseBody(char* data, std::size_t size, std::size_t count,
                                                    void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  transfer.lastActivity = Clock::now();
  if (!transfer.admitResponseBytes(size * count))
    return 0;
  transfer.response.body.append(data, size * count);
  return size * count;
}

std::size_t CurlHttpClient::Session::onRequestBody(char* buffer, std::size_t size,
                                                   std::size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  transfer.lastActivity = Clock::now();
  const std::optional<std::size_t> copied = transfer.body->read(buffer, size * count);
  if (copied)
    return *copied;
  transfer.bodyReadFailure =
      std::string("reading the request body failed: ") + std::strerror(errno);
  return CURL_READFUNC_ABORT;
}

int CurlHttpClient::Session::onTransferProgress(void* user, curl_off_t, curl_off_t downloaded,
                                                curl_off_t uploadTotal, curl_off_t uploaded) {
  auto& transfer = *static_cast<Transfer*>(user);
  if (downloaded != transfer.seenDownloaded || uploaded != transfer.seenUploaded) {
    transfer.seenDownloaded = downloaded;
    transfer.seenUploaded = uploaded;
    transfer.lastActivity = Clock::now();
  }
  if (transfer.body && uploadTotal > 0) {
    transfer.session->reportProgress(
        transfer, static_cast<double>(uploaded) / static_cast<double>(uploadTotal));
  }
  return 0;
}

int CurlHttpClient::Session::onRequestBodySeek(void* user, curl_off_t offset, int origin) {
  auto& transfer = *static_cast<Transfer*>(user);
  if (origin != SEEK_SET || !transfer.body->seek(offset))
    return CURL_SEEKFUNC_CANTSEEK;
  return CURL_SEEKFUNC_OK;
}

CurlHttpClient::CurlHttpClient(MainExecutor& main) : session_(std::make_unique<Session>(main)) {}

CurlHttpClient::~CurlHttpClient() = default;

TaskHandle CurlHttpClient::send(HttpRequest request, ProgressHandler onProgress,
                                CompletionHandler completion) {
  return session_->send(std::move(request), std::move(onProgress), std::move(completion));
}

}  // namespace orvan::editor
