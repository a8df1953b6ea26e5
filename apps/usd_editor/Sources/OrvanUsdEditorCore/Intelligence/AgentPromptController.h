#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Intelligence/AgentPromptError.h"
#include "Intelligence/AgentServerRequests.h"
#include "Intelligence/LocalAgentRun.h"
#include "Intelligence/VelkAgentAuthoringScope.h"
#include "Intelligence/VelkAgentProvider.h"
#include "Platform/HttpClient.h"
#include "Platform/PreferencesStore.h"
#include "Platform/ProcessLauncher.h"

namespace orvan::editor {

class AgentProcessOutputCapture;

enum class AgentPromptPhase { idle, listening, running, completed, failed };

// What a finished run changed, as the result popover shows it.
struct AgentPromptResult {
  std::string summary;
  std::string workspaceId;
  std::string workspaceName;
  std::string editorURL;
  std::string validationStatus;

  bool operator==(const AgentPromptResult&) const = default;
};

// Everything the prompt bar draws, in one store so that the bar redraws from one place.
//
// Failures: `statusLabel` is "Request failed" and `permissionMessage` the failure text, except
// for a missing agent, where `statusLabel` says which agent is not installed and
// `permissionMessage` how to install it.
struct AgentPromptState {
  bool isVisible = false;
  std::string prompt;
  VelkAgentProvider provider = VelkAgentProvider::codex;
  std::string model;
  AgentPromptPhase phase = AgentPromptPhase::idle;
  std::string statusLabel;
  std::optional<AgentPromptResult> result;
  std::string permissionMessage;
  bool showsResultPopover = false;
  std::string confirmationMessage;
  bool showsDestructiveConfirmation = false;
  // The server-run command whose cancel and undo the bar offers; empty for a local run.
  std::string commandId;

  bool operator==(const AgentPromptState&) const = default;
};

// Fixed words of the prompt bar and its sheets.
namespace agent_prompt_text {
inline constexpr std::string_view kPlaceholder = "Ask Velk to change the scene";
inline constexpr std::string_view kDictate = "Dictate";
inline constexpr std::string_view kSend = "Send";
inline constexpr std::string_view kStopListening = "Stop listening";
inline constexpr std::string_view kListening = "Listening";
inline constexpr std::string_view kStop = "Stop";
inline constexpr std::string_view kStopHelp = "Stop agent";
inline constexpr std::string_view kResultTitle = "Velk Intelligence";
inline constexpr std::string_view kValidationPassed = "Validation passed";
inline constexpr std::string_view kNeedsReview = "Needs review";
inline constexpr std::string_view kUndo = "Undo";
inline constexpr std::string_view kOpenWorkspace = "Open Workspace";
inline constexpr std::string_view kRequestFailed = "Request failed";
inline constexpr std::string_view kProviderMenuHelp = "Choose local agent and model";
inline constexpr std::string_view kProviderSection = "Provider";
inline constexpr std::string_view kModelSection = "Model";
inline constexpr std::string_view kConfirmationTitle = "Confirm Project Change";
inline constexpr std::string_view kConfirmationCancel = "Cancel";
inline constexpr std::string_view kConfirmationContinue = "Continue";
inline constexpr std::string_view kUnderstandingRequest = "Understanding request";
inline constexpr std::string_view kStopping = "Stopping";
inline constexpr std::string_view kStopped = "Stopped";
inline constexpr std::string_view kUndoing = "Undoing changes";
inline constexpr std::string_view kUndoFailed = "Velk could not undo that command.";
inline constexpr std::string_view kCancelFailed = "Velk could not cancel that command.";
inline constexpr std::string_view kUndoHint = "Use Velk undo to revert this change";
inline constexpr std::string_view kChangesCompleted = "Changes completed";
inline constexpr std::string_view kMissingReceipt =
    "Velk did not receive a final change receipt. Check the active workspace before retrying; "
    "the agent may already have applied a change.";
}  // namespace agent_prompt_text

// "Validation passed" for a status of "passed" or "validated", "Needs review" otherwise.
std::string_view validationLabel(const AgentPromptResult& result);

inline constexpr std::string_view kAgentProviderPreferenceKey = "velk.agentPrompt.provider";
inline constexpr std::string_view kAgentModelPreferenceKey = "velk.agentPrompt.model";

// The state behind the prompt bar: the request, the chosen agent and model, the phase of the
// current run, its result, and cancel and undo. A request runs through a locally installed agent
// that changes the scene only through the server's validated tools; the controller watches the
// agent's event stream for progress and then asks the server for the change receipt, which alone
// decides whether the run succeeded.
//
// Lives on the main thread. Agent output is read on the process's monitor thread and comes back
// to the main thread tagged with its run, so that whatever an earlier run still says is dropped.
class AgentPromptController {
 public:
  using Phase = AgentPromptPhase;
  using Result = AgentPromptResult;

  struct Ports {
    MainExecutor& main;
    BackgroundExecutor& background;
    PreferencesStore& preferences;
    ProcessLauncher& processLauncher;
    HttpClient& http;
    std::string homeDirectory;
    // Whether a path is an executable file; decides which agents count as installed.
    std::function<bool(const std::string& path)> isExecutableFile;
    // PATH-style directories where agents are looked for after their usual install locations.
    std::string executableSearchPath;
    // The directory the agent runs in; the home directory when empty. The agent works through
    // the server's tools only, so this is never a checkout of the scene.
    std::string agentWorkingDirectory;
    // Switches the editor to the result's workspace. The workspace switch belongs to the editor
    // model; the controller only says where to go: the workspace id and the web editor URL.
    std::function<void(const std::string& workspaceId, const std::string& editorURL)> openWorkspace;
  };

