#include "Platform/Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include "Platform/ProcessOutputCapture.h"

extern char** environ;

namespace orvan::editor {

std::string ExitStatus::describe() const {
  if (kind == Kind::exited)
    return fmt::format("exit code {}", value);
  const char* name = sigabbrev_np(value);
  if (name == nullptr)
    return fmt::format("killed by signal {}", value);
  return fmt::format("killed by signal {} (SIG{})", value, name);
}

namespace {

using SteadyClock = std::chrono::steady_clock;
constexpr std::size_t kReadChunkBytes = 64 * 1024;
// Without a pidfd the exit can only be noticed by asking; this is how often.
constexpr int kExitPollIntervalMs = 20;

Error launchError(const std::string& path, const std::string& reason) {
  return Error::editor(ProcessLauncher::kLaunchFailedCode,
                       fmt::format("Could not launch \"{}\": {}", path, reason));
}

std::string describeErrno(int error) {
  switch (error) {
    case ENOENT:
      return "no such file";
    case EACCES:
      return "permission denied";
    case ENOEXEC:
      return "not an executable format";
    default:
      return std::strerror(error);
  }
}

// Why `path` cannot be launched, or nothing when it can.
std::optional<std::string> whyNotExecutable(const std::string& path) {
  if (path.empty())
    return "no executable path was given";
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0)
    return describeErrno(errno);
  if (!S_ISREG(info.st_mode))
    return "not a regular file";
  if (::access(path.c_str(), X_OK) != 0)
    return "not executable";
  return std::nullopt;
}

// Pipe ends are moved above the standard descriptors so that dup2 in the child never meets a
// descriptor that already has the target number (which would keep its close-on-exec flag).
Result<std::array<UniqueFd, 2>> makePipe() {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    return Error::editor(ProcessLauncher::kLaunchFailedCode,
                         fmt::format("Could not create a pipe: {}", std::strerror(errno)));
  }
  std::array<UniqueFd, 2> ends{UniqueFd(fds[0]), UniqueFd(fds[1])};
  for (UniqueFd& end : ends) {
    if (end.get() > STDERR_FILENO)
      continue;
    const int lifted = ::fcntl(end.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (lifted < 0) {
      return Error::editor(ProcessLauncher::kLaunchFailedCode,
                           fmt::format("Could not create a pipe: {}", std::strerror(errno)));
    }
    end.reset(lifted);
  }
  return ends;
}

// Called through syscall(): the C library's own declarations lack C linkage in this release.
int openPidFd(pid_t pid) {
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}
int sendPidFdSignal(int pidFd, int signal) {
  return static_cast<int>(::syscall(SYS_pidfd_send_signal, pidFd, signal, nullptr, 0));
}

ExitStatus decodeWaitStatus(int raw) {
  if (WIFSIGNALED(raw))
    return ExitStatus::signalled(WTERMSIG(raw));
  return ExitStatus::exited(WEXITSTATUS(raw));
}

// Waits for the child. -1 stands for a status somebody else collected (SIGCHLD set to SIG_IGN
// reaps automatically).
ExitStatus reapBlocking(pid_t pid) {
  int raw = 0;
  pid_t reaped = -1;
  while ((reaped = ::waitpid(pid, &raw, 0)) < 0 && errno == EINTR) {
  }
  return reaped < 0 ? ExitStatus::exited(-1) : decodeWaitStatus(raw);
}

// For a child that cannot be watched after all: end it here rather than leave a zombie.
void killAndReap(pid_t pid) {
  ::kill(pid, SIGKILL);
  reapBlocking(pid);
}

void setNonBlocking(int fd) {
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
}

std::optional<std::string> findInvalidText(const ProcessLaunchOptions& options) {
  const auto hasNul = [](const std::string& text) { return text.find('\0') != std::string::npos; };
  if (hasNul(options.executablePath))
    return "the path contains a NUL byte";
  for (const std::string& argument : options.arguments) {
    if (hasNul(argument))
      return "an argument contains a NUL byte";
  }
  for (const auto& [name, value] : options.environment) {
    if (name.empty() || name.find('=') != std::string::npos || hasNul(name)) {
      return fmt::format("invalid environment variable name \"{}\"", name);
    }
    if (hasNul(value))
      return fmt::format("the value of {} contains a NUL byte", name);
  }
  return std::nullopt;
}

// The parent's environment with the additions replacing variables of the same name.
std::vector<std::string> buildEnvironment(
    const std::vector<std::pair<std::string, std::string>>& additions) {
  std::vector<std::string> entries;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const std::string_view name = text.substr(0, text.find('='));
    const bool replaced = std::any_of(additions.begin(), additions.end(),
                                      [&](const auto& addition) { return addition.first == name; });
    if (!replaced)
      entries.emplace_back(text);
  }
  for (const auto& [name, value] : additions)
    entries.push_back(name + "=" + value);
  return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  pointers.reserve(strings.size() + 1);
  for (std::string& text : strings)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

struct SpawnFileActions {
  posix_spawn_file_actions_t actions;
  SpawnFileActions() { posix_spawn_file_actions_init(&actions); }
  ~SpawnFileActions() { posix_spawn_file_actions_destroy(&actions); }
};

struct SpawnAttributes {
  posix_spawnattr_t attributes;
  SpawnAttributes() {
    posix_spawnattr_init(&attributes);
    // The editor ignores SIGPIPE, and ignored signals survive exec: give the helper the defaults
    // back (a helper writing to a closed pipe should die as any program would), and an empty mask.
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int signal : {SIGPIPE, SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGCHLD}) {
      sigaddset(&defaults, signal);
    }
    sigset_t emptyMask;
    sigemptyset(&emptyMask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &emptyMask);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
};

// Writes to a pipe whose reader may be gone, turning EPIPE into an error instead of a signal
// whatever the process's SIGPIPE disposition: the signal is blocked for this thread during the
// write and a SIGPIPE raised by it is consumed before the mask is restored.
class SigpipeGuard {
 public:
  SigpipeGuard() {
    sigemptyset(&pipeSet_);
    sigaddset(&pipeSet_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipeSet_, &previousMask_);
  }
  ~SigpipeGuard() {
    if (raised_ && !wasPending_) {
      const timespec noWait{0, 0};
      while (sigtimedwait(&pipeSet_, nullptr, &noWait) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
  }
  void noteBrokenPipe() { raised_ = true; }

 private:
  sigset_t pipeSet_;
  sigset_t previousMask_;
  bool wasPending_ = false;
  bool raised_ = false;
};

}  // namespace

// One output stream as the monitor thread sees it.
struct StreamReader {
  OutputStreamOptions options;
  UniqueFd fd;
  // Capture mode; read by other threads through the handle.
  std::unique_ptr<ProcessOutputCapture> capture;
  // Line mode, monitor thread only.
  std::string pendingLine;
  bool skippingRestOfLine = false;

