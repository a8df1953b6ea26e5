#include "Authoring/PersistentEditClient.h"

#include <cerrno>
#include <chrono>
#include <thread>

#include <spdlog/spdlog.h>

#include "Authoring/AtomicOperation.h"
#include "ServerClient/RunProcess.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

constexpr std::size_t kReadChunkBytes = 64 * 1024;
// Standard error is kept up to this size per helper; only its end is ever shown.
constexpr std::size_t kStandardErrorCaptureBytes = 64 * 1024;
// A helper whose output just ended is usually reaped a moment later; a failure waits this long for
// its exit status before describing it without one.
constexpr auto kExitStatusGrace = std::chrono::milliseconds(500);

Error editClientError(EditClientErrorCode code, std::string description) {
  return Error::editor(code, std::move(description));
}

std::vector<std::string> helperArguments(const PersistentEditClientSettings& settings) {
  std::vector<std::string> arguments{
      "--stdio",      "--author",        settings.author,
      "--client-id",  settings.clientId, "--scene",
      settings.scene, "--workspace",     settings.workspace.empty() ? "main" : settings.workspace};
  if (!settings.activeLayer.empty()) {
    arguments.emplace_back("--active-layer");
    arguments.push_back(settings.activeLayer);
  }
  arguments.push_back(settings.address);
  return arguments;
}

bool tellsOfAnOlderHelper(std::string_view message) {
  return message.find("unknown stdio command") != std::string_view::npos ||
         message.find("malformed stdio command") != std::string_view::npos;
}

}  // namespace

std::string lastCharacters(std::string_view text, std::size_t count) {
  std::size_t start = text.size();
  std::size_t seen = 0;
  while (start > 0 && seen < count) {
    --start;
    // A continuation byte belongs to the character that starts before it.
    if ((static_cast<unsigned char>(text[start]) & 0xC0) != 0x80)
      ++seen;
  }
  return std::string(text.substr(start));
}

PersistentEditClient::PersistentEditClient(ProcessLauncher& launcher,
                                           PersistentEditClientSettings wanted)
    : settings(std::move(wanted)), launcher_(launcher) {}

PersistentEditClient::~PersistentEditClient() {
  std::lock_guard guard(lock_);
  stopLocked(true);
}

Result<std::string> PersistentEditClient::submit(std::string_view command,
                                                 bool retryOnUnexpectedClosure) {
  std::lock_guard guard(lock_);
  if (!isValidUtf8(command))
    return editClientError(kEditClientCommandNotEncodable, "Edit command could not be encoded");
  std::string bytes(command);
  bytes += '\n';
  const int attempts = retryOnUnexpectedClosure ? 2 : 1;
  Error lastFailure;
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    Result<std::string> line = [&]() -> Result<std::string> {
      if (Status started = ensureStartedLocked(); !started.ok())
        return started.error();
      if (Status ready = ensureConnectionReadyLocked(); !ready.ok())
        return ready.error();
      if (!process_)
        return editClientError(kEditClientNotRunning, "Edit client is not running");
      if (Status written = process_->writeStdin(bytes); !written.ok())
        return written.error();
      return readLineLocked();
    }();
    if (line.ok())
      return line;
    // The dead helper's exit status and last words are read before it is let go.
    lastFailure = enrichedFailureLocked(line.error());
    stopLocked(false);
    if (attempt < attempts) {
      spdlog::warn(
          "Velk edit helper stopped; retrying the idempotent property write with a fresh helper");
    }
  }
  return lastFailure;
}

void PersistentEditClient::prewarm(BackgroundExecutor& background) {
  std::weak_ptr<PersistentEditClient> weak = weak_from_this();
  background.post([weak] {
    const std::shared_ptr<PersistentEditClient> client = weak.lock();
    if (!client)
      return;
    std::lock_guard guard(client->lock_);
    if (client->ensureStartedLocked().ok())
      (void)client->ensureConnectionReadyLocked();  // the next submit meets any failure
  });
}

void PersistentEditClient::retire(std::shared_ptr<PersistentEditClient> client,
                                  BackgroundExecutor& background) {
  if (!client)
    return;
  background.post([client = std::move(client)] {
    std::lock_guard guard(client->lock_);
    client->stopLocked(true);
  });
}

void PersistentEditClient::terminateForShutdown() {
  std::lock_guard shutdownGuard(shutdownLock_);
  if (shutdownHandle_)
    shutdownHandle_->terminate(std::chrono::milliseconds(200));
}

bool PersistentEditClient::hasRunningHelper() {
  std::lock_guard guard(lock_);
  return process_ && process_->isRunning();
}

int PersistentEditClient::helperProcessId() {
  std::lock_guard guard(lock_);
  return process_ ? process_->processId() : 0;
}

