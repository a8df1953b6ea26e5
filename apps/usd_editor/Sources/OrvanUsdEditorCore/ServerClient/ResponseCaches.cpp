#include "ServerClient/ResponseCaches.h"

namespace orvan::editor {

std::string remoteStageCacheKey(const SharedClientScope& scope) {
  std::string key;
  for (const std::string* field :
       {&scope.server, &scope.project, &scope.projectRoot, &scope.scene}) {
    key += *field;
    key += '\n';
  }
  key += scope.workspace.empty() ? "main" : scope.workspace;
  key += '\n';
  key += scope.activeLayer;
  return key;
}

}  // namespace orvan::editor