  bool isOpen() const { return fd.isValid(); }
  bool isTruncated() const { return capture && capture->isTruncated(); }
  std::string captureSnapshot() const { return capture ? capture->snapshot() : std::string(); }
};

struct Subprocess::Monitor {
  std::string executablePath;
  pid_t pid = -1;
  UniqueFd pidFd;  // invalid when the kernel has no pidfds: the exit is then polled
  UniqueFd wakeFd;
  StreamReader out;
  StreamReader err;
  std::function<void(ExitStatus)> onExit;

  mutable std::mutex mutex;
  std::condition_variable finishedChanged;
  std::optional<ExitStatus> status;  // set when reaped
  bool finished = false;             // reaped, and both streams closed
  std::optional<SteadyClock::time_point> terminateAt;
  std::optional<SteadyClock::time_point> killAt;
  bool sentTerminate = false;
  bool sentKill = false;

  // Held while a callback runs; the handle's destructor takes it to detach the callbacks.
  std::mutex callbackMutex;
  bool callbacksDetached = false;

  void wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeFd.get(), &one, sizeof one);
  }

  void scheduleSignals(SteadyClock::time_point terminate, SteadyClock::time_point kill) {
    {
      std::lock_guard lock(mutex);
      if (status)
        return;
      terminateAt = terminateAt ? std::min(*terminateAt, terminate) : terminate;
      killAt = killAt ? std::min(*killAt, kill) : kill;
    }
    wake();
  }

