#pragma once

#include <string_view>

namespace orvan::editor {

// The deployment the editor talks to by default, compiled in at build time (CMake cache
// variables, see README). Our default deployment is the local reference server.
extern const std::string_view kDefaultProjectServerURL;
extern const std::string_view kDefaultWebEditorURL;
extern const std::string_view kDefaultAuthoringAddress;

}  // namespace orvan::editor
