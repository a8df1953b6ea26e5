#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace orvan::engine {

// A 64-bit FNV-1a digest: the same bytes give the same value on every run, which is all that
// entity tags and catalogue keys need from it.
inline std::uint64_t fnv1a64(std::string_view bytes, std::uint64_t seed = 0xcbf29ce484222325ull) {
  std::uint64_t hash = seed;
  for (const char c : bytes) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ull;
  }
  return hash;
}

inline std::string hex64(std::uint64_t value) {
  char buffer[17];
  std::snprintf(buffer, sizeof buffer, "%016llx", static_cast<unsigned long long>(value));
  return buffer;
}

}  // namespace orvan::engine
