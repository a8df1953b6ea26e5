#include "Intelligence/AgentPromptController.h"

#include <utility>
#include <variant>

#include <spdlog/spdlog.h>

#include "Foundation/Logging.h"
#include "Intelligence/AgentProcessOutputCapture.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace text = agent_prompt_text;

std::string_view validationLabel(const AgentPromptResult& result) {
  const bool passed = result.validationStatus == "passed" || result.validationStatus == "validated";
  return passed ? text::kValidationPassed : text::kNeedsReview;
}

namespace {

// The text of a command request that did not do what was asked; nothing when it did. Sign-in and
// connection problems say what to do about them; any other refusal of an undo reads the same.
std::optional<std::string> commandFailureText(
    AgentCommandAction action,
    const std::variant<AgentCommandResponse, AgentPromptError>& outcome) {
  const bool isUndo = action == AgentCommandAction::undo;
  if (const auto* error = std::get_if<AgentPromptError>(&outcome)) {
    const bool actionable = error->kind == AgentPromptError::Kind::unauthorized ||
                            error->kind == AgentPromptError::Kind::network;
    if (isUndo && !actionable)
      return std::string(text::kUndoFailed);
    return friendlyMessage(*error);
  }
  const auto& response = std::get<AgentCommandResponse>(outcome);
  if (response.accepted)
    return std::nullopt;
  if (!isUndo && response.message && !isBlank(*response.message))
    return *response.message;
  return std::string(isUndo ? text::kUndoFailed : text::kCancelFailed);
}

}  // namespace

// What the background half of a launch found: no agent, an agent that would not start, or the
// running child.
struct AgentPromptController::LaunchOutcome {
  struct Missing {};
  std::variant<Missing, Error, std::unique_ptr<ChildProcess>> value;
};

AgentPromptController::AgentPromptController(Ports ports) : ports_(std::move(ports)) {
  loadPreferences();
}

// The child, if any, is dropped with the controller: the process handle stops it and reaps it.
AgentPromptController::~AgentPromptController() {
  if (localAgentProcess_)
    localAgentProcess_->terminate();
}

void AgentPromptController::loadPreferences() {
  const auto storedProvider = ports_.preferences.string(kAgentProviderPreferenceKey);
  const VelkAgentProvider provider =
      storedProvider
          ? providerFromPreferenceValue(*storedProvider).value_or(VelkAgentProvider::codex)
          : VelkAgentProvider::codex;
  // A model of the other provider (or one no longer offered) would make the agent refuse to
  // start, so it falls back to the provider's default.
  const auto storedModel = ports_.preferences.string(kAgentModelPreferenceKey);
  const std::string model =
      storedModel && isModelOf(provider, *storedModel) ? *storedModel : defaultModel(provider);
  updateState([&](AgentPromptState& state) {
    state.provider = provider;
    state.model = model;
  });
}

void AgentPromptController::storePreferences() {
  const AgentPromptState& current = state_.get();
  for (auto status : {ports_.preferences.setString(kAgentProviderPreferenceKey,
                                                   preferenceValue(current.provider)),
                      ports_.preferences.setString(kAgentModelPreferenceKey, current.model)}) {
    if (!status)
      spdlog::warn("Velk Intelligence could not store the agent choice: {}",
                   status.error().description);
  }
}

void AgentPromptController::setVisible(bool visible) {
  updateState([&](AgentPromptState& state) { state.isVisible = visible; });
}

void AgentPromptController::setPrompt(std::string prompt) {
  updateState([&](AgentPromptState& state) { state.prompt = std::move(prompt); });
}

void AgentPromptController::setProvider(VelkAgentProvider provider) {
  updateState([&](AgentPromptState& state) {
    state.provider = provider;
    state.model = defaultModel(provider);
  });
  storePreferences();
}

bool AgentPromptController::setModel(const std::string& model) {
  if (!isModelOf(state_.get().provider, model))
    return false;
  updateState([&](AgentPromptState& state) { state.model = model; });
  storePreferences();
  return true;
}

bool AgentPromptController::canSubmit() const {
  const AgentPromptState& current = state_.get();
  return !isBlank(current.prompt) && current.phase != Phase::running;
}

bool AgentPromptController::isExpanded() const {
  const AgentPromptState& current = state_.get();
  return current.isVisible || current.phase != Phase::idle;
}

