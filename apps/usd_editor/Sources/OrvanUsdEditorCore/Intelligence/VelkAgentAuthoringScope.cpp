#include "Intelligence/VelkAgentAuthoringScope.h"

#include "orvan/wire/Text.h"

namespace orvan::editor {

std::string agentSceneIdentifier(std::string_view scenePath) {
  for (const std::string_view prefix :
       {std::string_view("/Scenes/"), std::string_view("Scenes/")}) {
    if (hasPrefix(scenePath, prefix))
      return std::string(scenePath.substr(prefix.size()));
  }
  return std::string(scenePath);
}

}  // namespace orvan::editor
