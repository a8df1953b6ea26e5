// orvan_viewport_client: the editor's bridge to the viewport runtime. It reads the editor's lines
// on standard input, checks each, passes the good ones to the runtime over TCP and writes the
// runtime's answers to standard output as JSON lines. A runtime that is down or restarts is
// reached again by itself; what the editor had set up is sent to it again.
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "ClientLink/LineSplitter.h"
#include "ViewportLink/ClientReplay.h"
#include "ViewportLink/LinkSocket.h"
#include "ViewportLink/ViewportInwardLine.h"
#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/records/ViewportClientLine.h"

namespace {

using namespace orvan::engine;
using orvan::editor::ViewportClientLine;

constexpr const char* kUsage = "usage: orvan_viewport_client --address HOST:PORT --json-lines\n";
constexpr std::size_t kMaxInputLineBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxRuntimeLineBytes = std::size_t{16} << 20;

std::mutex outputMutex;

void emit(const ViewportClientLine& line) {
  const std::string text = orvan::editor::encodeJson(line) + "\n";
  const std::lock_guard lock(outputMutex);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void status(std::string message) {
  emit(ViewportClientLine{.type = "status", .message = std::move(message)});
}

// The link to the runtime and what is resent to it after a reconnection.
class RuntimeLink {
 public:
  RuntimeLink(LinkEndpoint endpoint, std::string address)
      : endpoint_(std::move(endpoint)), address_(std::move(address)) {}

  void run() {
    bool down = false;
    while (!quitting_) {
      std::string error;
      const int fd = connectToEndpoint(endpoint_, 1000, error);
      if (fd < 0) {
        if (!down)
          status("viewport runtime not reachable at " + address_ + ": " + error + "; retrying");
        down = true;
        std::unique_lock lock(mutex_);
        wake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return quitting_.load(); });
        continue;
      }
      {
        const std::lock_guard lock(mutex_);
        fd_ = fd;
        for (const std::string& line : replay_.lines())
          sendAll(fd_, line + "\n");
      }
      if (down)
        status("viewport runtime connected at " + address_);
      down = false;
      readAnswers(fd);
      {
        const std::lock_guard lock(mutex_);
        fd_ = -1;
      }
      ::close(fd);
      if (!quitting_) {
        status("viewport runtime connection lost at " + address_ + "; reconnecting");
        down = true;
      }
    }
  }

  // One good line from the editor.
  void forward(const ViewportCommand& command) {
    const std::string line = encodeViewportCommand(command);
    const std::lock_guard lock(mutex_);
    replay_.note(command, line);
    if (fd_ >= 0)
      sendAll(fd_, line + "\n");  // a failure shows on the reading side, which reconnects
  }

  void quit() {
    quitting_ = true;
    const std::lock_guard lock(mutex_);
    if (fd_ >= 0)
      ::shutdown(fd_, SHUT_RDWR);
    wake_.notify_all();
  }

 private:
  void readAnswers(int fd) {
    LineSplitter splitter(kMaxRuntimeLineBytes);
    char buffer[65536];
    while (true) {
      const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
      if (got <= 0)
        return;
      splitter.feed(
          std::string_view(buffer, static_cast<std::size_t>(got)),
          [](std::string_view line, bool overlong) {
            if (overlong) {
              status("ignored a runtime line longer than 16 MiB");
              return true;
            }
            auto decoded = orvan::editor::decodeJson<ViewportClientLine>(line);
            if (decoded.ok())
              emit(decoded.value());
            else
              status("ignored a runtime line that does not decode: " + decoded.error().description);
            return true;
          });
    }
  }

  const LinkEndpoint endpoint_;
  const std::string address_;
  std::atomic<bool> quitting_{false};
  std::mutex mutex_;
  std::condition_variable wake_;
  int fd_ = -1;
  ClientReplay replay_;
};

void handleInputLine(RuntimeLink& link, std::string_view line, bool overlong) {
  if (overlong) {
    status("ignored an input line longer than " + std::to_string(kMaxInputLineBytes) + " bytes");
    return;
  }
  const ViewportLineParse parsed = parseViewportInwardLine(line);
  if (!parsed.command) {
    status("ignored input line: " + parsed.error);
    return;
  }
  link.forward(*parsed.command);
}

}  // namespace

int main(int argc, char** argv) {
  std::string address;
  bool jsonLines = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--address" && i + 1 < argc) {
      address = argv[++i];
    } else if (argument == "--json-lines") {
      jsonLines = true;
    } else if (argument == "--help" || argument == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else {
      std::fprintf(stderr, "orvan_viewport_client: unknown argument '%s'\n%s", argv[i], kUsage);
      return 2;
    }
  }
  const std::optional<LinkEndpoint> endpoint = parseLinkEndpoint(address);
  if (!jsonLines || !endpoint) {
    std::fprintf(stderr, "orvan_viewport_client: %s\n%s",
                 jsonLines ? "--address needs HOST:PORT" : "--json-lines is required", kUsage);
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);

  RuntimeLink link(*endpoint, address);
  std::thread runtime([&link] { link.run(); });
  LineSplitter splitter(kMaxInputLineBytes);
  const auto onLine = [&link](std::string_view line, bool overlong) {
    handleInputLine(link, line, overlong);
    return true;
  };
  char buffer[65536];
  while (true) {
    const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR)
      continue;
    if (got <= 0)
      break;
    splitter.feed(std::string_view(buffer, static_cast<std::size_t>(got)), onLine);
  }
  splitter.finish(onLine);
  link.quit();
  runtime.join();
  return 0;
}
