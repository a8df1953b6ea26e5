#pragma once

#include <cstdint>
#include <string>

namespace orvan::engine {

// What the server knows of a file to tell that it changed: whether it is there, its modification
// time in nanoseconds since the Unix epoch, and its size.
struct FileSignature {
  std::string path = {};
  bool exists = false;
  std::int64_t modifiedNanoseconds = 0;
  std::uintmax_t size = 0;

  bool operator==(const FileSignature&) const = default;
};

FileSignature signatureOf(const std::string& path);

}  // namespace orvan::engine