  void run() {
    std::vector<char> buffer(kReadChunkBytes);
    while (true) {
      const std::optional<int> timeout = nextTimeoutMs();
      if (!timeout)
        break;
      std::vector<pollfd> fds;
      fds.push_back({wakeFd.get(), POLLIN, 0});
      if (pidFd.isValid())
        fds.push_back({pidFd.get(), POLLIN, 0});
      if (out.isOpen())
        fds.push_back({out.fd.get(), POLLIN, 0});
      if (err.isOpen())
        fds.push_back({err.fd.get(), POLLIN, 0});
      if (::poll(fds.data(), fds.size(), *timeout) < 0 && errno != EINTR)
        break;
      for (const pollfd& entry : fds) {
        if (entry.revents == 0)
          continue;
        if (entry.fd == wakeFd.get())
          drainWake();
        if (out.isOpen() && entry.fd == out.fd.get())
          readFrom(out, buffer);
        if (err.isOpen() && entry.fd == err.fd.get())
          readFrom(err, buffer);
      }
      reapIfExited();
      sendDueSignals();
    }
    finish();
  }

  // Nothing when the work is done; otherwise how long poll may sleep.
  std::optional<int> nextTimeoutMs() {
    std::lock_guard lock(mutex);
    if (status && !out.isOpen() && !err.isOpen())
      return std::nullopt;
    if (status)
      return -1;
    int timeout = pidFd.isValid() ? -1 : kExitPollIntervalMs;
    const auto now = SteadyClock::now();
    const auto shorten = [&](const std::optional<SteadyClock::time_point>& due, bool sent) {
      if (!due || sent)
        return;
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due - now).count();
      const int leftMs = static_cast<int>(std::max<std::int64_t>(0, left));
      timeout = timeout < 0 ? leftMs : std::min(timeout, leftMs);
    };
    shorten(terminateAt, sentTerminate);
    shorten(killAt, sentKill);
    return timeout;
  }

  void drainWake() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(wakeFd.get(), &count, sizeof count);
  }

  void readFrom(StreamReader& stream, std::vector<char>& buffer) {
    const ssize_t got = ::read(stream.fd.get(), buffer.data(), buffer.size());
    if (got < 0 && (errno == EINTR || errno == EAGAIN))
      return;
    if (got <= 0) {
      endStream(stream);
      return;
    }
    consume(stream, std::string_view(buffer.data(), static_cast<std::size_t>(got)));
  }

  void consume(StreamReader& stream, std::string_view data) {
    switch (stream.options.mode) {
      case OutputStreamOptions::Mode::capture:
        appendCapture(stream, data);
        return;
      case OutputStreamOptions::Mode::lines:
        splitLines(stream, data);
        return;
      case OutputStreamOptions::Mode::discard:
      case OutputStreamOptions::Mode::pull:
        return;
    }
  }

  void appendCapture(StreamReader& stream, std::string_view data) { stream.capture->append(data); }

  void splitLines(StreamReader& stream, std::string_view data) {
    const std::size_t maxBytes = std::max<std::size_t>(1, stream.options.maxLineBytes);
    while (!data.empty()) {
      const std::size_t newline = data.find('\n');
      const std::string_view piece = data.substr(0, newline);
      if (!stream.skippingRestOfLine) {
        const std::size_t room = maxBytes - stream.pendingLine.size();
        if (piece.size() > room) {
          stream.pendingLine.append(piece.substr(0, room));
          deliver(stream, OutputLine{std::exchange(stream.pendingLine, {}), true, false});
          stream.skippingRestOfLine = true;
        } else {
          stream.pendingLine.append(piece);
        }
      }
      if (newline == std::string_view::npos)
        return;
      if (!stream.skippingRestOfLine) {
        deliver(stream, OutputLine{std::exchange(stream.pendingLine, {}), false, false});
      }
      stream.skippingRestOfLine = false;
      data.remove_prefix(newline + 1);
    }
  }

  void endStream(StreamReader& stream) {
    if (stream.options.mode == OutputStreamOptions::Mode::lines && !stream.skippingRestOfLine &&
        !stream.pendingLine.empty()) {
      deliver(stream, OutputLine{std::exchange(stream.pendingLine, {}), false, true});
    }
    std::lock_guard lock(mutex);
    stream.fd.reset();
  }

  void deliver(StreamReader& stream, OutputLine line) {
    std::lock_guard lock(callbackMutex);
    if (callbacksDetached || !stream.options.onLine)
      return;
    stream.options.onLine(std::move(line));
  }

  void reapIfExited() {
    std::lock_guard lock(mutex);
    if (status)
      return;
    int raw = 0;
    const pid_t reaped = ::waitpid(pid, &raw, WNOHANG);
    if (reaped == 0)
      return;
    if (reaped < 0 && errno == EINTR)
      return;
    // -1 when somebody else collected the status (SIGCHLD set to SIG_IGN reaps automatically).
    status = reaped < 0 ? ExitStatus::exited(-1) : decodeWaitStatus(raw);
    pidFd.reset();
  }

  // Runs on the monitor thread only, before the child is reaped, so the process id is still ours.
  void sendDueSignals() {
    std::lock_guard lock(mutex);
    if (status)
      return;
    const auto now = SteadyClock::now();
    if (terminateAt && !sentTerminate && *terminateAt <= now) {
      sendSignal(SIGTERM);
      sentTerminate = true;
    }
    if (killAt && !sentKill && *killAt <= now) {
      sendSignal(SIGKILL);
      sentKill = true;
    }
  }

  void sendSignal(int signal) const {
    if (pidFd.isValid()) {
      sendPidFdSignal(pidFd.get(), signal);
    } else {
      ::kill(pid, signal);
    }
  }

  // `finished` is set only after onExit has run, so that whoever waited for the exit and then
  // drops the handle cannot cut the callback off.
  void finish() {
    ExitStatus finalStatus;
    bool reaped = false;
    {
      std::lock_guard lock(mutex);
      out.fd.reset();
      err.fd.reset();
      reaped = status.has_value();
    }
    // Only when polling itself failed: wait for the child rather than leave a zombie.
    const std::optional<ExitStatus> lateStatus =
        reaped ? std::nullopt : std::optional(reapBlocking(pid));
    {
      std::lock_guard lock(mutex);
      pidFd.reset();
      if (lateStatus)
        status = lateStatus;
      finalStatus = *status;
    }
    {
      std::lock_guard lock(callbackMutex);
      if (!callbacksDetached && onExit)
        onExit(finalStatus);
    }
    {
      std::lock_guard lock(mutex);
      finished = true;
    }
    finishedChanged.notify_all();
  }
};

