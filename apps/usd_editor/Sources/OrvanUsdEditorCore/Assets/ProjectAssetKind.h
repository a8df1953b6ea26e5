#pragma once

#include <string>
#include <string_view>

namespace orvan::editor {

// The kind word of a project file, from its extension without regard to case: "USD", "USDZ",
// "Image", "Audio", "Mesh", "Material", "Animation", "Font", "Script", "Data", or "File" for
// anything else, including names without an extension and dotfiles such as ".gitignore".
std::string projectAssetKind(std::string_view path);

}  // namespace orvan::editor