void AgentPromptController::submit(const VelkAgentAuthoringScope& scope, bool confirmed,
                                   std::optional<VelkAgentProvider> requestedProvider) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  const std::string request = trimmed(state_.get().prompt);
  if (request.empty() || state_.get().phase == Phase::running)
    return;
  if (!confirmed)
    dismissConfirmation();
  stopRecording(/*preservePhase=*/true);

  const VelkAgentProvider provider = requestedProvider.value_or(state_.get().provider);
  const std::string model =
      provider == state_.get().provider ? state_.get().model : defaultModel(provider);
  updateState([&](AgentPromptState& state) {
    state.phase = Phase::running;
    state.statusLabel = text::kUnderstandingRequest;
    state.permissionMessage.clear();
    state.result.reset();
    state.showsResultPopover = false;
    state.commandId.clear();
  });
  eventURL_.reset();
  eventTask_.cancel();
  launchLocalAgent(scope, request, provider, model);
}

void AgentPromptController::launchLocalAgent(const VelkAgentAuthoringScope& scope,
                                             const std::string& prompt, VelkAgentProvider provider,
                                             const std::string& model) {
  const std::uint64_t runID = beginLocalAgentRun(scope);
  ProcessLaunchOptions options = localAgentLaunchOptions(runID, scope, prompt, provider, model);
  launchTask_.replace(postTaskAndReply(ports_.background, ports_.main,
                                       startLocalAgentWork(runID, provider, std::move(options)),
                                       [this, runID, provider](LaunchOutcome outcome) {
                                         finishLaunch(runID, provider, std::move(outcome));
                                       }));
}

std::uint64_t AgentPromptController::beginLocalAgentRun(const VelkAgentAuthoringScope& scope) {
  const std::uint64_t runID = nextRunID_++;
  localAgentRunID_ = runID;
  cancelledAgentRunID_.reset();
  exitedAgentRunID_.reset();
  runScope_ = scope;
  runCapture_ = std::make_shared<AgentProcessOutputCapture>();
  return runID;
}

std::string AgentPromptController::localAgentDirectory() const {
  if (!ports_.agentWorkingDirectory.empty())
    return ports_.agentWorkingDirectory;
  return ports_.homeDirectory.empty() ? "/" : ports_.homeDirectory;
}

ProcessLaunchOptions AgentPromptController::localAgentLaunchOptions(
    std::uint64_t runID, const VelkAgentAuthoringScope& scope, const std::string& prompt,
    VelkAgentProvider provider, const std::string& model) {
  const std::string directory = localAgentDirectory();
  ProcessLaunchOptions options;
  options.arguments =
      localAgentArguments(provider, model, directory, localAgentPrompt(scope, prompt));
  options.workingDirectory = directory;
  options.standardInput = ProcessLaunchOptions::StandardInput::nullDevice;
  if (const std::string token = trimmed(scope.authToken); !token.empty())
    options.environment.emplace_back("ORVAN_AUTH_TOKEN", token);
  options.standardOutput = localAgentEventStream(runID);
  const std::shared_ptr<AgentProcessOutputCapture> capture = runCapture_;
  options.standardError = OutputStreamOptions::inLines(
      [capture](OutputLine line) { capture->appendDiagnosticLine(line.text); });
  options.onExit = localAgentExitHandler(runID);
  return options;
}

// The monitor thread reads the stream and works out the labels; only changed labels travel to the
// main thread, each tagged with its run.
OutputStreamOptions AgentPromptController::localAgentEventStream(std::uint64_t runID) {
  MainExecutor& main = ports_.main;
  const WeakLifetime weak = lifetime_.weak();
  const std::shared_ptr<AgentProcessOutputCapture> capture = runCapture_;
  return OutputStreamOptions::inLines([this, &main, weak, runID, capture](OutputLine line) {
    auto label = capture->appendEventLine(line.text);
    if (!label)
      return;
    main.post([this, weak, runID, label = std::move(*label)] {
      if (weak.isAlive())
        showAgentProgress(runID, label);
    });
  });
}

