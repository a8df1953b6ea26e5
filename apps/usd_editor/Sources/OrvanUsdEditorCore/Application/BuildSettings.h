#pragma once

#include <string_view>

namespace orvan::editor {

// Deployment values compiled in at build time (CMake cache variables, see README).
inline constexpr std::string_view kDefaultProjectServerURL = ORVAN_DEFAULT_SERVER_URL;

}  // namespace orvan::editor
