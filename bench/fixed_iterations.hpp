// A run length that bench/callgrind.py can set: with VTLOG_BENCH_ITERATIONS=N in the
// environment, a benchmark that applies fixed_iterations runs once, for exactly N iterations,
// instead of timing itself. Two runs of different lengths then differ by exactly the work of
// the extra iterations, whatever the set-up costs.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace vtlog_bench {

inline void fixed_iterations(benchmark::internal::Benchmark* benchmark)
{
    if (char const* const iterations = std::getenv("VTLOG_BENCH_ITERATIONS")) {
        benchmark->Iterations(std::strtoll(iterations, nullptr, 10));
    }
}

} // namespace vtlog_bench
