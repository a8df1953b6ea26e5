#pragma once

#include <string>
#include <string_view>

// The rule sits with the wire records because the kind is part of every asset row the project
// server sends: the reference engine's server and the editor's local project list share it.
namespace orvan::editor {

// The kind word of a project file, from its extension without regard to case: "USD", "USDZ",
// "Image", "Audio", "Mesh", "Material", "Animation", "Font", "Script", "Data", or "File" for
// anything else, including names without an extension and dotfiles such as ".gitignore".
std::string projectAssetKind(std::string_view path);

}  // namespace orvan::editor
