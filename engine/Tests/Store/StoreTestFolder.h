#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace orvan::engine {

// A fresh folder under the system's temporary folder, removed with everything in it at the end.
class StoreTestFolder {
 public:
  StoreTestFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "orvan_store_XXXXXX").string();
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
  }
  ~StoreTestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  StoreTestFolder(const StoreTestFolder&) = delete;
  StoreTestFolder& operator=(const StoreTestFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string readWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

inline void writeWhole(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace orvan::engine
