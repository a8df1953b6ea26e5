// orvan_project_server: serves folders of USD scenes to the editor over HTTP. Once it listens it
// prints "listening on http://HOST:PORT" on standard output; SIGINT or SIGTERM stop it.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include "ProjectServer/ProjectServer.h"
#include "ProjectServer/ServerCommandLine.h"

namespace {

constexpr std::size_t kServingThreads = 8;

int usage(const std::string& reason) {
  std::fprintf(stderr, "orvan_project_server: %s\n%s\n", reason.c_str(),
               orvan::engine::kServerUsage);
  return 2;
}

int fail(const std::string& reason) {
  std::fprintf(stderr, "orvan_project_server: %s\n", reason.c_str());
  return 1;
}

std::string localUserName() {
  if (const char* user = std::getenv("USER"); user != nullptr && *user != '\0')
    return user;
  if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_name != nullptr)
    return entry->pw_name;
  return "local";
}

std::string addressOf(const std::string& host, int port) {
  const bool literalIpv6 = host.find(':') != std::string::npos;
  return "http://" + (literalIpv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

}  // namespace

int main(int argc, char** argv) {
  // The stop signals are taken by sigwait below, never by a handler: block them before any
  // thread starts, so that every thread inherits the mask.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);

  const auto line =
      orvan::engine::parseServerCommandLine(std::vector<std::string>(argv + 1, argv + argc));
  if (!line.ok())
    return usage(line.error());
  if (line->help) {
    std::printf("%s\n", orvan::engine::kServerUsage);
    return 0;
  }

  std::vector<orvan::engine::ProjectFolder> projects;
  std::set<std::string> ids;
  for (const std::string& folder : line->projects) {
    auto project = orvan::engine::loadProjectFolder(folder);
    if (!project.ok())
      return fail(project.error());
    if (!ids.insert(project->id).second)
      return fail("two projects have the id '" + project->id + "' (" + folder + ")");
    projects.push_back(std::move(*project));
  }

  orvan::engine::ProjectServerApi api(
      std::move(projects),
      {.token = line->token, .userName = localUserName(), .stageLimits = line->limits});
  orvan::engine::ProjectServer server(api, kServingThreads);
  const auto port = server.bind(line->host, line->port);
  if (!port.ok())
    return fail(port.error());
  server.start();
  std::printf("listening on %s\n", addressOf(line->host, *port).c_str());
  std::fflush(stdout);

  // Wake now and then to notice a server that ended by itself.
  const timespec poll{.tv_sec = 1, .tv_nsec = 0};
  while (server.running()) {
    if (sigtimedwait(&stopSignals, nullptr, &poll) > 0) {
      server.stop();
      return 0;
    }
  }
  server.stop();
  return fail("the server stopped unexpectedly");
}
