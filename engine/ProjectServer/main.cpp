// orvan_project_server: serves folders of USD scenes to the editor over HTTP. Once it listens it
// prints "listening on http://HOST:PORT" on standard output; SIGINT or SIGTERM stop it.
// `orvan_project_server sessions list|revoke ID` manages the sessions that sign-in issued.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include "ProjectServer/ProjectServer.h"
#include "ProjectServer/ServerCommandLine.h"
#include "ProjectServer/SessionStore.h"

namespace {

// After a stop signal, requests under way get this long to finish; then the process exits anyway,
// whatever its clients do.
constexpr std::chrono::milliseconds kStopGrace{700};

const char* environmentValue(const char* name) {
  return std::getenv(name);
}

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

std::string timeText(std::int64_t seconds) {
  const std::time_t time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  char buffer[32];
  std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return buffer;
}

// `sessions list` prints one line per live session: its id, user, client, when it was issued and
// when it expires. `sessions revoke ID` ends one; exit 1 when there is no such session.
int sessionsCommand(const std::vector<std::string>& arguments) {
  const auto line = orvan::engine::parseSessionsCommandLine(arguments);
  if (!line.ok())
    return usage(line.error());
  const std::string folder = orvan::engine::stateFolder(line->stateDir, environmentValue);
  auto store = orvan::engine::SessionStore::open(folder);
  if (!store.ok())
    return fail(store.error());
  switch (line->action) {
    case orvan::engine::SessionsCommandLine::Action::list: {
      const auto sessions = (*store)->list();
      if (!sessions.ok())
        return fail(sessions.error());
      for (const auto& session : *sessions) {
        std::printf("%s\t%s\t%s\t%s\t%s\n", session.id.c_str(), session.userId.c_str(),
                    session.clientId.empty() ? "-" : session.clientId.c_str(),
                    timeText(session.createdAt).c_str(), timeText(session.expiresAt).c_str());
      }
      return 0;
    }
    case orvan::engine::SessionsCommandLine::Action::revoke: {
      const auto revoked = (*store)->revoke(line->id);
      if (!revoked.ok())
        return fail(revoked.error());
      if (!*revoked)
        return fail("no session '" + line->id + "' in " + (*store)->path());
      std::printf("revoked %s\n", line->id.c_str());
      return 0;
    }
  }
  return 1;
}

// Stops the server, giving requests under way a moment; a client that holds its connection open
// must not keep the process alive.
void stopWithin(orvan::engine::ProjectServer& server, std::chrono::milliseconds grace) {
  auto stopped = std::make_shared<std::promise<void>>();
  std::future<void> done = stopped->get_future();
  std::thread([&server, stopped] {
    server.stop();
    stopped->set_value();
  }).detach();
  if (done.wait_for(grace) != std::future_status::ready) {
    std::fflush(stdout);
    std::_Exit(0);
  }
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

  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (!arguments.empty() && arguments.front() == "sessions")
    return sessionsCommand(std::vector<std::string>(arguments.begin() + 1, arguments.end()));
  const auto line = orvan::engine::parseServerCommandLine(arguments);
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

  const auto secrets = orvan::engine::loadServerSecrets(*line, environmentValue);
  if (!secrets.ok())
    return fail(secrets.error());
  // Sessions are kept whenever sign-in is on, so that those issued earlier still count.
  std::shared_ptr<orvan::engine::SessionStore> sessions;
  if (!secrets->token.empty() || !secrets->password.empty()) {
    auto store = orvan::engine::SessionStore::open(
        orvan::engine::stateFolder(line->stateDir, environmentValue));
    if (!store.ok())
      return fail(store.error());
    sessions = std::move(*store);
  }

  orvan::engine::ApiOptions options{.token = secrets->token,
                                    .password = secrets->password,
                                    .sessions = sessions,
                                    .publicURL = line->publicURL,
                                    .userName = localUserName(),
                                    .stages = {.limits = line->limits}};
  orvan::engine::ProjectServerApi api(std::move(projects), std::move(options));
  // A server that was killed may have accepted edits its files do not hold yet.
  api.recoverWorkspaces();
  orvan::engine::ProjectServer server(api);
  const auto port = server.bind(line->host, line->port);
  if (!port.ok())
    return fail(port.error());
  const std::string address = addressOf(line->host, *port);
  // Without a public address the server names itself by the one it listens on; a wildcard
  // address names no host a browser could reach, so the loopback stands in for it.
  if (line->publicURL.empty()) {
    const bool wildcard = line->host == "0.0.0.0" || line->host == "::" || line->host == "[::]";
    api.setPublicURL(wildcard ? addressOf(line->host == "0.0.0.0" ? "127.0.0.1" : "::1", *port)
                              : address);
  }
  server.start();
  std::printf("listening on %s\n", address.c_str());
  std::fflush(stdout);

  // Wake every second to notice a server that ended by itself, and to look at the live files
  // for changes by other programs.
  const timespec poll{.tv_sec = 1, .tv_nsec = 0};
  while (server.running()) {
    if (sigtimedwait(&stopSignals, nullptr, &poll) > 0) {
      stopWithin(server, kStopGrace);
      // Accepted edits are in the store already; this only spares the next start a replay.
      api.flushWorkspaces();
      return 0;
    }
    api.lookForExternalChanges();
  }
  server.stop();
  return fail("the server stopped unexpectedly");
}
