// The change feed's delivery rules and the presence board's lifetime, without a socket.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "ProjectServer/ChangeFeed.h"
#include "ProjectServer/PresenceBoard.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/records/ToolClientLine.h"

namespace orvan::engine {
namespace {

using namespace std::chrono_literals;

const FeedScope kScene{.project = "game", .scene = "main.usda", .workspace = "main"};
const FeedScope kOtherScene{.project = "game", .scene = "other.usda", .workspace = "main"};
const FeedScope kOtherProject{.project = "tools", .scene = "main.usda", .workspace = "main"};

TEST(ChangeFeed, DeliversOpeningLinesThenWhatIsPublishedToTheScopeInOrder) {
  ChangeFeed feed;
  auto watcher = feed.subscribe(kScene, {"hello"});
  auto elsewhere = feed.subscribe(kOtherScene, {});
  feed.publish(kScene, "one");
  feed.publish(kOtherScene, "not yours");
  feed.publish(kScene, "two");
  EXPECT_EQ(watcher->next(0ms), "hello");
  EXPECT_EQ(watcher->next(0ms), "one");
  EXPECT_EQ(watcher->next(0ms), "two");
  EXPECT_EQ(watcher->next(0ms), std::nullopt);
  EXPECT_EQ(elsewhere->next(0ms), "not yours");
  EXPECT_EQ(elsewhere->next(0ms), std::nullopt);
}

TEST(ChangeFeed, ProjectLinesReachEverySceneOfThatProjectOnly) {
  ChangeFeed feed;
  auto first = feed.subscribe(kScene, {});
  auto second = feed.subscribe(kOtherScene, {});
  auto stranger = feed.subscribe(kOtherProject, {});
  feed.publishToProject("game", "files changed");
  EXPECT_EQ(first->next(0ms), "files changed");
  EXPECT_EQ(second->next(0ms), "files changed");
  EXPECT_EQ(stranger->next(0ms), std::nullopt);
}

TEST(ChangeFeed, AWaitingWatcherWakesOnPublicationAndOnClose) {
  ChangeFeed feed;
  auto watcher = feed.subscribe(kScene, {});
  std::thread publisher([&] {
    std::this_thread::sleep_for(20ms);
    feed.publish(kScene, "late");
  });
  // Far longer than the publisher needs: the wait ends with the line, not the time-out.
  EXPECT_EQ(watcher->next(10s), "late");
  publisher.join();

  std::thread closer([&] {
    std::this_thread::sleep_for(20ms);
    feed.closeAll();
  });
  EXPECT_EQ(watcher->next(10s), std::nullopt);
  EXPECT_TRUE(watcher->closed());
  closer.join();
  // A feed that closed takes no new watchers either.
  EXPECT_TRUE(feed.subscribe(kScene, {"hello"})->closed());
}

TEST(ChangeFeed, AWatcherThatFallsTooFarBehindIsDroppedAndOthersGoOn) {
  ChangeFeed feed(/*maxQueuedBytes=*/10);
  auto slow = feed.subscribe(kScene, {});
  auto fast = feed.subscribe(kScene, {});
  feed.publish(kScene, "123456");
  EXPECT_EQ(fast->next(0ms), "123456");
  feed.publish(kScene, "789012");
  EXPECT_TRUE(slow->closed());
  EXPECT_EQ(slow->next(0ms), std::nullopt);
  EXPECT_FALSE(fast->closed());
  EXPECT_EQ(fast->next(0ms), "789012");
}

TEST(ChangeFeed, GoneWatchersAreNotCounted) {
  ChangeFeed feed;
  auto kept = feed.subscribe(kScene, {});
  { auto dropped = feed.subscribe(kScene, {}); }
  EXPECT_EQ(feed.watcherCount(), 1u);
  feed.publish(kScene, "still works");
  EXPECT_EQ(kept->next(0ms), "still works");
}

TEST(PresenceBoard, AnEntryLivesItsLifetimeFromTheLastPublicationAndIsPerClient) {
  auto now = std::chrono::steady_clock::time_point{};
  PresenceBoard board(10s, [&] { return now; });
  board.publish({.scope = kScene, .clientId = "a", .selectedPaths = {"/World/A"}});
  board.publish({.scope = kScene, .clientId = "b", .selectedPaths = {"/World/B"}});
  now += 6s;
  board.publish({.scope = kScene, .clientId = "a", .selectedPaths = {"/World/A2"}});
  ASSERT_EQ(board.live(kScene).size(), 2u);
  now += 4s;  // b is 10 s old: gone; a is 4 s old
  const auto live = board.live(kScene);
  ASSERT_EQ(live.size(), 1u);
  EXPECT_EQ(live[0].clientId, "a");
  EXPECT_EQ(live[0].selectedPaths, std::vector<std::string>{"/World/A2"});
  // A client that moves to another scene leaves the first one.
  board.publish({.scope = kOtherScene, .clientId = "a"});
  EXPECT_TRUE(board.live(kScene).empty());
  EXPECT_EQ(board.live(kOtherScene).size(), 1u);
}

TEST(PresenceBoard, TheSelectionLineDecodesAsTheToolClientsLine) {
  const Presence presence{.scope = kScene,
                          .clientId = "c2",
                          .displayName = "Bo \"B\"",
                          .color = "#3366ff",
                          .activeLayer = "/p/layer.usda",
                          .selectedPaths = {"/World/Cube", "/World/Ball"}};
  const auto line = editor::decodeJson<editor::ToolClientLine>(selectionLine(presence));
  ASSERT_TRUE(line.ok());
  EXPECT_EQ(line->type, "selection");
  EXPECT_EQ(line->sourceClientId, "c2");
  EXPECT_EQ(line->displayName, "Bo \"B\"");
  EXPECT_EQ(line->color, "#3366ff");
  EXPECT_EQ(line->scene, "main.usda");
  EXPECT_EQ(line->workspace, "main");
  EXPECT_EQ(line->activeLayer, "/p/layer.usda");
  EXPECT_EQ(line->entityPaths, (std::vector<std::string>{"/World/Cube", "/World/Ball"}));
}

}  // namespace
}  // namespace orvan::engine
