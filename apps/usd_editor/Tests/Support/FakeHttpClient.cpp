#include "Support/FakeHttpClient.h"

#include <algorithm>
#include <optional>
#include <stop_token>

namespace orvan::editor::testing {

// The caller's side of one request. Lives on in closures posted to the main executor, where its
// flags are read and written.
struct FakeHttpClient::Delivery {
  std::shared_ptr<std::atomic<bool>> alive;
  std::stop_token token;
  ProgressHandler onProgress;
  CompletionHandler completion;
  bool completed = false;

  static void post(MainExecutor& main, const std::shared_ptr<Delivery>& delivery,
                   Result<HttpResponse> result) {
    main.post([delivery, result = std::move(result)]() mutable {
      if (!delivery->alive->load() || delivery->completed)
        return;
      delivery->completed = true;
      if (!delivery->completion)
        return;
      if (delivery->token.stop_requested()) {
        delivery->completion(Error::cancelled());
        return;
      }
      delivery->completion(std::move(result));
    });
  }
};

struct FakeHttpClient::CancelNotice {
  MainExecutor* main;
  std::shared_ptr<FakeHttpClient::Delivery> delivery;
  void operator()() const { FakeHttpClient::Delivery::post(*main, delivery, Error::cancelled()); }
};

struct FakeHttpClient::Exchange {
  HttpRequest request;
  std::shared_ptr<Delivery> delivery;
  bool answered = false;
  std::optional<std::stop_callback<CancelNotice>> onCancel;

  bool isOpen() const { return !answered && !delivery->token.stop_requested(); }
};

FakeHttpClient::FakeHttpClient(MainExecutor& main)
    : main_(main), alive_(std::make_shared<std::atomic<bool>>(true)) {}

FakeHttpClient::~FakeHttpClient() {
  alive_->store(false);
}

TaskHandle FakeHttpClient::send(HttpRequest request, ProgressHandler onProgress,
                                CompletionHandler completion) {
  TaskHandle handle = TaskHandle::make();
  auto delivery = std::make_shared<Delivery>(
      Delivery{alive_, handle.token(), std::move(onProgress), std::move(completion)});
  auto exchange = std::make_unique<Exchange>();
  exchange->request = std::move(request);
  exchange->delivery = delivery;
  exchange->onCancel.emplace(handle.token(), CancelNotice{&main_, delivery});

  std::lock_guard lock(mutex_);
  const auto rule = std::find_if(rules_.begin(), rules_.end(),
                                 [&](const Rule& r) { return r.matches(exchange->request); });
  if (rule != rules_.end()) {
    answer(*exchange, std::move(rule->answer));
    rules_.erase(rule);
  }
  exchanges_.push_back(std::move(exchange));
  return handle;
}

void FakeHttpClient::script(Matcher matches, Result<HttpResponse> answer) {
  std::lock_guard lock(mutex_);
  rules_.push_back(Rule{std::move(matches), std::move(answer)});
}

FakeHttpClient::Matcher FakeHttpClient::urlContains(std::string fragment, std::string method) {
  return [fragment = std::move(fragment), method = std::move(method)](const HttpRequest& request) {
    return request.url.find(fragment) != std::string::npos &&
           (method.empty() || request.method == method);
  };
}

std::vector<HttpRequest> FakeHttpClient::requests() const {
  std::lock_guard lock(mutex_);
  std::vector<HttpRequest> all;
  for (const auto& exchange : exchanges_)
    all.push_back(exchange->request);
  return all;
}

std::size_t FakeHttpClient::requestCount() const {
  std::lock_guard lock(mutex_);
  return exchanges_.size();
}

std::vector<std::size_t> FakeHttpClient::pending() const {
  std::lock_guard lock(mutex_);
  std::vector<std::size_t> open;
  for (std::size_t i = 0; i < exchanges_.size(); ++i) {
    if (exchanges_[i]->isOpen())
      open.push_back(i);
  }
  return open;
}

bool FakeHttpClient::isCancelled(std::size_t index) const {
  std::lock_guard lock(mutex_);
  return index < exchanges_.size() && exchanges_[index]->delivery->token.stop_requested();
}

bool FakeHttpClient::complete(std::size_t index, Result<HttpResponse> result) {
  std::lock_guard lock(mutex_);
  if (index >= exchanges_.size())
    return false;
  return answer(*exchanges_[index], std::move(result));
}

bool FakeHttpClient::completeNext(Result<HttpResponse> result) {
  std::lock_guard lock(mutex_);
  const auto open = std::find_if(exchanges_.begin(), exchanges_.end(),
                                 [](const auto& exchange) { return exchange->isOpen(); });
  if (open == exchanges_.end())
    return false;
  return answer(**open, std::move(result));
}

bool FakeHttpClient::reportProgress(std::size_t index, double fraction) {
  std::lock_guard lock(mutex_);
  if (index >= exchanges_.size() || !exchanges_[index]->isOpen())
    return false;
  std::shared_ptr<Delivery> delivery = exchanges_[index]->delivery;
  main_.post([delivery, fraction] {
    if (!delivery->alive->load() || delivery->completed || delivery->token.stop_requested())
      return;
    if (delivery->onProgress)
      delivery->onProgress(fraction);
  });
  return true;
}

bool FakeHttpClient::answer(Exchange& exchange, Result<HttpResponse> result) {
  if (!exchange.isOpen())
    return false;
  exchange.answered = true;
  Delivery::post(main_, exchange.delivery, std::move(result));
  return true;
}

HttpResponse httpResponse(int statusCode, std::string body, std::vector<HttpHeader> headers) {
  return HttpResponse{statusCode, std::move(headers), std::move(body)};
}

}  // namespace orvan::editor::testing
