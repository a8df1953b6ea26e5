#include "Support/FakeHttpClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "Support/ManualScheduler.h"

namespace orvan::editor::testing {
namespace {

using ::testing::ElementsAre;

struct Received {
  std::vector<std::string> events;
  HttpClient::CompletionHandler completion() {
    return [this](Result<HttpResponse> result) {
      events.push_back(result.ok() ? "status " + std::to_string(result->statusCode)
                                   : "error " + std::to_string(result.error().code));
    };
  }
  HttpClient::ProgressHandler progress() {
    return [this](double fraction) { events.push_back("progress " + std::to_string(fraction)); };
  }
};

HttpRequest get(std::string url) {
  HttpRequest request;
  request.url = std::move(url);
  return request;
}

class FakeHttpClientTest : public ::testing::Test {
 protected:
  ManualScheduler scheduler;
  FakeHttpClient http{scheduler};
};

TEST_F(FakeHttpClientTest, ScriptedAnswersMatchOnceAndArriveThroughTheScheduler) {
  http.script(FakeHttpClient::urlContains("/api/stage"), httpResponse(200, "stage"));
  http.script(FakeHttpClient::urlContains("/api/project", "GET"), httpResponse(304));
  Received project;
  Received stage;
  Received secondStage;
  http.send(get("http://h/api/project?p=1"), nullptr, project.completion());
  http.send(get("http://h/api/stage"), nullptr, stage.completion());
  http.send(get("http://h/api/stage"), secondStage.progress(), secondStage.completion());
  EXPECT_TRUE(stage.events.empty());

  scheduler.runUntilIdle();
  EXPECT_THAT(project.events, ElementsAre("status 304"));
  EXPECT_THAT(stage.events, ElementsAre("status 200"));
  EXPECT_TRUE(secondStage.events.empty());
  EXPECT_THAT(http.pending(), ElementsAre(2u));
  EXPECT_EQ(http.requests().at(0).url, "http://h/api/project?p=1");

  EXPECT_TRUE(http.reportProgress(2, 0.5));
  EXPECT_TRUE(http.completeNext(Error::transport(Error::kTransportTimedOut, "slow")));
  EXPECT_FALSE(http.complete(2, httpResponse(200)));
  scheduler.runUntilIdle();
  EXPECT_THAT(secondStage.events, ElementsAre("progress 0.500000", "error -1001"));
}

TEST_F(FakeHttpClientTest, CancellationIsDeliveredOnceAndBeatsAnAnswerNotYetRun) {
  Received pending;
  TaskHandle pendingHandle = http.send(get("http://h/a"), pending.progress(), pending.completion());
  pendingHandle.cancel();
  EXPECT_TRUE(http.isCancelled(0));
  EXPECT_FALSE(http.complete(0, httpResponse(200)));
  EXPECT_FALSE(http.reportProgress(0, 0.5));
  scheduler.runUntilIdle();
  EXPECT_THAT(pending.events, ElementsAre("error -999"));

  http.script(FakeHttpClient::urlContains("/b"), httpResponse(200));
  Received answered;
  TaskHandle answeredHandle = http.send(get("http://h/b"), nullptr, answered.completion());
  answeredHandle.cancel();
  scheduler.runUntilIdle();
  EXPECT_THAT(answered.events, ElementsAre("error -999"));
  EXPECT_TRUE(http.pending().empty());
}

TEST_F(FakeHttpClientTest, NothingRunsAfterTheClientIsGone) {
  auto doomed = std::make_unique<FakeHttpClient>(scheduler);
  doomed->script(FakeHttpClient::urlContains("/"), httpResponse(200));
  Received received;
  doomed->send(get("http://h/"), nullptr, received.completion());
  TaskHandle later = doomed->send(get("http://h/"), nullptr, received.completion());
  doomed.reset();
  later.cancel();
  scheduler.runUntilIdle();
  EXPECT_TRUE(received.events.empty());
}

}  // namespace
}  // namespace orvan::editor::testing
