// The sensor sizes every benchmark sweeps: full HD, 12 MP and 48 MP (the
// largest whose statistics block still fits a buffer).
#pragma once

#include <benchmark/benchmark.h>

inline void flickerGeometries(benchmark::internal::Benchmark* b) {
  b->ArgNames({"w", "h"});
  b->Args({1920, 1080});
  b->Args({4000, 3000});
  b->Args({8000, 6000});
}
