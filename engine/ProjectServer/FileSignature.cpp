#include "ProjectServer/FileSignature.h"

#include <chrono>
#include <filesystem>
#include <system_error>

namespace orvan::engine {

FileSignature signatureOf(const std::string& path) {
  namespace fs = std::filesystem;
  FileSignature signature{.path = path};
  std::error_code error;
  const fs::file_time_type modified = fs::last_write_time(path, error);
  if (error)
    return signature;
  const std::uintmax_t size = fs::file_size(path, error);
  if (error)
    return signature;
  signature.exists = true;
  signature.modifiedNanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(
                                      std::chrono::file_clock::to_sys(modified).time_since_epoch())
                                      .count();
  signature.size = size;
  return signature;
}

}  // namespace orvan::engine
