#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Inspector/StageLimits.h"
#include "orvan/wire/Error.h"

namespace orvan::engine {

inline constexpr const char* kServerUsage =
    "usage: orvan_project_server --project DIR [--project DIR]... [--host H] [--port N]\n"
    "         [--token-file FILE] [--password-file FILE] [--public-url URL] [--state-dir DIR]\n"
    "         [--max-prims N] [--max-sites N] [--max-layer-bytes N] [--max-output-bytes N]\n"
    "       orvan_project_server sessions list [--state-dir DIR]\n"
    "       orvan_project_server sessions revoke ID [--state-dir DIR]\n"
    "The static token may also come from ORVAN_SERVER_TOKEN, the sign-in password from\n"
    "ORVAN_SERVER_PASSWORD.";

// What the server was asked to do on its command line.
struct ServerCommandLine {
  std::vector<std::string> projects = {};  // at least one; the first is the current project
  std::string host = "127.0.0.1";
  int port = 8787;                // 0: any free port
  std::string tokenFile = {};     // the static token for scripts and tests
  std::string passwordFile = {};  // the password of the sign-in page
  std::string publicURL = {};     // how the server names itself; empty: its listening address
  std::string stateDir = {};      // where sessions are kept; empty: the default folder
  bool help = false;              // --help: print the usage and stop
  StageLimits limits = {};        // budgets of each stage the server inspects
};

// `orvan_project_server sessions ...`: the sign-in sessions of a state folder.
struct SessionsCommandLine {
  enum class Action { list, revoke };
  Action action = Action::list;
  std::string id = {};        // the session to revoke
  std::string stateDir = {};  // empty: the default folder
};

// The secrets the server runs with, from their files or else from the environment.
struct ServerSecrets {
  std::string token = {};     // empty: no static token
  std::string password = {};  // empty: the sign-in page cannot sign anyone in
};

using Environment = std::function<const char*(const char*)>;

// Reads the arguments (without the program name). Fails with the reason when an option is unknown,
// lacks its value, a port is not a number from 0 to 65535, a public address is not an http(s)
// address, no project is given, or the token is given on the command line, where every user of
// the machine could read it.
editor::Result<ServerCommandLine, std::string> parseServerCommandLine(
    const std::vector<std::string>& arguments);

// Reads the arguments after `sessions`.
editor::Result<SessionsCommandLine, std::string> parseSessionsCommandLine(
    const std::vector<std::string>& arguments);

// The token from --token-file or else ORVAN_SERVER_TOKEN, the password from --password-file or
// else ORVAN_SERVER_PASSWORD; each trimmed. Fails when a named file cannot be read or is empty.
editor::Result<ServerSecrets, std::string> loadServerSecrets(const ServerCommandLine& line,
                                                             const Environment& environment);

// $XDG_STATE_HOME/orvan-project-server, else ~/.local/state/orvan-project-server; the given folder
// when there is one.
std::string stateFolder(const std::string& given, const Environment& environment);

}  // namespace orvan::engine
