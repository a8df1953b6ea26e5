#include "Intelligence/AgentPromptController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using testing::FakeHttpClient;
using ::testing::HasSubstr;
using testing::httpResponse;
using testing::ManualScheduler;
using Phase = AgentPromptPhase;

constexpr const char* kCodexPath = "/home/ann/Applications/Codex.app/Contents/Resources/codex";
constexpr const char* kClaudePath = "/home/ann/.local/bin/claude";
constexpr std::string_view kReceiptWarning =
    "Velk did not receive a final change receipt. Check the active workspace before retrying; "
    "the agent may already have applied a change.";

// A child that never runs: the test plays its monitor thread by calling the launch's callbacks.
struct FakeChildState {
  int terminateCount = 0;
  bool destroyed = false;
};

class FakeChild final : public ChildProcess {
 public:
  explicit FakeChild(std::shared_ptr<FakeChildState> state) : state_(std::move(state)) {}
  ~FakeChild() override { state_->destroyed = true; }
  int processId() const override { return 4242; }
  Status writeStdin(std::string_view) override { return Error::editor(1, "no input"); }
  void closeStdin() override {}
  editor::Result<std::string> readStdout(std::size_t) override { return std::string(); }
  std::string capturedStdout() const override { return {}; }
  std::string capturedStderr() const override { return {}; }
  bool isRunning() const override { return true; }
  ExitStatus waitForExit() override { return ExitStatus::exited(0); }
  std::optional<ExitStatus> exitStatus() const override { return std::nullopt; }
  void terminate(Duration) override { ++state_->terminateCount; }

 private:
  std::shared_ptr<FakeChildState> state_;
};

class FakeAgentLauncher final : public ProcessLauncher {
 public:
  struct Launch {
    ProcessLaunchOptions options;
    std::shared_ptr<FakeChildState> child;

    void say(std::string text) const { options.standardOutput.onLine(OutputLine{std::move(text)}); }
    void exit(ExitStatus status) const { options.onExit(status); }
  };

  editor::Result<std::unique_ptr<ChildProcess>> launch(ProcessLaunchOptions options) override {
    if (failure)
      return *failure;
    auto state = std::make_shared<FakeChildState>();
    launches.push_back({std::move(options), state});
    return std::unique_ptr<ChildProcess>(std::make_unique<FakeChild>(state));
  }
  editor::Result<ProcessOutput> runToCompletion(ProcessLaunchOptions) override {
    return Error::editor(1, "not used by the prompt bar");
  }
  bool isExecutableFile(const std::string&) const override { return false; }

  std::optional<Error> failure;
  std::vector<Launch> launches;
};

VelkAgentAuthoringScope arenaScope() {
  VelkAgentAuthoringScope scope;
  scope.serverURL = "https://velk.example";
  scope.authToken = "token-1";
  scope.projectId = "proj-7";
  scope.workspaceId = "ws-main";
  scope.scenePath = "/Scenes/Arena.usda";
  scope.selectedPaths = {"/World/Crate"};
  return scope;
}

std::string receiptFor(std::string_view sceneId, std::string_view message = "") {
  std::string body = R"({"velkChangeReceipt":{"resultLocation":{"projectId":"proj-7",)"
                     R"("workspaceId":"ws-main","sceneId":")" +
                     std::string(sceneId) + R"("},"accepted":true,"jobId":"job-1")";
  if (!message.empty())
    body += R"(,"message":")" + std::string(message) + "\"";
  return body + "}}";
}

class AgentPromptControllerTest : public ::testing::Test {
 protected:
  AgentPromptController& controller() {
    if (!controller_) {
      controller_ = std::make_unique<AgentPromptController>(AgentPromptController::Ports{
          scheduler, scheduler.background(), preferences, launcher, http, "/home/ann",
          [this](const std::string& path) { return installed.count(path) > 0; }, "/usr/bin",
          "/var/agent",
          [this](const std::string& workspaceId, const std::string& editorURL) {
            opened.emplace_back(workspaceId, editorURL);
          }});
    }
    return *controller_;
  }
  const AgentPromptState& state() { return controller().state().get(); }

