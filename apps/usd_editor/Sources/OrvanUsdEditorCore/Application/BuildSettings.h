#pragma once

#include <string_view>

namespace orvan::editor {

// The deployment the editor talks to by default, compiled in at build time (CMake cache
// variables, see README). Our default deployment is the local reference server.
inline constexpr std::string_view kDefaultProjectServerURL = ORVAN_DEFAULT_SERVER_URL;
inline constexpr std::string_view kDefaultWebEditorURL = ORVAN_DEFAULT_WEB_EDITOR_URL;
inline constexpr std::string_view kDefaultAuthoringAddress = ORVAN_DEFAULT_AUTHORING_ADDRESS;

}  // namespace orvan::editor
