#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvan::editor {

// The locally installed coding agents the prompt bar can start.
enum class VelkAgentProvider { codex, claude };

// One model a provider offers: the identifier passed to the agent and the name shown in the menu.
struct AgentModelChoice {
  std::string identifier;
  std::string displayName;

  bool operator==(const AgentModelChoice&) const = default;
};

// "Codex" or "Claude": the provider's name in the bar's texts.
std::string_view displayName(VelkAgentProvider provider);
// "codex" or "claude": the provider as kept in the preferences.
std::string_view preferenceValue(VelkAgentProvider provider);
std::optional<VelkAgentProvider> providerFromPreferenceValue(std::string_view value);

// The models of a provider, the default first.
const std::vector<AgentModelChoice>& modelChoices(VelkAgentProvider provider);
const std::string& defaultModel(VelkAgentProvider provider);
bool isModelOf(VelkAgentProvider provider, std::string_view model);

}  // namespace orvan::editor
