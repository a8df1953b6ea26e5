#pragma once

// Invariant checks for the fuzz targets. A broken invariant aborts, which libFuzzer reports as a
// crash with the input that caused it, and which fails the corpus replay under CTest.

#include <cstdio>
#include <cstdlib>
#include <string_view>

#define FUZZ_CHECK(condition)                                                                \
  do {                                                                                       \
    if (!(condition)) {                                                                      \
      std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                          \
    }                                                                                        \
  } while (0)

namespace orvan::client::fuzz {

inline bool is_c_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

inline bool is_drive_path(std::string_view text) {
  const bool letter =
      !text.empty() && ((text[0] >= 'a' && text[0] <= 'z') || (text[0] >= 'A' && text[0] <= 'Z'));
  return text.size() >= 3 && letter && text[1] == ':' && text[2] == '/';
}

}  // namespace orvan::client::fuzz