  explicit AgentPromptController(Ports ports);
  ~AgentPromptController();
  AgentPromptController(const AgentPromptController&) = delete;
  AgentPromptController& operator=(const AgentPromptController&) = delete;

  const Observable<AgentPromptState>& state() const { return state_; }
  [[nodiscard]] Subscription subscribe(Observable<AgentPromptState>::Observer observer) {
    return state_.subscribe(std::move(observer));
  }

  void setVisible(bool visible);
  void setPrompt(std::string prompt);
  // Changing the provider resets the model to the provider's default and stores both.
  void setProvider(VelkAgentProvider provider);
  // Stores a model of the current provider; any other is refused (false).
  bool setModel(const std::string& model);

  // Runs the prompt through the provider's agent (`requestedProvider` for this run only, with its
  // default model). A blank prompt or a run in progress does nothing. `confirmed` marks the
  // submit that follows a destructive-change confirmation; any other submit drops a held one.
  void submit(const VelkAgentAuthoringScope& scope, bool confirmed = false,
              std::optional<VelkAgentProvider> requestedProvider = std::nullopt);
  // Holds a request until the user confirms a destructive change ("Confirm Project Change").
  // The server-run command flow asks for this; the local run validates on the server instead.
  void requestConfirmation(const VelkAgentAuthoringScope& scope, std::string prompt,
                           VelkAgentProvider provider, std::string message);
  // The server-run command flow records here the command whose cancel and undo go to the server.
  void trackServerCommand(std::string commandId);
  // "Continue": submits the held request, confirmed.
  void confirmPendingCommand();
  // "Cancel" of the confirmation sheet: forgets the held request.
  void dismissConfirmation();
  // Stops the local run ("Stopping", then "Stopped" once the agent has exited), or asks the
  // server to cancel its command.
  void cancel(const VelkAgentAuthoringScope& scope);
  // Asks the server to undo its command; a local run's change is undone with the editor's own
  // undo, which the status then suggests.
  void undo(const VelkAgentAuthoringScope& scope);
  // Closes the result popover and returns to idle.
  void dismissResult();
  // "Open Workspace" of the result popover.
  void openResultWorkspace();

  // Dictation fills the prompt from speech, but this platform has no speech engine wired yet:
  // recording only shows the listening state, and stopping it leaves the prompt as typed.
  void startRecording(const VelkAgentAuthoringScope& scope);
  // Back to idle, unless `preservePhase` (a submit is about to set its own phase).
  void stopRecording(bool preservePhase);

  bool canSubmit() const;
  // The bar is expanded while it is shown or while anything is under way or on display.
  bool isExpanded() const;

 private:
  struct LaunchOutcome;

  void launchLocalAgent(const VelkAgentAuthoringScope& scope, const std::string& prompt,
                        VelkAgentProvider provider, const std::string& model);
  std::uint64_t beginLocalAgentRun(const VelkAgentAuthoringScope& scope);
  std::string localAgentDirectory() const;
  ProcessLaunchOptions localAgentLaunchOptions(std::uint64_t runID,
                                               const VelkAgentAuthoringScope& scope,
                                               const std::string& prompt,
                                               VelkAgentProvider provider,
                                               const std::string& model);
  OutputStreamOptions localAgentEventStream(std::uint64_t runID);
  std::function<void(ExitStatus)> localAgentExitHandler(std::uint64_t runID);
  std::function<LaunchOutcome(std::stop_token)> startLocalAgentWork(std::uint64_t runID,
                                                                    VelkAgentProvider provider,
                                                                    ProcessLaunchOptions options);
  void finishLaunch(std::uint64_t runID, VelkAgentProvider provider, LaunchOutcome outcome);
  void showAgentProgress(std::uint64_t runID, const std::string& label);
  void finishLocalAgent(std::uint64_t runID, ExitStatus status);
  void finishWithReceipt(std::uint64_t runID, const ::orvan::editor::Result<HttpResponse>& answer);
  void completeLocalAgent(const std::string& summary);
  void failRun(std::string statusLabel, std::string message);
  void stopRun();
  std::string agentFailureMessage(const std::string& output, const Error& error) const;
  void sendCommandRequest(const VelkAgentAuthoringScope& scope, AgentCommandAction action);
  void finishCommandRequest(AgentCommandAction action,
                            const ::orvan::editor::Result<HttpResponse>& answer, bool tokenWasSent);
  void loadPreferences();
  void storePreferences();
  template <class Mutate>
  void updateState(Mutate&& mutate) {
    state_.update(std::forward<Mutate>(mutate));
  }

  Ports ports_;
  Observable<AgentPromptState> state_;

  // The server-run command session, kept per scope; unused by local runs.
  std::string sessionId_;
  std::string sessionScopeKey_;
  std::optional<std::string> eventURL_;
  TaskSlot eventTask_;

  std::optional<VelkAgentAuthoringScope> pendingConfirmedScope_;
  std::string pendingConfirmedPrompt_;
  std::optional<VelkAgentProvider> pendingConfirmedProvider_;

  std::unique_ptr<ChildProcess> localAgentProcess_;
  std::optional<std::uint64_t> localAgentRunID_;
  std::optional<std::uint64_t> cancelledAgentRunID_;
  // The run whose agent has exited; its launch reply may still be on the way.
  std::optional<std::uint64_t> exitedAgentRunID_;
  std::uint64_t nextRunID_ = 1;
  std::optional<VelkAgentAuthoringScope> runScope_;
  std::shared_ptr<AgentProcessOutputCapture> runCapture_;
  TaskSlot launchTask_;
  TaskSlot receiptTask_;
  TaskSlot commandTask_;

  LifetimeToken lifetime_;
};

}  // namespace orvan::editor
