#pragma once

#include <string>
#include <string_view>

#include "orvan/wire/Error.h"

namespace orvan::engine {

// The SHA-256 digest of `text`, as 64 lower-case hex digits.
std::string sha256Hex(std::string_view text);

// Whether two secrets are equal, in time that depends on neither their contents nor where they
// differ: both are hashed first, so the comparison always covers 32 bytes. An empty `expected`
// never matches.
bool sameSecret(std::string_view given, std::string_view expected);

// `bytes` random bytes from the system's generator, as hex digits.
std::string randomHex(std::size_t bytes);

struct Secret {
  std::string text = {};
};

// A secret kept in a file: its first line without the line break and surrounding blanks. Fails
// with the reason when the file cannot be read or holds nothing.
editor::Result<Secret, std::string> readSecretFile(const std::string& path);

}  // namespace orvan::engine
