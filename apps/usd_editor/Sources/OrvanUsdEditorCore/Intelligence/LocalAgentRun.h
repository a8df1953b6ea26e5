#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Intelligence/VelkAgentAuthoringScope.h"
#include "Intelligence/VelkAgentProvider.h"

// The pieces of a local agent run that need no state: where the agent is installed, how it is
// started, what it is told, and how its event stream reads as progress. The controller puts them
// together; they are free functions so that each can be checked on its own.
namespace orvan::editor {

// How installed agents are found. `searchPath` is a PATH-style list of directories.
struct AgentExecutableLookup {
  std::string homeDirectory;
  std::string searchPath;
  std::function<bool(const std::string& path)> isExecutableFile;
};

// The fixed install locations of the provider's agent, in the order they are tried. Entries under
// the home directory are left out when it is unknown.
std::vector<std::string> localAgentExecutableCandidates(VelkAgentProvider provider,
                                                        std::string_view homeDirectory);

// The first fixed location that is an executable file, then the first match of the command name
// ("codex", "claude") in the search path: on Linux the agents are usually installed by a package
// manager into a directory of PATH rather than into one of the fixed locations. Relative and empty
// PATH entries are skipped, so that nothing is ever run from the current directory.
std::optional<std::string> localAgentExecutable(VelkAgentProvider provider,
                                                const AgentExecutableLookup& lookup);

// The two texts of a run refused because the agent is missing.
std::string agentNotInstalledMessage(VelkAgentProvider provider);
std::string agentInstallHint(VelkAgentProvider provider);
// The failure text of a launch that did not start.
std::string agentLaunchFailedMessage(VelkAgentProvider provider);
// The status while the agent starts.
std::string agentOpeningStatus(VelkAgentProvider provider);

// The agent's argument list (without the program itself). Codex gets a read-only sandbox and
// Claude only the plugin's tools, so the server's validated tools are the agent's only way to act.
// The prompt comes last, after "--", so that no text of the user's can become an option.
std::vector<std::string> localAgentArguments(VelkAgentProvider provider, std::string_view model,
                                             std::string_view directory, std::string_view prompt);

// The selection as the prompt shows it: "[" then each non-empty path in double quotes (its double
// quotes and backslashes escaped), joined by ",\n", then "\n]". No selection reads "[\n]".
std::string agentSelectionArrayText(const std::vector<std::string>& paths);

// Everything the agent is told. The wording is the contract with the plugin's tools
// (velk_workspace, velk_inspect, velk_observe, velk_describe_schema, velk_change, velk_verify):
// change it only together with them.
std::string localAgentPrompt(const VelkAgentAuthoringScope& scope, std::string_view requestText);

// What one line of the agent's event stream means for the bar: a new status label, the agent's
// own summary, or neither.
struct AgentProgress {
  std::optional<std::string> label;
  std::optional<std::string> summary;

  bool operator==(const AgentProgress&) const = default;
};

inline constexpr std::string_view kAgentPreparingLabel = "Preparing the change";

// Lines that are not JSON, or that no rule covers, read as "Preparing the change". An
// "agent_message" under "payload" gives its "message" as summary and leaves the label alone. A
// "function_call" (at the top or under "payload") gives the label of its tool, whatever plugin
// prefix ("mcp__plugin_velk_velk__", "velk.") the agent puts before the tool's name.
AgentProgress agentProgressLabel(std::string_view line);

}  // namespace orvan::editor
