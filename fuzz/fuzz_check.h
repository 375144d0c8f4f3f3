// FUZZ_CHECK: the fuzz targets' assertion. A broken property is a finding, so
// it prints what failed and aborts, which libFuzzer reports as a crash with
// the input saved. Active in every build type (unlike assert).
#pragma once

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(cond, ...)                                                  \
  do {                                                                         \
    if (!(cond)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s: ", __FILE__, __LINE__, #cond); \
      fprintf(stderr, __VA_ARGS__);                                            \
      fprintf(stderr, "\n");                                                   \
      abort();                                                                 \
    }                                                                          \
  } while (0)