  // Submits and lets the launch run; returns the launch, if one was made.
  const FakeAgentLauncher::Launch* submit(std::string prompt,
                                          std::optional<VelkAgentProvider> provider = {}) {
    const std::size_t before = launcher.launches.size();
    controller().setPrompt(std::move(prompt));
    controller().submit(arenaScope(), false, provider);
    scheduler.runBackground();
    return launcher.launches.size() > before ? &launcher.launches.back() : nullptr;
  }

  std::size_t receiptRequests() const {
    std::size_t count = 0;
    for (const auto& request : http.requests())
      count += request.url.find("/api/agent/receipt") != std::string::npos ? 1 : 0;
    return count;
  }

  ManualScheduler scheduler;
  FakeHttpClient http{scheduler};
  InMemoryPreferencesStore preferences;
  FakeAgentLauncher launcher;
  std::set<std::string> installed{kCodexPath, kClaudePath};
  std::vector<std::pair<std::string, std::string>> opened;
  std::unique_ptr<AgentPromptController> controller_;
};

TEST_F(AgentPromptControllerTest, ProviderChangeResetsTheModelAndBothPersist) {
  EXPECT_EQ(state().provider, VelkAgentProvider::codex);
  EXPECT_EQ(state().model, "gpt-5.3-codex-spark");
  EXPECT_EQ(modelChoices(VelkAgentProvider::codex).front().displayName, "GPT-5.3 Codex Spark");

  controller().setProvider(VelkAgentProvider::claude);
  EXPECT_EQ(state().model, "sonnet");
  EXPECT_EQ(preferences.string(kAgentProviderPreferenceKey), "claude");
  EXPECT_EQ(preferences.string(kAgentModelPreferenceKey), "sonnet");
  EXPECT_TRUE(controller().setModel("opus"));
  EXPECT_FALSE(controller().setModel("gpt-5.3-codex-spark")) << "not a model of Claude";
  EXPECT_EQ(preferences.string(kAgentModelPreferenceKey), "opus");

  controller_.reset();
  EXPECT_EQ(state().provider, VelkAgentProvider::claude) << "read back at construction";
  EXPECT_EQ(state().model, "opus");

  // Stored values the editor cannot use fall back instead of breaking the next run.
  ASSERT_TRUE(preferences.setString(kAgentProviderPreferenceKey, "gemini"));
  ASSERT_TRUE(preferences.setString(kAgentModelPreferenceKey, "opus"));
  controller_.reset();
  EXPECT_EQ(state().provider, VelkAgentProvider::codex);
  EXPECT_EQ(state().model, "gpt-5.3-codex-spark");
}

