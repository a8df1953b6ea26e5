#include "Platform/CurlHttpClient.h"

#include <httplib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "Foundation/EventLoop.h"
#include "Support/Eventually.h"
#include "Support/ManualScheduler.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

using namespace std::chrono_literals;
using testing::eventually;
using ::testing::HasSubstr;
using ::testing::Optional;

// Only bounds a broken test; nothing here asserts on time.
constexpr Duration kPatience = 10s;

class LoopbackServer {
 public:
  LoopbackServer() {
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // `stop` does nothing to a server that has not started listening yet.
    while (!server_.is_running())
      std::this_thread::sleep_for(1ms);
  }
  ~LoopbackServer() {
    released = true;
    server_.stop();
    thread_.join();
  }

  httplib::Server& operator*() { return server_; }
  httplib::Server* operator->() { return &server_; }
  std::string url(std::string_view path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
  }

  // "/held" answers once the test releases it, or the server stops.
  std::atomic<bool> released = false;
  std::atomic<int> heldRequests = 0;

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

// What a request's callbacks saw.
struct Outcome {
  std::optional<Result<HttpResponse>> result;
  int completions = 0;
  std::vector<double> progress;
  bool progressAfterCompletion = false;

  bool done() const { return completions > 0; }
  HttpClient::ProgressHandler progressHandler() {
    return [this](double fraction) {
      progressAfterCompletion = progressAfterCompletion || done();
      progress.push_back(fraction);
    };
  }
  HttpClient::CompletionHandler completionHandler() {
    return [this](Result<HttpResponse> received) {
      ++completions;
      result = std::move(received);
    };
  }
  // "<status> <body>" of an answer, or what went wrong instead.
  std::string answer() const {
    if (!result)
      return "<no completion>";
    if (!result->ok())
      return "<error " + std::to_string(result->error().code) + ": " + result->error().description +
             ">";
    return std::to_string((*result)->statusCode) + " " + (*result)->body;
  }
  std::optional<std::int64_t> errorCode() const {
    if (!result || result->ok())
      return std::nullopt;
    return result->error().code;
  }
};

HttpRequest request(std::string method, std::string url) {
  HttpRequest made;
  made.method = std::move(method);
  made.url = std::move(url);
  return made;
}

class CurlHttpClientTest : public ::testing::Test {
 protected:
  CurlHttpClientTest() {
    server->Get("/etag", [](const httplib::Request& in, httplib::Response& out) {
      if (in.get_header_value("If-None-Match") == "\"v1\"") {
        out.status = 304;
        return;
      }
      out.set_header("ETag", "\"v1\"");
      out.set_header("X-Echo", in.get_header_value("X-Request"));
      out.set_content("hello", "text/plain");
    });
    server->Get("/fail", [](const httplib::Request&, httplib::Response& out) {
      out.status = 500;
      out.set_content("boom", "text/plain");
    });
    server->Get("/echo", [](const httplib::Request& in, httplib::Response& out) {
      out.set_content(in.get_param_value("n"), "text/plain");
    });
    server->Get("/held", [this](const httplib::Request&, httplib::Response& out) {
      ++server.heldRequests;
      while (!server.released)
        std::this_thread::sleep_for(1ms);
      out.set_content("late", "text/plain");
    });
    // Fifteen small pieces, 30 ms apart: slow in all, never silent for long.
    server->Get("/trickle", [](const httplib::Request&, httplib::Response& out) {
      out.set_chunked_content_provider("text/plain", [](std::size_t, httplib::DataSink& sink) {
        for (int piece = 0; piece < 15; ++piece) {
          std::this_thread::sleep_for(30ms);
          sink.write("x", 1);
        }
        sink.done();
        return true;
      });
    });
    // A body without end, sent in chunks (so without a length to refuse up front), until the
    // client hangs up or the server stops.
    server->Get("/endless", [this](const httplib::Request&, httplib::Response& out) {
      out.set_chunked_content_provider("text/plain", [this](std::size_t, httplib::DataSink& sink) {
        const std::string chunk(64 * 1024, 'z');
        while (!server.released) {
          if (!sink.write(chunk.data(), chunk.size()))
            return false;
          sentEndlessBytes += chunk.size();
        }
        return false;
      });
    });
    server->Get("/sized", [](const httplib::Request& in, httplib::Response& out) {
      out.set_content(std::string(std::stoul(in.get_param_value("n")), 's'), "text/plain");
    });
    const auto record = [this](const httplib::Request& in, httplib::Response& out) {
      std::lock_guard lock(receivedMutex);
      received = in;
      out.set_content(in.method + ":" + in.body.substr(0, 16), "text/plain");
    };
    server->Post("/record", record);
    server->Put("/record", record);
    server->Delete("/record", record);
  }

