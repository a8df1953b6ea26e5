#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace orvan::editor::testing {

// A fresh private folder under the system's temporary folder, removed with everything in it when
// the object goes, also when a test stops early.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& relative) const {
    return path_ / relative;
  }
  // Writes `contents` to `relative` (creating its folders) and gives the file's path.
  std::filesystem::path write(const std::filesystem::path& relative,
                              std::string_view contents) const;

 private:
  std::filesystem::path path_;
};

// The whole contents of a file, or "" when it cannot be read.
std::string fileText(const std::filesystem::path& path);

}  // namespace orvan::editor::testing