std::function<void(ExitStatus)> AgentPromptController::localAgentExitHandler(std::uint64_t runID) {
  MainExecutor& main = ports_.main;
  const WeakLifetime weak = lifetime_.weak();
  return [this, &main, weak, runID](ExitStatus status) {
    main.post([this, weak, runID, status] {
      if (weak.isAlive())
        finishLocalAgent(runID, status);
    });
  };
}

// Off the main thread: find the agent, say so, and start it. No agent found is an outcome of its
// own, told apart from one that would not start.
std::function<AgentPromptController::LaunchOutcome(std::stop_token)>
AgentPromptController::startLocalAgentWork(std::uint64_t runID, VelkAgentProvider provider,
                                           ProcessLaunchOptions options) {
  MainExecutor& main = ports_.main;
  ProcessLauncher& launcher = ports_.processLauncher;
  const WeakLifetime weak = lifetime_.weak();
  AgentExecutableLookup lookup{ports_.homeDirectory, ports_.executableSearchPath,
                               ports_.isExecutableFile};
  auto shared = std::make_shared<ProcessLaunchOptions>(std::move(options));
  return [this, &main, &launcher, weak, runID, provider, lookup = std::move(lookup),
          shared](std::stop_token) {
    LaunchOutcome outcome;
    auto executable = localAgentExecutable(provider, lookup);
    if (!executable)
      return outcome;
    main.post([this, weak, runID, status = agentOpeningStatus(provider)] {
      if (weak.isAlive())
        showAgentProgress(runID, status);
    });
    ProcessLaunchOptions launched = std::move(*shared);
    launched.executablePath = std::move(*executable);
    auto process = launcher.launch(std::move(launched));
    if (process)
      outcome.value = std::move(*process);
    else
      outcome.value = process.error();
    return outcome;
  };
}

void AgentPromptController::finishLaunch(std::uint64_t runID, VelkAgentProvider provider,
                                         LaunchOutcome outcome) {
  launchTask_.clear();
  if (auto* process = std::get_if<std::unique_ptr<ChildProcess>>(&outcome.value)) {
    if (localAgentRunID_ != runID) {
      (*process)->terminate();
      return;
    }
    // A quick agent may have ended before this reply came: its exit was handled already, and the
    // handle only has to go (finishing a stop that was waiting for it).
    if (exitedAgentRunID_ == runID) {
      if (cancelledAgentRunID_ == runID)
        stopRun();
      return;
    }
    localAgentProcess_ = std::move(*process);
    // Stopped while it was starting: it ends now, and its exit shows "Stopped".
    if (cancelledAgentRunID_ == runID)
      localAgentProcess_->terminate();
    return;
  }
  if (localAgentRunID_ != runID)
    return;
  if (cancelledAgentRunID_ == runID) {
    stopRun();
    return;
  }
  if (const auto* error = std::get_if<Error>(&outcome.value)) {
    spdlog::warn("Velk Intelligence could not start {}: {}", displayName(provider),
                 error->description);
    failRun(std::string(text::kRequestFailed), agentLaunchFailedMessage(provider));
    return;
  }
  failRun(agentNotInstalledMessage(provider), agentInstallHint(provider));
}

void AgentPromptController::showAgentProgress(std::uint64_t runID, const std::string& label) {
  if (localAgentRunID_ != runID || cancelledAgentRunID_ == runID ||
      state_.get().phase != Phase::running)
    return;
  updateState([&](AgentPromptState& state) { state.statusLabel = label; });
}

void AgentPromptController::finishLocalAgent(std::uint64_t runID, ExitStatus status) {
  if (localAgentRunID_ != runID)
    return;
  exitedAgentRunID_ = runID;
  localAgentProcess_.reset();
  if (cancelledAgentRunID_ == runID) {
    stopRun();
    return;
  }
  // The exit status alone decides nothing: the agent may have applied the change and failed
  // afterwards, or claimed success without one. The server's receipt is the answer.
  if (!status.isSuccess())
    spdlog::info("Velk Intelligence agent ended with {}", status.describe());
  auto request = velkChangeReceiptRequest(*runScope_);
  if (!request) {
    finishWithReceipt(runID, Error::http(0, "Invalid project server URL"));
    return;
  }
  const WeakLifetime weak = lifetime_.weak();
  receiptTask_.replace(ports_.http.send(
      std::move(*request), {}, [this, weak, runID](::orvan::editor::Result<HttpResponse> answer) {
        if (!weak.isAlive() || (!answer && answer.error().isCancellation()))
          return;
        finishWithReceipt(runID, answer);
      }));
}

