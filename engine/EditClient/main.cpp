// orvan_edit_client: sends the editor's edits to the authoring endpoint, either one line at a
// time over standard input and output (--stdio) or as one operation given on the command line
// (--json). See engine/README.md.
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
#include "EditClient/EditCommandLine.h"
#include "EditClient/EditReplies.h"
#include "EditClient/StdioCommands.h"

namespace {

using namespace orvan::engine;

// Longer stdio lines are skipped and answered as malformed; the endpoint takes far less anyway.
constexpr std::size_t kMaxStdioLineBytes = std::size_t{16} << 20;
constexpr std::string_view kEditPath = "/api/edit";

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

bool writeReply(const orvan::editor::EditClientResponse& reply) {
  return writeAll(STDOUT_FILENO, encodeReplyLine(reply) + "\n");
}

orvan::editor::EditClientResponse submit(HttpLink& link, const EditScope& scope,
                                         const EditCommand& command) {
  const HttpOutcome outcome = link.postJson(kEditPath, encodeEditBody(scope, command));
  if (!outcome.ok())
    return refusedReply(outcome.failure);
  return replyForAnswer(outcome.reply->status, outcome.reply->body);
}

// One reply per line, in lock step with the editor; the helper ends at "quit" or at the end of
// its input. Lines it cannot use are answered and skipped, never fatal.
int runStdio(const EditClientCommandLine& commandLine, HttpLink& link) {
  LineSplitter splitter(kMaxStdioLineBytes);
  bool quit = false;
  bool outputBroken = false;
  const auto answer = [&](std::string_view text, bool overlong) {
    orvan::editor::EditClientResponse reply;
    if (overlong) {
      reply = refusedReply(overlongLineProblem(kMaxStdioLineBytes));
    } else {
      const StdioLine line = parseStdioLine(text);
      switch (line.kind) {
        case StdioLineKind::kQuit:
          quit = true;
          return false;
        case StdioLineKind::kPing:
          // Answered without a round trip: the first edit meets an unreachable server and says so.
          reply = orvan::editor::EditClientResponse{true, 0, "ready", std::nullopt};
          break;
        case StdioLineKind::kEdit:
          reply = submit(link, commandLine.scope, line.command);
          break;
        case StdioLineKind::kUnknown:
        case StdioLineKind::kMalformed:
          reply = refusedReply(line.problem);
          break;
      }
    }
    outputBroken = !writeReply(reply);
    return !outputBroken;
  };
  std::vector<char> buffer(std::size_t{64} << 10);
  for (;;) {
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0) {
      splitter.finish(answer);
      return outputBroken ? 1 : 0;
    }
    if (!splitter.feed(std::string_view(buffer.data(), static_cast<std::size_t>(count)), answer))
      return quit ? 0 : 1;
  }
}

int runOneShot(const EditClientCommandLine& commandLine, HttpLink& link) {
  const orvan::editor::EditClientResponse reply =
      submit(link, commandLine.scope, commandLine.command);
  if (!writeReply(reply))
    return 1;
  return reply.accepted ? 0 : 1;
}

int usageError(const std::string& why) {
  std::fprintf(stderr, "orvan_edit_client: %s\n%.*s", why.c_str(),
               static_cast<int>(kEditClientUsage.size()), kEditClientUsage.data());
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  // The editor may go away while a reply is written; that is an error to see, not a signal.
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  const EditCommandLineResult parsed = parseEditClientArguments(arguments);
  if (!parsed.commandLine)
    return usageError(parsed.error);
  const EditClientCommandLine& commandLine = *parsed.commandLine;
  const ServiceAddressResult address = httpBaseForAddress(commandLine.address);
  if (!address.ok())
    return usageError(address.error);
  std::string failure;
  const std::unique_ptr<HttpLink> link =
      HttpLink::open(address.baseUrl, bearerFromEnvironment(), HttpLinkOptions{}, failure);
  if (!link) {
    std::fprintf(stderr, "orvan_edit_client: %s\n", failure.c_str());
    return 2;
  }
  return commandLine.mode == EditClientMode::kStdio ? runStdio(commandLine, *link)
                                                    : runOneShot(commandLine, *link);
}
