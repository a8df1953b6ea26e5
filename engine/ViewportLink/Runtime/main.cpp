// orvan_runtime_viewport: the viewport's renderer process. With --address it serves one viewport
// client at a time over TCP: the client's lines come in, frames go out as shared-memory surfaces
// announced on JSON lines. It ends with its parent process or on SIGTERM, removing its surfaces.
// Without --address it is the one-shot renderer of a scene file.
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientLink/LineSplitter.h"
#include "ViewportLink/LinkSocket.h"
#include "ViewportLink/Runtime/OneShot.h"
#include "ViewportLink/SurfacePool.h"
#include "ViewportLink/ViewportInwardLine.h"
#include "ViewportLink/ViewportSession.h"
#include "orvan/wire/JsonEncoder.h"

namespace {

using namespace orvan::engine;
using Clock = std::chrono::steady_clock;

constexpr const char* kServerUsage =
    "usage: orvan_runtime_viewport --address HOST:PORT [--parent-pid PID]\n"
    "       orvan_runtime_viewport --scene FILE [--size WIDTHxHEIGHT] [--frames N] ...\n";
constexpr std::size_t kMaxLinkLineBytes = std::size_t{1} << 20;

bool processGone(pid_t pid) {
  return ::kill(pid, 0) != 0 && errno == ESRCH;
}

struct ServerOptions {
  std::string address;
  pid_t parentPid = 0;
};

std::optional<ServerOptions> parseServerOptions(const std::vector<std::string>& arguments,
                                                std::string& error) {
  ServerOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    if (i + 1 >= arguments.size()) {
      error = name + " needs a value";
      return std::nullopt;
    }
    const std::string& value = arguments[++i];
    if (name == "--address") {
      options.address = value;
    } else if (name == "--parent-pid") {
      char* end = nullptr;
      const long pid = std::strtol(value.c_str(), &end, 10);
      if (end == value.c_str() || *end != '\0' || pid <= 0) {
        error = "--parent-pid needs a process id, found '" + value + "'";
        return std::nullopt;
      }
      options.parentPid = static_cast<pid_t>(pid);
    } else {
      error = "unknown argument '" + name + "'";
      return std::nullopt;
    }
  }
  return options;
}

// The one client connection and its line reader.
struct Client {
  int fd = -1;
  LineSplitter splitter{kMaxLinkLineBytes};

  void drop() {
    if (fd >= 0)
      ::close(fd);
    fd = -1;
    splitter = LineSplitter(kMaxLinkLineBytes);
  }
};

int serve(const ServerOptions& options) {
  const std::optional<LinkEndpoint> endpoint = parseLinkEndpoint(options.address);
  if (!endpoint) {
    std::fprintf(stderr, "orvan_runtime_viewport: --address needs HOST:PORT, found '%s'\n",
                 options.address.c_str());
    return 2;
  }
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGHUP);
  ::pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  const int signals = ::signalfd(-1, &stopSignals, SFD_CLOEXEC);
  ::signal(SIGPIPE, SIG_IGN);

  if (const std::size_t swept = sweepStaleSurfaces(); swept > 0)
    std::fprintf(stderr, "removed %zu frame surfaces of processes that are gone\n", swept);
  std::string error;
  const int listening = listenOnEndpoint(*endpoint, error);
  if (listening < 0) {
    std::fprintf(stderr, "orvan_runtime_viewport: %s\n", error.c_str());
    return 1;
  }
  std::printf("Viewport server listening on %s\n", options.address.c_str());
  std::fflush(stdout);

  const int wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  Client client;
  ViewportSession session(
      [&client](const orvan::editor::ViewportClientLine& line) {
        if (client.fd >= 0 && !sendAll(client.fd, orvan::editor::encodeJson(line) + "\n"))
          ::shutdown(client.fd, SHUT_RDWR);  // the read side sees the end and drops it
      },
      [wakeFd] {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(wakeFd, &one, sizeof one);
      });

  const auto handleLine = [&](std::string_view line, bool overlong) {
    if (overlong)
      return true;
    const ViewportLineParse parsed = parseViewportInwardLine(line);
    if (parsed.command)
      session.handle(*parsed.command);
    else if (client.fd >= 0)
      sendAll(client.fd, orvan::editor::encodeJson(orvan::editor::ViewportClientLine{
                             .type = "status", .message = "ignored link line: " + parsed.error}) +
                             "\n");
    return true;
  };

  Clock::time_point nextParentCheck = Clock::now();
  while (true) {
    pollfd watched[4] = {{.fd = listening, .events = POLLIN, .revents = 0},
                         {.fd = signals, .events = POLLIN, .revents = 0},
                         {.fd = wakeFd, .events = POLLIN, .revents = 0},
                         {.fd = client.fd, .events = POLLIN, .revents = 0}};
    const int ready = ::poll(watched, client.fd >= 0 ? 4 : 3, 500);
    if (ready < 0 && errno != EINTR)
      break;
    if (watched[1].revents != 0)
      break;
    if (options.parentPid > 0 && Clock::now() >= nextParentCheck) {
      if (processGone(options.parentPid))
        break;
      nextParentCheck = Clock::now() + std::chrono::milliseconds(500);
    }
    if (watched[2].revents != 0) {
      std::uint64_t count = 0;
      [[maybe_unused]] const ssize_t got = ::read(wakeFd, &count, sizeof count);
    }
    if ((watched[0].revents & POLLIN) != 0) {
      const int accepted = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
      if (accepted >= 0) {
        // A new client replaces the old one, whose frames will never be acknowledged.
        client.drop();
        session.clientGone();
        client.fd = accepted;
      }
    } else if (client.fd >= 0 && watched[3].revents != 0) {
      char buffer[65536];
      const ssize_t got = ::recv(client.fd, buffer, sizeof buffer, 0);
      if (got <= 0) {
        client.drop();
        session.clientGone();
      } else {
        client.splitter.feed(std::string_view(buffer, static_cast<std::size_t>(got)), handleLine);
      }
    }
    session.update();
  }
  std::fflush(stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool server = std::find(arguments.begin(), arguments.end(), "--address") != arguments.end();
  if (!server)
    return runOneShot(arguments);
  std::string error;
  const std::optional<ServerOptions> options = parseServerOptions(arguments, error);
  if (!options) {
    std::fprintf(stderr, "orvan_runtime_viewport: %s\n%s", error.c_str(), kServerUsage);
    return 2;
  }
  const int status = serve(*options);
  // The session's surfaces are gone by now; a scene feed still ending its last fetch on a
  // thread of its own is not waited for.
  std::_Exit(status);
}
