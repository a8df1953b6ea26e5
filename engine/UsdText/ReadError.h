#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvan::engine {

// Text for an error message: valid UTF-8 stays, every other byte becomes \xNN, so that messages
// can go anywhere text goes (a terminal, a JSON document) whatever bytes a file held.
std::string escapeForMessage(std::string_view text);

// Why a layer could not be read, and where: line and column count from 1, columns in bytes. A file
// that could not be opened at all has line 0.
struct ReadError {
  std::string file;
  std::uint32_t line = 0;
  std::uint32_t column = 0;
  std::string message;

  // "file:line:column: message", the one-line form tools print; always valid UTF-8.
  std::string describe() const {
    if (line == 0)
      return escapeForMessage(file + ": " + message);
    return escapeForMessage(file + ":" + std::to_string(line) + ":" + std::to_string(column) +
                            ": " + message);
  }
};

}  // namespace orvan::engine