TEST_F(AgentPromptControllerTest, RunShowsProgressAndCompletesThroughTheReceipt) {
  controller().setPrompt("  Make the crate red ");
  controller().submit(arenaScope());
  EXPECT_EQ(state().phase, Phase::running);
  EXPECT_EQ(state().statusLabel, "Understanding request");
  EXPECT_FALSE(controller().canSubmit());
  scheduler.runBackground();
  EXPECT_EQ(state().statusLabel, "Opening Codex");
  ASSERT_EQ(launcher.launches.size(), 1u);
  const auto& launch = launcher.launches[0];

  const ProcessLaunchOptions& options = launch.options;
  EXPECT_EQ(options.executablePath, kCodexPath);
  EXPECT_EQ(options.workingDirectory, "/var/agent");
  EXPECT_EQ(options.standardInput, ProcessLaunchOptions::StandardInput::nullDevice);
  EXPECT_EQ(options.arguments,
            localAgentArguments(VelkAgentProvider::codex, "gpt-5.3-codex-spark", "/var/agent",
                                localAgentPrompt(arenaScope(), "Make the crate red")));
  EXPECT_THAT(options.environment,
              ElementsAre(std::pair<std::string, std::string>("ORVAN_AUTH_TOKEN", "token-1")));

  launch.say(R"({"type":"response_item","payload":{"type":"function_call","name":"velk_change"}})");
  scheduler.runUntilIdle();
  EXPECT_EQ(state().statusLabel, "Applying the change");
  launch.say(R"({"payload":{"type":"agent_message","message":"The crate is red now."}})");
  scheduler.runUntilIdle();
  EXPECT_EQ(state().statusLabel, "Applying the change");

  // A failing exit status is no failure in itself: the receipt decides.
  launch.exit(ExitStatus::exited(3));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().phase, Phase::running);
  ASSERT_EQ(receiptRequests(), 1u);
  EXPECT_THAT(http.requests()[0].url, HasSubstr("s=Arena.usda"));
  ASSERT_TRUE(http.completeNext(httpResponse(200, receiptFor("Arena.usda"))));
  scheduler.runUntilIdle();

  EXPECT_EQ(state().phase, Phase::completed);
  ASSERT_TRUE(state().result);
  EXPECT_EQ(state().result->summary, "The crate is red now.");
  EXPECT_EQ(state().result->workspaceId, "ws-main");
  EXPECT_EQ(validationLabel(*state().result), "Validation passed");
  EXPECT_TRUE(state().showsResultPopover);
  EXPECT_TRUE(launch.child->destroyed);

  controller().openResultWorkspace();
  EXPECT_THAT(opened, ElementsAre(std::pair<std::string, std::string>("ws-main", "")));
  EXPECT_FALSE(state().showsResultPopover);
}

TEST_F(AgentPromptControllerTest, BlankPromptsAndSecondSubmitsStartNothing) {
  EXPECT_EQ(submit("  \n "), nullptr);
  EXPECT_EQ(state().phase, Phase::idle);
  EXPECT_FALSE(controller().canSubmit());
  ASSERT_TRUE(submit("First"));
  EXPECT_EQ(submit("Second"), nullptr);
  EXPECT_EQ(launcher.launches.size(), 1u);
}

// A cancel takes effect whatever the run is doing, and a stopped run never asks for a receipt.
TEST_F(AgentPromptControllerTest, CancelStopsARunWhileStartingRunningOrAwaitingTheReceipt) {
  controller().setPrompt("Red");
  controller().submit(arenaScope());
  controller().cancel(arenaScope());
  EXPECT_EQ(state().statusLabel, "Stopping");
  scheduler.runBackground();
  ASSERT_EQ(launcher.launches.size(), 1u);
  EXPECT_EQ(launcher.launches[0].child->terminateCount, 1) << "stopped once it is there";
  EXPECT_EQ(state().statusLabel, "Stopping") << "the opening label of a stopped run is dropped";
  launcher.launches[0].exit(ExitStatus::signalled(15));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().statusLabel, "Stopped");

  const auto* running = submit("Make the crate red");
  ASSERT_TRUE(running);
  controller().cancel(arenaScope());
  EXPECT_EQ(running->child->terminateCount, 1);
  EXPECT_EQ(state().phase, Phase::running) << "the agent has not ended yet";
  running->say(R"({"type":"function_call","name":"velk_verify"})");
  scheduler.runUntilIdle();
  EXPECT_EQ(state().statusLabel, "Stopping") << "a stopping run shows no more progress";
  running->exit(ExitStatus::signalled(15));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().phase, Phase::idle);
  EXPECT_EQ(state().statusLabel, "Stopped");
  EXPECT_EQ(state().prompt, "Make the crate red");
  EXPECT_EQ(http.requestCount(), 0u);

  const auto* exited = submit("Red");
  ASSERT_TRUE(exited);
  exited->exit(ExitStatus::exited(0));
  scheduler.runUntilIdle();
  ASSERT_EQ(http.pending().size(), 1u);
  controller().cancel(arenaScope());
  EXPECT_EQ(state().phase, Phase::idle);
  EXPECT_EQ(state().statusLabel, "Stopped");
  EXPECT_TRUE(http.isCancelled(0));
}