namespace {

// The three pipes of a child, ours and its ends. With the null device as standard input there is
// no input pipe at all: its ends stay invalid, so writes to the child fail.
struct ChildPipes {
  std::array<UniqueFd, 2> in;
  std::array<UniqueFd, 2> out;
  std::array<UniqueFd, 2> err;
};

// A relative path means relative to the editor's directory, also when the child starts elsewhere:
// it is checked here and exec'd there.
std::string absoluteExecutablePath(const std::string& path) {
  if (path.empty() || path.front() == '/')
    return path;
  std::error_code ignored;
  const auto absolute = std::filesystem::absolute(path, ignored);
  return absolute.empty() ? path : absolute.string();
}

// Why these options cannot start a child, or nothing when they can.
std::optional<std::string> whyNotLaunchable(const ProcessLaunchOptions& options) {
  if (auto reason = findInvalidText(options))
    return reason;
  if (auto reason = whyNotExecutable(options.executablePath))
    return reason;
  if (options.standardError.mode == OutputStreamOptions::Mode::pull)
    return "standard error cannot be pulled";
  return std::nullopt;
}

bool readsNullDevice(const ProcessLaunchOptions& options) {
  return options.standardInput == ProcessLaunchOptions::StandardInput::nullDevice;
}

Result<ChildPipes> makeChildPipes(bool stdinFromNullDevice) {
  ChildPipes pipes;
  if (!stdinFromNullDevice) {
    auto in = makePipe();
    if (!in)
      return in.error();
    pipes.in = std::move(*in);
  }
  auto out = makePipe();
  if (!out)
    return out.error();
  pipes.out = std::move(*out);
  auto err = makePipe();
  if (!err)
    return err.error();
  pipes.err = std::move(*err);
  return pipes;
}

// What the child does with its descriptors between fork and exec.
void describeChildDescriptors(SpawnFileActions& actions, const ChildPipes& pipes,
                              const ProcessLaunchOptions& options) {
  if (readsNullDevice(options)) {
    posix_spawn_file_actions_addopen(&actions.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  } else {
    posix_spawn_file_actions_adddup2(&actions.actions, pipes.in[0].get(), STDIN_FILENO);
  }
  posix_spawn_file_actions_adddup2(&actions.actions, pipes.out[1].get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions.actions, pipes.err[1].get(), STDERR_FILENO);
  // Descriptors the editor itself inherited without close-on-exec stay out of helpers too.
  posix_spawn_file_actions_addclosefrom_np(&actions.actions, STDERR_FILENO + 1);
  if (options.workingDirectory) {
    posix_spawn_file_actions_addchdir_np(&actions.actions, options.workingDirectory->c_str());
  }
}

// Starts the child, then lets go of its ends of the pipes, or the child would never see the end
// of its input.
Result<pid_t> spawnChild(const ProcessLaunchOptions& options, ChildPipes& pipes) {
  const std::string& path = options.executablePath;
  SpawnFileActions actions;
  describeChildDescriptors(actions, pipes, options);
  SpawnAttributes attributes;
  std::vector<std::string> argv{path};
  argv.insert(argv.end(), options.arguments.begin(), options.arguments.end());
  std::vector<std::string> envp = buildEnvironment(options.environment);
  std::vector<char*> argvPointers = pointersTo(argv);
  std::vector<char*> envpPointers = pointersTo(envp);

  pid_t pid = -1;
  const int spawnError = ::posix_spawn(&pid, path.c_str(), &actions.actions, &attributes.attributes,
                                       argvPointers.data(), envpPointers.data());
  if (spawnError != 0)
    return launchError(path, describeErrno(spawnError));
  pipes.in[0].reset();
  pipes.out[1].reset();
  pipes.err[1].reset();
  return pid;
}

// The monitor of a started child, with our ends of its output pipes. Standard output in pull mode
// stays with the handle instead (`pulledStdout`). A failure ends and reaps the child.
Result<std::shared_ptr<Subprocess::Monitor>> makeMonitor(pid_t pid, ProcessLaunchOptions& options,
                                                         ChildPipes& pipes,
                                                         UniqueFd& pulledStdout) {
  auto monitor = std::make_shared<Subprocess::Monitor>();
  monitor->executablePath = options.executablePath;
  monitor->pid = pid;
  monitor->pidFd = UniqueFd(openPidFd(pid));
  monitor->wakeFd = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!monitor->wakeFd.isValid()) {
    const int error = errno;
    killAndReap(pid);
    return launchError(options.executablePath,
                       fmt::format("no event descriptor to watch it ({})", std::strerror(error)));
  }
  monitor->onExit = std::move(options.onExit);
  monitor->out.options = std::move(options.standardOutput);
  monitor->err.options = std::move(options.standardError);
  // Made before the monitor thread starts, so that readers never race its creation.
  for (StreamReader* stream : {&monitor->out, &monitor->err}) {
    stream->capture = std::make_unique<ProcessOutputCapture>(stream->options.captureLimitBytes);
  }
  monitor->err.fd = std::move(pipes.err[0]);
  setNonBlocking(monitor->err.fd.get());
  if (monitor->out.options.mode == OutputStreamOptions::Mode::pull) {
    pulledStdout = std::move(pipes.out[0]);
  } else {
    monitor->out.fd = std::move(pipes.out[0]);
    setNonBlocking(monitor->out.fd.get());
  }
  return monitor;
}

}  // namespace