  Outcome fetch(HttpRequest sent) {
    Outcome outcome;
    client.send(std::move(sent), outcome.progressHandler(), outcome.completionHandler());
    loop.runUntil([&] { return outcome.done(); }, kPatience);
    return outcome;
  }

  httplib::Request lastReceived() {
    std::lock_guard lock(receivedMutex);
    return received;
  }

  EventLoop loop;
  // Before the server, whose handlers count into it until the server is gone.
  std::atomic<std::size_t> sentEndlessBytes = 0;
  LoopbackServer server;
  std::mutex receivedMutex;
  httplib::Request received;
  CurlHttpClient client{loop};
};

TEST_F(CurlHttpClientTest, AnswersCarryStatusHeadersAndBody) {
  HttpRequest first = request("GET", server.url("/etag"));
  first.headers.push_back({"X-Request", "abc"});
  const Outcome fresh = fetch(first);
  ASSERT_TRUE(fresh.result && fresh.result->ok());
  EXPECT_EQ(fresh.answer(), "200 hello");
  EXPECT_THAT((*fresh.result)->header("etag"), Optional(std::string("\"v1\"")));
  EXPECT_THAT((*fresh.result)->header("X-ECHO"), Optional(std::string("abc")));

  // Neither "not modified" nor a server failure is a transport error.
  HttpRequest revalidation = request("GET", server.url("/etag"));
  revalidation.setHeader("If-None-Match", "\"v1\"");
  EXPECT_EQ(fetch(revalidation).answer(), "304 ");
  EXPECT_EQ(fetch(request("GET", server.url("/fail"))).answer(), "500 boom");
}

TEST_F(CurlHttpClientTest, BodilessMethodsReachTheServerAsGiven) {
  EXPECT_EQ(fetch(request("DELETE", server.url("/record"))).answer(), "200 DELETE:");
  // An empty POST sends no made-up form type.
  EXPECT_EQ(fetch(request("POST", server.url("/record"))).answer(), "200 POST:");
  EXPECT_FALSE(lastReceived().has_header("Content-Type"));
}

TEST_F(CurlHttpClientTest, TimeOutEndsOnlyItsOwnSilentRequest) {
  HttpRequest impatient = request("GET", server.url("/held"));
  impatient.timeout = 200ms;
  Outcome timedOut;
  Outcome patient;
  client.send(impatient, nullptr, timedOut.completionHandler());
  client.send(request("GET", server.url("/held")), nullptr, patient.completionHandler());

  ASSERT_TRUE(loop.runUntil([&] { return timedOut.done(); }, kPatience));
  EXPECT_THAT(timedOut.errorCode(), Optional(Error::kTransportTimedOut));
  EXPECT_FALSE(patient.done());

  server.released = true;
  ASSERT_TRUE(loop.runUntil([&] { return patient.done(); }, kPatience));
  EXPECT_EQ(patient.answer(), "200 late");

  // The limit is on silence, not on the whole exchange.
  HttpRequest slow = request("GET", server.url("/trickle"));
  slow.timeout = 300ms;
  EXPECT_EQ(fetch(slow).answer(), "200 " + std::string(15, 'x'));
}

TEST_F(CurlHttpClientTest, CancellationIsDeliveredOnceAndTheLateAnswerNever) {
  Outcome cancelled;
  TaskHandle handle =
      client.send(request("GET", server.url("/held")), nullptr, cancelled.completionHandler());
  ASSERT_TRUE(eventually([&] { return server.heldRequests == 1; }, kPatience));
  handle.cancel();
  EXPECT_FALSE(cancelled.done()) << "delivered inside cancel()";
  ASSERT_TRUE(loop.runUntil([&] { return cancelled.done(); }, kPatience));
  ASSERT_TRUE(cancelled.result && !cancelled.result->ok());
  EXPECT_TRUE(cancelled.result->error().isCancellation());

  // Let the server answer, and let a later request pass through the same session.
  server.released = true;
  EXPECT_EQ(fetch(request("GET", server.url("/etag"))).answer(), "200 hello");
  loop.runUntil([] { return false; }, 100ms);
  EXPECT_EQ(cancelled.completions, 1);
  EXPECT_TRUE(cancelled.result->error().isCancellation());

  Outcome cancelledAtOnce;
  client.send(request("GET", server.url("/etag")), nullptr, cancelledAtOnce.completionHandler())
      .cancel();
  ASSERT_TRUE(loop.runUntil([&] { return cancelledAtOnce.done(); }, kPatience));
  EXPECT_THAT(cancelledAtOnce.errorCode(), Optional(Error::kTransportCancelled));
}

// With a ManualScheduler as the main executor, answers wait there until the test runs them.
TEST_F(CurlHttpClientTest, AnswersNotYetDeliveredYieldToCancelAndToDestruction) {
  testing::ManualScheduler scheduler;
  auto heldClient = std::make_unique<CurlHttpClient>(scheduler);
  Outcome cancelled;
  TaskHandle handle =
      heldClient->send(request("GET", server.url("/etag")), nullptr, cancelled.completionHandler());
  ASSERT_TRUE(eventually([&] { return scheduler.hasPendingMainWork(); }, kPatience));
  handle.cancel();
  scheduler.runUntilIdle();
  EXPECT_EQ(cancelled.completions, 1);
  EXPECT_THAT(cancelled.errorCode(), Optional(Error::kTransportCancelled));

  Outcome answered;
  Outcome inFlight;
  heldClient->send(request("GET", server.url("/etag")), nullptr, answered.completionHandler());
  ASSERT_TRUE(eventually([&] { return scheduler.hasPendingMainWork(); }, kPatience));
  heldClient->send(request("GET", server.url("/held")), nullptr, inFlight.completionHandler());
  ASSERT_TRUE(eventually([&] { return server.heldRequests == 1; }, kPatience));
  heldClient.reset();  // with a request held by the server: must not wait for it
  scheduler.runUntilIdle();
  EXPECT_EQ(answered.completions, 0);
  EXPECT_EQ(inFlight.completions, 0);
}

std::string uploadPayload() {
  std::string payload(8 << 20, '\0');
  for (std::size_t i = 0; i < payload.size(); ++i)
    payload[i] = static_cast<char>(i * 31 % 251);
  return payload;
}

void expectRisingToOne(const Outcome& outcome) {
  // Steps along the way, not only the end, and not one per chunk either.
  EXPECT_GT(outcome.progress.size(), 2u);
  EXPECT_LE(outcome.progress.size(), 101u);
  ASSERT_FALSE(outcome.progress.empty());
  EXPECT_TRUE(std::is_sorted(outcome.progress.begin(), outcome.progress.end()));
  EXPECT_EQ(std::adjacent_find(outcome.progress.begin(), outcome.progress.end()),
            outcome.progress.end());
  EXPECT_GE(outcome.progress.front(), 0.0);
  EXPECT_EQ(outcome.progress.back(), 1.0);
  EXPECT_FALSE(outcome.progressAfterCompletion);
}

TEST_F(CurlHttpClientTest, UploadsFromMemoryAndFromFileReportProgressUpToOne) {
  const std::string payload = uploadPayload();
  HttpRequest fromMemory = request("POST", server.url("/record"));
  fromMemory.headers.push_back({"Content-Type", "application/octet-stream"});
  fromMemory.body = payload;
  const Outcome memoryOutcome = fetch(fromMemory);
  ASSERT_TRUE(memoryOutcome.result && memoryOutcome.result->ok());
  EXPECT_EQ(lastReceived().body, payload);
  EXPECT_EQ(lastReceived().get_header_value("Content-Type"), "application/octet-stream");
  EXPECT_FALSE(lastReceived().has_header("Expect"));
  expectRisingToOne(memoryOutcome);

  const testing::TemporaryFolder folder;
  const std::filesystem::path file = folder.write("upload.bin", payload);
  HttpRequest fromFile = request("PUT", server.url("/record"));
  fromFile.body = HttpFileBody{file};
  const Outcome fileOutcome = fetch(fromFile);
  ASSERT_TRUE(fileOutcome.result && fileOutcome.result->ok());
  EXPECT_EQ(lastReceived().method, "PUT");
  EXPECT_EQ(lastReceived().body, payload);
  EXPECT_EQ(lastReceived().get_header_value("Content-Length"), std::to_string(payload.size()));
  expectRisingToOne(fileOutcome);

  HttpRequest missing = request("POST", server.url("/record"));
  missing.body = HttpFileBody{file.string() + ".missing"};
  const Outcome missingOutcome = fetch(missing);
  EXPECT_THAT(missingOutcome.errorCode(), Optional(Error::kTransportFailed));
  EXPECT_THAT(missingOutcome.result->error().description, HasSubstr(".missing"));
}

TEST_F(CurlHttpClientTest, FailuresAreErrorValues) {
  std::string refused;
  {
    LoopbackServer gone;
    refused = gone.url("/");
  }  // stopped: its port now refuses connections
  EXPECT_THAT(fetch(request("GET", refused)).errorCode(), Optional(Error::kTransportCannotConnect));
  EXPECT_THAT(fetch(request("GET", "not a url")).errorCode(), Optional(Error::kTransportBadURL));
  // Only the web is fetched, never a local file.
  EXPECT_THAT(fetch(request("GET", "file:///etc/hostname")).errorCode(),
              Optional(Error::kTransportBadURL));

  HttpRequest smuggling = request("GET", server.url("/etag"));
  smuggling.headers.push_back({"X-Request", "a\r\nX-Injected: 1"});
  EXPECT_THAT(fetch(smuggling).errorCode(), Optional(Error::kTransportFailed));
  EXPECT_THAT(fetch(request("GET /x", server.url("/etag"))).errorCode(),
              Optional(Error::kTransportFailed));
}

TEST_F(CurlHttpClientTest, AnswersBeyondTheirLimitFailWhileArriving) {
  constexpr std::size_t kLimit = 1 << 20;
  HttpRequest endless = request("GET", server.url("/endless"));
  endless.maxResponseBytes = kLimit;
  const Outcome cutOff = fetch(endless);
  ASSERT_TRUE(cutOff.done()) << "an endless answer was never cut off";
  EXPECT_THAT(cutOff.errorCode(), Optional(Error::kTransportResponseTooLarge));
  EXPECT_THAT(cutOff.result->error().description, HasSubstr(std::to_string(kLimit)));
  // The client hung up: the server's writes fail soon after the limit, instead of going on.
  ASSERT_TRUE(eventually(
      [&] {
        const std::size_t before = sentEndlessBytes;
        std::this_thread::sleep_for(50ms);
        return sentEndlessBytes == before;
      },
      kPatience));
  EXPECT_LT(sentEndlessBytes.load(), std::size_t{64} << 20);

  // An announced length beyond the limit is refused at once; an answer within it passes, and the
  // default limit leaves room for ordinary answers.
  HttpRequest announced = request("GET", server.url("/sized?n=" + std::to_string(2 * kLimit)));
  announced.maxResponseBytes = kLimit;
  EXPECT_THAT(fetch(announced).errorCode(), Optional(Error::kTransportResponseTooLarge));
  HttpRequest within = request("GET", server.url("/sized?n=" + std::to_string(kLimit / 2)));
  within.maxResponseBytes = kLimit;
  EXPECT_EQ(fetch(within).answer(), "200 " + std::string(kLimit / 2, 's'));
  EXPECT_EQ(fetch(request("GET", server.url("/sized?n=" + std::to_string(2 * kLimit)))).answer(),
            "200 " + std::string(2 * kLimit, 's'));
}

// Every answer goes to its own request, however many are in flight.
TEST_F(CurlHttpClientTest, ConcurrentRequestsEachGetTheirOwnAnswer) {
  std::vector<Outcome> outcomes(60);
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    client.send(request("GET", server.url("/echo?n=" + std::to_string(i))), nullptr,
                outcomes[i].completionHandler());
  }
  ASSERT_TRUE(loop.runUntil(
      [&] { return std::all_of(outcomes.begin(), outcomes.end(), std::mem_fn(&Outcome::done)); },
      kPatience));
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    EXPECT_EQ(outcomes[i].answer(), "200 " + std::to_string(i));
    EXPECT_EQ(outcomes[i].completions, 1);
  }
}

}  // namespace
}  // namespace orvan::editor
