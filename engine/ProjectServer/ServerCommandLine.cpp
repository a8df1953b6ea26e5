#include "ProjectServer/ServerCommandLine.h"

#include <charconv>
#include <optional>

#include "ProjectServer/Credentials.h"
#include "orvan/wire/Text.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::engine {
namespace {

// A public address as the callback names it: http or https, a host, no query, no trailing slash.
std::optional<std::string> publicAddress(const std::string& value) {
  std::string address = editor::trimmed(value);
  while (address.ends_with('/'))
    address.pop_back();
  const auto url = editor::URLComponents::parse(address);
  const std::string scheme = url ? editor::lowercased(url->scheme) : std::string();
  if (!url || (scheme != "http" && scheme != "https") || url->host.empty() ||
      !url->queryItems.empty()) {
    return std::nullopt;
  }
  return address;
}

editor::Result<Secret, std::string> secret(const std::string& file, const char* variable,
                                           const Environment& environment) {
  if (!file.empty())
    return readSecretFile(file);
  const char* value = environment(variable);
  return Secret{.text = value != nullptr ? editor::trimmed(value) : std::string()};
}

}  // namespace

editor::Result<ServerCommandLine, std::string> parseServerCommandLine(
    const std::vector<std::string>& arguments) {
  ServerCommandLine line;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (option == "--help" || option == "-h") {
      line.help = true;
      return line;
    }
    if (option == "--token") {
      return std::string(
          "--token would show the token to every user of this machine; put it in a file "
          "given with --token-file FILE, or in the ORVAN_SERVER_TOKEN environment variable");
    }
    if (option != "--project" && option != "--host" && option != "--port" &&
        option != "--token-file" && option != "--password-file" && option != "--public-url" &&
        option != "--state-dir" && !isStageLimitOption(option)) {
      return "unexpected argument '" + option + "'";
    }
    if (i + 1 >= arguments.size() || editor::isBlank(arguments[i + 1]))
      return option + " needs a value";
    const std::string& value = arguments[++i];
    if (isStageLimitOption(option)) {
      if (auto wrong = setStageLimit(line.limits, option, value))
        return std::move(*wrong);
      continue;
    }
    if (option == "--project") {
      line.projects.push_back(value);
    } else if (option == "--host") {
      line.host = value;
    } else if (option == "--port") {
      int port = -1;
      const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), port);
      if (error != std::errc() || end != value.data() + value.size() || port < 0 || port > 65535)
        return "--port needs a number from 0 to 65535, not '" + value + "'";
      line.port = port;
    } else if (option == "--token-file") {
      line.tokenFile = value;
    } else if (option == "--password-file") {
      line.passwordFile = value;
    } else if (option == "--public-url") {
      std::optional<std::string> address = publicAddress(value);
      if (!address)
        return "--public-url needs an http:// or https:// address, not '" + value + "'";
      line.publicURL = std::move(*address);
    } else {
      line.stateDir = value;
    }
  }
  if (line.projects.empty())
    return std::string("no --project given");
  return line;
}

editor::Result<SessionsCommandLine, std::string> parseSessionsCommandLine(
    const std::vector<std::string>& arguments) {
  SessionsCommandLine line;
  std::vector<std::string> words;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] != "--state-dir") {
      words.push_back(arguments[i]);
      continue;
    }
    if (i + 1 >= arguments.size() || editor::isBlank(arguments[i + 1]))
      return std::string("--state-dir needs a value");
    line.stateDir = arguments[++i];
  }
  if (words.size() == 1 && words[0] == "list")
    return line;
  if (words.size() == 2 && words[0] == "revoke" && !editor::isBlank(words[1])) {
    line.action = SessionsCommandLine::Action::revoke;
    line.id = editor::trimmed(words[1]);
    return line;
  }
  return std::string("sessions needs 'list' or 'revoke ID'");
}

editor::Result<ServerSecrets, std::string> loadServerSecrets(const ServerCommandLine& line,
                                                             const Environment& environment) {
  auto token = secret(line.tokenFile, "ORVAN_SERVER_TOKEN", environment);
  if (!token.ok())
    return token.error();
  auto password = secret(line.passwordFile, "ORVAN_SERVER_PASSWORD", environment);
  if (!password.ok())
    return password.error();
  return ServerSecrets{.token = std::move(token->text), .password = std::move(password->text)};
}

std::string stateFolder(const std::string& given, const Environment& environment) {
  if (!given.empty())
    return given;
  constexpr const char* kFolder = "/orvan-project-server";
  if (const char* state = environment("XDG_STATE_HOME"); state != nullptr && *state == '/')
    return std::string(state) + kFolder;
  const char* home = environment("HOME");
  return std::string(home != nullptr ? home : ".") + "/.local/state" + kFolder;
}

}  // namespace orvan::engine