Result<std::unique_ptr<Subprocess>> Subprocess::launch(ProcessLaunchOptions options) {
  options.executablePath = absoluteExecutablePath(options.executablePath);
  const std::string path = options.executablePath;
  if (auto reason = whyNotLaunchable(options))
    return launchError(path, *reason);
  Result<ChildPipes> pipes = makeChildPipes(readsNullDevice(options));
  if (!pipes)
    return pipes.error();
  const Result<pid_t> pid = spawnChild(options, *pipes);
  if (!pid)
    return pid.error();
  UniqueFd pulledStdout;
  auto monitor = makeMonitor(*pid, options, *pipes, pulledStdout);
  if (!monitor)
    return monitor.error();
  try {
    return std::unique_ptr<Subprocess>(
        new Subprocess(std::move(*monitor), std::move(pipes->in[1]), std::move(pulledStdout)));
  } catch (const std::system_error& error) {
    killAndReap(*pid);
    return launchError(path, fmt::format("no thread to watch it ({})", error.what()));
  }
}

Subprocess::Subprocess(std::shared_ptr<Monitor> monitor, UniqueFd stdinFd, UniqueFd pulledStdoutFd)
    : monitor_(std::move(monitor)),
      monitorThread_([monitor = monitor_] { monitor->run(); }),
      stdinFd_(std::move(stdinFd)),
      pulledStdoutFd_(std::move(pulledStdoutFd)) {}

