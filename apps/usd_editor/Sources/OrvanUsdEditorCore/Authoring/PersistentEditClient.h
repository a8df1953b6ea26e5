#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "Foundation/Executors.h"
#include "Platform/ProcessLauncher.h"
#include "orvan/wire/Error.h"

namespace orvan::editor {

// What one long-lived edit helper is started with. A held helper is reused only while every value
// is still the wanted one.
struct PersistentEditClientSettings {
  std::string executablePath;
  std::string address;
  std::string author;  // the user's display name
  std::string clientId;
  std::string scene;
  std::string workspace;  // "main" when the current workspace is empty
  std::string activeLayer;
  std::string authorizationToken;

  bool operator==(const PersistentEditClientSettings&) const = default;
};

// Error codes (domain "OrvanUsdEditor") of the edit helper's exchanges.
enum EditClientErrorCode : std::int64_t {
  kEditClientNotRunning = 1,
  kEditClientCommandNotEncodable = 2,
  kEditClientStopped = 3,
  kEditClientNotReady = 4,
  kEditClientOversizedResponse = 5,
};

inline constexpr std::size_t kEditClientMaximumResponseBytes = 0x100000;
// How much of the helper's standard error a failure shows.
inline constexpr std::size_t kEditClientStandardErrorTailCharacters = 600;

// One long-lived edit helper: it frames a finished command line and its reply over the helper's
// standard streams, recovers from the helper's death and turns failures into errors that name the
// helper's exit status and the end of its standard error. It knows nothing of operations.
//
// `submit` blocks for the whole exchange under the client's lock, so it runs on background
// threads only; there is no read time-out, a hung helper blocks its caller until it ends. The
// lock also serialises `prewarm` and the retiring stop, which therefore waits for a submission in
// progress.
class PersistentEditClient : public std::enable_shared_from_this<PersistentEditClient> {
 public:
  PersistentEditClient(ProcessLauncher& launcher, PersistentEditClientSettings settings);
  ~PersistentEditClient();
  PersistentEditClient(const PersistentEditClient&) = delete;
  PersistentEditClient& operator=(const PersistentEditClient&) = delete;

  const PersistentEditClientSettings settings;

  // Sends one command line (without its line feed) and returns the reply line. With
  // `retryOnUnexpectedClosure` a failed exchange is repeated once on a fresh helper: only for
  // commands that may safely run twice. Blocking.
  Result<std::string> submit(std::string_view command, bool retryOnUnexpectedClosure);
  // Starts the helper and shakes hands in the background; a failure waits for the next submit.
  void prewarm(BackgroundExecutor& background);
  // Stops the helper gracefully in the background, after any submission in progress.
  static void retire(std::shared_ptr<PersistentEditClient> client, BackgroundExecutor& background);

  // Ends the running helper at once, without waiting for the lock, so that a submission blocked
  // on a hung helper returns. For the editor's shutdown; any thread.
  void terminateForShutdown();

  // Test seams: whether a helper runs now, and its process id (0 when none).
  bool hasRunningHelper();
  int helperProcessId();

 private:
  Status ensureStartedLocked();
  Status ensureConnectionReadyLocked();
  Result<std::string> readLineLocked();
  void stopLocked(bool graceful);
  Error enrichedFailureLocked(const Error& error);

  ProcessLauncher& launcher_;
  std::mutex lock_;
  std::shared_ptr<ChildProcess> process_;
  // The running helper as `terminateForShutdown` sees it, under its own small lock.
  std::mutex shutdownLock_;
  std::shared_ptr<ChildProcess> shutdownHandle_;
  std::string outputBuffer_;
  bool connectionReady_ = false;
};

// The last `count` characters (code points) of valid UTF-8 text.
std::string lastCharacters(std::string_view text, std::size_t count);

}  // namespace orvan::editor
