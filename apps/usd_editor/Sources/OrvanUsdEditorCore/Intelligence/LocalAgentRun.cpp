#include "Intelligence/LocalAgentRun.h"

#include <array>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonValue.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {
namespace {

constexpr std::string_view kPromptOpening =
    "Work only through the installed Velk MCP tools. Do not modify local files or use shell "
    "commands.\n"
    "First call velk_workspace with exactly this scope and changeMode: \"continue\":\n"
    "projectId: ";
constexpr std::string_view kPromptWorkspaceItem = "\nworkspaceId: ";
constexpr std::string_view kPromptSceneItem = "\nsceneId: ";
constexpr std::string_view kPromptSelection =
    "\n"
    "Work directly in that exact workspace. Do not create, select, or report another "
    "workspace.\n"
    "The authoritative current editor selection is this JSON array:\n"
    "selectedPaths: ";
constexpr std::string_view kPromptRules =
    "\n"
    "Selection is an explicit target only. Use selectedPaths when the request explicitly "
    "names the selected object(s), or uses a pronoun that clearly refers to an explicitly "
    "selected target. Do not repurpose selected geometry for a scene-wide, world-wide, "
    "rendering, or project-wide request. For any non-entity request, inspect the relevant "
    "typed schema and use its declared target; a schema may declare a sceneRoot target "
    "instead of an entity. Do not confuse an entity's visual, material, or prim property "
    "with a global scene or renderer setting: select the semantic owner declared by the "
    "schema. Interpret global language as scene or renderer intent; interpret UI intent only "
    "when the request explicitly says UI, HUD, menu, or panel. If selectedPaths is empty and "
    "the request explicitly depends on selection, explain that nothing is selected instead "
    "of guessing a target.\n"
    "Make exactly the minimum calls needed: inspect focused schemas, query only the directly "
    "relevant target, then call velk_change once. velk_change validates atomically, so do "
    "not call velk_verify unless velk_change reports a validation or authoring failure.\n"
    "Do not claim completion unless the successful velk_change resultLocation exactly "
    "matches the projectId, workspaceId, and sceneId above. Stop immediately after the "
    "successful result. A brief plain-language summary is enough; do not emit protocol "
    "markers.\n"
    "Current active layer: ";
constexpr std::string_view kAutomaticLayer = "(automatic)";
constexpr std::string_view kPromptRequestItem = "\nUser request: ";

std::string_view commandName(VelkAgentProvider provider) {
  return provider == VelkAgentProvider::claude ? "claude" : "codex";
}

// A tool name as the agent reports it may carry the plugin's namespace in front:
// "mcp__plugin_velk_velk__velk_change", "velk.velk_change" or "velk/velk_change".
std::string_view withoutPluginPrefix(std::string_view name) {
  if (const auto separator = name.rfind("__"); separator != std::string_view::npos)
    return name.substr(separator + 2);
  if (const auto separator = name.find_last_of("./:"); separator != std::string_view::npos)
    return name.substr(separator + 1);
  return name;
}

std::optional<std::string_view> toolLabel(std::string_view tool) {
  struct ToolLabel {
    std::string_view tool;
    std::string_view label;
  };
  static constexpr std::array<ToolLabel, 6> kLabels = {{
      {"velk_workspace", "Opening the current scene"},
      {"velk_inspect", "Inspecting the relevant scene data"},
      {"velk_observe", "Inspecting the relevant scene data"},
      {"velk_describe_schema", "Checking the available settings"},
      {"velk_change", "Applying the change"},
      {"velk_verify", "Checking the applied change"},
  }};
  for (const auto& entry : kLabels) {
    if (entry.tool == tool)
      return entry.label;
  }
  return std::nullopt;
}

const std::string* stringMember(const JsonValue& object, std::string_view key) {
  const JsonValue* member = object.find(key);
  return member != nullptr ? member->asString() : nullptr;
}

// The label of a function call event, when `event` is one and names a tool of the plugin.
std::optional<std::string_view> functionCallLabel(const JsonValue& event) {
  const std::string* type = stringMember(event, "type");
  if (type == nullptr || *type != "function_call")
    return std::nullopt;
  const std::string* name = stringMember(event, "name");
  if (name == nullptr)
    return std::nullopt;
  return toolLabel(withoutPluginPrefix(*name));
}

}  // namespace

