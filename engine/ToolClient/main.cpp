// orvan_tool_client: watches a scene's change stream for the editor, or publishes this client's
// selection once. See engine/README.md.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ClientLink/HttpLink.h"
#include "ClientLink/LineSplitter.h"
#include "ClientLink/ServiceAddress.h"
#include "ToolClient/ToolCommandLine.h"
#include "ToolClient/ToolLines.h"
#include "orvan/wire/JsonEncoder.h"

namespace {

using namespace orvan::engine;

// A watch line longer than this is skipped (with a word on standard error), never buffered whole.
constexpr std::size_t kMaxWatchLineBytes = std::size_t{16} << 20;

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written <= 0)
      return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void warn(const std::string& text) {
  std::fprintf(stderr, "orvan_tool_client: %s\n", text.c_str());
}

std::string watchPath(const ToolClientCommandLine& commandLine, const HttpLink& link) {
  std::string path = "/api/watch?clientId=" + link.escapeQueryValue(commandLine.clientId);
  if (!commandLine.scene.empty())
    path += "&s=" + link.escapeQueryValue(commandLine.scene);
  if (!commandLine.workspace.empty())
    path += "&w=" + link.escapeQueryValue(commandLine.workspace);
  return path;
}

int watch(const ToolClientCommandLine& commandLine, HttpLink& link) {
  LineSplitter splitter(kMaxWatchLineBytes);
  bool outputBroken = false;
  const auto printLine = [&](std::string_view line, bool overlong) {
    if (overlong) {
      warn("skipped a stream line longer than " + std::to_string(kMaxWatchLineBytes) + " bytes");
      return true;
    }
    const WatchLineResult result = watchLineToPrint(line);
    if (!result.problem.empty())
      warn("skipped a stream line: " + result.problem);
    if (result.printed.empty())
      return true;
    outputBroken = !writeAll(STDOUT_FILENO, result.printed + "\n");
    return !outputBroken;
  };
  const StreamOutcome outcome = link.streamGet(
      watchPath(commandLine, link),
      [&](std::string_view chunk) { return splitter.feed(chunk, printLine); }, commandLine.silence);
  if (outputBroken)
    return 1;
  switch (outcome.end) {
    case StreamEnd::kEnded:
      splitter.finish(printLine);
      if (!outcome.message.empty())
        warn(outcome.message);
      return 0;
    case StreamEnd::kSilent:
      warn(outcome.message);
      return 0;
    case StreamEnd::kStopped:
      return 0;
    case StreamEnd::kRefused:
    case StreamEnd::kFailed:
      warn(outcome.message);
      return 1;
  }
  return 1;
}

int publishPresence(const ToolClientCommandLine& commandLine, HttpLink& link) {
  const PresenceBody body{
      commandLine.clientId,  commandLine.displayName, commandLine.color,        commandLine.scene,
      commandLine.workspace, commandLine.activeLayer, commandLine.selectedPaths};
  const HttpOutcome outcome = link.postJson("/api/presence", orvan::editor::encodeJson(body));
  if (!outcome.ok()) {
    warn(outcome.failure);
    return 1;
  }
  if (outcome.reply->status < 200 || outcome.reply->status >= 300) {
    warn("the server refused the presence with HTTP " + std::to_string(outcome.reply->status) +
         ": " + outcome.reply->body.substr(0, 400));
    return 1;
  }
  return 0;
}

int usageError(const std::string& why) {
  std::fprintf(stderr, "orvan_tool_client: %s\n%.*s", why.c_str(),
               static_cast<int>(kToolClientUsage.size()), kToolClientUsage.data());
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  const ToolCommandLineResult parsed = parseToolClientArguments(arguments);
  if (!parsed.commandLine)
    return usageError(parsed.error);
  const ToolClientCommandLine& commandLine = *parsed.commandLine;
  const ServiceAddressResult address = httpBaseForAddress(commandLine.address);
  if (!address.ok())
    return usageError(address.error);
  HttpLinkOptions options;
  options.replyTimeout = std::chrono::seconds(10);
  std::string failure;
  const std::unique_ptr<HttpLink> link =
      HttpLink::open(address.baseUrl, bearerFromEnvironment(), options, failure);
  if (!link) {
    warn(failure);
    return 2;
  }
  return commandLine.mode == ToolClientMode::kWatch ? watch(commandLine, *link)
                                                    : publishPresence(commandLine, *link);
}
