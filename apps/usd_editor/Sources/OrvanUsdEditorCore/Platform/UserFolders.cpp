#include "Platform/UserFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace orvan::editor {

namespace {}  // namespace

std::filesystem::path userHomeFolder() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/')
    return home;
  std::vector<char> buffer(16 * 1024);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr) {
    return found->pw_dir;
  }
  return "/tmp";
}

namespace {

std::filesystem::path fromVariable(const char* variable, const char* fallbackUnderHome) {
  if (const char* value = std::getenv(variable); value != nullptr && value[0] == '/')
    return value;
  return userHomeFolder() / fallbackUnderHome;
}

}  // namespace

std::filesystem::path userConfigFolder() {
  return fromVariable("XDG_CONFIG_HOME", ".config");
}

std::filesystem::path userDataFolder() {
  return fromVariable("XDG_DATA_HOME", ".local/share");
}

std::string executableSearchPath() {
  const char* path = std::getenv("PATH");
  return path ? path : "";
}

}  // namespace orvan::editor
