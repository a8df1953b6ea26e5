#pragma once

#include <filesystem>
#include <string>

namespace orvan::editor {

// The per-user base folders of the XDG base directory rules: the variable when it holds an
// absolute path, else the usual folder under the home directory.
std::filesystem::path userHomeFolder();    // $HOME, else the account's home
std::filesystem::path userConfigFolder();  // $XDG_CONFIG_HOME or ~/.config
std::filesystem::path userDataFolder();    // $XDG_DATA_HOME or ~/.local/share

// The directories programs are looked up in ($PATH), as one colon-separated text.
std::string executableSearchPath();

}  // namespace orvan::editor
