#pragma once

#include <string>
#include <string_view>

namespace orvan::editor {

// How a hosted project's server knows the open scene: a path relative to the project, in forward
// slashes. The project's own reference wins when it is portable; otherwise the scene path is made
// relative to the project root. Empty when neither can be made portable (an absolute path outside
// the project, a path that climbs out of it).
std::string hostedSceneReference(std::string_view projectSceneRef, std::string_view projectRoot,
                                 std::string_view scenePath);

}  // namespace orvan::editor