void AgentPromptController::finishWithReceipt(std::uint64_t runID,
                                              const ::orvan::editor::Result<HttpResponse>& answer) {
  if (localAgentRunID_ != runID)
    return;
  receiptTask_.clear();
  auto summary = readReceiptAnswer(answer, *runScope_);
  if (!summary) {
    failRun(std::string(text::kRequestFailed),
            agentFailureMessage(runCapture_->output(), summary.error()));
    return;
  }
  // The agent's own words describe what it did; the receipt's are the fallback.
  completeLocalAgent(runCapture_->summary().value_or(*summary));
}

void AgentPromptController::completeLocalAgent(const std::string& summary) {
  const std::string workspaceId = runScope_ ? runScope_->workspaceId : std::string();
  localAgentRunID_.reset();
  runScope_.reset();
  runCapture_.reset();
  updateState([&](AgentPromptState& state) {
    Result result;
    result.summary = isBlank(summary) ? std::string(text::kChangesCompleted) : trimmed(summary);
    result.workspaceId = workspaceId;
    result.validationStatus = "validated";
    state.result = std::move(result);
    state.phase = Phase::completed;
    state.statusLabel = state.result->summary;
    state.showsResultPopover = true;
    // The request is done; a new one starts from an empty field.
    state.prompt.clear();
  });
}

std::string AgentPromptController::agentFailureMessage(const std::string& output,
                                                       const Error& error) const {
  spdlog::warn("Velk Intelligence agent ended without a change receipt: {}",
               textTail(trimWhitespaceAndNewlines(output)));
  spdlog::info("Velk Intelligence receipt request: {}", error.description);
  return std::string(text::kMissingReceipt);
}

// Failures keep the prompt, so that the user can retry it as it was.
void AgentPromptController::failRun(std::string statusLabel, std::string message) {
  localAgentRunID_.reset();
  localAgentProcess_.reset();
  runScope_.reset();
  runCapture_.reset();
  updateState([&](AgentPromptState& state) {
    state.phase = Phase::failed;
    state.statusLabel = std::move(statusLabel);
    state.permissionMessage = std::move(message);
    state.showsResultPopover = false;
  });
}

void AgentPromptController::stopRun() {
  localAgentRunID_.reset();
  localAgentProcess_.reset();
  runScope_.reset();
  runCapture_.reset();
  receiptTask_.cancel();
  updateState([](AgentPromptState& state) {
    state.phase = Phase::idle;
    state.statusLabel = text::kStopped;
  });
}

void AgentPromptController::cancel(const VelkAgentAuthoringScope& scope) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  if (localAgentRunID_) {
    if (cancelledAgentRunID_ == localAgentRunID_)
      return;
    cancelledAgentRunID_ = localAgentRunID_;
    const bool exited = exitedAgentRunID_ == localAgentRunID_;
    if (localAgentProcess_ || (launchTask_.isActive() && !exited)) {
      // The exit (or the end of the launch) finishes the stop.
      if (localAgentProcess_)
        localAgentProcess_->terminate();
      updateState([](AgentPromptState& state) { state.statusLabel = text::kStopping; });
      return;
    }
    // The agent is gone and only the receipt was awaited.
    stopRun();
    return;
  }
  if (state_.get().commandId.empty() || commandTask_.isActive())
    return;
  updateState([](AgentPromptState& state) { state.statusLabel = text::kStopping; });
  sendCommandRequest(scope, AgentCommandAction::cancel);
}

void AgentPromptController::undo(const VelkAgentAuthoringScope& scope) {
  ORVAN_ASSERT_MAIN_THREAD(ports_.main);
  if (commandTask_.isActive() || state_.get().phase == Phase::running)
    return;
  if (state_.get().commandId.empty()) {
    // A local run's change went through the edit history like any other: the editor's undo
    // takes it back.
    updateState([](AgentPromptState& state) { state.statusLabel = text::kUndoHint; });
    return;
  }
  updateState([](AgentPromptState& state) { state.statusLabel = text::kUndoing; });
  sendCommandRequest(scope, AgentCommandAction::undo);
}

