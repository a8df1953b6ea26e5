#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Platform/ProcessLauncher.h"
#include "Platform/UniqueFd.h"

namespace orvan::editor {

// A child process started with posix_spawn, its three standard streams on pipes.
//
// Each child has one monitor thread that reads the monitored output streams (both at once, through
// poll, so that neither pipe can fill and block the child), notices the exit through a pidfd,
// reaps the child and sends the signals that `terminate` and the destructor schedule. Because only
// that thread ever signals or reaps, a signal can never reach a recycled process id.
//
// Line mode: every complete line goes to the stream's handler on the monitor thread, a partial
// last line is delivered at end of file (flagged `endedAtEndOfStream`). A line longer than
// `maxLineBytes` is delivered once, cut to `maxLineBytes` and flagged `truncated`; the rest of it,
// up to the next line feed, is dropped. That keeps a runaway helper from growing a buffer without
// end while still telling its reader that something oversized came.
//
// A grandchild that inherits an output pipe keeps that stream open after the child is gone; the
// monitor waits for its end all the same, since the output belongs to the run.
class Subprocess final : public ChildProcess {
 public:
  static Result<std::unique_ptr<Subprocess>> launch(ProcessLaunchOptions options);
  // Launches, closes standard input, captures both outputs and waits. Blocking.
  static Result<ProcessOutput> runToCompletion(ProcessLaunchOptions options);
  // A regular file (after following links) that this user may execute.
  static bool isExecutableFile(const std::string& path);

  ~Subprocess() override;
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  int processId() const override;
  Status writeStdin(std::string_view bytes) override;
  void closeStdin() override;
  Result<std::string> readStdout(std::size_t maxBytes) override;
  std::string capturedStdout() const override;
  std::string capturedStderr() const override;
  bool isRunning() const override;
  ExitStatus waitForExit() override;
  std::optional<ExitStatus> exitStatus() const override;
  void terminate(Duration gracePeriod = kDefaultGracePeriod) override;

  bool isStdoutTruncated() const;
  bool isStderrTruncated() const;

  struct Monitor;  // shared with the monitor thread, which may outlive this handle

 private:
  Subprocess(std::shared_ptr<Monitor> monitor, UniqueFd stdinFd, UniqueFd pulledStdoutFd);

  std::shared_ptr<Monitor> monitor_;
  std::thread monitorThread_;
  std::mutex stdinMutex_;
  UniqueFd stdinFd_;
  UniqueFd pulledStdoutFd_;
};

}  // namespace orvan::editor