TEST_F(AgentPromptControllerTest, RunsWithoutAMatchingReceiptFailAndKeepThePrompt) {
  struct Case {
    const char* name;
    editor::Result<HttpResponse> answer;
  };
  const Case cases[] = {
      {"receipt of another scene", httpResponse(200, receiptFor("Lobby.usda"))},
      {"no connection", Error::transport(Error::kTransportCannotConnect, "refused")},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.name);
    const auto* launch = submit("Make the crate red");
    ASSERT_TRUE(launch);
    launch->say(R"({"payload":{"type":"agent_message","message":"Done!"}})");
    launch->exit(ExitStatus::exited(0));
    scheduler.runUntilIdle();
    ASSERT_TRUE(http.completeNext(item.answer));
    scheduler.runUntilIdle();
    EXPECT_EQ(state().phase, Phase::failed);
    EXPECT_EQ(state().statusLabel, "Request failed");
    EXPECT_EQ(state().permissionMessage, kReceiptWarning);
    EXPECT_FALSE(state().result);
    EXPECT_EQ(state().prompt, "Make the crate red");
    EXPECT_TRUE(controller().canSubmit()) << "a failed request may be retried";
  }
}

TEST_F(AgentPromptControllerTest, ReceiptMessageSummarisesASilentRunAndLateEventsAreDropped) {
  const auto* first = submit("One");
  ASSERT_TRUE(first);
  const FakeAgentLauncher::Launch earlier = *first;
  earlier.say("not json at all");
  earlier.exit(ExitStatus::exited(0));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().statusLabel, "Preparing the change");
  ASSERT_TRUE(http.completeNext(httpResponse(200, receiptFor("/Scenes/Arena.usda", "Blue."))));
  scheduler.runUntilIdle();
  ASSERT_EQ(state().phase, Phase::completed);
  EXPECT_EQ(state().result->summary, "Blue.") << "the agent said nothing";

  const auto* second = submit("Two");
  ASSERT_TRUE(second);
  second->say(R"({"type":"function_call","name":"velk_workspace"})");
  earlier.say(R"({"type":"function_call","name":"velk_verify"})");
  earlier.exit(ExitStatus::exited(0));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().statusLabel, "Opening the current scene");
  EXPECT_EQ(state().phase, Phase::running);
  EXPECT_EQ(receiptRequests(), 1u) << "the earlier run's exit asks for nothing";
}

TEST_F(AgentPromptControllerTest, MissingOrUnstartableAgentsSayWhatToDo) {
  installed.clear();
  EXPECT_EQ(submit("Red"), nullptr);
  EXPECT_EQ(state().phase, Phase::failed);
  EXPECT_EQ(state().statusLabel, "Codex is not installed");
  EXPECT_EQ(state().permissionMessage,
            "Install and sign in to Codex, then try the Velk prompt bar again.");

  installed = {"/usr/bin/claude"};
  launcher.failure = Error::editor(ProcessLauncher::kLaunchFailedCode, "permission denied");
  EXPECT_EQ(submit("Red", VelkAgentProvider::claude), nullptr);
  EXPECT_EQ(state().phase, Phase::failed);
  EXPECT_EQ(state().statusLabel, "Request failed");
  EXPECT_EQ(state().permissionMessage, "Could not start Claude");
  EXPECT_EQ(state().prompt, "Red");
}

TEST_F(AgentPromptControllerTest, DictationShowsListeningUntilItEndsOrASubmitTakesOver) {
  EXPECT_FALSE(controller().isExpanded());
  controller().startRecording(arenaScope());
  EXPECT_EQ(state().phase, Phase::listening);
  EXPECT_EQ(state().statusLabel, "Listening");
  EXPECT_TRUE(controller().isExpanded());
  controller().stopRecording(false);
  EXPECT_EQ(state().phase, Phase::idle);
  EXPECT_FALSE(controller().isExpanded());
  controller().setVisible(true);
  EXPECT_TRUE(controller().isExpanded());

  controller().startRecording(arenaScope());
  ASSERT_TRUE(submit("Red"));
  EXPECT_EQ(state().phase, Phase::running);
  controller().startRecording(arenaScope());
  EXPECT_EQ(state().phase, Phase::running) << "no dictation over a run";
}

