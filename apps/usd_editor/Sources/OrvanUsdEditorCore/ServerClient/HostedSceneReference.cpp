#include "ServerClient/HostedSceneReference.h"

#include <algorithm>

#include "orvan/client/ClientTarget.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

std::string forwardSlashes(std::string_view path) {
  std::string text(trimWhitespaceAndNewlines(path));
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

}  // namespace

std::string hostedSceneReference(std::string_view projectSceneRef, std::string_view projectRoot,
                                 std::string_view scenePath) {
  if (std::string fromProject = client::portable_scene_reference(projectSceneRef);
      !fromProject.empty()) {
    return fromProject;
  }
  std::string scene = forwardSlashes(scenePath);
  const std::string root = forwardSlashes(projectRoot);
  if (!root.empty() && hasPrefix(scene, "/")) {
    const std::string standardRoot = standardizePath(root);
    const std::string standardScene = standardizePath(scene);
    const std::string prefix = standardRoot == "/" ? standardRoot : standardRoot + "/";
    if (hasPrefix(standardScene, prefix))
      scene = standardScene.substr(prefix.size());
  }
  return client::portable_scene_reference(scene);
}

}  // namespace orvan::editor