Subprocess::~Subprocess() {
  closeStdin();
  pulledStdoutFd_.reset();
  const auto now = SteadyClock::now();
  monitor_->scheduleSignals(now + kDefaultGracePeriod, now + 2 * kDefaultGracePeriod);

  const bool onMonitorThread = monitorThread_.get_id() == std::this_thread::get_id();
  if (onMonitorThread) {
    // Destroyed from inside one of its own callbacks, which already holds the callback lock.
    monitor_->callbacksDetached = true;
    monitorThread_.detach();
    return;
  }
  {
    std::lock_guard lock(monitor_->callbackMutex);
    monitor_->callbacksDetached = true;
  }
  bool finished = false;
  {
    std::lock_guard lock(monitor_->mutex);
    finished = monitor_->finished;
  }
  // A child still running is left to the monitor, which signals and reaps it on its own time.
  if (finished) {
    monitorThread_.join();
  } else {
    monitorThread_.detach();
  }
}

int Subprocess::processId() const {
  return monitor_->pid;
}

Status Subprocess::writeStdin(std::string_view bytes) {
  std::lock_guard lock(stdinMutex_);
  if (!stdinFd_.isValid()) {
    return Error::editor(
        EPIPE, fmt::format("The standard input of \"{}\" is closed", monitor_->executablePath));
  }
  SigpipeGuard guard;
  while (!bytes.empty()) {
    const ssize_t written = ::write(stdinFd_.get(), bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
      continue;
    }
    if (errno == EINTR)
      continue;
    const int error = errno;
    if (error == EPIPE)
      guard.noteBrokenPipe();
    return Error::editor(error, fmt::format("Could not write to \"{}\": {}",
                                            monitor_->executablePath, std::strerror(error)));
  }
  return okStatus();
}

void Subprocess::closeStdin() {
  std::lock_guard lock(stdinMutex_);
  stdinFd_.reset();
}

Result<std::string> Subprocess::readStdout(std::size_t maxBytes) {
  if (!pulledStdoutFd_.isValid()) {
    return Error::editor(EBADF, "Standard output is not in pull mode");
  }
  std::string data(std::max<std::size_t>(1, maxBytes), '\0');
  while (true) {
    const ssize_t got = ::read(pulledStdoutFd_.get(), data.data(), data.size());
    if (got >= 0) {
      data.resize(static_cast<std::size_t>(got));
      return data;
    }
    if (errno == EINTR)
      continue;
    const int error = errno;
    return Error::editor(error, fmt::format("Could not read from \"{}\": {}",
                                            monitor_->executablePath, std::strerror(error)));
  }
}

std::string Subprocess::capturedStdout() const {
  return monitor_->out.captureSnapshot();
}

std::string Subprocess::capturedStderr() const {
  return monitor_->err.captureSnapshot();
}

bool Subprocess::isStdoutTruncated() const {
  return monitor_->out.isTruncated();
}

bool Subprocess::isStderrTruncated() const {
  return monitor_->err.isTruncated();
}

bool Subprocess::isRunning() const {
  std::lock_guard lock(monitor_->mutex);
  return !monitor_->status.has_value();
}

std::optional<ExitStatus> Subprocess::exitStatus() const {
  std::lock_guard lock(monitor_->mutex);
  return monitor_->status;
}

ExitStatus Subprocess::waitForExit() {
  std::unique_lock lock(monitor_->mutex);
  // From inside onExit the status is known and waiting for `finished` would never end.
  if (monitorThread_.get_id() == std::this_thread::get_id())
    return *monitor_->status;
  monitor_->finishedChanged.wait(lock, [this] { return monitor_->finished; });
  return *monitor_->status;
}

void Subprocess::terminate(Duration gracePeriod) {
  const auto now = SteadyClock::now();
  monitor_->scheduleSignals(now, now + gracePeriod);
}

Result<ProcessOutput> Subprocess::runToCompletion(ProcessLaunchOptions options) {
  options.standardOutput.mode = OutputStreamOptions::Mode::capture;
  options.standardError.mode = OutputStreamOptions::Mode::capture;
  auto launched = launch(std::move(options));
  if (!launched)
    return launched.error();
  Subprocess& process = **launched;
  process.closeStdin();
  ProcessOutput output;
  output.exitStatus = process.waitForExit();
  output.standardOutput = process.capturedStdout();
  output.standardError = process.capturedStderr();
  output.standardOutputTruncated = process.isStdoutTruncated();
  output.standardErrorTruncated = process.isStderrTruncated();
  return output;
}

bool Subprocess::isExecutableFile(const std::string& path) {
  return !whyNotExecutable(path).has_value();
}

}  // namespace orvan::editor
