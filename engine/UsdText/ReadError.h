#pragma once

#include <cstdint>
#include <string>

namespace orvan::engine {

// Why a layer could not be read, and where: line and column count from 1, columns in bytes. A file
// that could not be opened at all has line 0.
struct ReadError {
  std::string file;
  std::uint32_t line = 0;
  std::uint32_t column = 0;
  std::string message;

  // "file:line:column: message", the one-line form tools print.
  std::string describe() const {
    if (line == 0)
      return file + ": " + message;
    return file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message;
  }
};

}  // namespace orvan::engine
