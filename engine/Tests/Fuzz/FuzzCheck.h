#pragma once

// Invariant checks for the engine's fuzz targets. A broken invariant aborts, which libFuzzer
// reports as a crash with the input that caused it, and which fails the corpus replay under CTest.

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                                \
  do {                                                                                       \
    if (!(condition)) {                                                                      \
      std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                          \
    }                                                                                        \
  } while (0)
