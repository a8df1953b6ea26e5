#pragma once

// Runs a helper executable as the editor does: arguments, an environment of its own, pipes on
// its standard input, output and error. Killed when a test ends without waiting for it.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

extern char** environ;

namespace orvan::engine::testing {

// Environment changes over this process's own: a value sets the variable, nothing removes it.
using EnvironmentChanges = std::map<std::string, std::optional<std::string>>;

class HelperProcess {
 public:
  HelperProcess(const std::string& executable, std::vector<std::string> arguments,
                const EnvironmentChanges& changes = {}) {
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
      return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    arguments.insert(arguments.begin(), executable);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
      argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::vector<std::string> environment;
    for (char** variable = environ; *variable != nullptr; ++variable) {
      const std::string entry(*variable);
      if (changes.count(entry.substr(0, entry.find('='))) == 0)
        environment.push_back(entry);
    }
    for (const auto& [name, value] : changes) {
      if (value)
        environment.push_back(name + "=" + *value);
    }
    std::vector<char*> envp;
    for (std::string& variable : environment)
      envp.push_back(variable.data());
    envp.push_back(nullptr);
    if (::posix_spawn(&pid_, executable.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0)
      pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    in_ = in[1];
    out_ = out[0];
    err_ = err[0];
    // Standard error is drained all along, so that a chatty helper never blocks on it.
    errReader_ = std::thread([this] {
      char buffer[4096];
      for (ssize_t n; (n = ::read(err_, buffer, sizeof buffer)) > 0;)
        errText_.append(buffer, static_cast<std::size_t>(n));
    });
  }

  ~HelperProcess() {
    closeInput();
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    if (errReader_.joinable())
      errReader_.join();
    if (out_ >= 0)
      ::close(out_);
    if (err_ >= 0)
      ::close(err_);
  }

  HelperProcess(const HelperProcess&) = delete;
  HelperProcess& operator=(const HelperProcess&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }

  bool write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t n = ::write(in_, bytes.data(), bytes.size());
      if (n <= 0)
        return false;
      bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
  }

  void closeInput() {
    if (in_ >= 0)
      ::close(in_);
    in_ = -1;
  }

  // The next line of standard output without its line feed; nothing at the end of the output or
  // when none came within `timeout`.
  std::optional<std::string> readLine(
      std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
      const std::size_t feed = outBuffer_.find('\n');
      if (feed != std::string::npos) {
        std::string line = outBuffer_.substr(0, feed);
        outBuffer_.erase(0, feed + 1);
        return line;
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      pollfd ready{.fd = out_, .events = POLLIN, .revents = 0};
      if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) != 1)
        return std::nullopt;
      char buffer[65536];
      const ssize_t n = ::read(out_, buffer, sizeof buffer);
      if (n <= 0)
        return std::nullopt;
      outBuffer_.append(buffer, static_cast<std::size_t>(n));
    }
  }

  // Every line of standard output up to its end.
  std::vector<std::string> readAllLines(
      std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    std::vector<std::string> lines;
    while (auto line = readLine(timeout))
      lines.push_back(*line);
    return lines;
  }

  // The exit status, or -1 when the process did not exit by itself within `timeout` (it is then
  // killed) or ended by a signal.
  int wait(std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    int status = 0;
    while (::waitpid(pid_, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
        return -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    pid_ = -1;
    if (errReader_.joinable())
      errReader_.join();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // Standard error; complete once wait() has returned.
  const std::string& errorText() const { return errText_; }

 private:
  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string outBuffer_;
  std::thread errReader_;
  std::string errText_;
};

// A helper run to its end with nothing on its standard input.
struct HelperRun {
  int exitCode = -1;
  std::vector<std::string> lines;
  std::string errorText;
};

inline HelperRun runHelper(const std::string& executable, std::vector<std::string> arguments,
                           const EnvironmentChanges& changes = {}) {
  HelperProcess process(executable, std::move(arguments), changes);
  process.closeInput();
  HelperRun run;
  run.lines = process.readAllLines();
  run.exitCode = process.wait();
  run.errorText = process.errorText();
  return run;
}

}  // namespace orvan::engine::testing
