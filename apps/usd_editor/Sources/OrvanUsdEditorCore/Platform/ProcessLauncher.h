#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvan/wire/Error.h"

namespace orvan::editor {

// How a child process ended: with an exit code, or killed by a signal. The two are kept apart
// because a helper that exits 9 and one killed by SIGKILL mean very different things.
struct ExitStatus {
  enum class Kind { exited, signalled };

  Kind kind = Kind::exited;
  int value = 0;  // the exit code, or the signal number

  static ExitStatus exited(int code) { return {Kind::exited, code}; }
  static ExitStatus signalled(int signal) { return {Kind::signalled, signal}; }

  bool isSuccess() const { return kind == Kind::exited && value == 0; }
  bool wasSignalled() const { return kind == Kind::signalled; }
  // "exit code 1" or "killed by signal 9 (SIGKILL)", for logs and error descriptions.
  std::string describe() const;

  bool operator==(const ExitStatus&) const = default;
};

// One complete line of a child's output, without its line feed.
struct OutputLine {
  std::string text;
  // The line was longer than the stream's `maxLineBytes`: `text` holds its first `maxLineBytes`
  // bytes and the rest, up to the next line feed, was dropped.
  bool truncated = false;
  // The stream ended without a final line feed; `text` is what came after the last one.
  bool endedAtEndOfStream = false;

  bool operator==(const OutputLine&) const = default;
};

using OutputLineHandler = std::function<void(OutputLine)>;

// What happens to one of the child's output streams.
struct OutputStreamOptions {
  enum class Mode {
    // Kept whole in memory and handed back by `capturedStdout`/`capturedStderr` and
    // `runToCompletion`.
    capture,
    // Split into lines, each handed to `onLine` on the process's monitor thread.
    lines,
    // Read and thrown away, so that the child never blocks on a full pipe.
    discard,
    // Standard output only: nobody reads it but the owner, through `ChildProcess::readStdout`.
    // The child blocks when the owner stops reading, which is the back-pressure a lock-step line
    // protocol wants.
    pull,
  };

  Mode mode = Mode::capture;
  OutputLineHandler onLine;
  std::size_t maxLineBytes = 1024 * 1024;
  // A capture keeps at most this many bytes: the newest ones, since the end of a stream (the
  // last words of a failing helper) is what a message shows. A flooding child therefore costs
  // bounded memory.
  std::size_t captureLimitBytes = std::size_t{256} * 1024 * 1024;

  static OutputStreamOptions captured() { return {}; }
  static OutputStreamOptions discarded() { return {Mode::discard, {}}; }
  static OutputStreamOptions pulled() { return {Mode::pull, {}}; }
  static OutputStreamOptions inLines(OutputLineHandler handler,
                                     std::size_t maxLineBytes = 1024 * 1024) {
    return {Mode::lines, std::move(handler), maxLineBytes};
  }
};

// Everything needed to start a helper. The environment is the editor's own plus `environment`,
// whose entries replace parent variables of the same name; this is the only way a credential such
// as the session token reaches a helper, never its argument list.
struct ProcessLaunchOptions {
  std::string executablePath;
  std::vector<std::string> arguments;  // without the program name; argv[0] is the path
  std::vector<std::pair<std::string, std::string>> environment;
  std::optional<std::string> workingDirectory;
  OutputStreamOptions standardOutput;
  OutputStreamOptions standardError;
  // Runs on the monitor thread once the child has been reaped and every monitored output stream
  // has reached its end, so that it always comes after the last line.
  std::function<void(ExitStatus)> onExit;
  // A pipe that `writeStdin` feeds, or the null device for a child that must never wait for
  // input (an interactive program asked to work unattended). With the null device, `writeStdin`
  // fails and the child reads end of file at once.
  enum class StandardInput { pipe, nullDevice };
  StandardInput standardInput = StandardInput::pipe;
};

// What a one-shot helper left behind.
struct ProcessOutput {
  ExitStatus exitStatus;
  std::string standardOutput;
  std::string standardError;
  // The capture limit was reached and the oldest bytes were dropped.
  bool standardOutputTruncated = false;
  bool standardErrorTruncated = false;
};

// A running (or finished) child process. All members may be called from any thread; the blocking
// ones (`writeStdin`, `readStdout`, `waitForExit`) belong on background threads, and none may be
// in progress while the handle is destroyed. Destroying the handle does not wait for the child:
// standard input is closed, a child still running gets `kDefaultGracePeriod` to end on its own,
// then SIGTERM, then SIGKILL after another grace period; it is always reaped.
//
// Line and exit callbacks run on the process's own monitor thread, one at a time. They must not
// throw, and must not block on the thread that drops the handle: the destructor waits for a
// callback in progress, after which none runs again. The usual callback posts to the main executor.
class ChildProcess {
 public:
  using Duration = std::chrono::steady_clock::duration;
  static constexpr Duration kDefaultGracePeriod = std::chrono::seconds(1);

  virtual ~ChildProcess() = default;

  virtual int processId() const = 0;
  // Writes every byte or fails. A child that closed its input gives an error, never SIGPIPE.
  virtual Status writeStdin(std::string_view bytes) = 0;
  virtual void closeStdin() = 0;
  // Pull mode only: blocks until some bytes are available and returns at most `maxBytes` of
  // them; an empty string means end of file.
  virtual Result<std::string> readStdout(std::size_t maxBytes) = 0;
  // Snapshots of what capture mode has kept so far.
  virtual std::string capturedStdout() const = 0;
  virtual std::string capturedStderr() const = 0;
  // False once the child has been reaped.
  virtual bool isRunning() const = 0;
  // Blocks until the child is reaped, the monitored output streams have ended and `onExit` (if
  // any) has returned.
  virtual ExitStatus waitForExit() = 0;
  // Nothing (still running), or how it ended.
  virtual std::optional<ExitStatus> exitStatus() const = 0;
  // SIGTERM now and SIGKILL after `gracePeriod` if it still runs. Returns at once.
  virtual void terminate(Duration gracePeriod = kDefaultGracePeriod) = 0;
};

// The port through which the editor starts helpers.
class ProcessLauncher {
 public:
  // The code of launch failures (domain Error::kEditorDomain), as a shell would report a command
  // it could not run. The description names the executable and the reason.
  static constexpr std::int64_t kLaunchFailedCode = 127;

  virtual ~ProcessLauncher() = default;

  virtual Result<std::unique_ptr<ChildProcess>> launch(ProcessLaunchOptions options) = 0;
  // Runs the child to its end with both outputs captured and standard input closed at once.
  // Blocking: background threads only.
  virtual Result<ProcessOutput> runToCompletion(ProcessLaunchOptions options) = 0;
  virtual bool isExecutableFile(const std::string& path) const = 0;
};

}  // namespace orvan::editor
