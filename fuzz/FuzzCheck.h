#pragma once

// A broken promise found by a harness: print what was expected and abort, so
// that libFuzzer keeps the input as a crash like any sanitizer report.

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition, ...)                                            \
  do {                                                                        \
    if (!(condition)) {                                                       \
      std::fprintf(stderr, "FUZZ_CHECK failed at %s:%d: %s\n  ", __FILE__,    \
                   __LINE__, #condition);                                     \
      std::fprintf(stderr, __VA_ARGS__);                                      \
      std::fputc('\n', stderr);                                               \
      std::abort();                                                           \
    }                                                                         \
  } while (false)
