#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/HttpClient.h"

namespace orvan::editor::testing {

// An HttpClient for model tests, with the real client's delivery rules and no network.
//
// Every request is recorded. It is answered from the script (the first scripted answer whose
// matcher accepts it, each used once) or stays pending until the test completes it by hand.
// Completions and progress go through the main executor given at construction, so with a
// ManualScheduler nothing reaches the caller before `runUntilIdle`. As with the real client, a
// cancelled request's completion receives `Error::cancelled()` exactly once, an answer given
// after the cancel is dropped, and nothing runs any more once the fake is destroyed.
class FakeHttpClient final : public HttpClient {
 public:
  using Matcher = std::function<bool(const HttpRequest&)>;

  explicit FakeHttpClient(MainExecutor& main);
  ~FakeHttpClient() override;

  TaskHandle send(HttpRequest request, ProgressHandler onProgress,
                  CompletionHandler completion) override;

  // Answers the next request that `matches`, once.
  void script(Matcher matches, Result<HttpResponse> answer);
  // Matches requests whose URL contains `fragment` (and whose method is `method`, when given).
  static Matcher urlContains(std::string fragment, std::string method = {});

  // Every request sent so far, in order; indices below refer to this list.
  std::vector<HttpRequest> requests() const;
  std::size_t requestCount() const;
  // Indices of the requests that have neither been answered nor cancelled.
  std::vector<std::size_t> pending() const;
  bool isCancelled(std::size_t index) const;

  // Answers request `index` by hand; false when it was answered or cancelled already.
  bool complete(std::size_t index, Result<HttpResponse> answer);
  // Answers the oldest pending request; false when there is none.
  bool completeNext(Result<HttpResponse> answer);
  // Reports upload progress for a pending request; false when it is not pending.
  bool reportProgress(std::size_t index, double fraction);

 private:
  struct Delivery;
  struct CancelNotice;
  struct Exchange;
  struct Rule {
    Matcher matches;
    Result<HttpResponse> answer;
  };

  bool answer(Exchange& exchange, Result<HttpResponse> result);

  MainExecutor& main_;
  std::shared_ptr<std::atomic<bool>> alive_;
  mutable std::mutex mutex_;
  std::vector<std::unique_ptr<Exchange>> exchanges_;
  std::deque<Rule> rules_;
};

// A response for scripts: a status, a body, headers.
HttpResponse httpResponse(int statusCode, std::string body = {},
                          std::vector<HttpHeader> headers = {});

}  // namespace orvan::editor::testing
