#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace orvan::engine {

// Exit statuses of orvan_project_tool.
inline constexpr int kToolOk = 0;
inline constexpr int kToolProblems = 1;  // the scene or layer has problems, or could not be written
inline constexpr int kToolUsage = 2;     // the command line was wrong

// Runs one command line (without the program name):
//   generate N OUT            write a synthetic scene of N prims to OUT
//   check SCENE [--mute LAYER]... [--no-payloads]
//                             read and compose SCENE, list its problems; status 1 when there are
//                             any
//   format LAYER [--stdout]   rewrite LAYER in canonical form (in place, or to standard output)
int runProjectTool(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace orvan::engine
