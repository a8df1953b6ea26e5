#pragma once

#include <string>
#include <vector>

#include "Foundation/Error.h"
#include "Inspector/StageLimits.h"

namespace orvan::engine {

inline constexpr const char* kServerUsage =
    "usage: orvan_project_server --project DIR [--project DIR]... [--host H] [--port N] "
    "[--token T] [--max-prims N] [--max-sites N] [--max-layer-bytes N] [--max-output-bytes N]";

// What the server was asked to do on its command line.
struct ServerCommandLine {
  std::vector<std::string> projects = {};  // at least one; the first is the current project
  std::string host = "127.0.0.1";
  int port = 8787;         // 0: any free port
  std::string token = {};  // empty: no sign-in
  bool help = false;       // --help: print the usage and stop
  StageLimits limits = {};  // budgets of each stage the server inspects
};

// Reads the arguments (without the program name). Fails with the reason when an option is unknown,
// lacks its value, a port is not a number from 0 to 65535, a token is blank, or no project is
// given.
editor::Result<ServerCommandLine, std::string> parseServerCommandLine(
    const std::vector<std::string>& arguments);

}  // namespace orvan::engine