Status PersistentEditClient::ensureStartedLocked() {
  if (process_ && process_->isRunning())
    return okStatus();
  stopLocked(true);
  ProcessLaunchOptions options;
  options.executablePath = settings.executablePath;
  options.arguments = helperArguments(settings);
  // The token travels in the environment only; without one the parent's value stands.
  if (!settings.authorizationToken.empty()) {
    options.environment.emplace_back(std::string(kAuthTokenEnvironmentVariable),
                                     settings.authorizationToken);
  }
  options.standardOutput = OutputStreamOptions::pulled();
  options.standardError = OutputStreamOptions::captured();
  options.standardError.captureLimitBytes = kStandardErrorCaptureBytes;
  Result<std::unique_ptr<ChildProcess>> launched = launcher_.launch(std::move(options));
  if (!launched.ok())
    return launched.error();
  process_ = std::move(launched.value());
  {
    std::lock_guard shutdownGuard(shutdownLock_);
    shutdownHandle_ = process_;
  }
  outputBuffer_.clear();
  connectionReady_ = false;
  return okStatus();
}

Status PersistentEditClient::ensureConnectionReadyLocked() {
  if (connectionReady_)
    return okStatus();
  if (!process_)
    return editClientError(kEditClientNotRunning, "The live edit helper is not running");
  if (Status written = process_->writeStdin("ping\n"); !written.ok())
    return written.error();
  Result<std::string> line = readLineLocked();
  if (!line.ok())
    return line.error();
  Result<EditClientResponse> response = decodeEditClientResponse(*line);
  if (!response.ok())
    return response.error();
  // A helper of an older build that does not know "ping" is alive all the same.
  if (response->accepted || tellsOfAnOlderHelper(response->message)) {
    connectionReady_ = true;
    return okStatus();
  }
  return editClientError(kEditClientNotReady, response->message.empty()
                                                  ? "The live edit connection is not ready"
                                                  : response->message);
}

Result<std::string> PersistentEditClient::readLineLocked() {
  while (true) {
    if (const std::size_t end = outputBuffer_.find('\n'); end != std::string::npos) {
      std::string line = outputBuffer_.substr(0, end);
      outputBuffer_.erase(0, end + 1);
      return validUtf8OrEmpty(std::move(line));
    }
    Result<std::string> chunk = process_->readStdout(kReadChunkBytes);
    if (!chunk.ok())
      return chunk.error();
    if (chunk->empty()) {
      return editClientError(kEditClientStopped,
                             "The edit helper stopped before confirming the change");
    }
    outputBuffer_ += *chunk;
    // Tested before looking for a line feed: a read that brings a line past the limit fails too.
    if (outputBuffer_.size() > kEditClientMaximumResponseBytes) {
      return editClientError(kEditClientOversizedResponse,
                             "The edit helper returned an invalid oversized response");
    }
  }
}

void PersistentEditClient::stopLocked(bool graceful) {
  std::shared_ptr<ChildProcess> process = std::move(process_);
  {
    std::lock_guard shutdownGuard(shutdownLock_);
    shutdownHandle_.reset();
  }
  outputBuffer_.clear();
  connectionReady_ = false;
  if (!process)
    return;
  if (graceful && process->isRunning())
    (void)process->writeStdin("quit\n");
  process->closeStdin();
  // Letting go of the handle closes its output and, when the helper has not ended a second later,
  // terminates it on the process's own thread; nobody waits here.
  process.reset();
}

Error PersistentEditClient::enrichedFailureLocked(const Error& error) {
  std::string description = error.description;
  if (process_) {
    // Only a helper whose output ended or whose input broke is on its way out.
    const bool ending = error.code == kEditClientStopped || error.code == EPIPE;
    const auto deadline = std::chrono::steady_clock::now() + kExitStatusGrace;
    while (ending && process_->isRunning() && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    if (const std::optional<ExitStatus> status = process_->exitStatus()) {
      description += " (helper exit status " + std::to_string(status->value) + ")";
      // Reaped is not drained: the last words of a helper that flooded its standard error may
      // still be in the pipe. They come at once now that it has ended (this is a background
      // thread; the helper starts no children that could hold the pipe open).
      process_->waitForExit();
    }
    const std::string standardError = process_->capturedStderr();
    if (isValidUtf8(standardError)) {
      const std::string_view meaningful = trimWhitespaceAndNewlines(standardError);
      if (!meaningful.empty())
        description += ": " + lastCharacters(meaningful, kEditClientStandardErrorTailCharacters);
    }
  }
  return editClientError(kEditClientStopped, std::move(description));
}

}  // namespace orvan::editor