// The held request also names its own provider, which runs with its default model and is not
// remembered.
TEST_F(AgentPromptControllerTest, ConfirmedCommandRunsTheHeldRequest) {
  controller().setPrompt("typed meanwhile");
  controller().requestConfirmation(arenaScope(), "Delete every light", VelkAgentProvider::claude,
                                   "This removes 12 lights.");
  EXPECT_TRUE(state().showsDestructiveConfirmation);
  EXPECT_EQ(state().confirmationMessage, "This removes 12 lights.");
  controller().confirmPendingCommand();
  scheduler.runBackground();
  EXPECT_FALSE(state().showsDestructiveConfirmation);
  ASSERT_EQ(launcher.launches.size(), 1u);
  EXPECT_EQ(launcher.launches[0].options.executablePath, kClaudePath);
  EXPECT_THAT(launcher.launches[0].options.arguments.back(),
              HasSubstr("User request: Delete every light"));
  EXPECT_THAT(launcher.launches[0].options.arguments, ::testing::Contains("sonnet"));
  EXPECT_EQ(state().provider, VelkAgentProvider::codex);
  EXPECT_EQ(preferences.string(kAgentProviderPreferenceKey), std::nullopt);

  controller().confirmPendingCommand();
  scheduler.runBackground();
  EXPECT_EQ(launcher.launches.size(), 1u) << "nothing is held any more";
}

TEST_F(AgentPromptControllerTest, ServerCommandsAreCancelledAndUndoneThroughTheServer) {
  controller().undo(arenaScope());
  EXPECT_EQ(state().statusLabel, "Use Velk undo to revert this change");
  EXPECT_EQ(http.requestCount(), 0u);

  controller().trackServerCommand("cmd/7");
  controller().undo(arenaScope());
  EXPECT_EQ(state().statusLabel, "Undoing changes");
  ASSERT_EQ(http.requestCount(), 1u);
  EXPECT_EQ(http.requests()[0].url, "https://velk.example/api/agent/commands/cmd%2F7/undo");
  EXPECT_EQ(http.requests()[0].method, "POST");
  ASSERT_TRUE(http.completeNext(httpResponse(200, R"({"accepted":false,"message":"Too late"})")));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().phase, Phase::failed);
  EXPECT_EQ(state().permissionMessage, "Velk could not undo that command.");

  controller().undo(arenaScope());
  ASSERT_TRUE(http.completeNext(httpResponse(401, "{}")));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().permissionMessage, "Sign in to Velk to use Intelligence.");

  controller().cancel(arenaScope());
  EXPECT_EQ(state().statusLabel, "Stopping");
  EXPECT_THAT(http.requests().back().url, HasSubstr("/api/agent/commands/cmd%2F7/cancel"));
  ASSERT_TRUE(http.completeNext(httpResponse(200, R"({"accepted":false})")));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().permissionMessage, "Velk could not cancel that command.");

  controller().cancel(arenaScope());
  ASSERT_TRUE(http.completeNext(httpResponse(200, R"({"accepted":true})")));
  scheduler.runUntilIdle();
  EXPECT_EQ(state().phase, Phase::idle);
  EXPECT_EQ(state().statusLabel, "Stopped");
  EXPECT_EQ(state().commandId, "");
}

TEST_F(AgentPromptControllerTest, DroppingTheControllerStopsTheAgentAndSilencesItsEvents) {
  const auto* launch = submit("Red");
  ASSERT_TRUE(launch);
  const FakeAgentLauncher::Launch running = *launch;
  controller_.reset();
  EXPECT_EQ(running.child->terminateCount, 1);
  EXPECT_TRUE(running.child->destroyed);
  running.say(R"({"type":"function_call","name":"velk_change"})");
  running.exit(ExitStatus::exited(0));
  scheduler.runUntilIdle();
  EXPECT_EQ(http.requestCount(), 0u);
}

}  // namespace
}  // namespace orvan::editor
