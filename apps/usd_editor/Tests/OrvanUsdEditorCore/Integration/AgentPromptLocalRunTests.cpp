// The prompt bar against a real child: a fake agent installed in a temporary home, started through
// the real process launcher, its event stream read on the monitor thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>

#include "Foundation/EventLoop.h"
#include "Foundation/ThreadPool.h"
#include "Intelligence/AgentPromptController.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/Subprocess.h"
#include "Support/FakeHttpClient.h"
#include "Support/TemporaryFolder.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::FakeHttpClient;
using testing::httpResponse;
using namespace std::chrono_literals;

constexpr auto kPatience = 10s;

std::vector<std::string> splitAtNul(const std::string& text) {
  std::vector<std::string> items;
  std::string item;
  std::istringstream stream(text);
  while (std::getline(stream, item, '\0'))
    items.push_back(item);
  return items;
}

class AgentPromptLocalRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(home_ / ".local/bin");
    fs::create_symlink(ORVAN_FAKE_AGENT_PATH, home_ / ".local/bin/claude");
    fs::create_directories(home_ / "agent");
    ::setenv("ORVAN_FAKE_AGENT_SCRIPT", (home_ / "script").c_str(), 1);

    const std::string home = home_.path().string();
    controller_ = std::make_unique<AgentPromptController>(AgentPromptController::Ports{
        loop_,
        pool_,
        preferences_,
        launcher_,
        http_,
        home,
        // Only what this test installed counts: no agent of the machine is ever started.
        [home](const std::string& path) {
          return hasPrefix(path, home + "/") && Subprocess::isExecutableFile(path);
        },
        "",
        (home_ / "agent").string(),
        {}});
    controller_->setProvider(VelkAgentProvider::claude);
    subscription_ = controller_->subscribe([this](const AgentPromptState& state) {
      if (!state.statusLabel.empty() && (labels_.empty() || labels_.back() != state.statusLabel))
        labels_.push_back(state.statusLabel);
    });
  }
  void TearDown() override { ::unsetenv("ORVAN_FAKE_AGENT_SCRIPT"); }

  static VelkAgentAuthoringScope scope() {
    VelkAgentAuthoringScope scope;
    scope.serverURL = "http://127.0.0.1:9";
    scope.authToken = "token-1";
    scope.projectId = "proj-7";
    scope.workspaceId = "ws-main";
    scope.scenePath = "/Scenes/Arena.usda";
    return scope;
  }

  bool waitFor(const std::function<bool()>& done) { return loop_.runUntil(done, kPatience); }
  const AgentPromptState& state() const { return controller_->state().get(); }

  testing::TemporaryFolder home_;
  EventLoop loop_;
  FakeHttpClient http_{loop_};
  InMemoryPreferencesStore preferences_;
  PosixProcessLauncher launcher_;
  // After the launcher: a launch still queued when the test ends finishes before it goes.
  ThreadPool pool_{1};
  std::unique_ptr<AgentPromptController> controller_;
  std::vector<std::string> labels_;
  Subscription subscription_;
};

TEST_F(AgentPromptLocalRunTest, ProgressOfARealChildLeadsToTheReceipt) {
  home_.write(
      "script",
      "record " + (home_ / "record").string() +
          "\n"
          R"(say {"type":"function_call","name":"mcp__plugin_velk_velk__velk_workspace"})"
          "\n"
          "sleep 50\n"
          "err some diagnostics\n"
          R"(say {"type":"response_item","payload":{"type":"function_call","name":"velk_change"}})"
          "\n"
          R"(say {"payload":{"type":"agent_message","message":"The crate is red."}})"
          "\n"
          "exit 1\n");
  controller_->setPrompt("Make the crate red");
  controller_->submit(scope());
  ASSERT_TRUE(waitFor([&] { return !http_.pending().empty(); }));
  EXPECT_THAT(labels_, ElementsAre("Understanding request", "Opening Claude",
                                   "Opening the current scene", "Applying the change"));

  const auto started = splitAtNul(testing::fileText(home_ / "record"));
  ASSERT_GE(started.size(), 3u);
  EXPECT_EQ(started[0], (home_ / "agent").string());
  EXPECT_EQ(started[1], "/dev/null");
  EXPECT_EQ(started[2], "token-1");
  EXPECT_EQ(std::vector<std::string>(started.begin() + 3, started.end()),
            localAgentArguments(VelkAgentProvider::claude, "sonnet", "",
                                localAgentPrompt(scope(), "Make the crate red")));

  ASSERT_TRUE(http_.completeNext(
      httpResponse(200, R"({"velkChangeReceipt":{"resultLocation":{"projectId":"proj-7",)"
                        R"("workspaceId":"ws-main","sceneId":"Arena.usda"},"accepted":true}})")));
  ASSERT_TRUE(waitFor([&] { return state().phase == AgentPromptPhase::completed; }));
  ASSERT_TRUE(state().result);
  EXPECT_EQ(state().result->summary, "The crate is red.");
}

}  // namespace
}  // namespace orvan::editor
