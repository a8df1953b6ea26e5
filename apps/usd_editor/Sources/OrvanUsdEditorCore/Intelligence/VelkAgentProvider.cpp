#include "Intelligence/VelkAgentProvider.h"

#include <algorithm>

namespace orvan::editor {

std::string_view displayName(VelkAgentProvider provider) {
  return provider == VelkAgentProvider::claude ? "Claude" : "Codex";
}

std::string_view preferenceValue(VelkAgentProvider provider) {
  return provider == VelkAgentProvider::claude ? "claude" : "codex";
}

std::optional<VelkAgentProvider> providerFromPreferenceValue(std::string_view value) {
  if (value == "codex")
    return VelkAgentProvider::codex;
  if (value == "claude")
    return VelkAgentProvider::claude;
  return std::nullopt;
}

const std::vector<AgentModelChoice>& modelChoices(VelkAgentProvider provider) {
  static const std::vector<AgentModelChoice> codex = {
      {"gpt-5.3-codex-spark", "GPT-5.3 Codex Spark"}};
  static const std::vector<AgentModelChoice> claude = {{"sonnet", "Sonnet"}, {"opus", "Opus"}};
  return provider == VelkAgentProvider::claude ? claude : codex;
}

const std::string& defaultModel(VelkAgentProvider provider) {
  return modelChoices(provider).front().identifier;
}

bool isModelOf(VelkAgentProvider provider, std::string_view model) {
  const auto& choices = modelChoices(provider);
  return std::any_of(choices.begin(), choices.end(),
                     [&](const AgentModelChoice& choice) { return choice.identifier == model; });
}

}  // namespace orvan::editor