void AgentPromptController::sendCommandRequest(const VelkAgentAuthoringScope& scope,
                                               AgentCommandAction action) {
  const bool tokenWasSent = !isBlank(scope.authToken);
  auto request =
      postJSON(agentCommandPath(state_.get().commandId, action), scope, scopeBody(scope));
  if (!request) {
    finishCommandRequest(action, Error::http(0, "Invalid project server URL"), tokenWasSent);
    return;
  }
  const WeakLifetime weak = lifetime_.weak();
  commandTask_.replace(ports_.http.send(
      std::move(*request), {},
      [this, weak, action, tokenWasSent](::orvan::editor::Result<HttpResponse> answer) {
        if (!weak.isAlive() || (!answer && answer.error().isCancellation()))
          return;
        finishCommandRequest(action, answer, tokenWasSent);
      }));
}

void AgentPromptController::finishCommandRequest(
    AgentCommandAction action, const ::orvan::editor::Result<HttpResponse>& answer,
    bool tokenWasSent) {
  commandTask_.clear();
  const auto outcome = readAgentCommandAnswer(answer, tokenWasSent);
  if (auto failure = commandFailureText(action, outcome)) {
    failRun(std::string(text::kRequestFailed), std::move(*failure));
    return;
  }
  const auto& response = std::get<AgentCommandResponse>(outcome);
  updateState([&](AgentPromptState& state) {
    state.phase = Phase::idle;
    state.commandId.clear();
    state.showsResultPopover = false;
    if (action == AgentCommandAction::undo)
      state.result.reset();
    state.statusLabel = action == AgentCommandAction::cancel ? std::string(text::kStopped)
                                                             : response.message.value_or("");
  });
}

void AgentPromptController::requestConfirmation(const VelkAgentAuthoringScope& scope,
                                                std::string prompt, VelkAgentProvider provider,
                                                std::string message) {
  pendingConfirmedScope_ = scope;
  pendingConfirmedPrompt_ = std::move(prompt);
  pendingConfirmedProvider_ = provider;
  updateState([&](AgentPromptState& state) {
    state.confirmationMessage = std::move(message);
    state.showsDestructiveConfirmation = true;
  });
}

void AgentPromptController::trackServerCommand(std::string commandId) {
  updateState([&](AgentPromptState& state) { state.commandId = std::move(commandId); });
}

void AgentPromptController::confirmPendingCommand() {
  if (!pendingConfirmedScope_)
    return;
  const VelkAgentAuthoringScope scope = std::move(*pendingConfirmedScope_);
  const std::optional<VelkAgentProvider> provider = pendingConfirmedProvider_;
  std::string prompt = std::move(pendingConfirmedPrompt_);
  dismissConfirmation();
  setPrompt(std::move(prompt));
  submit(scope, /*confirmed=*/true, provider);
}

void AgentPromptController::dismissConfirmation() {
  pendingConfirmedScope_.reset();
  pendingConfirmedPrompt_.clear();
  pendingConfirmedProvider_.reset();
  updateState([](AgentPromptState& state) {
    state.confirmationMessage.clear();
    state.showsDestructiveConfirmation = false;
  });
}

void AgentPromptController::dismissResult() {
  if (state_.get().phase != Phase::completed)
    return;
  updateState([](AgentPromptState& state) {
    state.showsResultPopover = false;
    state.phase = Phase::idle;
    state.statusLabel.clear();
  });
}

void AgentPromptController::openResultWorkspace() {
  const auto& result = state_.get().result;
  if (!result)
    return;
  const Result target = *result;
  updateState([](AgentPromptState& state) { state.showsResultPopover = false; });
  if (ports_.openWorkspace)
    ports_.openWorkspace(target.workspaceId, target.editorURL);
}

void AgentPromptController::startRecording(const VelkAgentAuthoringScope&) {
  if (state_.get().phase == Phase::running)
    return;
  updateState([](AgentPromptState& state) {
    state.phase = Phase::listening;
    state.statusLabel = text::kListening;
  });
}

void AgentPromptController::stopRecording(bool preservePhase) {
  if (preservePhase || state_.get().phase != Phase::listening)
    return;
  updateState([](AgentPromptState& state) {
    state.phase = Phase::idle;
    state.statusLabel.clear();
  });
}

}  // namespace orvan::editor