std::vector<std::string> localAgentExecutableCandidates(VelkAgentProvider provider,
                                                        std::string_view homeDirectory) {
  std::vector<std::string> candidates;
  const auto underHome = [&](std::string_view relative) {
    if (!homeDirectory.empty())
      candidates.push_back(joinPath(homeDirectory, relative));
  };
  if (provider == VelkAgentProvider::claude) {
    underHome(".local/bin/claude");
    underHome(".claude/local/claude");
    candidates.emplace_back("/opt/homebrew/bin/claude");
    candidates.emplace_back("/usr/local/bin/claude");
    return candidates;
  }
  candidates.emplace_back("/Applications/Codex.app/Contents/Resources/codex");
  candidates.emplace_back("/Applications/ChatGPT.app/Contents/Resources/codex");
  underHome("Applications/Codex.app/Contents/Resources/codex");
  candidates.emplace_back("/opt/homebrew/bin/codex");
  candidates.emplace_back("/usr/local/bin/codex");
  return candidates;
}

std::optional<std::string> localAgentExecutable(VelkAgentProvider provider,
                                                const AgentExecutableLookup& lookup) {
  if (!lookup.isExecutableFile)
    return std::nullopt;
  for (const std::string& candidate :
       localAgentExecutableCandidates(provider, lookup.homeDirectory)) {
    if (lookup.isExecutableFile(candidate))
      return candidate;
  }
  std::string_view remaining = lookup.searchPath;
  while (!remaining.empty()) {
    const auto colon = remaining.find(':');
    const std::string_view directory = remaining.substr(0, colon);
    remaining = colon == std::string_view::npos ? std::string_view() : remaining.substr(colon + 1);
    if (directory.empty() || directory.front() != '/')
      continue;
    std::string candidate = joinPath(directory, commandName(provider));
    if (lookup.isExecutableFile(candidate))
      return candidate;
  }
  return std::nullopt;
}

std::string agentNotInstalledMessage(VelkAgentProvider provider) {
  return std::string(displayName(provider)) + " is not installed";
}

std::string agentInstallHint(VelkAgentProvider provider) {
  return "Install and sign in to " + std::string(displayName(provider)) +
         ", then try the Velk prompt bar again.";
}

std::string agentLaunchFailedMessage(VelkAgentProvider provider) {
  return "Could not start " + std::string(displayName(provider));
}

std::string agentOpeningStatus(VelkAgentProvider provider) {
  return "Opening " + std::string(displayName(provider));
}

std::vector<std::string> localAgentArguments(VelkAgentProvider provider, std::string_view model,
                                             std::string_view directory, std::string_view prompt) {
  // "--" ends the options before the prompt: whatever the request says, it stays the prompt, and
  // no option that takes a list can swallow it.
  if (provider == VelkAgentProvider::claude) {
    return {"--print",          "--model",        std::string(model),         "--output-format",
            "stream-json",      "--allowedTools", "mcp__plugin_velk_velk__*", "--",
            std::string(prompt)};
  }
  return {"exec",
          "--json",
          "--model",
          std::string(model),
          "--sandbox",
          "read-only",
          "--skip-git-repo-check",
          "-C",
          std::string(directory),
          "--",
          std::string(prompt)};
}

std::string agentSelectionArrayText(const std::vector<std::string>& paths) {
  std::string text = "[";
  bool first = true;
  for (const std::string& path : paths) {
    if (path.empty())
      continue;
    if (!first)
      text += ",\n";
    first = false;
    text += '"';
    for (const char c : path) {
      if (c == '"' || c == '\\')
        text += '\\';
      text += c;
    }
    text += '"';
  }
  text += "\n]";
  return text;
}

std::string localAgentPrompt(const VelkAgentAuthoringScope& scope, std::string_view requestText) {
  std::string prompt(kPromptOpening);
  prompt += scope.projectId;
  prompt += kPromptWorkspaceItem;
  prompt += scope.workspaceId;
  prompt += kPromptSceneItem;
  prompt += agentSceneIdentifier(scope.scenePath);
  prompt += kPromptSelection;
  prompt += agentSelectionArrayText(scope.selectedPaths);
  prompt += kPromptRules;
  prompt += scope.activeLayerId.empty() ? kAutomaticLayer : std::string_view(scope.activeLayerId);
  prompt += kPromptRequestItem;
  prompt += requestText;
  return prompt;
}

AgentProgress agentProgressLabel(std::string_view line) {
  const AgentProgress preparing{std::string(kAgentPreparingLabel), std::nullopt};
  auto decoded = decodeJson<JsonValue>(line);
  if (!decoded || !decoded->isObject())
    return preparing;
  const JsonValue& event = *decoded;
  const JsonValue* payload = event.find("payload");
  if (payload != nullptr && payload->isObject()) {
    const std::string* type = stringMember(*payload, "type");
    const std::string* message = stringMember(*payload, "message");
    if (type != nullptr && *type == "agent_message" && message != nullptr)
      return AgentProgress{std::nullopt, *message};
    if (auto label = functionCallLabel(*payload))
      return AgentProgress{std::string(*label), std::nullopt};
  }
  if (auto label = functionCallLabel(event))
    return AgentProgress{std::string(*label), std::nullopt};
  return preparing;
}

}  // namespace orvan::editor
